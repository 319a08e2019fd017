// SPDX-License-Identifier: MIT
// A client's root: what it needs of it to start. Everything in it is read as the client sees it, and can change
// while it is read.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <elf.h>
#include <sys/sysmacros.h>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/checks/subjects.hpp"

namespace hostadm::server {

namespace {

constexpr std::size_t largest_table = 1 << 20;
constexpr std::size_t head_of_program = 4096;

class RootCheck {
public:
    RootCheck(const Snapshot &server, const CheckedClient &client)
        : server_(server), client_(client), view_(client.root) {}

    Findings run() {
        if (view_.error() != 0)
            return missing();
        directory();
        const auto names = view_.names_in(".", 1000);
        if (names.empty())
            return empty();
        // What holds no system at all, only files, is meant for something else.
        if (looks_like_system()) {
            first_process();
            console();
            mount_table();
            hosts();
        }
        return std::move(found_);
    }

private:
    void add(const std::string &below, const std::string &what, const std::string &why,
             const std::string &repair, Severity severity = Severity::error) {
        found_.push_back({.severity = severity,
                          .stage = Stage::start,
                          .client = client_.name,
                          .where = below.empty() ? client_.root : client_.root + "/" + below,
                          .what = what,
                          .why = why,
                          .repair = repair});
    }

    std::string path(const std::string &below) const { return client_.root + "/" + below; }

    Findings missing() {
        const int error = view_.error();
        Finding finding{.stage = Stage::root,
                        .client = client_.name,
                        .where = client_.root,
                        .what = error == ENOENT ? base::tr("the root of {1} is missing", client_.name)
                                : error == ENOTDIR || error == ELOOP
                                    ? base::tr("the root of {1} is no directory", client_.name)
                                    : base::tr("the root of {1} cannot be looked at: {2}", client_.name,
                                               std::strerror(error)),
                        .why = base::tr("{1} cannot mount its root", client_.name),
                        .repair = "hostadm run client/remove hostname=" + client_.name +
                                  " && hostadm run client/add_diskless hostname=" + client_.name +
                                  " address=" + client_.address + " ethernet=" + client_.ethernet +
                                  " tree=TREE ..."};
        // Perhaps its file system is only not mounted.
        return {finding};
    }

    Findings empty() {
        // Something that is mounted over it hides what lies there.
        const Mount *mount = mount_of(server_.mounts, client_.root);
        if (mount != nullptr && mount->point == client_.root) {
            found_.push_back(
                {.stage = Stage::root,
                 .client = client_.name,
                 .where = client_.root,
                 .what = base::tr("an empty file system, {1} of type {2}, is mounted over the root of {3}",
                                  mount->source, mount->type, client_.name),
                 .why = base::tr("{1} finds none of its files", client_.name),
                 .repair = "umount " + client_.root});
            return std::move(found_);
        }
        found_.push_back({.stage = Stage::root,
                          .client = client_.name,
                          .where = client_.root,
                          .what = base::tr("the root of {1} is empty", client_.name),
                          .why = base::tr("{1} mounts it and finds no first process", client_.name),
                          .repair = "cp -a TREE/. " + client_.root + "/"});
        return std::move(found_);
    }

    void directory() {
        const mode_t mode = view_.own().st_mode;
        if ((mode & 0001) == 0)
            add("", base::tr("others than its owner may not search the root"),
                base::tr("what runs on {1} as another user than root can open no file", client_.name),
                "chmod 755 " + client_.root);
        if (view_.own().st_uid != 0)
            add("", base::tr("the root belongs to user {1}, not to root", view_.own().st_uid),
                base::tr("programs on {1} that look who owns / refuse to work", client_.name),
                "chown root " + client_.root, Severity::warning);
        for (const char *folder : {"etc", "sbin", "bin", "usr", "lib", "dev", "var"})
            if (const auto one = view_.look(folder);
                one && S_ISDIR(one->st_mode) && (one->st_mode & 0001) == 0)
                add(folder, base::tr("others than its owner may not search it"),
                    base::tr("what runs on {1} as another user than root finds nothing there", client_.name),
                    "chmod 755 " + path(folder));
    }

    bool looks_like_system() const {
        for (const char *one : {"sbin", "usr/sbin", "lib", "dev", "etc/vfstab", "etc/fstab", "etc/inittab",
                                "etc/passwd", "init", "etc/init"})
            if (view_.look(one, false))
                return true;
        return false;
    }

    // The programs that a kernel tries, one after another.
    void first_process() {
        static const char *const programs[] = {"sbin/init", "usr/sbin/init", "etc/init",
                                               "bin/init",  "init",          "linuxrc"};
        std::string refused;
        Finding first;
        for (const char *program : programs) {
            if (!view_.look(program, false))
                continue;
            const auto [what, repair] = defect_of_program(program, 0);
            if (what.empty())
                return;
            if (refused.empty()) {
                refused = program;
                first.what = what;
                first.repair = repair;
            }
        }
        const std::string why = base::tr("{1} mounts its root and has nothing to start", client_.name);
        if (refused.empty())
            add("sbin/init",
                base::tr("there is no first process: no sbin/init nor any other that a kernel looks for"),
                why, "cp -a TREE/sbin/init " + path("sbin/init"));
        else
            add(refused, base::tr("the first process {1}", first.what), why, first.repair);
    }

    struct Defect {
        std::string what, repair;
    };

    Defect defect_of_program(const std::string &program, int depth) const {
        const std::string full = path(program);
        const std::string copy = "cp -a TREE/" + program + " " + full;
        const auto file = view_.look(program);
        if (!file)
            return {base::tr("is a link to {1}, which is not there", view_.target_of(program)), copy};
        if (!S_ISREG(file->st_mode))
            return {base::tr("is no plain file"), copy};
        if (file->st_size == 0)
            return {base::tr("is empty"), copy};
        if ((file->st_mode & 0111) == 0)
            return {base::tr("may not be executed"), "chmod a+x " + full};
        const std::string head = view_.read(program, head_of_program).value_or("");
        if (head.find_first_not_of('\0') == head.npos && !head.empty())
            return {base::tr("holds nothing but zeros"), copy};
        if (is_text(head) && !head.starts_with("#!"))
            return {base::tr("is a text that does not begin with #! and its interpreter"), copy};
        if (const std::string other = machine_of_shell();
            depth == 0 && is_elf(head) && !other.empty() && machine_of(head) != other)
            return {base::tr("is a program for another machine than the shell in the root"), copy};
        const std::string interpreter = interpreter_of(head);
        constexpr int deepest = 3;
        if (interpreter.empty() || depth >= deepest)
            return {};
        if (!view_.look(interpreter))
            return {base::tr("needs {1}, which is not in the root", interpreter),
                    "cp -a TREE" + interpreter + " " + client_.root + interpreter};
        const Defect inner = defect_of_program(interpreter.substr(1), depth + 1);
        return inner.what.empty()
                   ? Defect{}
                   : Defect{base::tr("needs {1}, which {2}", interpreter, inner.what), inner.repair};
    }

    static bool is_text(const std::string &head) {
        return std::all_of(head.begin(), head.end(), [](const char c) {
            return std::isspace(static_cast<unsigned char>(c)) != 0 ||
                   (static_cast<unsigned char>(c) >= ' ' && c != 0x7f);
        });
    }
    static bool is_elf(const std::string &head) {
        return head.size() > EI_NIDENT + 4 && std::memcmp(head.data(), ELFMAG, SELFMAG) == 0;
    }
    // Word size, byte order and processor.
    static std::string machine_of(const std::string &head) {
        constexpr std::size_t machine = offsetof(Elf64_Ehdr, e_machine);
        return head.substr(EI_CLASS, 2) + head.substr(machine, 2);
    }
    std::string machine_of_shell() const {
        for (const char *shell : {"bin/sh", "usr/bin/sh"})
            if (const std::string head = view_.read(shell, head_of_program).value_or(""); is_elf(head))
                return machine_of(head);
        return {};
    }

    // Of a script or of a program that loads its libraries; an absolute path, or nothing.
    static std::string interpreter_of(const std::string &head) {
        if (head.starts_with("#!")) {
            const std::string_view line = std::string_view(head).substr(2, head.find('\n') - 2);
            return std::string(base::first_word(base::trimmed(line)));
        }
        Elf64_Ehdr elf{};
        if (head.size() < sizeof elf || std::memcmp(head.data(), ELFMAG, SELFMAG) != 0 ||
            head[EI_CLASS] != ELFCLASS64)
            return {};
        std::memcpy(&elf, head.data(), sizeof elf);
        for (unsigned i = 0; i < elf.e_phnum; ++i) {
            Elf64_Phdr part{};
            const std::uint64_t at = elf.e_phoff + i * sizeof part;
            if (at > head.size() || head.size() - at < sizeof part)
                return {};
            std::memcpy(&part, head.data() + at, sizeof part);
            if (part.p_type != PT_INTERP || part.p_offset > head.size() ||
                head.size() - part.p_offset < part.p_filesz)
                continue;
            const std::string name = head.substr(part.p_offset, part.p_filesz);
            const std::string plain = name.substr(0, name.find('\0'));
            return plain.starts_with('/') ? plain : "";
        }
        return {};
    }

    // A system that fills its /dev by itself needs none.
    void console() {
        if (view_.target_of("sbin/init").ends_with("systemd") || !view_.look("dev", false))
            return;
        const auto device = view_.look("dev/console");
        const std::string make =
            "rm -f " + path("dev/console") + " && mknod -m 600 " + path("dev/console") + " c 5 1";
        const std::string why = base::tr(
            "the first process of {1} starts without a terminal, and ends or says nothing", client_.name);
        if (!device)
            add("dev/console", base::tr("the console device is missing"), why, make);
        else if (!S_ISCHR(device->st_mode))
            add("dev/console", base::tr("it is no device"), why, make);
        else if (device->st_rdev == makedev(1, 3))
            add("dev/console", base::tr("it is the null device"), why, make);
    }

    // "RESOURCE FSCK MOUNT-POINT TYPE PASS AT-BOOT OPTIONS", or of Linux "RESOURCE MOUNT-POINT TYPE OPTIONS ...".
    void mount_table() {
        for (const char *name : {"etc/vfstab", "etc/fstab"}) {
            const auto own = view_.look(name, false);
            if (!own)
                continue;
            const auto text = view_.read(name, largest_table);
            const bool seven = std::string_view(name) == "etc/vfstab";
            if (!text) {
                add(name, base::tr("it is no table that can be read"),
                    base::tr("{1} mounts nothing but its root", client_.name), "rm -r " + path(name));
                return;
            }
            std::size_t number = 0;
            base::for_each_line(*text,
                                [&](std::string_view line) { mount_line(name, ++number, line, seven); });
            if (!mounts_root_)
                add(name, base::tr("it has no line for /"),
                    base::tr("{1} may not mount its root again for writing, nor find out where it is",
                             client_.name),
                    add_line_for_root(name, seven));
            return;
        }
        if (view_.look("etc", false) && view_.look("sbin/init", false))
            add("etc/vfstab", base::tr("there is no mount table"),
                base::tr("{1} mounts nothing but its root, and perhaps not even that for writing",
                         client_.name),
                add_line_for_root("etc/vfstab", true), Severity::warning);
    }

    std::string add_line_for_root(const std::string &name, bool seven) const {
        return seven ? "hostadm run filesystem/add_mount_entry vfstab=" + path(name) +
                           " resource=" + resource() + " mountpt=/ fstype=nfs mntopts=rw"
                     : "printf '" + resource() + " / nfs rw 0 0\\n' >>" + path(name);
    }

    std::string resource() const {
        const BootItem *root = server_.entry_of(client_).item("root");
        return root->server + ":" + root->path;
    }

    void mount_line(const std::string &name, std::size_t number, std::string_view line, bool seven) {
        const auto words = base::words_of(line.substr(0, line.find('#')));
        if (words.empty())
            return;
        const std::string where = name + ":" + std::to_string(number);
        const std::size_t wanted = seven ? 7 : 4;
        const bool is_nfs = words[0].find(":/") != words[0].npos;
        mounts_root_ = mounts_root_ || (words.size() > (seven ? 2 : 1) && words[seven ? 2 : 1] == "/");
        if (words.size() < wanted) {
            add(where, base::tr("the line has {1} columns, not {2}", words.size(), wanted),
                base::tr("{1} does not mount what it names", client_.name),
                "sed -i '" + std::to_string(number) + "d' " + path(name),
                is_nfs ? Severity::error : Severity::warning);
            return;
        }
        if (!is_nfs)
            return;
        const std::size_t colon = words[0].find(':');
        const std::string server = std::string(words[0].substr(0, colon));
        std::string remote = std::string(words[0].substr(colon + 1));
        const std::string point = std::string(words[seven ? 2 : 1]);
        while (remote.size() > 1 && remote.ends_with('/'))
            remote.pop_back();
        const BootItem *root = server_.entry_of(client_).item("root");
        std::string own = root->path;
        while (own.size() > 1 && own.ends_with('/'))
            own.pop_back();
        const std::string change = "sed -i '" + std::to_string(number) + "s|" + std::string(words[0]) + "|";
        names_its_server_ = names_its_server_ || server == root->server;
        const auto number_of = [&](const std::string &host) { return server_.address_of(host); };
        const bool same_server = base::lower_case(server) == base::lower_case(root->server) ||
                                 (number_of(server) && number_of(server) == number_of(root->server)) ||
                                 server_.is_this_server(server);
        if (point == "/") {
            if (const std::string type(words[seven ? 3 : 2]); !type.starts_with("nfs"))
                add(where, base::tr("it mounts {1} as a file system of type {2}", words[0], type),
                    base::tr("{1} cannot mount its root again", client_.name),
                    "sed -i '" + std::to_string(number) + "s/[[:blank:]]" + type +
                        "\\([[:blank:]]\\|$\\)/\\tnfs\\1/' " + path(name));
            if (!same_server || remote != own)
                add(where,
                    base::tr("it mounts / from {1}, and the root of {2} is {3}", words[0], client_.name,
                             resource()),
                    base::tr("{1} mounts another root over its own, or none", client_.name),
                    change + resource() + "|' " + path(name));
            return;
        }
        if (!same_server) {
            // Other servers exist; one without an address, or with nothing of that name, does not.
            if (!number_of(server) || RootView(remote).error() == 0)
                add(where,
                    number_of(server)
                        ? base::tr("it mounts {1} from {2}, and {3} lies on this server", point, server,
                                   remote)
                        : base::tr("it mounts {1} from {2}, which has no address here", point, server),
                    base::tr("{1} waits for {2} for ever", client_.name, point),
                    change + root->server + ":" + remote + "|' " + path(name));
            return;
        }
        const bool at_boot = !seven || words[5] != "no";
        const std::string type = std::string(words[seven ? 3 : 2]);
        struct stat there {};
        if (stat(remote.c_str(), &there) != 0) {
            add(where, base::tr("it mounts {1} of this server, which is not there", remote),
                base::tr("{1} waits for {2}, or has none", client_.name, point),
                change + server + ":PATH|' " + path(name));
            return;
        }
        if (type != "nfs" || !S_ISDIR(there.st_mode))
            return;
        if (at_boot && point.starts_with('/') && !view_.look(point.substr(1)))
            add(where, base::tr("its mount point {1} is not in the root", point),
                base::tr("{1} cannot mount it", client_.name), "mkdir -p " + client_.root + point);
        if (at_boot)
            shared(where, point, remote);
    }

    void shared(const std::string &where, const std::string &point, const std::string &remote) {
        bool reads = false;
        for (std::string above = remote; above.size() > 1 && !reads;
             above = above.substr(0, above.rfind('/'))) {
            if (const auto share = server_.shares.find(above); share != server_.shares.end())
                reads = access_by_options(share->second, client_.caller).read;
        }
        const Export *exported = export_of(server_.exports, remote);
        reads = reads || (exported != nullptr && access_by_export(*exported, client_.caller).read);
        if (!reads)
            add(where,
                base::tr("it mounts {1} at {2}, which is not shared to {3}", remote, point, client_.name),
                base::tr("{1} may not mount it", client_.name),
                "hostadm run filesystem/share pathname=" + remote + " options=ro");
    }

    void own_address(const KeyTable &table) {
        const auto lines = table.with_name(client_.name);
        if (client_.address.empty() || std::any_of(lines.begin(), lines.end(), [&](const KeyLine *line) {
                return !line->is_ipv4() || ipv4_number(line->value) >> 24 == 127 ||
                       ipv4_number(line->value) == client_.number;
            }))
            return;
        if (!lines.empty())
            add("etc/hosts:" + std::to_string(lines.front()->line),
                base::tr("{1} has the address {2} there, and {3} on this server", client_.name,
                         lines.front()->key, client_.address),
                base::tr("{1} sets up its interface with an address that nobody answers", client_.name),
                "sed -i '" + std::to_string(lines.front()->line) + "s/^[[:blank:]]*[^[:blank:]]*/" +
                    client_.address + "/' " + path("etc/hosts"),
                Severity::warning);
    }

    // The client's own table may send it to another server than it was told.
    void hosts() {
        const auto text = view_.read("etc/hosts", largest_table);
        const BootItem *root = server_.entry_of(client_).item("root");
        if (!text || root == nullptr || !ipv4_value(root->server).empty())
            return;
        const KeyTable table = parse_hosts({"etc/hosts", 0, *text});
        own_address(table);
        const auto lines = table.with_name(root->server);
        const auto right = server_.address_of(root->server);
        if (lines.empty() && right && names_its_server_ && !view_.look("etc/resolv.conf"))
            add("etc/hosts", base::tr("it does not have the server {1}", root->server),
                base::tr("{1} does not find the server that its mount table names", client_.name),
                "hostadm run database/set_host table=" + path("etc/hosts") + " address=" + ipv4_text(*right) +
                    " hostname=" + root->server);
        if (lines.empty() || !right)
            return;
        for (const KeyLine *line : lines)
            if (!line->is_ipv4() || server_.network.is_own(ipv4_number(line->value)))
                return;
        if (ipv4_number(lines.front()->value) == *right)
            return;
        add("etc/hosts:" + std::to_string(lines.front()->line),
            base::tr("for {1} the server {2} has the address {3}, not {4}", client_.name, root->server,
                     lines.front()->key, ipv4_text(*right)),
            base::tr("{1} looks for what its mount table names at another host", client_.name),
            "hostadm run database/set_host table=" + path("etc/hosts") + " address=" + ipv4_text(*right) +
                " hostname=" + root->server + " && sed -i '" + std::to_string(lines.front()->line) + "d' " +
                path("etc/hosts"));
    }

    const Snapshot &server_;
    const CheckedClient &client_;
    RootView view_;
    Findings found_;
    bool mounts_root_ = false, names_its_server_ = false; // by its mount table
};

} // namespace

Findings roots_of_client(const Snapshot &server, const CheckedClient &client) {
    if (client.root.empty())
        return {};
    return RootCheck(server, client).run();
}

} // namespace hostadm::server
