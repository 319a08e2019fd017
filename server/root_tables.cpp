// SPDX-License-Identifier: MIT
#include "server/root_tables.hpp"

#include <algorithm>
#include <functional>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <vector>

#include "base/beneath.hpp"
#include "base/text.hpp"
#include "base/this_host.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "server/client_change.hpp"
#include "server/failure.hpp"
#include "server/mount_tables.hpp"
#include "server/roots.hpp"

namespace hostadm::server {

using base::Beneath;

namespace {

// Whose tables a root has: seven columns in /etc/vfstab and the name in /etc/nodename, or six in /etc/fstab and the
// name in /etc/hostname.
enum class Layout { system_v, debian, unknown };

bool is_there(const Beneath &root, const std::string &path) {
    return root.status(path).has_value();
}

Layout layout_of(const Beneath &root) {
    const auto has_one_of = [&](std::initializer_list<const char *> paths) {
        return std::any_of(paths.begin(), paths.end(),
                           [&](const char *path) { return is_there(root, path); });
    };
    if (has_one_of({"/etc/vfstab", "/etc/nodename"}))
        return Layout::system_v;
    if (has_one_of({"/etc/fstab", "/etc/hostname", "/etc/debian_version", "/etc/os-release"}))
        return Layout::debian;
    return Layout::unknown;
}

// One line of a mount table of either kind.
struct MountLine {
    std::string resource, mount_point, type, options;
};

// The folder that holds a file, as the client mounts it, and the file in there.
std::string below(const std::string &path, const std::string &directory) {
    return directory == "/" ? path : path.substr(directory.size());
}

std::vector<MountLine> system_v_lines(const NewClient &client) {
    const std::string server = client.server + ":";
    std::vector<MountLine> lines = {{server + client.root, "/", "nfs", "rw"},
                                    {server + client.swap, "/dev/swap", "nfs", "-"}};
    if (!client.dump.empty())
        lines.push_back({server + client.dump, "/dev/dump", "nfs", "-"});
    if (client.mounts_usr())
        lines.push_back({server + client.service->executables, "/usr", "nfs", "ro"});
    return lines;
}

// A system that mounts directories only finds the files in those of the server.
void add_debian_file(std::vector<MountLine> &lines, const NewClient &client, const std::string &file,
                     const std::string &mount_point, const std::string &type) {
    std::string seen = below(file, client.root);
    if (!is_at_or_below(file, client.root)) {
        const std::string folder = share_path_of(file, client.name);
        if (folder == file) // shared by itself
            seen = mount_point;
        else
            seen = mount_point + below(file, folder);
        lines.push_back({client.server + ":" + folder, mount_point, "nfs", "rw"});
    }
    if (type == "swap")
        lines.push_back({seen, "none", "swap", "sw,nofail"});
}

std::vector<MountLine> debian_lines(const NewClient &client) {
    std::vector<MountLine> lines = {{client.server + ":" + client.root, "/", "nfs", "rw"}};
    add_debian_file(lines, client, client.swap, "/var/swap", "swap");
    if (!client.dump.empty())
        add_debian_file(lines, client, client.dump, "/var/crash", "dump");
    if (client.mounts_usr())
        lines.push_back({client.server + ":" + client.service->executables, "/usr", "nfs", "ro"});
    return lines;
}

// Whether a table says already what is mounted there, or where that goes.
bool has_line(std::string_view table, const MountLine &wanted, std::size_t mount_point_column) {
    bool found = false;
    base::for_each_line(table, [&](std::string_view line) {
        const auto words = base::words_of(line);
        if (words.size() <= mount_point_column || words[0].starts_with('#'))
            return;
        const std::string_view point = words[mount_point_column];
        if (words[0] == wanted.resource || (point == wanted.mount_point && point != "none"))
            found = true;
    });
    return found;
}

int add_line(const std::string &table, const MountLine &line, Layout layout) {
    std::string resource = line.resource;
    if (layout == Layout::debian)
        return mntadd4x(table.c_str(), resource.data(), line.mount_point.c_str(), line.type.c_str(),
                        line.options.c_str(), "0", "0");
    return mntadd(table.c_str(), resource.data(), "-", line.mount_point.c_str(), line.type.c_str(), "-",
                  line.mount_point == "/usr" ? "yes" : "no", line.options.c_str());
}

class Preparation {
public:
    Preparation(const NewClient &client, Journal &journal, Report &report)
        : client_(client), journal_(journal), report_(report), root_(client.root, base::Links::inside),
          layout_(layout_of(root_)) {}

    void make() {
        if (layout_ == Layout::unknown) {
            report_.warn("root", base::tr("neither a System V nor a Debian-like tree is in {1}; its mount "
                                          "table, hosts, name and devices are left to you",
                                          client_.root));
            return;
        }
        make_mount_table();
        make_hosts();
        make_name();
        if (layout_ == Layout::debian)
            make_devices();
    }

private:
    // Writes a file that may be there.
    bool put(const std::string &file, const std::string &text) {
        if (!is_there(root_, file)) {
            journal_.note(MadeInRoot{client_.root, file, text});
            root_.write(file, text);
            return true;
        }
        const std::string before = root_.read(file);
        if (before == text)
            return false;
        journal_.note(RewrittenInRoot{client_.root, file, before, text});
        root_.rewrite(file, text);
        return true;
    }

    std::string text_of(const std::string &file) const {
        return is_there(root_, file) ? root_.read(file) : "";
    }

    void make_mount_table() {
        const bool is_debian = layout_ == Layout::debian;
        const std::string file = is_debian ? "/etc/fstab" : "/etc/vfstab";
        const std::string before = text_of(file);
        std::vector<MountLine> missing = is_debian ? debian_lines(client_) : system_v_lines(client_);
        for (const MountLine &line : missing)
            if (is_debian && line.mount_point.starts_with("/var/") && !has_line(before, line, 1))
                root_.make_directories(line.mount_point);
        std::erase_if(missing,
                      [&](const MountLine &line) { return has_line(before, line, is_debian ? 1 : 2); });
        std::string after = before;
        if (!missing.empty()) {
            const int status = edit_table_copy(after, [&](const std::string &table) {
                for (const MountLine &line : missing)
                    if (const int failed = add_line(table, line, layout_); failed != 0)
                        return failed;
                return 0;
            });
            if (status != 0)
                fail_edit(client_.root + file, status);
        }
        report_.step("mount table", put(file, after), client_.root + file);
    }

    void make_hosts() {
        const std::string file = "/etc/hosts", before = text_of(file);
        std::string after = before;
        if (!after.empty() && !after.ends_with('\n'))
            after += '\n';
        const auto names = [&](const std::string &name, const std::string &address) {
            bool found = false;
            base::for_each_line(before, [&](std::string_view line) {
                for (const std::string_view word : base::words_of(line.substr(0, line.find('#'))))
                    found = found || base::lower_case(word) == base::lower_case(name) || word == address;
            });
            return found;
        };
        const std::string server_address = base::address_of_host(client_.server);
        if (!names("localhost", "127.0.0.1"))
            after += "127.0.0.1\tlocalhost\n";
        if (!names(client_.name, client_.address))
            after += client_.address + "\t" + client_.name + "\n";
        if (!server_address.empty() && !server_address.starts_with("127.") &&
            !names(client_.server, server_address))
            after += server_address + "\t" + client_.server + "\n";
        report_.step("table of hosts", put(file, after), client_.root + file);
    }

    // The name of the host, and with System V those of its interfaces where a file waits for one.
    void make_name() {
        std::vector<std::string> files = {layout_ == Layout::debian ? "/etc/hostname" : "/etc/nodename"};
        if (layout_ == Layout::system_v && root_.is_directory("/etc"))
            for (const std::string &name : root_.names("/etc"))
                if (name.starts_with("hostname."))
                    files.push_back("/etc/" + name);
        for (const std::string &file : files) {
            const std::string text = text_of(file), before(base::trimmed(text.substr(0, text.find('\n'))));
            // A tree that was made on this server may have taken over its name.
            if (before.empty() || base::is_this_host(before, base::Lookup::hosts_table))
                report_.step("host name", put(file, client_.name + "\n"), client_.root + file);
            else if (base::lower_case(before) == base::lower_case(client_.name))
                report_.step("host name", false, client_.root + file);
            else
                report_.kept("host name", base::tr("{1}{2} says {3}, and stays", client_.root, file, before));
        }
    }

    // Those without which a system cannot come up far enough to make the others.
    void make_devices() {
        constexpr struct {
            const char *name;
            unsigned major, minor;
            mode_t mode;
        } devices[] = {{"console", 5, 1, 0600}, {"null", 1, 3, 0666},   {"zero", 1, 5, 0666},
                       {"full", 1, 7, 0666},    {"random", 1, 8, 0666}, {"urandom", 1, 9, 0666},
                       {"tty", 5, 0, 0666}};
        bool made = false;
        root_.make_directories("/dev");
        for (const auto &device : devices) {
            const std::string path = std::string("/dev/") + device.name;
            if (is_there(root_, path))
                continue;
            journal_.note(MadeInRoot{client_.root, path, ""});
            root_.make_node(path, {.mode = S_IFCHR | device.mode}, makedev(device.major, device.minor));
            made = true;
        }
        report_.step("devices", made, client_.root + "/dev");
    }

    const NewClient &client_;
    Journal &journal_;
    Report &report_;
    Beneath root_;
    Layout layout_;
};

} // namespace

std::string take_back(const MadeInRoot &made, const UndoContext &) try {
    const Beneath root(made.root, base::Links::inside);
    const auto now = root.status(made.file);
    if (!now || (S_ISREG(now->st_mode) ? root.read(made.file) != made.text : !S_ISCHR(now->st_mode)))
        return "";
    root.remove(made.file);
    return "";
} catch (const base::BeneathError &failure) {
    return failure.what();
}

void prepare_root(const NewClient &client, Journal &journal, Report &report) try {
    Preparation(client, journal, report).make();
} catch (const base::BeneathError &failure) {
    fail(Code::unusable,
         base::tr("{1}; with prepare=no the tables of the client's root are left alone", failure.what()));
}

} // namespace hostadm::server
