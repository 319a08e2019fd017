// SPDX-License-Identifier: MIT
// The server's file systems: mounting them, the list of what is shared, sharing and unsharing, and the
// daemons that serve the shares.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits.h>
#include <map>
#include <new>
#include <string>
#include <string_view>
#include <sys/statvfs.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "base/boundary.hpp"
#include "base/immortal.hpp"
#include "base/owners.hpp"
#include "hostadm.h"
#include "hostadm/platform.h"
#include "src/support/command.hpp"
#include "src/support/effect.hpp"
#include "src/support/error.hpp"
#include "src/support/expression.hpp"
#include "src/support/table.hpp"
#include "src/support/text.hpp"

struct sharefs_entry *sfs_top = nullptr;
struct sharefs_entry *sfs_current = nullptr;

namespace {

using namespace hostadm;

constexpr char mount_program[] = "/usr/sbin/mount";
constexpr char umount_program[] = "/usr/sbin/umount";
constexpr char share_program[] = "/usr/sbin/share";
constexpr char unshare_program[] = "/usr/sbin/unshare";
constexpr char mountd_program[] = "/usr/lib/nfs/mountd";
constexpr char nfsd_program[] = "/usr/lib/nfs/nfsd";
constexpr char share_table[] = "/etc/dfs/dfstab";
constexpr char nfs[] = "nfs"; // the only type that can be shared

// A share line is read into as much at first, and into twice as much as long as it does not fit.
constexpr std::size_t share_line_size = 1024;
constexpr std::size_t largest_share_line = 16 * 1024 * 1024;

// ---- mounting ----

struct Mount {
    std::string resource, fsckdev, mountpt, fstype, fsckpass, mountatboot, mntopts;
};

bool is_absent(const char *column) {
    return is_empty(column) || std::string_view(column) == "-";
}

// Silence is the only sign of success: mount exits with all kinds of statuses.
int mount_now(const Mount &mount, const char *method) {
    // "set -f" stands outside the subshell with options and inside without; callers compare the texts.
    const std::string command =
        mount.mntopts.empty()
            ? format("(set -f ; %s -F %s %s %s) 2>&1", mount_program, mount.fstype.c_str(),
                     mount.resource.c_str(), mount.mountpt.c_str())
            : format("set -f ; (%s -F %s -o %s %s %s) 2>&1", mount_program, mount.fstype.c_str(),
                     mount.mntopts.c_str(), mount.resource.c_str(), mount.mountpt.c_str());
    const Complaint complaint = first_complaint(command);
    if (complaint.silent())
        return 0;
    return fail<mount_failed>(method, mount_program, mount.resource.c_str(), complaint.text());
}

int add_mount_line(const Mount &mount, const char *vfstab, const char *method) {
    ColumnList columns;
    if (columns.create("\t ", "#", nullptr) != 0)
        return fail<cannot_prepare_edit>(method);
    const std::array<const std::string *, 7> values = {&mount.resource, &mount.fsckdev,  &mount.mountpt,
                                                       &mount.fstype,   &mount.fsckpass, &mount.mountatboot,
                                                       &mount.mntopts};
    for (int position = 0; position < static_cast<int>(values.size()); ++position) {
        const char *value = text_or(values[static_cast<std::size_t>(position)]->c_str(), "-");
        if (columns.add(position, position == 0 ? value : nullptr, value) != 0)
            return fail<cannot_prepare_edit>(method);
    }
    const int status = replace_db_entry(vfstab, columns.get(), replace_or_add);
    return status == 0 ? 0 : report_table_failure(status, mount.resource.c_str(), vfstab, method);
}

int remove_mount_line(const char *mountpt, const char *vfstab, const char *method) {
    constexpr int mountpt_position = 2;
    ColumnList columns;
    if (columns.create("\t ", "#", nullptr) != 0 || columns.add(mountpt_position, mountpt, mountpt) != 0)
        return fail<cannot_prepare_edit>(method);
    const int status = remove_db_entry(vfstab, columns.get());
    return status == 0 ? 0 : report_table_failure(status, mountpt, vfstab, method);
}

int unmount_now(const char *mountpt, const char *method) {
    const Complaint complaint = first_complaint(format("(set -f ; %s %s) 2>&1", umount_program, mountpt));
    if (complaint.silent())
        return 0;
    return fail<umount_failed>(method, umount_program, mountpt, complaint.text());
}

// ---- the share list ----

// Entries that an append after the cursor cut off from the list. They stay until the list is freed, because a
// caller may still hold the options of one.
base::Immortal<std::vector<sharefs_entry *>> cut_off;

// The words of a line of the share list. A line with fewer words leaves the rest as the line before had them.
struct ShareWords {
    std::string resource, path, options;

    void read(std::string_view line) {
        for (std::string *word : {&resource, &path, &options}) {
            const auto begin = std::find_if_not(line.begin(), line.end(), is_blank);
            if (begin == line.end())
                return;
            const auto end = std::find_if(begin, line.end(), is_blank);
            word->assign(begin, end);
            line.remove_prefix(static_cast<std::size_t>(end - line.begin()));
        }
    }

private:
    static bool is_blank(char character) {
        return character == ' ' || (character >= '\t' && character <= '\r');
    }
};

void free_entries(sharefs_entry *entry) {
    while (entry != nullptr) {
        sharefs_entry *next = entry->next;
        std::free(entry->path);
        std::free(entry->options);
        std::free(entry);
        entry = next;
    }
}

// Appends behind the cursor, which is not always the tail, and moves the cursor there.
void append_entry(const ShareWords &words) {
    base::Allocated<char> path(duplicate(words.path));
    base::Allocated<char> options(duplicate(words.options));
    base::Allocated<sharefs_entry> entry(static_cast<sharefs_entry *>(std::malloc(sizeof(sharefs_entry))));
    if (!path || !options || !entry)
        throw std::bad_alloc();
    if (sfs_top != nullptr && sfs_current == nullptr) // a caller walked off the end
        for (sfs_current = sfs_top; sfs_current->next != nullptr;)
            sfs_current = sfs_current->next;
    if (sfs_top != nullptr && sfs_current->next != nullptr)
        cut_off.get().push_back(sfs_current->next);
    *entry = {path.release(), options.release(), nullptr};
    (sfs_top == nullptr ? sfs_top : sfs_current->next) = entry.get();
    sfs_current = entry.release();
}

// Puts the cursor on the first entry of a fresh snapshot that matches.
template <typename Matches> bool find_share(Matches matches) {
    get_sharefs_ents();
    for (sfs_current = sfs_top; sfs_current != nullptr; sfs_current = sfs_current->next)
        if (matches(*sfs_current))
            return true;
    return false;
}

// ---- sharing ----

struct Share {
    std::string path, options, description;
};

std::string resolved(const char *pathname) {
    std::array<char, PATH_MAX> buffer{};
    return realpath(pathname, buffer.data()) != nullptr ? buffer.data() : pathname;
}

void report_pathname(const std::string &path) {
    adm_args_set("pathname", ADM_STRING, static_cast<unsigned int>(path.size()), path.c_str());
}

bool lies_on_nfs(const std::string &path) {
    struct statvfs file_system;
    char type[64] = "";
    return statvfs(path.c_str(), &file_system) == 0 && sysv_fstype(path.c_str(), type, sizeof type) == 0 &&
           std::string_view(type) == nfs;
}

// A sub-directory stands in the way. With the same options it may go, since the new share covers it: returns
// 0 when it has been withdrawn.
int withdraw_subdirectory(const std::string &subdirectory, const Share &share, const char *method) {
    if (match_sharefs_ent(subdirectory.c_str(), share.options.c_str()) == 1) {
        unsharefs(nullptr, subdirectory.c_str(), nullptr, nullptr, method);
        record<no_error>();
        return 0;
    }
    record<subdirectory_shared>(method, subdirectory.c_str(), get_sharefs_ent(subdirectory.c_str()),
                                share.path.c_str(), share.options.c_str());
    free_sharefs_ents();
    return subdirectory_shared;
}

// A parent is shared already. With the same options the directory is served as it is wanted.
int accept_parent(const std::string &parent, const Share &share, const char *method) {
    if (match_sharefs_ent(parent.c_str(), share.options.c_str()) == 1)
        return 0;
    char host[257] = "";
    sysv_sysinfo(SYSV_SI_HOSTNAME, host, sizeof host);
    record<parent_shared>(method, share.path.c_str(), share.options.c_str(), parent.c_str(),
                          get_sharefs_ent(parent.c_str()), host);
    free_sharefs_ents();
    return parent_shared;
}

int share_now(const Share &share, const char *method) {
    static base::Immortal<const Expression> subdirectory_complaint(
        "sub-directory.*(\\(.*\\)) already.*shared");
    static base::Immortal<const Expression> parent_complaint("parent.*(\\(.*\\)) already.*shared");
    const std::string command =
        share.description.empty()
            ? format("(set -f ; %s -F %s -o %s %s) 2>&1", share_program, nfs, share.options.c_str(),
                     share.path.c_str())
            : format("(set -f ; %s -F %s -o %s -d %s %s) 2>&1", share_program, nfs, share.options.c_str(),
                     share.description.c_str(), share.path.c_str());
    // How often one sub-directory may come back: others may share it again meanwhile, but not for ever.
    constexpr int most_withdrawals = 100;
    std::map<std::string, int> withdrawals;
    for (;;) {
        const Complaint complaint = first_complaint(command);
        if (complaint.silent())
            return 0;
        if (const auto subdirectory = subdirectory_complaint.get().search(complaint.text())) {
            if (++withdrawals[subdirectory->group] > most_withdrawals)
                return fail<share_failed>(method, share_program, share.path.c_str(), complaint.text());
            if (const int status = withdraw_subdirectory(subdirectory->group, share, method); status != 0)
                return status;
            continue;
        }
        if (const auto parent = parent_complaint.get().search(complaint.text()))
            return accept_parent(parent->group, share, method);
        return fail<share_failed>(method, share_program, share.path.c_str(), complaint.text());
    }
}

// Path and word are matched, options and description replaced.
// The path is the last word of a line, behind optional ones.
int add_share_line(const Share &share, const char *word, const char *method) {
    const bool described = !share.description.empty();
    ColumnList columns;
    if (columns.create(" \t", described ? "#" : nullptr, described ? share.description.c_str() : nullptr) !=
        0)
        return fail<cannot_prepare_edit>(method);
    struct Column {
        int a, b;
        const char *match, *value;
    };
    std::vector<Column> line = {{0, 0, word, word},
                                {1, 1, "-F", "-F"},
                                {2, 2, nfs, nfs},
                                {1, 3, nullptr, "-o"},
                                {2, 4, nullptr, share.options.c_str()}};
    if (described) {
        line.push_back({1, 5, nullptr, "-d"});
        line.push_back({2, 6, nullptr, share.description.c_str()});
    }
    line.push_back({1, 7, share.path.c_str(), share.path.c_str()});
    int position = 0;
    for (const Column &column : line)
        if (columns.add_floating(position++, column.a, column.b, column.match, column.value) != 0)
            return fail<cannot_prepare_edit>(method);
    const int status = replace_db_entry(share_table, columns.get(), replace_or_add_share);
    return status == 0 ? 0 : report_table_failure(status, share.path.c_str(), share_table, method);
}

// ---- unsharing ----

// Whether a share may be withdrawn for the sake of one client.
class ClientTest {
public:
    ClientTest(const char *client, const std::string &path)
        : client_(text_or(client, "")), path_(path), named_(format("=%s\\>", client_.c_str())) {}

    bool wanted() const { return !client_.empty(); }
    const char *client() const { return client_.c_str(); }
    bool concerns(const std::string &line) const { return contains(line, path_); }
    // A line of another path allows it. Otherwise the client must follow an equals sign directly and be the
    // only host there: no ":" behind it.
    bool allows(const std::string &line) const {
        if (!concerns(line))
            return true;
        const auto match = named_.search(line);
        return match && line.compare(match->end, 1, ":") != 0;
    }

private:
    std::string client_;
    const std::string &path_;
    Expression named_;
};

// The line of the share list that holds the path, or nothing.
std::string listed_share(const ClientTest &test) {
    CommandOutput shares(share_program);
    while (const auto line = shares.line()) {
        if (test.concerns(*line)) {
            shares.drain();
            return *line;
        }
    }
    return {};
}

int refuse_client(const std::string &path, const ClientTest &test, const char *method) {
    return fail<share_not_exclusive>(method, unshare_program, path.c_str(), test.client());
}

int unshare_now(const std::string &path, const ClientTest &test, const char *method) {
    static base::Immortal<const Expression> not_shared(".*not shared");
    if (test.wanted() && !test.allows(listed_share(test)))
        return refuse_client(path, test, method);
    const Complaint complaint =
        first_complaint(format("(set -f ; %s -F %s %s) 2>&1", unshare_program, nfs, path.c_str()));
    if (complaint.silent() || not_shared.get().search(complaint.text()))
        return 0;
    return fail<share_failed>(method, unshare_program, path.c_str(), complaint.text());
}

int remove_share_line(const std::string &path, const ClientTest &test, const char *method) {
    ColumnList columns;
    if (columns.create(" \t", nullptr, nullptr) != 0 || columns.add(0, "share", nullptr) != 0 ||
        columns.add(1, "-F", nullptr) != 0 || columns.add(2, nfs, nfs) != 0 ||
        columns.add_floating(3, 1, 7, path.c_str(), nullptr) != 0)
        return fail<cannot_prepare_edit>(method);
    if (test.wanted()) {
        std::vector<char> line(share_line_size);
        int status = get_db_entry(share_table, columns.get(), line.data(), static_cast<int>(line.size()));
        while (status == -ERANGE && line.size() < largest_share_line) {
            line.resize(line.size() * 2);
            status = get_db_entry(share_table, columns.get(), line.data(), static_cast<int>(line.size()));
        }
        // Only the test keeps the line: whatever else is wrong with the table, its removal will tell.
        if (status == 0 && !test.allows(line.data()))
            return refuse_client(path, test, method);
    }
    const int status = remove_db_entry(share_table, columns.get());
    if (status == 0 || status == no_such_line)
        return 0;
    return report_table_failure(status, path.c_str(), share_table, method);
}

// ---- the daemons ----

// Texts for error numbers that the system does not know say nothing; the number does.
std::string error_text(int error) {
    const char *text = strerrordesc_np(error) != nullptr ? std::strerror(error) : nullptr;
    return is_empty(text) ? std::to_string(error) : text;
}

// Where a daemon's program was set aside, puts it back; starts the daemon unless it runs.
int ensure_daemon(const char *name, const char *program, const char *args, const char *method,
                  bool &started) {
    std::rename(format("%s-", program).c_str(), program);
    int pid = 0;
    if (check_daemon(name, &pid) != HOSTADM_DAEMON_NOT_RUNNING)
        return 0;
    if (const int error = start_daemon(program, args); error != 0)
        return fail<daemon_not_started>(method, program, error_text(error).c_str());
    started = true;
    return 0;
}

} // namespace

int mount_filesystem(const char *resource, const char *fsckdev, const char *mountpt, const char *fstype,
                     const char *fsckpass, const char *mountatboot, const char *mntopts,
                     const char *takeeffect, const char *vfstab, const char *method) {
    return base::at_boundary(cannot_prepare_edit, [&] {
        Mount mount;
        mount.fstype = text_or(fstype, "ufs");
        const bool is_nfs = mount.fstype == nfs;
        if (is_empty(fsckdev) && !is_nfs)
            return fail<argument_missing>(method, "fsckdev");
        mount.fsckdev = text_or(fsckdev, "-");
        mount.mntopts = text_or(mntopts, is_nfs ? "bg,hard,rw" : "rw");
        mount.fsckpass = text_or(fsckpass, is_nfs ? "-" : "2");
        mount.mountatboot = text_or(mountatboot, "yes");
        if (is_absent(resource))
            return fail<argument_missing>(method, "resource");
        mount.resource = resource;
        if (is_absent(mountpt))
            return fail<argument_missing>(method, "mountpt");
        mount.mountpt = mountpt;
        const auto effect = read_effect(takeeffect, method);
        if (!effect)
            return int{bad_argument};

        if (effect->now) {
            int status = mount_now(mount, method);
            // A medium that is read only may hold either type.
            if (status != 0 && mount.fstype == "hsfs" && contains(mount.mntopts, "ro")) {
                mount.fstype = "ufs";
                status = mount_now(mount, method);
            }
            if (status != 0)
                return status;
        }
        if (!effect->at_boot)
            return 0;
        const int status = add_mount_line(mount, text_or(vfstab, "/etc/vfstab"), method);
        if (status != 0 && effect->now)
            undo(format("set -f ; %s %s >/dev/null 2>&1", umount_program, mountpt));
        return status;
    });
}

int unmount_filesystem(const char *mountpt, const char *takeeffect, const char *vfstab, const char *method) {
    return base::at_boundary(cannot_prepare_edit, [&] {
        if (is_absent(mountpt))
            return fail<argument_missing>(method, "mountpt");
        const auto effect = read_effect(takeeffect, method);
        if (!effect)
            return int{bad_argument};
        if (effect->now)
            if (const int status = unmount_now(mountpt, method); status != 0)
                return status;
        return effect->at_boot ? remove_mount_line(mountpt, text_or(vfstab, "/etc/vfstab"), method) : 0;
    });
}

void get_sharefs_ents(void) {
    base::at_boundary(0, [] {
        ShareWords words;
        CommandOutput shares(share_program);
        while (const auto line = shares.line()) {
            words.read(*line);
            append_entry(words);
        }
        return 0;
    });
}

void free_sharefs_ents(void) {
    free_entries(sfs_top);
    sfs_top = nullptr;
    sfs_current = nullptr;
    for (sharefs_entry *entry : std::exchange(cut_off.get(), {}))
        free_entries(entry);
}

int match_sharefs_ent(const char *path, const char *options) {
    const bool found = find_share([&](const sharefs_entry &entry) {
        return std::strcmp(entry.path, path) == 0 && std::strcmp(entry.options, options) == 0;
    });
    free_sharefs_ents();
    return found ? 1 : 0;
}

const char *get_sharefs_ent(const char *path) {
    // The list stays after a match: the answer belongs to it.
    if (find_share([&](const sharefs_entry &entry) { return std::strcmp(entry.path, path) == 0; }))
        return sfs_current->options;
    free_sharefs_ents();
    return "";
}

int sharefs(const char *fstype, const char *options, const char *description, const char *pathname,
            const char *takeeffect, const char *method, int force) {
    return base::at_boundary(cannot_prepare_edit, [&] {
        if (std::string_view(text_or(fstype, nfs)) != nfs)
            return fail<type_not_shareable>(method, nfs);
        if (is_empty(pathname))
            return fail<argument_missing>(method, "pathname");
        const Share share{resolved(pathname), text_or(options, "rw"), text_or(description, "")};
        const auto effect = read_effect(takeeffect, method);
        if (!effect)
            return int{bad_argument};
        if (lies_on_nfs(share.path))
            return fail<share_failed>(method, share_program, share.path.c_str(),
                                      format("cannot share %s", nfs).c_str());

        bool is_shared = true;
        if (effect->now) {
            const int status = share_now(share, method);
            if (status != 0 && force == 0)
                return status;
            is_shared = status == 0;
            enable_nfs_file_serving(method);
        }
        report_pathname(share.path);
        // A share that was forced counts as done, deliberately:
        // its failure is recorded, and the table keeps it as a comment.
        if (!effect->at_boot)
            return 0;
        const int status = add_share_line(share, is_shared ? "share" : "#share", method);
        if (status != 0 && effect->now)
            undo(format("set -f ; %s -F %s %s >/dev/null 2>&1", unshare_program, nfs, share.path.c_str()));
        return status;
    });
}

int unsharefs(const char *fstype, const char *pathname, const char *client, const char *takeeffect,
              const char *method) {
    return base::at_boundary(cannot_prepare_edit, [&] {
        if (std::string_view(text_or(fstype, nfs)) != nfs)
            return fail<type_not_shareable>(method, nfs);
        if (is_empty(pathname))
            return fail<argument_missing>(method, "pathname");
        const std::string path = resolved(pathname);
        report_pathname(path);
        const auto effect = read_effect(takeeffect, method);
        if (!effect)
            return int{bad_argument};
        const ClientTest test(client, path);

        int attempted = 0;
        int failed = 0;
        int result = 0;
        const auto count = [&](int status) {
            ++attempted;
            if (status != 0) {
                ++failed;
                result = status;
            }
        };
        if (effect->now)
            count(unshare_now(path, test, method));
        if (effect->at_boot)
            count(remove_share_line(path, test, method));
        if (failed != 0 && failed != attempted)
            adm_err_cleanup(nullptr, ADM_DIRTY);
        return result;
    });
}

int enable_nfs_file_serving(const char *method) {
    return base::at_boundary(daemon_not_started, [&] {
        bool started = false;
        int status = ensure_daemon("mountd", mountd_program, nullptr, method, started);
        if (status == 0)
            status = ensure_daemon("nfsd", nfsd_program, "-a 16", method, started);
        if (status == 0 && started)
            sleep(3); // until they answer
        return status;
    });
}
