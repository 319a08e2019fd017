// SPDX-License-Identifier: MIT
#include "rehearsal/walk.hpp"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <stdexcept>

#include "base/text.hpp"
#include "base/this_host.hpp"
#include "base/translation.hpp"
#include "rehearsal/stages.hpp"
#include "server/boot_area.hpp"
#include "server/bootparams.hpp"
#include "server/checks/system_tables.hpp"
#include "server/host_tables.hpp"

namespace hostadm::rehearsal {

namespace {

constexpr BootStage pc_table[] = {
    {base::translatable("address"), server::Stage::address, learn_address_by_dhcp},
    {base::translatable("boot loader"), server::Stage::boot_program, load_boot_loaders},
    {base::translatable("menu"), server::Stage::boot_program, load_menu},
    {base::translatable("kernel"), server::Stage::boot_program, load_kernel},
    {base::translatable("root"), server::Stage::root, mount_root},
    {base::translatable("start"), server::Stage::start, read_what_starts},
    {base::translatable("write"), server::Stage::start, write_to_root},
    {base::translatable("swap"), server::Stage::swap, use_swap},
};

constexpr BootStage table[] = {
    {base::translatable("address"), server::Stage::address, learn_address},
    {base::translatable("boot program"), server::Stage::boot_program, load_boot_program},
    {base::translatable("name"), server::Stage::name, learn_name},
    {base::translatable("parameters"), server::Stage::parameters, learn_parameters},
    {base::translatable("root"), server::Stage::root, mount_root},
    {base::translatable("start"), server::Stage::start, read_what_starts},
    {base::translatable("write"), server::Stage::start, write_to_root},
    {base::translatable("swap"), server::Stage::swap, use_swap},
};

std::vector<server::BootparamsItem> items_of(const std::string &client) {
    std::vector<server::BootparamsItem> items;
    const std::string text = server::client_items(client);
    // Items that the method would refuse to write are this server's all the same.
    for (const std::string_view word : base::words_of(text)) {
        const std::size_t equals = word.find('='), colon = word.find(':', equals);
        if (equals == word.npos || colon == word.npos)
            continue;
        items.push_back({std::string(word.substr(0, equals)),
                         std::string(word.substr(equals + 1, colon - equals - 1)),
                         std::string(word.substr(colon + 1))});
    }
    return items;
}

// The Ethernet table may have a client by another of its names, or by its address.
std::string ethernet_by_other_names(const BootingClient &client) {
    const server::KeyTable ethers = server::parse_ethers(server::read_table("/etc/ethers"));
    const server::KeyTable hosts = server::parse_hosts(server::read_table("/etc/hosts"));
    for (const server::KeyLine *line : hosts.with_name(client.name))
        for (const std::string &name : line->names)
            if (const auto lines = ethers.with_name(name); !lines.empty())
                return lines.front()->key;
    const auto lines = ethers.with_name(client.address);
    return lines.empty() ? "" : lines.front()->key;
}

} // namespace

std::span<const BootStage> boot_stages(server::ClientKind kind) {
    if (kind == server::ClientKind::pc)
        return pc_table;
    return table;
}

const server::BootparamsItem *BootingClient::item(std::string_view key) const {
    const auto found =
        std::find_if(items.begin(), items.end(), [&](const auto &each) { return each.key == key; });
    return found == items.end() ? nullptr : &*found;
}

BootingClient read_client(const std::string &name) {
    BootingClient client;
    client.name = server::client_name_as_written(name);
    client.ethernet = server::ethers_table().key_of(client.name);
    client.address = server::hosts_table().key_of(client.name);
    if (client.address.empty())
        client.address = base::address_of_host(client.name);
    if (client.ethernet.empty())
        client.ethernet = ethernet_by_other_names(client);
    client.items = items_of(client.name);
    client.kind = server::kind_of(server::client_items(client.name));
    if (const std::string digits = server::address_digits(client.address); !digits.empty()) {
        const bool is_pc = client.kind == server::ClientKind::pc;
        client.boot_files.push_back(is_pc ? "grub/grub.cfg-" + digits : digits);
        for (const server::BootLink &link : server::boot_links_of(client.address))
            if (link.name != digits)
                client.boot_files.push_back(link.name);
    }
    return client;
}

bool Walked::passed() const {
    return !stages.empty() && std::none_of(stages.begin(), stages.end(), [](const StageResult &stage) {
        return stage.outcome == StageResult::Outcome::failed;
    });
}

const Started &Journey::daemon(Service service) const {
    return *std::find_if(daemons.begin(), daemons.end(),
                         [&](const Started &daemon) { return daemon.start.service == service; });
}

void Journey::note(const std::string &to, const std::string &question, const std::string &answer,
                   bool answered) {
    walked.exchanges.push_back({to, question, answer, answered});
}

void Journey::find(server::Severity severity, server::Stage stage, const std::string &where,
                   const std::string &what, const std::string &why, const std::string &repair) {
    walked.findings.push_back({.check = "rehearsal",
                               .severity = severity,
                               .stage = stage,
                               .client = client.name,
                               .where = where,
                               .what = what,
                               .why = why,
                               .repair = repair});
}

Walked walk(const BootingClient &client, const Network &network, const Cable &cable,
            const std::vector<Started> &daemons, const std::function<void(const StageResult &)> &tell) {
    using Clock = std::chrono::steady_clock;
    Walked walked;
    Journey journey{
        .client = client, .network = network, .cable = cable, .daemons = daemons, .walked = walked};
    for (const BootStage &stage : boot_stages(client.kind)) {
        const auto begin = Clock::now();
        StageEnd end;
        try {
            end = stage.walk(journey);
        } catch (const std::exception &failure) {
            end = failed(failure.what());
        }
        const std::chrono::duration<double, std::milli> took = Clock::now() - begin;
        walked.stages.push_back({.outcome = end.outcome,
                                 .stage = stage.stage,
                                 .name = stage.name,
                                 .detail = end.detail,
                                 .milliseconds = took.count()});
        tell(walked.stages.back());
        if (end.outcome == StageResult::Outcome::failed)
            break;
    }
    return walked;
}

} // namespace hostadm::rehearsal
