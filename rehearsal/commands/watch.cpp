// SPDX-License-Identifier: MIT
// watch: tells what clients that boot ask and get. `hostadm watch` runs it.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <map>
#include <memory>
#include <pcap/pcap.h>
#include <poll.h>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "rehearsal/boot_log.hpp"
#include "rehearsal/daemon_logs.hpp"
#include "rehearsal/network.hpp"
#include "server/boot_area.hpp"
#include "server/bootparams.hpp"
#include "server/checks/registry.hpp"
#include "server/host_tables.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::rehearsal;

constexpr int done = 0, failed = 1, usage = 2;

struct Asked {
    std::string client, interface, recording, record_to;
    double seconds = 0;
    bool until_started = false;
};

int complain(const std::string &text, int status) {
    std::fprintf(stderr, "hostadm: watch: %s\n", text.c_str());
    return status;
}

std::string printable(std::string_view text) {
    std::string safe;
    for (const char c : text)
        safe += static_cast<unsigned char>(c) < ' ' || c == 0x7f ? '?' : c;
    return safe;
}

std::atomic<bool> asked_to_stop = false;

void stop(int) {
    asked_to_stop = true;
}

using Capture = std::unique_ptr<pcap_t, decltype(&pcap_close)>;

// "8:0:20:a:b:c" and "08:00:20:0A:0B:0C" are one address.
std::string plain_ethernet(std::string text) {
    std::string plain;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find(':', begin), text.size());
        std::string part = base::lower_case(text.substr(begin, end - begin));
        plain += (plain.empty() ? "" : ":") + (part.size() == 1 ? "0" + part : part);
        begin = end + 1;
    }
    return plain;
}

// What the tables say, read at most once a second: a client asks for thousands of blocks.
class Tables {
public:
    std::string by_ethernet(const std::string &ethernet) {
        renew();
        return value_of(by_ethernet_, plain_ethernet(ethernet));
    }
    std::string by_address(const std::string &address) {
        renew();
        return value_of(by_address_, address);
    }

private:
    using Clock = std::chrono::steady_clock;
    using Names = std::map<std::string, std::string>;

    static std::string value_of(const Names &names, const std::string &key) {
        const auto found = names.find(key);
        return found == names.end() ? "" : found->second;
    }
    void renew() {
        if (Clock::now() - read_ < std::chrono::seconds(1))
            return;
        read_ = Clock::now();
        by_ethernet_.clear();
        by_address_.clear();
        const auto ethernets = server::ethers_table().keys_by_name();
        for (const auto &[name, ethernet] : ethernets)
            by_ethernet_[plain_ethernet(ethernet)] = name;
        for (const auto &[name, address] : server::hosts_table().keys_by_name())
            if (ethernets.contains(name) ||
                !server::client_items(server::client_name_as_written(name)).empty())
                by_address_[address] = name;
    }

    Clock::time_point read_{};
    Names by_ethernet_, by_address_;
};

KnownClients known_clients(bool explain) {
    const auto tables = std::make_shared<Tables>();
    return {
        .name_by_ethernet = [tables](const std::string &ethernet) { return tables->by_ethernet(ethernet); },
        .name_by_address = [tables](const std::string &address) { return tables->by_address(address); },
        .why_silent =
            [explain](const std::string &client, server::Stage stage) {
                if (!explain)
                    return std::string();
                for (const server::Finding &finding : server::check(server::read_snapshot(), {client}))
                    if (finding.stage == stage && finding.severity == server::Severity::error)
                        return finding.repair.empty() ? finding.where + ": " + finding.what
                                                      : base::tr("{1}: {2}; repair: {3}", finding.where,
                                                                 finding.what, finding.repair);
                return std::string();
            }};
}

Capture open_capture(const Asked &asked) {
    char error[PCAP_ERRBUF_SIZE] = "";
    pcap_t *handle = nullptr;
    if (!asked.recording.empty()) {
        handle = pcap_open_offline(asked.recording.c_str(), error);
    } else {
        constexpr int longest = 1024, patience = 100;
        const bool everything = true;
        handle = pcap_open_live(asked.interface.c_str(), longest, everything, patience, error);
    }
    if (handle == nullptr)
        throw std::runtime_error(asked.recording.empty()
                                     ? base::tr("{1}; listening on the wire needs root", error)
                                     : std::string(error));
    return {handle, pcap_close};
}

Framing framing_of(pcap_t *capture) {
    switch (pcap_datalink(capture)) {
    case DLT_EN10MB:
        return Framing::ethernet;
    case DLT_LINUX_SLL:
        return Framing::cooked;
    case DLT_LINUX_SLL2:
        return Framing::cooked_2;
    default:
        throw std::runtime_error(base::tr("frames of the kind {1} cannot be read",
                                          pcap_datalink_val_to_name(pcap_datalink(capture))));
    }
}

// The interface in the client's network; without a client all of them at once.
std::string interface_for(const std::string &client) {
    const std::string address = client.empty() ? "" : server::hosts_table().key_of(client);
    const Network network = network_of_this_server();
    const Interface *interface = interface_towards(network, address);
    return interface == nullptr ? "any" : interface->name;
}

int watch(Asked asked) {
    const bool live = asked.recording.empty();
    if (live && asked.interface.empty())
        asked.interface = interface_for(asked.client);
    const Capture capture = open_capture(asked);
    Wire wire(framing_of(capture.get()));
    const std::unique_ptr<pcap_dumper_t, decltype(&pcap_dump_close)> record(
        asked.record_to.empty() ? nullptr : pcap_dump_open(capture.get(), asked.record_to.c_str()),
        pcap_dump_close);
    if (!asked.record_to.empty() && !record)
        throw std::runtime_error(pcap_geterr(capture.get()));

    Time beginning{-1};
    BootLog log(known_clients(live), asked.client, [&](Time now, const std::string &text) {
        std::printf("%9.3f  %s\n", (now - beginning).count(), printable(text).c_str());
        std::fflush(stdout);
    });
    DaemonLogs daemon_logs;
    if (live) {
        std::printf("%s\n", base::tr("listening on {1}; Ctrl-C ends it", asked.interface).c_str());
        std::fflush(stdout);
    }
    const auto clock = [] {
        return std::chrono::duration_cast<Time>(std::chrono::system_clock::now().time_since_epoch());
    };
    if (live)
        beginning = clock();
    Time now = beginning;
    while (!asked_to_stop) {
        pcap_pkthdr *head = nullptr;
        const unsigned char *bytes = nullptr;
        const int got = pcap_next_ex(capture.get(), &head, &bytes);
        if (got == PCAP_ERROR)
            throw std::runtime_error(pcap_geterr(capture.get()));
        if (got == PCAP_ERROR_BREAK)
            break; // the end of the recording
        if (got == 1) {
            now = Time(static_cast<double>(head->ts.tv_sec) + static_cast<double>(head->ts.tv_usec) / 1e6);
            if (beginning.count() < 0)
                beginning = now;
            log.look_at_silences(now);
            if (record)
                pcap_dump(reinterpret_cast<unsigned char *>(record.get()), head, bytes);
            if (const auto heard = wire.read({reinterpret_cast<const char *>(bytes), head->caplen}))
                log.hear(now, *heard);
        }
        if (!live)
            continue;
        now = clock();
        log.look_at_silences(now);
        for (const std::string &line : daemon_logs.new_lines()) {
            std::printf("%9.3f  %s\n", (now - beginning).count(),
                        base::tr("log: {1}", printable(line)).c_str());
            std::fflush(stdout);
        }
        if ((asked.seconds > 0 && (now - beginning).count() > asked.seconds) ||
            (asked.until_started && log.somebody_started()))
            break;
    }
    // What was asked last had no time for an answer in a recording that ends there.
    if (live)
        log.look_at_silences(now);
    log.tell_end(now);
    return log.somebody_started() ? done : failed;
}

} // namespace

int main(int argc, char **argv) {
    base::speak_the_users_language();
    Asked asked;
    CLI::App app("", "watch");
    app.add_option("client", asked.client);
    app.add_option("--interface", asked.interface);
    app.add_option("--read", asked.recording);
    app.add_option("--record", asked.record_to);
    app.add_option("--seconds", asked.seconds);
    app.add_flag("--until-started", asked.until_started);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &wrong) {
        return complain(wrong.what(), usage);
    }
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        std::signal(signal, stop);
    try {
        return watch(asked);
    } catch (const std::exception &error) {
        return complain(error.what(), failed);
    }
}
