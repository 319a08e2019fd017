// SPDX-License-Identifier: MIT
// Installing packages into a root under the rules of an admin file.
#pragma once

#include <csignal>
#include <string>
#include <vector>

#include "compat/packages/package.hpp"
#include "compat/packages/root.hpp"
#include "compat/support/failure.hpp"

namespace compat {

enum PkgaddStatus {
    pkgadd_done = 0,
    pkgadd_failed = 1,
    pkgadd_interrupted = 3,
    pkgadd_refused = 4,
    pkgadd_asks = 5
};

// A failure that has an exit status of its own.
class Refusal : public Failure {
public:
    Refusal(PkgaddStatus status, const std::string &text) : Failure(text), status_(status) {}
    PkgaddStatus status() const { return status_; }

private:
    PkgaddStatus status_;
};

// The admin file: which checks stop an installation.
struct Admin {
    std::string base; // empty: the package's own
    std::string instance = "unique";
    bool space = true;
    bool set_user = false;
    bool conflict = false;
    bool prerequisites = false;

    static Admin parse(const std::string &text);
};

// Checks all packages and installs them one after another, each whole or not at all. `report` gets a line for
// each one that was installed. A raised `interrupted` stops at the next object.
class Installer {
public:
    Installer(const Root &root, const Admin &admin, const volatile std::sig_atomic_t &interrupted)
        : root_(root), admin_(admin), accounts_(root), interrupted_(interrupted) {}

    void install(const std::vector<Package> &packages, bool quiet);

private:
    struct Installed {
        std::string instance;
        std::map<std::string, std::string> info;
    };
    struct Plan {
        const Package *package;
        std::string instance;
        bool again = false; // the same version stands there already
        std::vector<const Entry *> place;
        std::vector<std::string> kept; // edited files that are left alone
    };

    Plan plan(const Package &package) const;
    std::vector<Installed> installed(const std::string &name) const;
    void choose_instance(Plan &plan) const;
    void check(const Plan &plan) const;
    void check_space(const std::vector<Plan> &plans) const;
    bool is_edited(const Entry &entry, const std::string &old_map) const;
    bool is_in_place(const Entry &entry) const;
    void carry_out(const Plan &plan) const;
    std::string record_info(const Plan &plan) const;
    std::string new_contents(const Plan &plan) const;
    void check_interrupt() const;

    const Root &root_;
    Admin admin_;
    Accounts accounts_;
    const volatile std::sig_atomic_t &interrupted_;
};

} // namespace compat
