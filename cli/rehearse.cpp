// SPDX-License-Identifier: MIT
// hostadm rehearse and hostadm watch: programs of their own, which this one becomes.
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

#include "base/translation.hpp"
#include "cli/commands.hpp"
#include "cli/own_programs.hpp"

namespace hostadm::cli {

namespace {

int become(const std::string &name, std::vector<std::string> words) {
    const std::string program = own_program(name);
    words.insert(words.begin(), name);
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    execv(program.c_str(), arguments.data());
    throw std::runtime_error(base::tr("{1} cannot be run: {2}", program, std::strerror(errno)));
}

} // namespace

void add_rehearse(CLI::App &app, Work &chosen) {
    static std::string client, picture;
    static bool json, watch, at_boot;
    CLI::App *command = app.add_subcommand(
        "rehearse", base::tr("let a client boot on a virtual cable, and tell what is wrong"));
    command->add_option("client", client, base::tr("a client of this server"))
        ->option_text("CLIENT")
        ->required();
    command->add_flag("--json", json, base::tr("print it as JSON"));
    command->add_flag("--watch", watch,
                      base::tr("again whenever a table, a setting or a daemon changes, until it boots"));
    command->add_flag(
        "--at-boot", at_boot,
        base::tr("with the daemons as this server starts them when it boots, not as they run now"));
    command->add_option("--sequence", picture, base::tr("draw who asked whom into this file (SVG)"))
        ->type_name("FILE");
    command->callback([&chosen] {
        chosen = [] {
            std::vector<std::string> words;
            const auto add = [&](bool wanted, const char *word) {
                if (wanted)
                    words.emplace_back(word);
            };
            add(json, "--json");
            add(watch, "--watch");
            add(at_boot, "--at-boot");
            if (!picture.empty())
                words.push_back("--sequence=" + picture);
            words.insert(words.end(), {"--", client});
            return become("rehearse", words);
        };
    });
    command->footer(base::tr(
        "Starts this server's own daemons once more, in a throwaway root and a private network, and lets a "
        "client ask them what one asks that boots. Nothing on the system changes. Needs root.\nExit status: "
        "0 it boots and nothing is wrong, 1 something is, 2 no such client or wrong usage."));
}

void add_watch(CLI::App &app, Work &chosen) {
    static std::string client, interface, recording, record_to, seconds;
    static bool until_started;
    CLI::App *command =
        app.add_subcommand("watch", base::tr("tell what clients that boot ask and get, while they do"));
    command->add_option("client", client, base::tr("only this one"))->option_text("CLIENT");
    command->add_option("--interface", interface, base::tr("listen on this one"))->type_name("NAME");
    command->add_option("--read", recording, base::tr("read a recording (pcap) instead of the wire"))
        ->type_name("FILE");
    command->add_option("--record", record_to, base::tr("keep what is heard in this file (pcap)"))
        ->type_name("FILE");
    command->add_option("--seconds", seconds, base::tr("end after this time"))->type_name("NUMBER");
    command->add_flag("--until-started", until_started,
                      base::tr("end when a client works with the files of its root"));
    command->callback([&chosen] {
        chosen = [] {
            std::vector<std::string> words;
            for (const auto &[name, value] : {std::pair("--interface=", interface),
                                              {"--read=", recording},
                                              {"--record=", record_to},
                                              {"--seconds=", seconds}})
                if (!value.empty())
                    words.push_back(name + value);
            if (until_started)
                words.emplace_back("--until-started");
            if (!client.empty())
                words.insert(words.end(), {"--", client});
            return become("watch", words);
        };
    });
    command->footer(
        base::tr("A line for each thing that a client asks and gets, for what a silence means, and for what "
                 "the daemons log; at the end how far each came. Needs root for the wire.\nExit status: 0 a "
                 "client came as far as its root, 1 none did, 2 wrong usage."));
}

} // namespace hostadm::cli
