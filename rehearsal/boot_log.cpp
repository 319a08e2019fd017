// SPDX-License-Identifier: MIT
#include "rehearsal/boot_log.hpp"

#include <algorithm>

#include "base/text.hpp"
#include "base/translation.hpp"

namespace hostadm::rehearsal {

namespace {

using server::Stage;

// Longer than a busy server takes, shorter than a client waits before it gives up.
constexpr Time patience{1.5};

std::string meaning_of_silence(Stage stage) {
    switch (stage) {
    case Stage::address:
        return base::tr("nobody who hears it knows its Ethernet address, or its boot file is missing");
    case Stage::boot_program:
        return base::tr("no TFTP daemon runs or hears it");
    case Stage::name:
        return base::tr("rpcbind does not hand broadcasts on, or rpc.bootparamd does not know the client");
    case Stage::parameters:
        return base::tr("rpc.bootparamd has no such entry, or cannot resolve the server that it names");
    case Stage::root:
        return base::tr("the mount daemon does not run or hear it");
    default:
        return base::tr("the NFS server does not run or hear it");
    }
}

} // namespace

BootLog::Client *BootLog::client_of(Time now, const Heard &heard) {
    std::string name = heard.ethernet.empty() ? "" : known_.name_by_ethernet(heard.ethernet);
    if (name.empty() && !heard.address.empty())
        name = known_.name_by_address(heard.address);
    const bool is_known = !name.empty();
    // Others talk on this wire, too; one that asks for its address boots.
    if (!is_known && heard.stage != Stage::address && !clients_.contains(heard.ethernet))
        return nullptr;
    if (!only_.empty() && is_known && base::lower_case(name) != base::lower_case(only_))
        return nullptr;
    const std::string key = is_known ? name : heard.ethernet;
    const auto [found, is_new] = clients_.try_emplace(key);
    Client &client = found->second;
    if (is_new) {
        client.name = key;
        if (!is_known)
            say(now, client,
                base::tr("is unknown here; to make it a client: hostadm run client/add_diskless "
                         "hostname=NAME address=ADDRESS ethernet={1} instruction_set=SET "
                         "implementation_arch=ARCH os_name=NAME os_version=VERSION tree=DIRECTORY",
                         heard.ethernet));
    }
    return &client;
}

void BootLog::hear(Time now, const Heard &heard) {
    Client *client = client_of(now, heard);
    if (client == nullptr)
        return;
    if (heard.kind == Heard::Kind::question) {
        Question &question = client->open[heard.topic];
        if (question.times++ == 0) {
            question.first = now;
            question.stage = heard.stage;
        }
        question.asked = now;
        // Of what is asked all the time only the first is told.
        const bool is_file_access = heard.stage == Stage::start;
        if (question.times == 1 && !is_file_access)
            say(now, *client, heard.text);
        return;
    }
    if (heard.ends_topic || heard.kind == Heard::Kind::failure)
        client->open.erase(heard.topic);
    else if (const auto question = client->open.find(heard.topic); question != client->open.end())
        question->second.asked = now;
    client->last = heard.text;
    if (heard.kind == Heard::Kind::failure) {
        if (heard.stage != Stage::start || (!heard.is_usual && client->said.insert(heard.text).second))
            say(now, *client, heard.text);
        return;
    }
    client->reached = std::max(client->reached, static_cast<int>(heard.stage));
    if (heard.stage != Stage::start)
        say(now, *client, heard.text);
    else if (client->said.insert("root").second)
        say(now, *client, base::tr("works with the files of its root (NFS)"));
}

void BootLog::look_at_silences(Time now) {
    for (auto &[key, client] : clients_)
        for (auto &[topic, question] : client.open) {
            if (question.told || now - question.first < patience)
                continue;
            question.told = true;
            std::string why = known_.why_silent(client.name, question.stage);
            if (why.empty())
                why = meaning_of_silence(question.stage);
            say(now, client,
                base::tr_n(question.times, "gets no answer: it asked for {2} once; {3}",
                           "gets no answer: it asked for {2} {1} times; {3}", topic, why));
        }
}

void BootLog::tell_end(Time now) {
    for (const auto &[key, client] : clients_) {
        const std::string reached =
            client.reached < 0
                ? base::tr("came nowhere")
                : base::tr("came as far as: {1}", base::tr(name_of(static_cast<Stage>(client.reached))));
        say(now, client, client.last.empty() ? reached : base::tr("{1} (it {2})", reached, client.last));
    }
    if (clients_.empty())
        tell_(now, base::tr("nobody asked for anything"));
}

bool BootLog::somebody_started() const {
    return std::any_of(clients_.begin(), clients_.end(), [](const auto &each) {
        return each.second.reached >= static_cast<int>(Stage::start);
    });
}

} // namespace hostadm::rehearsal
