// SPDX-License-Identifier: MIT
// The steps. Each changes nothing where its work is done already, notes in the journal what it is about to
// do, and throws Recorded or std::runtime_error when it cannot be done.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "hostadm/method.hpp"
#include "methods/client/add_diskless/client.hpp"
#include "server/host_tables.hpp"
#include "server/undo.hpp"

namespace hostadm::diskless {

class Steps {
public:
    Steps(method::Call &call, const Client &client, server::Journal &journal)
        : call_(call), client_(client), journal_(journal) {}

    void make_root(bool known);
    void make_file(const std::string &step, const std::string &path, std::uint64_t size);
    void share(const std::string &path);
    void boot();
    void bootparams();
    void table(const std::string &step, const server::HostTable &table, const std::string &key);
    void daemons();
    void warnings();
    // Only now: of a run that failed nothing stays that could be told.
    void tell() {
        for (const auto &row : rows_)
            call_.row(row);
    }

private:
    void report(const std::string &step, bool changed, const std::string &detail) {
        rows_.push_back({{"step", step}, {"result", changed ? "done" : "unchanged"}, {"detail", detail}});
    }
    void warn(const std::string &step, const std::string &detail) {
        rows_.push_back({{"step", step}, {"result", "warning"}, {"detail", detail}});
    }
    void make_directories(const std::string &path);
    void note_new_table(const std::string &path);
    bool ensure_boot_program();

    method::Call &call_;
    const Client &client_;
    server::Journal &journal_;
    std::vector<std::vector<std::pair<std::string, std::string>>> rows_;
};

} // namespace hostadm::diskless
