// SPDX-License-Identifier: MIT
#include "cli/on_hosts.hpp"

#include <algorithm>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <variant>

#include "base/descriptor.hpp"
#include "base/program.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"

namespace hostadm::cli {

namespace {

using framework::Outcome;
using Status = Outcome::Status;

// What is wrong with the hosts, or they.
std::variant<std::vector<std::string>, std::string> hosts_of(const std::vector<std::string> &lists) {
    std::vector<std::string> hosts;
    for (const std::string &list : lists)
        for (const std::string_view host : base::split(list, ',')) {
            if (host.empty())
                return base::tr("--host: the host has no name; leave the option out to run it here");
            if (std::find(hosts.begin(), hosts.end(), host) != hosts.end())
                return base::tr("--host: {1} is given twice", printable(host));
            hosts.emplace_back(host);
        }
    return hosts;
}

// Shows the outcomes in the order in which the hosts were given, each as soon as it and those before it are
// there.
class Reports {
public:
    Reports(const Invocation &invocation, const std::vector<std::string> &hosts,
            const std::function<OnHost(Outcome)> &take)
        : invocation_(invocation), hosts_(hosts), take_(take), outcomes_(hosts.size()) {}

    void take(std::size_t at, Outcome outcome) {
        outcomes_[at] = std::move(outcome);
        for (; next_ < outcomes_.size() && outcomes_[next_]; ++next_) {
            show(hosts_[next_], take_(std::move(*outcomes_[next_])));
            outcomes_[next_].reset();
        }
    }

    // The exit status of all.
    int finish() const {
        if (invocation_.json)
            print_json(hosts_.size() == 1 ? list_.front() : list_);
        return any_failed_ ? failed : any_invalid_ ? usage : done;
    }

private:
    void show(const std::string &host, const OnHost &came) {
        any_failed_ = any_failed_ || came.outcome.status == Status::failed || came.complaint;
        any_invalid_ = any_invalid_ || came.outcome.status == Status::invalid;
        if (invocation_.json) {
            Json json = json_of(invocation_.method, came.outcome);
            json.update(came.more);
            json["host"] = to_json(host);
            list_.push_back(std::move(json));
        } else {
            if (hosts_.size() > 1)
                print((next_ == 0 ? "" : "\n") + printable(host) + ":\n");
            print_results(came.outcome.answer);
            came.print();
        }
        const std::string where = hosts_.size() == 1 ? "" : host + ": ";
        print_errors(where + invocation_.method, came.outcome);
        if (came.complaint)
            print_error(where + "preview", *came.complaint);
    }

    const Invocation &invocation_;
    const std::vector<std::string> &hosts_;
    const std::function<OnHost(Outcome)> &take_;
    std::vector<std::optional<Outcome>> outcomes_;
    std::size_t next_ = 0;
    Json list_ = Json::array();
    bool any_failed_ = false, any_invalid_ = false;
};

int on_these(const std::vector<std::string> &hosts, const Invocation &invocation, HostOptions &asked,
             const std::function<OnHost(Outcome)> &take, framework::Values settings) {
    auto request = request_of(invocation);
    if (auto *defect = std::get_if<std::string>(&request))
        return report(invocation, {Status::invalid, {}, std::move(*defect)});
    Reports reports(invocation, hosts, take);
    asked.reach.done = [&](std::size_t at, Outcome outcome) { reports.take(at, std::move(outcome)); };
    asked.reach.say = [&](const std::string &host, const std::string &line) {
        base::write_all(STDERR_FILENO, (hosts.size() == 1 ? "" : host + ": ") + line + "\n");
    };
    // The keyboard's signals reach what runs now, but not what would be started next.
    const base::SignalsPassedOn passed_on(-1, base::SignalsPassedOn::Keyboard::is_passed_on);
    std::get<framework::Request>(request).settings = std::move(settings);
    framework::perform_on(hosts, invocation.method, std::move(std::get<framework::Request>(request)),
                          asked.reach);
    return reports.finish();
}

} // namespace

void add_host_options(CLI::App &command, HostOptions &asked, const std::string &description) {
    constexpr int longest = 1'000'000; // seconds
    auto *host = command.add_option("--host", asked.lists, description);
    host->type_name("[USER@]HOST")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->allow_extra_args(false);
    command.add_flag("--sudo", asked.reach.sudo, base::tr("become root there by sudo, without a password"))
        ->needs(host);
    command
        .add_option("--connect-timeout", asked.reach.connect_limit,
                    base::tr("how long a host may take to let the command begin; 30 if not said"))
        ->type_name("SECONDS")
        ->check(CLI::Range(1, longest).description(""))
        ->needs(host);
    command
        .add_option("--answer-timeout", asked.reach.answer_limit,
                    base::tr("how long the method may take there; without end if not said"))
        ->type_name("SECONDS")
        ->check(CLI::Range(1, longest).description(""))
        ->needs(host);
    command
        .add_option("--at-once", asked.reach.at_once,
                    base::tr("so many hosts beside each other; 8 if not said"))
        ->type_name("NUMBER")
        ->check(CLI::Range(1, 100).description(""))
        ->needs(host);
}

std::optional<int> on_hosts(const Invocation &invocation, HostOptions &asked,
                            const std::function<OnHost(Outcome)> &take, framework::Values settings) {
    const auto hosts = hosts_of(asked.lists);
    if (const auto *defect = std::get_if<std::string>(&hosts)) {
        print_error("", *defect);
        return usage;
    }
    const auto &names = std::get<std::vector<std::string>>(hosts);
    if (names.empty())
        return std::nullopt;
    return on_these(names, invocation, asked, take, std::move(settings));
}

} // namespace hostadm::cli
