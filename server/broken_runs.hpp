// SPDX-License-Identifier: MIT
// Runs that nobody was left to take back: the power went, or the method was killed. What such a run noted lies on
// the disk, in a file of its own, until the run is done or taken back; the next run that changes anything takes it back.
// For work that the same command, given once more, could not go on with.
#pragma once

#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "base/descriptor.hpp"
#include "hostadm/method.hpp"
#include "server/claims.hpp"
#include "server/journal.hpp"
#include "server/undo_context.hpp"

namespace hostadm::server {

inline constexpr const char *broken_runs_folder = "/var/lib/hostadm/unfinished";

// The first entry of every such run.
struct BegunRun {
    static constexpr std::string_view kind = "run";
    std::string method, subject;
    static auto fields(auto &self) { return std::tie(self.method, self.subject); }
};
std::string take_back(const BegunRun &run, const UndoContext &context);

// What a run had for itself, kept with the rest: whoever takes it back needs the same.
struct Claimed {
    static constexpr std::string_view kind = "claimed";
    std::string what, value;
    static auto fields(auto &self) { return std::tie(self.what, self.value); }
};
std::string take_back(const Claimed &claimed, const UndoContext &context);
void note_claims(Journal &journal, const std::vector<Claim> &claims);

// The file of one run, which is locked while the run lives.
class KeptFile {
public:
    // Throws Failure.
    KeptFile(const std::string &method, const std::string &subject,
             const std::string &folder = broken_runs_folder);
    ~KeptFile() = default;
    KeptFile(const KeptFile &) = delete;
    KeptFile &operator=(const KeptFile &) = delete;

    base::Descriptor descriptor() const; // another one of the same open file
    // The run is over; when this returns no power cut brings it back. Throws Failure.
    void forget();

private:
    std::string folder_, path_;
    base::Descriptor file_;
};

struct BrokenRun {
    std::string path; // of its file
    std::string method, subject;
    std::vector<Written> entries;
};

// Those of which no process is left. Throws Failure when the folder cannot be read.
std::vector<BrokenRun> broken_runs(const std::string &folder = broken_runs_folder);

// Takes back all of them, and tells it on standard error. One that somebody else takes back at this moment, or whose
// client somebody works on, is left to him.
void take_back_broken_runs(method::Call &call, const std::string &folder = broken_runs_folder,
                           const std::string &claims_folder = Claims::default_folder());

} // namespace hostadm::server
