// SPDX-License-Identifier: MIT
// hostadm preview. The command and its tests stand in a throwaway root of their own, which plays the live
// system: there shares, daemons and tables can be set up at will, and nothing may differ in it after a
// preview.
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/inside.hpp"
#include "support/text_files.hpp"

namespace fs = std::filesystem;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using tests::content;
using tests::write;

namespace {

const fs::path prefix = "/opt/preview-test";

void write_program(const fs::path &path, const std::string &text) {
    write(path, text);
    fs::permissions(path, fs::perms(0755));
}

// A method as a shell script.
void install_method(const std::string &name, const std::string &script, const std::string &arguments = "[]") {
    write_program(prefix / "libexec/hostadm/methods" / name,
                  "#!/bin/sh\nif [ \"$1\" = --describe ]; then\ncat <<'END'\n{\"name\": \"" + name +
                      "\", \"purpose\": \"is tested\", \"arguments\": " + arguments +
                      "}\nEND\nexit 0\nfi\necho '{\"begin\": \"" + name + "\"}' >&4\n" + script +
                      "\necho '{\"end\": 0}' >&4\n");
}

struct Result {
    int status = -1;
    std::string output, errors;
};

Result command(const std::string &arguments) {
    const int ended =
        std::system((prefix.string() + "/bin/hostadm " + arguments + " >/out 2>/err </dev/null").c_str());
    return {WIFEXITED(ended) ? WEXITSTATUS(ended) : 128 + WTERMSIG(ended), content("/out"), content("/err")};
}

// Runs a test's body on its own "live system".
void on_a_system(const std::function<void()> &body) {
    tests::inside([&] {
        fs::create_directories(prefix / "bin");
        fs::copy_file(HOSTADM, prefix / "bin/hostadm");
        fs::create_directories(prefix / "libexec/hostadm");
        fs::copy_file(HOSTADM_PREVIEW_SHARE, prefix / "libexec/hostadm/preview-share");
        fs::create_directories(prefix / "libexec/hostadm/methods");
        body();
    });
}

} // namespace

TEST(Preview, ShowsTheDiffOfATable) {
    on_a_system([] {
        write("/etc/vfstab", "a - /a ufs - no -\nb - /b ufs - no -\n");
        install_method("test/edit", "echo 'srv:/x - /x nfs - yes rw' >>/etc/vfstab");
        const Result result = command("preview test/edit");
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(result.output, "--- /etc/vfstab\n+++ /etc/vfstab\n@@ -1,2 +1,3 @@\n a - /a ufs - no -\n"
                                 " b - /b ufs - no -\n+srv:/x - /x nfs - yes rw\n\n"
                                 "This was a preview: nothing on this system has been changed.\n");
        EXPECT_EQ(result.errors, "");
        EXPECT_EQ(content("/etc/vfstab"), "a - /a ufs - no -\nb - /b ufs - no -\n");
    });
}

TEST(Preview, ShowsFilesThatComeAndGo) {
    on_a_system([] {
        write("/etc/old", "gone\n");
        install_method("test/edit", "rm /etc/old; echo new >/etc/new");
        const Result result = command("preview test/edit");
        EXPECT_THAT(result.output, HasSubstr("--- /dev/null\n+++ /etc/new\n@@ -0,0 +1 @@\n+new\n"));
        EXPECT_THAT(result.output, HasSubstr("--- /etc/old\n+++ /dev/null\n@@ -1 +0,0 @@\n-gone\n"));
        EXPECT_TRUE(fs::exists("/etc/old"));
        EXPECT_FALSE(fs::exists("/etc/new"));
    });
}

TEST(Preview, ListsModesOwnersLinksDevicesAndBinaries) {
    on_a_system([] {
        write("/etc/mode", "x\n");
        write("/etc/owner", "x\n");
        fs::create_symlink("mode", "/etc/link");
        write("/etc/binary", std::string("a\0b", 3));
        install_method(
            "test/edit",
            "chmod 600 /etc/mode; chown 3:4 /etc/owner; ln -sf owner /etc/link; mkdir /etc/folder\n"
            "ln -s target /etc/newlink; mknod /etc/device c 1 3; printf 'c\\0d\\0' >/etc/binary");
        const Result result = command("preview test/edit");
        EXPECT_THAT(result.output, HasSubstr("changed mode of /etc/mode: 644 to 600\n"));
        EXPECT_THAT(result.output, HasSubstr("changed owner of /etc/owner: 0:0 to 3:4\n"));
        EXPECT_THAT(result.output, HasSubstr("changed link /etc/link -> owner (was mode)\n"));
        EXPECT_THAT(result.output, HasSubstr("added link /etc/newlink -> target\n"));
        EXPECT_THAT(result.output, HasSubstr("added device /etc/device (mode 644)\n"));
        EXPECT_THAT(result.output, HasSubstr("added directory /etc/folder (mode 755)\n"));
        EXPECT_THAT(result.output, HasSubstr("changed file /etc/binary (3 bytes before, 4 bytes after)\n"));
    });
}

TEST(Preview, SumsUpLargeTreesUnlessAskedForEverything) {
    on_a_system([] {
        install_method("test/edit",
                       "mkdir -p /export/root/c1; for i in $(seq 30); do echo x >/export/root/c1/f$i; done\n"
                       "mkdir /export/small; echo y >/export/small/file");
        fs::create_directories("/export/root");
        const std::string brief = command("preview test/edit").output;
        EXPECT_THAT(brief, HasSubstr("added directory /export/root/c1 with 30 files (60 bytes)\n"));
        EXPECT_THAT(brief, Not(HasSubstr("/export/root/c1/f7")));
        EXPECT_THAT(brief, HasSubstr("+++ /export/small/file\n"));
        const std::string full = command("preview --full test/edit").output;
        EXPECT_THAT(full, HasSubstr("+++ /export/root/c1/f7\n"));
    });
}

TEST(Preview, TellsHowManyFilesGoWithADirectory) {
    on_a_system([] {
        for (int i = 0; i < 5; ++i)
            write("/export/root/c1/etc/f" + std::to_string(i), "x");
        install_method("test/edit", "rm -r /export/root/c1");
        EXPECT_THAT(command("preview test/edit").output,
                    HasSubstr("removed directory /export/root/c1 with 5 files\n"));
        EXPECT_TRUE(fs::exists("/export/root/c1/etc/f0"));
    });
}

TEST(Preview, SaysWhenNothingWouldChange) {
    on_a_system([] {
        install_method("test/idle", "echo x >/tmp/scratch");
        EXPECT_EQ(command("preview test/idle").output,
                  "No file would change.\n\nThis was a preview: nothing on this system has been changed.\n");
        EXPECT_FALSE(fs::exists("/tmp/scratch"));
    });
}

TEST(Preview, NotesCommandsAndDoesNotRunThem) {
    on_a_system([] {
        for (const char *path :
             {"/usr/sbin/mount", "/usr/sbin/umount", "/usr/sbin/unshare", "/usr/lib/nfs/nfsd"})
            write_program(path, "#!/bin/sh\necho ran $0 >>/run/ran\necho ran $0 >>/ran\n");
        install_method("test/act", "/usr/sbin/mount -F nfs 'srv:/a b' /mnt\n/usr/sbin/umount /mnt\n"
                                   "(sleep 1; /usr/lib/nfs/nfsd -a 16) &\n/usr/sbin/rpld -a ''");
        const Result result = command("preview test/act");
        EXPECT_THAT(result.output,
                    HasSubstr("Commands:\n  /usr/sbin/mount -F nfs 'srv:/a b' /mnt\n  /usr/sbin/umount /mnt\n"
                              "  /usr/sbin/rpld -a ''    (not installed on this system)\n"
                              "  /usr/lib/nfs/nfsd -a 16\n"));
        EXPECT_FALSE(fs::exists("/ran"));
        EXPECT_FALSE(fs::exists("/run/ran"));
    });
}

TEST(Preview, ShowsAStartedDaemonRunningUntilItsEnd) {
    on_a_system([] {
        const std::string look = "cat /proc/[0-9]*/comm 2>/dev/null | grep -cx rpld ";
        install_method("test/start", "/usr/sbin/rpld -a; " + look + ">/etc/by-the-method");
        install_method("test/look", look + ">/etc/afterwards");
        const Result result = command("preview test/start --then 'run test/look'");
        EXPECT_THAT(result.output, HasSubstr("  /usr/sbin/rpld -a "));
        EXPECT_THAT(result.output, HasSubstr("+++ /etc/by-the-method\n@@ -0,0 +1 @@\n+1\n"));
        EXPECT_THAT(result.output, HasSubstr("+++ /etc/afterwards\n@@ -0,0 +1 @@\n+1\n"));
        EXPECT_EQ(std::system((look + ">/dev/null").c_str()), 256) << "it outlives the preview";
    });
}

TEST(Preview, SeesAndKeepsTheLiveShares) {
    on_a_system([] {
        write_program("/usr/sbin/share", "#!/bin/sh\n[ $# = 0 ] || { echo ran >/ran; exit; }\n"
                                         "echo '-  /export/live  ro  \"\"'\n");
        fs::create_directories("/export/new");
        install_method("test/act",
                       "/usr/sbin/share >/etc/first; /usr/sbin/share -F nfs -o rw=c1 -d 'c 1' /export/new\n"
                       "/usr/sbin/share >/etc/second; /usr/sbin/unshare /export/live\n"
                       "/usr/sbin/share >/etc/third; /usr/sbin/unshare /export/none 2>/etc/complaint");
        const Result result = command("preview test/act");
        EXPECT_THAT(result.output, HasSubstr("+++ /etc/first\n@@ -0,0 +1 @@\n+-  /export/live  ro  \"\"\n"));
        EXPECT_THAT(result.output, HasSubstr("+++ /etc/second\n@@ -0,0 +1,2 @@\n+-  /export/live  ro  \"\"\n"
                                             "+-  /export/new  rw=c1  \"c 1\"\n"));
        EXPECT_THAT(result.output,
                    HasSubstr("+++ /etc/third\n@@ -0,0 +1 @@\n+-  /export/new  rw=c1  \"c 1\"\n"));
        EXPECT_THAT(result.output, HasSubstr("+unshare: /export/none: not shared\n"));
        EXPECT_THAT(result.output,
                    HasSubstr("Commands:\n  /usr/sbin/share -F nfs -o rw=c1 -d 'c 1' /export/new\n"
                              "  /usr/sbin/unshare /export/live"));
        EXPECT_FALSE(fs::exists("/ran"));
    });
}

TEST(Preview, RefusesAShareAboveOrBelowAnother) {
    on_a_system([] {
        write_program("/usr/sbin/share", "#!/bin/sh\necho '-  /export/a  ro  \"\"'\n");
        fs::create_directories("/export/a/b");
        fs::create_directories("/export/ab");
        fs::create_directories("/export/a/disk");
        ASSERT_EQ(mount("own", "/export/a/disk", "tmpfs", 0, nullptr), 0);
        install_method("test/act", "for path in /export / /export/a/b /export/ab /export/a /export/a/disk\n"
                                   "do /usr/sbin/share $path 2>>/etc/complaints; done");
        EXPECT_THAT(command("preview test/act").output,
                    HasSubstr("+++ /etc/complaints\n@@ -0,0 +1,3 @@\n"
                              "+share: sub-directory (/export/a) already shared, in /export\n"
                              "+share: sub-directory (/export/a) already shared, in /\n"
                              "+share: parent (/export/a) already shared, of /export/a/b\n"
                              "\n"));
    });
}

TEST(Preview, SeesTheLiveMounts) {
    on_a_system([] {
        install_method("test/look", "/usr/sbin/mount >/etc/mounts; mount >/etc/by-name");
        const std::string output = command("preview test/look").output;
        EXPECT_THAT(output, HasSubstr("\n+proc on /proc type proc (rw"));
        EXPECT_THAT(output, Not(HasSubstr("Commands:")));
    });
}

TEST(Preview, MountsNothingOnTheLiveSystemByAnyProgram) {
    on_a_system([] {
        const std::string program = prefix / "really-mount";
        fs::create_directories(prefix);
        fs::copy_file("/usr/bin/mount", program);
        fs::create_directories("/mnt/new");
        install_method("test/act",
                       program + " -t tmpfs own /mnt/new; echo y >/mnt/new/inside\nls /mnt/new >/etc/seen");
        const std::string before = content("/proc/self/mountinfo");
        const std::string output = command("preview test/act").output;
        EXPECT_THAT(output, HasSubstr("+++ /etc/seen\n@@ -0,0 +1 @@\n+inside\n"));
        EXPECT_THAT(output, Not(HasSubstr("/mnt/new/inside"))) << "it lies on a mount of the method's own";
        EXPECT_EQ(content("/proc/self/mountinfo"), before);
        EXPECT_TRUE(fs::is_empty("/mnt/new"));
    });
}

TEST(Preview, SeesTheLiveProcessesAndCannotReachThem) {
    on_a_system([] {
        write_program("/usr/lib/nfs/nfsd", "#!/bin/sh\nsleep 300; :\n");
        const pid_t daemon = fork();
        if (daemon == 0) {
            execl("/usr/lib/nfs/nfsd", "/usr/lib/nfs/nfsd", nullptr);
            _exit(127);
        }
        const std::string process = "/proc/" + std::to_string(daemon);
        while (content(process + "/cmdline").find("nfsd") == std::string::npos)
            usleep(1000);
        install_method("test/look", "tr '\\0' ' ' <" + process +
                                        "/cmdline >/etc/seen\n"
                                        "kill " +
                                        std::to_string(daemon) +
                                        " 2>/dev/null; kill -9 -1 2>/dev/null; true");
        EXPECT_THAT(command("preview test/look").output, HasSubstr("/usr/lib/nfs/nfsd \n"));
        EXPECT_EQ(kill(daemon, 0), 0);
        EXPECT_EQ(waitpid(daemon, nullptr, WNOHANG), 0) << "the preview ended a live process";
        kill(daemon, SIGKILL);
        waitpid(daemon, nullptr, 0);
    });
}

TEST(Preview, ShowsTheResultsOfTheMethod) {
    on_a_system([] {
        install_method("test/say", R"(echo '{"output": "answer", "value": "42"}' >&4)");
        EXPECT_THAT(command("preview test/say").output, HasSubstr("answer  42\n"));
    });
}

TEST(Preview, RunsFurtherCommandsInTheSameRoot) {
    on_a_system([] {
        install_method("test/edit", "echo made >/etc/made");
        install_method("test/look", "echo '{\"output\": \"found\", \"value\": \"'$(cat /etc/made)'\"}' >&4");
        const Result result = command("preview test/edit --then 'run test/look'");
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_THAT(result.output, HasSubstr("\n== hostadm run test/look\nfound  made\n"));
        EXPECT_FALSE(fs::exists("/etc/made"));
    });
}

TEST(Preview, TakesTheWordsOfFurtherCommandsAsAShellDoes) {
    on_a_system([] {
        install_method("test/edit", "true");
        install_method("test/say",
                       "echo '{\"output\": \"words\", \"value\": \"'$(hostadm arg get text)'\"}' >&4",
                       R"([{"name": "text", "kind": "text", "purpose": "a text"}])");
        const std::pair<const char *, const char *> cases[] = {{R"(run test/say "text=a b")", "a b"},
                                                               {R"(run test/say text='a b')", "a b"},
                                                               {R"(run test/say text=a\ "b'c")", "a b'c"},
                                                               {R"( run  test/say 'text=a' )", "a"}};
        for (const auto &[line, said] : cases) {
            write("/line", line);
            const Result result = command("preview test/edit --then \"$(cat /line)\"");
            EXPECT_EQ(result.status, 0) << line << result.output << result.errors;
            EXPECT_THAT(result.output, HasSubstr(std::string("\nwords  ") + said + "\n")) << line;
        }
    });
}

TEST(Preview, RefusesAFurtherCommandWithAQuoteLeftOpen) {
    on_a_system([] {
        install_method("test/edit", "echo made >/etc/made");
        const Result result = command("preview test/edit --then \"run test/edit 'a\"");
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.output, "");
        EXPECT_THAT(result.errors, HasSubstr("--then: a quote is not closed in: run test/edit 'a"));
    });
}

TEST(Preview, FailsWithAFurtherCommandAndShowsItsErrorsInPlace) {
    on_a_system([] {
        install_method("test/edit", "echo made >/etc/made");
        install_method("test/fail", R"(echo '{"error": 70, "text": "fail: no"}' >&4; exit 1)");
        const Result result =
            command("preview test/edit --then 'run test/fail' --then 'lsit' --then 'run test/edit'");
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.output, HasSubstr("\n== hostadm run test/fail\n"
                                             "hostadm: test/fail: no (error 70)\n"
                                             "(it ended with exit status 1)\n"
                                             "\n== hostadm lsit\n"
                                             "hostadm: "));
        EXPECT_THAT(result.output, HasSubstr("(it ended with exit status 2)\n\n== hostadm run test/edit\n"));
        EXPECT_EQ(result.errors,
                  "hostadm: preview: a command of --then failed; what it said stands under its heading\n");
        const Result as_json = command("preview --json test/edit --then 'run test/fail'");
        EXPECT_EQ(as_json.status, 1);
        EXPECT_EQ(json::parse(as_json.output).at("status"), "done");
        EXPECT_THAT(json::parse(as_json.output).at("then").get<std::string>(), HasSubstr("no (error 70)"));
    });
}

TEST(Preview, FailsWhenTheTimeLimitCutsOffAFurtherCommand) {
    on_a_system([] {
        install_method("test/edit", "echo made >/etc/made");
        install_method("test/slow", "sleep 600");
        const Result result = command("preview --time-limit 3 test/edit --then 'run test/slow'");
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.output, HasSubstr("+++ /etc/made\n"));
        EXPECT_EQ(result.errors,
                  "hostadm: preview: the time limit passed before every command of --then had ended\n");
    });
}

TEST(Preview, RunsNothingFurtherAfterAFailure) {
    on_a_system([] {
        install_method("test/fail", "exit 3");
        const Result result = command("preview test/fail --then list");
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.output, Not(HasSubstr("== hostadm")));
    });
}

TEST(Preview, ReportsAFailureAndWhatWasChangedBeforeIt) {
    on_a_system([] {
        install_method(
            "test/fail",
            "echo x >/etc/half\n"
            R"(echo '{"error": 70, "text": "fail: no such table"}' >&4; echo '{"end": 1}' >&4; exit 1)");
        const Result result = command("preview test/fail");
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.output, HasSubstr("+++ /etc/half\n"));
        EXPECT_EQ(result.errors, "hostadm: test/fail: no such table (error 70)\n");
    });
}

TEST(Preview, ReportsAMethodThatCrashes) {
    on_a_system([] {
        install_method("test/crash", "kill -SEGV $$");
        const Result result = command("preview test/crash");
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.errors, HasSubstr("signal 11"));
    });
}

TEST(Preview, RefusesWrongArgumentsAsARunDoes) {
    on_a_system([] {
        install_method("test/edit", "echo x >/etc/x",
                       R"([{"name": "host", "kind": "host", "purpose": "a host"}])");
        for (const char *words :
             {"test/edit nonsense=1", "test/edit host=a/b", "test/unknown", "test/edit host"}) {
            const Result previewed = command(std::string("preview ") + words);
            const Result run = command(std::string("run ") + words);
            EXPECT_EQ(previewed.status, 2) << words;
            EXPECT_EQ(previewed.output, "") << words;
            EXPECT_EQ(previewed.errors, run.errors) << words;
        }
        EXPECT_FALSE(fs::exists("/etc/x"));
    });
}

TEST(Preview, GivesEverythingAsJson) {
    on_a_system([] {
        write("/etc/table", "one\n");
        install_method("test/edit",
                       "echo two >>/etc/table; rm -f /etc/gone; ln -s a /etc/link; /usr/sbin/umount '/a b'\n"
                       R"(echo '{"row": {"name": "r1"}}' >&4)");
        const Result result = command("preview --json test/edit");
        EXPECT_EQ(result.status, 0);
        const json report = json::parse(result.output);
        EXPECT_EQ(report.at("method"), "test/edit");
        EXPECT_EQ(report.at("status"), "done");
        EXPECT_EQ(report.at("rows").at(0).at("name"), "r1");
        ASSERT_EQ(report.at("changes").size(), 2u);
        EXPECT_EQ(report.at("changes").at(0).at("path"), "/etc/link");
        EXPECT_EQ(report.at("changes").at(0).at("change"), "added");
        EXPECT_EQ(report.at("changes").at(0).at("after").at("target"), "a");
        EXPECT_EQ(report.at("changes").at(1).at("change"), "changed");
        EXPECT_EQ(report.at("changes").at(1).at("diff"),
                  "--- /etc/table\n+++ /etc/table\n@@ -1 +1,2 @@\n one\n+two\n");
        EXPECT_EQ(report.at("commands"), json::parse(R"([{"path": "/usr/sbin/umount", "arguments": ["/a b"],
                                                          "installed": false}])"));
    });
}

TEST(Preview, CutsOffARunAtItsTimeLimit) {
    on_a_system([] {
        install_method("test/slow", "echo x >/etc/begun; sleep 600");
        const Result result = command("preview --time-limit 2 test/slow");
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.output, HasSubstr("+++ /etc/begun\n"));
        EXPECT_THAT(result.errors, HasSubstr("time limit"));
    });
}

TEST(Preview, EndsOnASignalWithoutAReport) {
    on_a_system([] {
        install_method("test/slow", "echo x >/etc/begun; sleep 600");
        const int ended =
            std::system((prefix.string() + "/bin/hostadm preview test/slow >/out 2>&1 & p=$!; sleep 0.5; "
                                           "kill -TERM $p; wait $p")
                            .c_str());
        EXPECT_EQ(WEXITSTATUS(ended), 128 + SIGTERM);
        EXPECT_EQ(content("/out"), "");
    });
}

TEST(Preview, TellsAnOrdinaryUserThatRootIsNeeded) {
    on_a_system([] {
        install_method("test/edit", "echo x >/etc/x");
        const pid_t child = fork();
        if (child == 0) {
            if (setgid(65534) != 0 || setuid(65534) != 0)
                _exit(3);
            _exit(WEXITSTATUS(std::system(
                (prefix.string() +
                 "/bin/hostadm preview test/edit 2>&1 | grep -qx 'hostadm: preview: a private root can only "
                 "be made by root: Operation not permitted'")
                    .c_str())));
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    });
}

TEST(Preview, LeavesTheSystemAsItWas) {
    on_a_system([] {
        // Other programs of this machine come and go in these.
        for (const char *directory : {"/tmp", "/var/tmp", "/dev/shm"})
            ASSERT_EQ(mount("own", directory, "tmpfs", 0, nullptr), 0);
        const auto state = [] {
            std::vector<std::string> all = {content("/etc/passwd"), content("/proc/self/mountinfo")};
            for (const char *directory : {"/", "/etc", "/tmp", "/var/tmp", "/usr/sbin", "/dev/shm", "/run"})
                for (const fs::directory_entry &entry : fs::directory_iterator(directory))
                    all.push_back(entry.path());
            return all;
        };
        write("/out", "");
        write("/err", "");
        install_method(
            "test/edit",
            "echo x >>/etc/passwd; touch /new /tmp/new /var/tmp/new /usr/sbin/new /dev/shm/new /run/new");
        const auto before = state();
        EXPECT_EQ(command("preview test/edit").status, 0);
        EXPECT_EQ(state(), before);
    });
}

TEST(Preview, NotesTheProgramsThatAMethodSaysItStarts) {
    on_a_system([] {
        write_program("/opt/daemons/own-daemon", "#!/bin/sh\necho real >/etc/really-started\n");
        write_program("/opt/daemons/named-daemon", "#!/bin/sh\necho real >/etc/really-started\n");
        install_method(
            "test/starts", "/opt/daemons/own-daemon -a; /opt/daemons/named-daemon",
            R"([{"name": "daemon", "kind": "path"}], "starts": ["/opt/daemons/own-daemon", "daemon="])");
        const Result result = command("preview test/starts daemon=/opt/daemons/named-daemon");
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_THAT(result.output,
                    HasSubstr("Commands:\n  /opt/daemons/own-daemon -a\n  /opt/daemons/named-daemon\n"));
        EXPECT_THAT(result.output, Not(HasSubstr("really-started")));
        EXPECT_THAT(content("/opt/daemons/own-daemon"), HasSubstr("really-started"));
        EXPECT_THAT(command("help test/starts").output,
                    HasSubstr("It touches:\n  starts  /opt/daemons/own-daemon, what daemon names\n"));
    });
}

TEST(Preview, SeesTheAddressesAndRoutesOfTheLiveSystem) {
    on_a_system([] {
        ASSERT_EQ(std::system(
                      "ip address add 10.77.1.2/24 dev lo && ip route add 10.78.0.0/16 via 10.77.1.9 dev lo"),
                  0);
        install_method("test/look",
                       "ip -o address >/etc/addresses; ip route >/etc/routes; ip link set lo down 2>&1");
        const Result result = command("preview --full test/look");
        EXPECT_THAT(result.output, HasSubstr("inet 10.77.1.2/24"));
        EXPECT_THAT(result.output, HasSubstr("10.78.0.0/16 via 10.77.1.9"));
        EXPECT_EQ(std::system("ip -o link show lo up | grep -q lo"), 0) << "it took a live interface down";
    });
}

TEST(SiteMethods, LieInAFolderOfTheirOwn) {
    on_a_system([] {
        const std::string site = "/usr/local/libexec/hostadm/methods/";
        install_method("test/both", "echo '{\"output\": \"whose\", \"value\": \"hostadm\"}' >&4");
        for (const char *name : {"test/both", "site/own"})
            write_program(site + name,
                          "#!/bin/sh\nif [ \"$1\" = --describe ]; then echo '{\"name\": \"x\", \"purpose\": "
                          "\"of the site\"}'; exit; fi\n"
                          "echo '{\"output\": \"whose\", \"value\": \"the site\"}' >&4\n");
        EXPECT_EQ(command("run site/own").output, "whose  the site\n");
        EXPECT_EQ(command("run test/both").output, "whose  hostadm\n");
        const Result list = command("list");
        EXPECT_THAT(list.output, HasSubstr("site/own   of the site\n"));
        EXPECT_EQ(list.errors,
                  "hostadm: " + site +
                      "test/both: note: it is not used, since hostadm has a method of that name; call "
                      "it otherwise\n");
    });
}
