// SPDX-License-Identifier: MIT
#include "cli/topics.hpp"

#include <algorithm>

#include "base/columns.hpp"
#include "base/translation.hpp"

namespace hostadm::cli {

namespace {

using base::tr;
using base::translatable;

} // namespace

const std::vector<Topic> &topics() {
    static const std::vector<Topic> all{
        {"clients",
         translatable("the hosts that boot from this server"),
         {translatable(
              "What this server knows of a client stands in several tables and folders: its name and address "
              "in "
              "/etc/hosts, its Ethernet address in /etc/ethers, its root and swap in /etc/bootparams, its "
              "boot "
              "program in /tftpboot or /rplboot, its directories in the tables of shares. The methods of the "
              "class client keep them together: each changes all of them, or none."),
          translatable("A client is diskless (root and swap are here), dataless (its root is on its own "
                       "disk), cache-only "
                       "(its disk is a cache of its root here), or boots to be installed. A client that is "
                       "disabled stays "
                       "as it is, but does not boot."),
          translatable(
              "`hostadm preview` with the same words as `hostadm run` shows what a method would change, and "
              "changes nothing. Running a method twice changes nothing the second time.")},
         {{"hostadm run client/list", translatable("list them")},
          {"hostadm run client/show hostname=NAME", translatable("all that is known of one")},
          {"hostadm help client/add_diskless", translatable("what a new one needs")},
          {"hostadm run client/copy", translatable("a new one like one that is there")},
          {"hostadm run client/change", translatable("another name, address, boot program or size")},
          {"hostadm run client/disable",
           translatable("keep it from booting; client/enable lets it boot again")},
          {"hostadm run client/remove",
           translatable("take it off this server; its root only with purge=yes")},
          {"hostadm help client", translatable("every method for clients")}}},
        {"services",
         translatable("the operating systems that this server keeps for its clients"),
         {translatable("A service is one version of an operating system for one instruction set: the tree or "
                       "the packages "
                       "that new roots are made of, its executables, its boot programs and its patches. "
                       "Where the server "
                       "keeps a service, client/add_diskless needs no path."),
          translatable("A service that a client still uses is not removed.")},
         {{"hostadm run service/list", translatable("list them, with the clients of each")},
          {"hostadm run service/show", translatable("the parts of one, and where they lie")},
          {"hostadm help service/add", translatable("what a new one needs")},
          {"hostadm run service/remove", translatable("take one away")},
          {"hostadm help service", translatable("every method for services")}}},
        {"booting",
         translatable("what happens when a client boots, and what to look at when it does not"),
         {translatable("A client without a disk asks for one thing after the other, and each answer comes "
                       "from a daemon "
                       "and a table: its address by reverse ARP (in.rarpd, /etc/ethers and /etc/hosts), its "
                       "boot program "
                       "by TFTP (a link in /tftpboot that is named by the address), its name and the place "
                       "of its root "
                       "from the boot-parameter service (rpc.bootparamd, /etc/bootparams), then its root "
                       "over NFS (mountd "
                       "and nfsd, the shares), and last its swap file."),
          translatable(
              "When it stops, look first whether something is wrong on this server, then let it boot on a "
              "virtual cable here, then listen while it boots for real. Each tells the cause and the command "
              "that mends it."),
          translatable("What runs now may not run when this server itself has started anew; "
                       "host/enable_boot_services lets everything that a boot needs start with the server.")},
         {{"hostadm check NAME", translatable("find what is wrong, without changing anything")},
          {"hostadm rehearse NAME", translatable("let it boot on a virtual cable")},
          {"hostadm watch NAME", translatable("tell what it asks and gets while it boots")},
          {"hostadm status", translatable("what this server serves, and which daemons run")},
          {"hostadm run host/enable_boot_services", translatable("start the daemons with the server")}}},
        {"checks",
         translatable("what `hostadm check` looks at"),
         {translatable("A check compares what the tables, the folders, the shares and the daemons say with "
                       "what a client "
                       "needs to boot, and changes nothing. A finding is an error when a boot fails by it, a "
                       "warning when "
                       "something is damaged or fails later; with it comes the command that mends it.")},
         {{"hostadm check", translatable("look at everything, for every client")},
          {"hostadm check NAME...", translatable("for some clients, and at what concerns all")}}},
        {"exit-status",
         translatable("what the exit status of a command tells, and where its errors are"),
         {translatable("0: it is done. 1: the method failed, or there are findings. 2: wrong usage or an "
                       "invalid argument, "
                       "and nothing was changed."),
          translatable("hostadm check and hostadm rehearse end with 0 when nothing is wrong, with 1 when "
                       "something is, and "
                       "with 2 when there is no such client. hostadm watch ends with 0 when a client came as "
                       "far as its "
                       "root, and with 1 when none did."),
          translatable(
              "Errors go to standard error as \"hostadm: METHOD: TEXT (error CODE)\". A change that is half "
              "done "
              "is said in a line of its own. With --json the same stands in \"status\", \"errors\" and "
              "\"half_done\", and the exit status is the same, too.")},
         {{"hostadm run --json METHOD", translatable("results and errors for a program to read")}}},
    };
    return all;
}

const Topic *find_topic(std::string_view name) {
    const auto found = std::find_if(topics().begin(), topics().end(),
                                    [&](const Topic &topic) { return topic.name == name; });
    return found == topics().end() ? nullptr : &*found;
}

std::string text_of(const Topic &topic, std::size_t columns) {
    std::string text =
        base::with_hanging_text(std::string(topic.name) + ": ", tr(topic.title), columns) + "\n";
    for (const char *paragraph : topic.paragraphs)
        text += "\n" + base::with_hanging_text("", tr(paragraph), columns) + "\n";
    std::size_t widest = 0;
    for (const auto &[command, purpose] : topic.commands)
        widest = std::max(widest, base::width(command));
    text += "\n";
    for (const auto &[command, purpose] : topic.commands)
        text += base::with_hanging_text("  " + std::string(command) +
                                            std::string(widest - base::width(command) + 2, ' '),
                                        tr(purpose), columns) +
                "\n";
    return text;
}

} // namespace hostadm::cli
