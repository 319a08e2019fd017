// SPDX-License-Identifier: MIT
// The boots that are heard on a wire, told in a line for each thing that a client asks and gets.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>

#include "rehearsal/wire.hpp"

namespace hostadm::rehearsal {

// What this server's tables say of an Ethernet address and of an address; empty: nothing.
struct KnownClients {
    std::function<std::string(const std::string &ethernet)> name_by_ethernet;
    std::function<std::string(const std::string &address)> name_by_address;
    // Why a client may get no answer at a stage, in the terms of the checks; empty: nothing is known to be wrong.
    std::function<std::string(const std::string &client, server::Stage)> why_silent;
};

class BootLog {
public:
    // only: the name of the one client to tell about; empty: all.
    BootLog(KnownClients known, std::string only, std::function<void(Time, const std::string &)> tell)
        : known_(std::move(known)), only_(std::move(only)), tell_(std::move(tell)) {}

    void hear(Time now, const Heard &heard);
    // To be called now and then: questions that stayed without an answer are told.
    void look_at_silences(Time now);
    // How far each client came, a line each.
    void tell_end(Time now);

    // Whether any client came as far as its root.
    bool somebody_started() const;

private:
    struct Question {
        Time asked{}, first{};
        int times = 0;
        bool told = false;
        server::Stage stage{};
    };
    struct Client {
        std::string name;
        int reached = -1; // the stage of its last answer
        std::map<std::string, Question> open;
        std::set<std::string> said; // what is told once
        std::string last;
    };

    Client *client_of(Time now, const Heard &heard);
    void say(Time now, const Client &client, const std::string &text) const {
        tell_(now, client.name + " " + text);
    }

    KnownClients known_;
    std::string only_;
    std::function<void(Time, const std::string &)> tell_;
    std::map<std::string, Client> clients_; // by name, or by Ethernet address
};

} // namespace hostadm::rehearsal
