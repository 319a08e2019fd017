// SPDX-License-Identifier: MIT
// What is on the disks when the power goes. The server's tables, its clients and its boot programs lie on three ext4
// file systems, in files which are copied before system calls of a job and right after it said that it is done. Each
// copy is mounted, as after a power cut: every table is whole; what was done is there with all that it holds; and the
// same command, run once more, finds what is not whole and makes it so.
//
// A sample of the moments is taken; HOSTADM_MOMENTS says how many of all jobs together.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <memory>
#include <sched.h>
#include <set>
#include <sstream>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "support/disk_image.hpp"
#include "support/faults.hpp"
#include "support/standin.hpp"
#include "support/text_files.hpp"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using tests::content;
using tests::DiskImage;
using tests::write;

const std::string images = "/images", here = "/disks", elsewhere = "/copies";

// Which folder of the server lies on which disk.
const std::vector<std::pair<std::string, std::string>> folders = {{"/etc", "/server"},
                                                                  {"/tmp", "/server"},
                                                                  {"/var/lib/hostadm", "/server"},
                                                                  {"/export", "/clients"},
                                                                  {"/tftpboot", "/boot"}};
const std::vector<std::string> disks = {"/server", "/clients", "/boot"};

// The place of a file of the server on the disks that are mounted there.
std::string on(const std::string &mounted, const std::string &path) {
    for (const auto &[folder, disk] : folders)
        if (path == folder || path.starts_with(folder + "/"))
            return mounted + disk + path;
    return path;
}

// All disks of a set of images, at one place.
class Disks {
public:
    Disks(const std::string &set, std::string place) : place_(std::move(place)) {
        for (const std::string &disk : disks)
            mounted_.push_back(std::make_unique<DiskImage>(images + "/" + set + disk, place_ + disk));
    }
    const std::string &place() const { return place_; }
    void commit() const {
        for (const auto &disk : mounted_)
            disk->commit();
    }
    void copy_to(const std::string &set) const {
        fs::create_directories(images + "/" + set);
        for (std::size_t i = 0; i < disks.size(); ++i)
            mounted_[i]->copy_to(images + "/" + set + disks[i]);
    }

private:
    std::string place_;
    std::vector<std::unique_ptr<DiskImage>> mounted_;
};

void copy_set(const std::string &from, const std::string &to) {
    fs::create_directories(images + "/" + to);
    for (const std::string &disk : disks) {
        const std::string command =
            "cp --sparse=always " + images + "/" + from + disk + " " + images + "/" + to + disk;
        ASSERT_EQ(std::system(command.c_str()), 0);
    }
}

// The calling process sees the disks' folders as the server's own.
int run_with(const std::string &mounted, const std::string &command) {
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return 125;
    for (const auto &[folder, disk] : folders)
        if (mount((mounted + disk + folder).c_str(), folder.c_str(), nullptr, MS_BIND, nullptr) != 0)
            return 125;
    const int status = std::system((command + " >/words.out 2>&1 </dev/null").c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

int run_alone(const std::string &mounted, const std::string &command) {
    const pid_t child = fork();
    if (child == 0)
        _exit(run_with(mounted, command));
    int status = 0;
    waitpid(child, &status, 0);
    return WEXITSTATUS(status);
}

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

// The day of an installation is never the same.
std::string without_day(const std::string &text) {
    std::string rest;
    for (const std::string &line : lines_of(text))
        if (!line.starts_with("INSTDATE="))
            rest += line + "\n";
    return rest;
}

// Everything that a client is on a server: path, then type, mode, owner, target of a link, contents.
using State = std::map<std::string, std::string>;

std::string described(const std::string &path) {
    struct stat file {};
    if (lstat(path.c_str(), &file) != 0)
        return "nothing";
    std::ostringstream text;
    text << std::oct << file.st_mode << ' ' << file.st_uid << ':' << file.st_gid;
    if (S_ISLNK(file.st_mode))
        text << " -> " << fs::read_symlink(path).native();
    if (S_ISREG(file.st_mode))
        text << ": " << (path.ends_with("/pkginfo") ? without_day(content(path)) : content(path));
    return text.str();
}

State state_of(const std::string &mounted) {
    State state;
    // What is shared now is gone with the power.
    for (const char *table : {"/etc/hosts", "/etc/ethers", "/etc/bootparams", "/etc/dfs/dfstab"})
        state[table] = described(on(mounted, table));
    for (const std::string area : {"/export", "/tftpboot", "/var/lib/hostadm"})
        for (const auto &entry : fs::recursive_directory_iterator(on(mounted, area)))
            if (area != "/var/lib/hostadm" ||
                !fs::is_empty(entry.path())) // an empty table there says nothing
                state[area + entry.path().native().substr(on(mounted, area).size())] =
                    described(entry.path());
    return state;
}

std::string difference(const State &one, const State &other) {
    std::string text;
    for (const auto &[path, what] : one)
        if (const auto found = other.find(path); found == other.end() || found->second != what)
            text += path + "\n    is " + what.substr(0, 200) + "\n    not " +
                    (found == other.end() ? "there" : found->second.substr(0, 200)) + "\n";
    for (const auto &[path, what] : other)
        if (!one.contains(path))
            text += path + "\n    is not there, but would be " + what.substr(0, 200) + "\n";
    return text;
}

// Files that are edited and never half of anything.
bool is_table(const std::string &path) {
    return path.starts_with("/etc/") || path.ends_with("/etc/vfstab") ||
           path.ends_with("/var/sadm/install/contents");
}

// Between two steps of a job a table may have some of its new lines, but no other ones, and keeps the old ones.
std::string broken_in(const std::string &now, const std::string &before, const std::string &after) {
    const std::vector<std::string> old_lines = lines_of(before), new_lines = lines_of(after);
    const auto has = [](const std::vector<std::string> &lines, const std::string &line) {
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    };
    const std::vector<std::string> lines = lines_of(now);
    for (const std::string &line : lines)
        if (!has(old_lines, line) && !has(new_lines, line))
            return "a strange line: " + line;
    for (const std::string &line : old_lines)
        if (has(new_lines, line) && !has(lines, line))
            return "a lost line: " + line;
    return now.empty() || now.back() == '\n' ? "" : "half a line at the end";
}

constexpr const char *share_script =
    "tab=/etc/dfs/sharetab; [ $# = 0 ] && { cat $tab; exit 0; }\n"
    "while getopts F:o:d: o; do case $o in o) opts=$OPTARG;; esac; done\n"
    "shift $((OPTIND - 1)); { grep -v \"  $1  \" $tab; echo \"-  $1  $opts  \\\"\\\"\"; } >/standin/tab\n"
    "cp /standin/tab $tab";
constexpr const char *unshare_script =
    "shift 2; sed \"\\|  $1  |d\" /etc/dfs/sharetab >/standin/tab; cp /standin/tab /etc/dfs/sharetab";

const std::string program = std::string(HOSTADM_COMMAND) + " run ";
const std::string add = program + "client/add_diskless hostname=c1 address=10.1.2.3 ethernet=8:0:20:a:b:c "
                                  "instruction_set=kel4 implementation_arch=kel4m os_name=Quorvel "
                                  "os_version=2.5 server=server1 swap_size=64k install_hierarchy=/tree ";

constexpr std::size_t jobs = 8; // below
std::size_t moments_of_a_job() {
    const char *wanted = std::getenv("HOSTADM_MOMENTS");
    return std::max<std::size_t>(wanted == nullptr ? 3 : std::strtoul(wanted, nullptr, 10) / jobs, 1);
}

class DiskImages : public testing::Test {
protected:
    static void SetUpTestSuite() {
        // Other programs of this machine come and go in the live one.
        ASSERT_EQ(mount("images", "/tmp", "tmpfs", 0, nullptr), 0);
        fs::create_directory(images);
        ASSERT_EQ(mount("images", images.c_str(), "tmpfs", 0, nullptr), 0);
        for (const auto &[folder, disk] : folders)
            fs::create_directories(folder);
        for (const char *daemon : {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd", "/usr/sbin/in.rarpd"}) {
            standin::place(daemon, {.stay = true});
            standin::start(daemon, "-a");
        }
        standin::place("/usr/sbin/share", {.script = share_script});
        standin::place("/usr/sbin/unshare", {.script = unshare_script});
        fs::copy_file(BUILD_DIRECTORY "/compat/pkgadd", "/usr/sbin/pkgadd",
                      fs::copy_options::overwrite_existing);
        make_sources();
        make_empty_server();
    }

    // A tree, and two packages.
    static void make_sources() {
        const std::string boot_program = "/usr/platform/kel4m/lib/fs/nfs/inetboot";
        write("/tree" + boot_program, std::string(70'000, 'b'));
        write("/tree/etc/vfstab", "server1:/export/root/c1 - / nfs - no rw\n");
        write("/tree/etc/motd", "welcome\n");
        write("/tree/etc/hosts", "127.0.0.1 localhost\n10.1.2.3 c1\n");
        for (int i = 0; i < 40; ++i)
            write("/tree/usr/bin/program" + std::to_string(i),
                  std::string(5'000, static_cast<char>('A' + i)));
        fs::create_symlink("usr/bin", "/tree/bin");
        write("/more/usr/lib/more", std::string(9'000, 'm'));
        const std::string make = BUILD_DIRECTORY "/compat/pkgmk -o ";
        for (const char *words : {"-d /spool -r /tree KTVXroot", "-d /spool-more -r /more KTVXmore"}) {
            fs::create_directories(std::string(words).substr(3, std::string(words).find(" -r") - 3));
            ASSERT_EQ(std::system((make + words + " >/dev/null").c_str()), 0);
        }
    }

    static void make_empty_server() {
        fs::create_directories(images + "/empty");
        for (const std::string &disk : disks)
            DiskImage::make(images + "/empty" + disk);
        const Disks server("empty", here);
        for (const auto &[folder, disk] : folders)
            fs::create_directories(on(here, folder));
        fs::permissions(on(here, "/tmp"), fs::perms(01777));
        const std::string etc = on(here, "/etc");
        ASSERT_EQ(
            std::system(
                ("cd /etc && cp -a passwd group nsswitch.conf ld.so.cache alternatives " + etc).c_str()),
            0);
        write(etc + "/hosts", "# hosts\n127.0.0.1\tlocalhost server1\n");
        write(etc + "/ethers", "# ethers\n");
        write(etc + "/bootparams", "other root=elsewhere:/export/root/other\n");
        write(etc + "/dfs/dfstab", "# shares\n");
        write(etc + "/dfs/sharetab", "");
        for (const char *file : {"install_data/.clustertoc", "install_data/CLUSTER", "softinfo/INST_RELEASE"})
            write(on(here, "/export/Quorvel_2.5/var/sadm/") + file, "catalogue\n");
    }

    // With a client, from which other jobs begin.
    static void need_client() {
        if (fs::exists(images + "/client"))
            return;
        copy_set("empty", "client");
        const Disks server("client", here);
        ASSERT_EQ(run_alone(here, add + "tree=/tree"), 0) << content("/words.out");
    }

    // The same command, run once more, makes whole what is not.
    void prove(const std::string &start, const std::string &command) {
        copies_.clear();
        State before, after;
        std::size_t calls = 0;
        copy_set(start, "work");
        {
            const Disks server("work", here);
            before = state_of(here);
            const faults::Ran ran = faults::run([&] { return run_with(here, command); });
            copy(server, "done", false);
            copy(server, "done", true);
            ASSERT_EQ(ran.status, 0) << content("/words.out");
            calls = ran.calls.size();
            after = state_of(here);
            ASSERT_NE(before, after);
        }
        copy_meanwhile(start, command, calls);
        taken_ += copies_.size();
        for (const auto &[set, moment] : copies_) {
            SCOPED_TRACE(moment);
            check(set, command, before, after, moment.starts_with("done"));
            fs::remove_all(images + "/" + set);
        }
    }

    // A set of images, and of which moment it is.
    void copy(const Disks &server, const std::string &moment, bool committed) {
        if (committed)
            server.commit();
        const std::string set = "copy" + std::to_string(copies_.size());
        server.copy_to(set);
        copies_.emplace_back(set, moment + (committed ? ", committed" : ""));
    }

    void copy_meanwhile(const std::string &start, const std::string &command, std::size_t calls) {
        copy_set(start, "work");
        const Disks server("work", here);
        const std::size_t moments = moments_of_a_job();
        std::size_t next = 1; // of the moments, in the middle of its share of the calls
        const auto before = [&](std::size_t number) {
            if (number * moments * 2 < (2 * next - 1) * calls)
                return;
            copy(server, "before call " + std::to_string(number) + " of " + std::to_string(calls),
                 next % 4 != 0);
            ++next;
        };
        const faults::Ran ran = faults::run([&] { return run_with(here, command); }, {}, before);
        EXPECT_EQ(ran.status, 0) << content("/words.out");
    }

    static void check(const std::string &set, const std::string &command, const State &before,
                      const State &after, bool is_done) {
        const Disks copy(set, elsewhere);
        const State found = state_of(elsewhere);
        if (is_done) {
            EXPECT_EQ(difference(found, after), "") << "what is done is there";
        }
        for (const auto &[path, what] : found)
            if (is_table(path) && before.contains(path) && after.contains(path)) {
                EXPECT_EQ(broken_in(what, before.at(path), after.at(path)), "") << path;
            }
        write(on(elsewhere, "/etc/dfs/sharetab"), "");
        EXPECT_EQ(run_alone(elsewhere, command), 0) << "once more: " << content("/words.out");
        EXPECT_EQ(difference(state_of(elsewhere), after), "") << "once more";
    }

    static void TearDownTestSuite() { std::cout << taken_ << " moments\n"; }

    std::vector<std::pair<std::string, std::string>> copies_;
    static inline std::size_t taken_ = 0;
};

TEST_F(DiskImages, ClientIsAddedFromATree) {
    prove("empty", add + "tree=/tree");
}

TEST_F(DiskImages, ClientIsAddedFromPackages) {
    prove("empty", add + "packages=/spool");
}

TEST_F(DiskImages, ClientIsRemoved) {
    need_client();
    prove("client", program + "client/remove hostname=c1 purge=yes");
}

TEST_F(DiskImages, ClientGetsAnotherName) {
    need_client();
    prove("client", program + "client/change hostname=c1 new_hostname=new address=10.1.2.9 swap_size=128k");
}

TEST_F(DiskImages, ClientIsDisabled) {
    need_client();
    prove("client", program + "client/disable hostname=c1");
}

TEST_F(DiskImages, LineIsAddedToTheMountTableOfAClient) {
    need_client();
    prove("client", program + "filesystem/add_mount_entry resource=server1:/x mountpt=/x fstype=nfs "
                              "vfstab=/export/root/c1/etc/vfstab");
}

TEST_F(DiskImages, CacheOfAClientIsSwitchedOn) {
    need_client();
    prove("client", program + "cachelet/enable_cache root=/export/root/c1");
}

TEST_F(DiskImages, PackageIsInstalledInTheRootOfAClient) {
    need_client();
    write("/admin", "mail=\ninstance=overwrite\npartial=nocheck\nrunlevel=nocheck\nidepend=nocheck\n"
                    "rdepend=nocheck\nspace=quit\nsetuid=nocheck\nconflict=nocheck\naction=nocheck\n"
                    "basedir=/\n");
    prove("client", "/usr/sbin/pkgadd -S -n -R /export/root/c1 -a /admin -d /spool-more KTVXmore");
}

// Nothing where all is well, and otherwise why disks cannot be played here.
std::string what_is_missing() try {
    if (!faults::available())
        return "processes may not be traced here";
    DiskImage::make("/trial");
    const DiskImage trial("/trial", "/trial-disk");
    trial.copy_to("/trial-copy");
    return "";
} catch (const std::exception &error) {
    return error.what();
}

} // namespace

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (std::getenv("HOSTADM_SANDBOX") == nullptr) {
        std::puts("run this with in-sandbox");
        return 1;
    }
    if (const std::string reason = what_is_missing(); !reason.empty()) {
        std::printf("skipped: %s\n", reason.c_str());
        return 77;
    }
    return RUN_ALL_TESTS();
}
