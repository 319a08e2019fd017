// SPDX-License-Identifier: MIT
#include "server/checks/registry.hpp"

#include <algorithm>
#include <numeric>

#include "base/text.hpp"

namespace hostadm::server {

namespace {

// How many letters must be put in, left out or changed to make one of the other.
std::size_t distance(std::string_view one, std::string_view other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t changed = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

bool is_asked(const std::vector<std::string> &names, const std::string &client) {
    return names.empty() || std::any_of(names.begin(), names.end(), [&](const std::string &name) {
               return base::lower_case(name) == base::lower_case(client);
           });
}

} // namespace

const std::vector<Check> &all_checks() {
    static const std::vector<Check> checks = {};
    return checks;
}

Findings check(const Snapshot &server, const std::vector<std::string> &clients) {
    Findings all;
    const auto add = [&](const Check &by, Findings found) {
        for (Finding &finding : found) {
            if (!finding.client.empty() && !is_asked(clients, finding.client))
                continue;
            finding.check = by.name;
            all.push_back(std::move(finding));
        }
    };
    for (const Check &one : all_checks()) {
        if (one.of_server != nullptr)
            add(one, one.of_server(server));
        if (one.of_client != nullptr)
            for (const Client &client : server.clients)
                if (is_asked(clients, client.name))
                    add(one, one.of_client(server, client));
    }
    std::stable_sort(all.begin(), all.end(), [](const Finding &one, const Finding &other) {
        return std::pair(one.severity, one.stage) < std::pair(other.severity, other.stage);
    });
    return all;
}

std::vector<std::string> nearest_clients(const Snapshot &server, const std::string &name) {
    std::vector<std::pair<std::size_t, std::string>> near;
    const std::string wanted = base::lower_case(name);
    for (const Client &client : server.clients)
        if (const std::size_t away = distance(wanted, base::lower_case(client.name));
            away <= wanted.size() / 2 + 1)
            near.emplace_back(away, client.name);
    std::sort(near.begin(), near.end());
    near.resize(std::min<std::size_t>(near.size(), 3));
    std::vector<std::string> names;
    for (auto &[away, client] : near)
        names.push_back(std::move(client));
    return names;
}

} // namespace hostadm::server
