// SPDX-License-Identifier: MIT
// A client that boots, stage after stage, at its end of the cable.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "rehearsal/bootparams.hpp"
#include "rehearsal/cable.hpp"
#include "rehearsal/started_daemons.hpp"
#include "server/bootparams_text.hpp"
#include "server/checks/finding.hpp"
#include "server/client_kind.hpp"

namespace hostadm::rehearsal {

// The client as this server's tables know it.
struct BootingClient {
    std::string name, address, ethernet;
    std::vector<server::BootparamsItem> items; // of its entry in bootparams
    std::vector<std::string> boot_files; // names that TFTP must know: its digits, with and without suffix

    const server::BootparamsItem *item(std::string_view key) const;
    server::ClientKind kind = server::ClientKind::unknown;
    // It only installs itself from here: its root is read and never written.
    bool installs() const { return kind == server::ClientKind::install || item("install") != nullptr; }
    bool starts_from_own_disk() const {
        return kind == server::ClientKind::dataless || kind == server::ClientKind::diskfull;
    }
};
BootingClient read_client(const std::string &name);

// A question and what became of it.
struct Exchange {
    std::string to; // the daemon that is asked
    std::string question, answer;
    bool answered = true;
};

struct StageResult {
    enum class Outcome { passed, failed, skipped } outcome = Outcome::passed;
    server::Stage stage = server::Stage::address;
    std::string name, detail;
    double milliseconds = 0;
};

struct Walked {
    std::vector<StageResult> stages;
    std::vector<Exchange> exchanges;
    server::Findings findings;               // what stopped it, and what was noticed on the way
    std::vector<std::string> not_tried;      // what could not be rehearsed here
    std::map<std::string, std::string> seen; // what the daemons said, to be compared with the live ones

    bool passed() const;
};

// Everything that a stage needs.
struct Journey {
    const BootingClient &client;
    const Network &network;
    const Cable &cable;
    const std::vector<Started> &daemons;
    Walked &walked;

    std::string own_address = {};    // learned by reverse ARP
    std::string server_address = {}; // of who answered
    // Of a PC: what the boot server of that address gives, and the folder of its kernel.
    struct BootFile {
        std::string server, name;
    };
    std::vector<BootFile> boot_files = {};
    std::string system = {};
    std::string own_name = {};                      // learned by WHOAMI
    std::map<std::string, FileOfClient> files = {}; // learned by GETFILE

    const Started &daemon(Service service) const;
    void note(const std::string &to, const std::string &question, const std::string &answer, bool answered);
    void find(server::Severity severity, server::Stage stage, const std::string &where,
              const std::string &what, const std::string &why, const std::string &repair);
};

// Walks until a stage fails; each result is told when it is there. For a process in the throwaway root, whose
// daemons are started.
Walked walk(const BootingClient &client, const Network &network, const Cable &cable,
            const std::vector<Started> &daemons, const std::function<void(const StageResult &)> &tell);

} // namespace hostadm::rehearsal
