// SPDX-License-Identifier: MIT
// Work of several steps that is to leave nothing half done, however it ends: by a failure, by a library function
// that ends the process, by a signal.
#pragma once

#include <csignal>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "hostadm/method.hpp"
#include "server/boot_area.hpp"
#include "server/boot_tree.hpp"
#include "server/bootparams.hpp"
#include "server/broken_runs.hpp"
#include "server/client_change.hpp"
#include "server/dhcp_server.hpp"
#include "server/disabling.hpp"
#include "server/files.hpp"
#include "server/filling.hpp"
#include "server/host_tables.hpp"
#include "server/journal.hpp"
#include "server/line_edits.hpp"
#include "server/pc_client.hpp"
#include "server/root_tables.hpp"
#include "server/rpl_area.hpp"
#include "server/services.hpp"
#include "server/shares.hpp"
#include "server/undo_context.hpp"

namespace hostadm::server {

// A path in the root of which the context knows what stood there, and which a run is about to change.
struct Touched {
    static constexpr std::string_view kind = "touched";
    std::string path;
    static auto fields(auto &self) { return std::tie(self.path); }
};
std::string take_back(const Touched &touched, const UndoContext &context);

// Every kind of entry that can be taken back.
using Entry =
    std::variant<MadeDirectory, MadeFile, NewTable, MadeRoot, FilledRoot, MadeShare, MadeBootLink,
                 ReplacedBootLink, MadeBootProgram, MadeRplFile, MadeRplLink, ReplacedRplLink, AddedItem,
                 AddedLine, BegunRun, Claimed, ReplacedLine, WithdrawnShare, ResumedShare, RenamedPath,
                 ResizedFile, RewrittenInRoot, MovedShare, InstalledPackages, MadeInRoot, MadeBootTree,
                 ChangedDhcpSettings, MadePcFile, ChangedPcMenu, Touched>;

// Nothing: its kind is not known here, or its fields are not those of its kind.
std::optional<Entry> read_any_entry(const Written &words);

// Takes back one entry. What had to stay, in words, or nothing; an entry that nobody can read stays.
std::string take_back(const Written &words, const UndoContext &context);

struct Ending {
    bool done = false;
    std::string reason =
        {}; // for a failure that has not recorded an error itself: "interrupted (SIGINT)", ...
};

// The signals by which a user ends a run: INT, TERM, HUP, QUIT.
const sigset_t &interruptions();

// Runs the work in a process of its own and waits for it. An interruption ends the work and all commands that it
// runs; from the call on it no longer ends this process, which has yet to take back what was done.
Ending run_apart(const std::function<int()> &work);

class Transaction {
public:
    // What it is done for, such as the client's name, and what stands at the paths that it may touch.
    Transaction(method::Call &call, std::string subject, std::vector<Remembered> state = {});
    // One of which also a power cut leaves nothing half done (server/broken_runs.hpp).
    struct Kept {
        std::string method; // with its class
    };
    Transaction(method::Call &call, std::string subject, const Kept &kept);

    Journal &journal() { return journal_; }
    bool did_anything() const { return !journal_.entries().empty(); }

    // Runs the work apart. True: it is done. Otherwise the failure is recorded, but nothing taken back yet.
    bool run(const std::function<int()> &work);
    // Runs the work apart, and takes back what it did when it fails. The method's status: 0 when it is done, otherwise 1.
    int run_whole(const std::function<int()> &work);
    // Takes back what the journal holds, the latest first. Says on standard error that all is back, or what is
    // left half done; an entry that nobody can read is left.
    void take_back();

private:
    method::Call &call_;
    std::string subject_;
    UndoContext context_;
    std::optional<KeptFile> file_;
    Journal journal_;
};

// Takes back the entries, the latest first. Tells what had to stay; true when nothing had to.
bool take_back_entries(method::Call &call, const std::vector<Written> &entries, const UndoContext &context);

} // namespace hostadm::server
