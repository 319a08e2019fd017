// SPDX-License-Identifier: MIT
// What the edit of a file promises about everything but the text: one test for each promise.
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <linux/fs.h>
#include <stdexcept>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "hostadm/table_edit.hpp"
#include "scratch.hpp"

namespace {

namespace fs = std::filesystem;
using hostadm::tables::edit_file;
using hostadm::tables::Options;
using hostadm::tables::read_file;
using hostadm::tables::Splice;
using hostadm::tables::splice_file;
using testing::ElementsAre;

constexpr const char *leftover = ".hostadm-new-table";

// Changes that the tests make.
int append_line(std::string &text) {
    text += "new\n";
    return 0;
}
int leave_alone(std::string &) {
    return 0;
}

std::string attribute(const std::string &path, const char *name) {
    char value[200];
    const ssize_t size = lgetxattr(path.c_str(), name, value, sizeof value);
    return size < 0 ? std::string("none: ") + std::strerror(errno)
                    : std::string(value, static_cast<std::size_t>(size));
}

class EditFile : public scratch::Test {
protected:
    // The edit is refused with this status, and nothing in the folder has changed.
    void expect_refused(const std::string &file, int status) {
        const auto before = names();
        EXPECT_EQ(edit_file(file, append_line), status);
        EXPECT_EQ(names(), before);
    }
};

TEST_F(EditFile, WritesTheChangedText) {
    const auto file = table("old\n");
    EXPECT_EQ(edit_file(file, append_line), 0);
    EXPECT_EQ(tests::content(file), "old\nnew\n");
    EXPECT_THAT(names(), ElementsAre("table"));
}

TEST_F(EditFile, ReplacesOneRunOfALargeText) {
    const auto file = table("one two three");
    EXPECT_EQ(splice_file(file,
                          [](std::string_view text, std::optional<Splice> &splice) {
                              splice = Splice{text.find("two"), 3, "2"};
                              return 0;
                          }),
              0);
    EXPECT_EQ(tests::content(file), "one 2 three");
}

TEST_F(EditFile, MayEmptyTheFile) {
    const auto file = table("old\n");
    EXPECT_EQ(edit_file(file,
                        [](std::string &text) {
                            text.clear();
                            return 0;
                        }),
              0);
    EXPECT_EQ(tests::content(file), "");
}

TEST_F(EditFile, UnchangedTextIsNotWritten) {
    const auto file = table("old\n");
    const struct stat before = scratch::status(file);
    EXPECT_EQ(edit_file(file, leave_alone), 0);
    const struct stat after = scratch::status(file);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
    EXPECT_EQ(after.st_ctim.tv_nsec, before.st_ctim.tv_nsec);
}

TEST_F(EditFile, ChangedTextComesInANewFile) {
    const auto file = table("old\n");
    const int reader = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(edit_file(file, append_line), 0);
    char text[20];
    EXPECT_EQ(pread(reader, text, sizeof text, 0), 4)
        << "who has the old file open keeps reading the old text";
    close(reader);
}

TEST_F(EditFile, StatusOfTheChangeEndsTheEdit) {
    const auto file = table("old\n");
    EXPECT_EQ(edit_file(file,
                        [](std::string &text) {
                            text = "half";
                            return -EPROTO;
                        }),
              -EPROTO);
    EXPECT_EQ(tests::content(file), "old\n");
    EXPECT_THAT(names(), ElementsAre("table"));
}

TEST_F(EditFile, ExceptionOfTheChangePassesThroughAndLeavesNothing) {
    const auto file = table("old\n");
    EXPECT_THROW(edit_file(file, [](std::string &) -> int { throw std::runtime_error("changed my mind"); }),
                 std::runtime_error);
    EXPECT_EQ(tests::content(file), "old\n");
    EXPECT_THAT(names(), ElementsAre("table"));
    EXPECT_EQ(edit_file(file, append_line, {.patience = {}}), 0) << "the lock is free again";
}

TEST_F(EditFile, LeavesNoDescriptorOpen) {
    const auto file = table("old\n");
    const auto open_descriptors = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto before = open_descriptors();
    EXPECT_EQ(edit_file(file, append_line), 0);
    EXPECT_EQ(edit_file(path("none"), append_line), -ENOENT);
    EXPECT_EQ(edit_file(folder(), append_line), -EISDIR);
    std::string text;
    EXPECT_EQ(read_file(file, text), 0);
    EXPECT_EQ(open_descriptors(), before);
}

// What stays with the file

TEST_F(EditFile, KeepsTheMode) {
    const auto file = table("old\n");
    for (const mode_t mode : {0600u, 0644u, 0640u, 0666u, 0755u, 02750u, 0400u}) {
        ASSERT_EQ(chmod(file.c_str(), mode), 0);
        if (geteuid() != 0 && (mode & 0200u) == 0)
            continue;
        EXPECT_EQ(edit_file(file, append_line), 0);
        EXPECT_EQ(scratch::status(file).st_mode & 07777u, mode);
    }
}

TEST_F(EditFile, KeepsTheOwner) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root may give files away";
    const auto file = table("old\n");
    ASSERT_EQ(chown(file.c_str(), 1234, 5678), 0);
    ASSERT_EQ(chmod(file.c_str(), 04755), 0);
    EXPECT_EQ(edit_file(file, append_line), 0);
    EXPECT_EQ(scratch::status(file).st_uid, 1234u);
    EXPECT_EQ(scratch::status(file).st_gid, 5678u);
    EXPECT_EQ(scratch::status(file).st_mode & 07777u, 04755u);
}

TEST_F(EditFile, KeepsExtendedAttributes) {
    const auto file = table("old\n");
    if (setxattr(file.c_str(), "user.origin", "by hand", 7, 0) != 0)
        GTEST_SKIP() << "no extended attributes here: " << std::strerror(errno);
    ASSERT_EQ(setxattr(file.c_str(), "user.empty", "", 0, 0), 0);
    EXPECT_EQ(edit_file(file, append_line), 0);
    EXPECT_EQ(attribute(file, "user.origin"), "by hand");
    EXPECT_EQ(attribute(file, "user.empty"), "");
}

TEST_F(EditFile, KeepsSecurityAttributes) {
    const auto file = table("old\n");
    // cap_net_raw as setcap writes it
    const char capability[] = "\1\0\0\2\0\x20\0\0\0\0\0\0\0\0\0\0\0\0\0\0";
    if (setxattr(file.c_str(), "security.capability", capability, 20, 0) != 0)
        GTEST_SKIP() << "no file capabilities here: " << std::strerror(errno);
    ASSERT_EQ(setxattr(file.c_str(), "trusted.note", "root's", 6, 0), 0);
    ASSERT_EQ(chown(file.c_str(), 1234, 5678), 0);
    ASSERT_EQ(setxattr(file.c_str(), "security.capability", capability, 20, 0), 0);
    EXPECT_EQ(edit_file(file, append_line), 0);
    EXPECT_EQ(attribute(file, "security.capability"), std::string(capability, 20));
    EXPECT_EQ(attribute(file, "trusted.note"), "root's");
}

// The binary form of an ACL: version 2; owner, user 1234 (read), group, mask, others.
const std::string acl("\2\0\0\0"
                      "\1\0\6\0\xff\xff\xff\xff"
                      "\2\0\4\0\xd2\4\0\0"
                      "\4\0\4\0\xff\xff\xff\xff"
                      "\x10\0\4\0\xff\xff\xff\xff"
                      "\x20\0\0\0\xff\xff\xff\xff",
                      44);

TEST_F(EditFile, KeepsTheAcl) {
    const auto file = table("old\n");
    if (setxattr(file.c_str(), "system.posix_acl_access", acl.data(), acl.size(), 0) != 0)
        GTEST_SKIP() << "no ACLs here: " << std::strerror(errno);
    const mode_t mode = scratch::status(file).st_mode;
    EXPECT_EQ(edit_file(file, append_line), 0);
    EXPECT_EQ(attribute(file, "system.posix_acl_access"), acl);
    EXPECT_EQ(scratch::status(file).st_mode, mode);
}

TEST_F(EditFile, TakesNoAclFromTheFolder) {
    const auto file = table("old\n");
    ASSERT_EQ(chmod(file.c_str(), 0644), 0);
    if (setxattr(folder().c_str(), "system.posix_acl_default", acl.data(), acl.size(), 0) != 0)
        GTEST_SKIP() << "no ACLs here: " << std::strerror(errno);
    EXPECT_EQ(edit_file(file, append_line), 0);
    EXPECT_THAT(attribute(file, "system.posix_acl_access"), testing::StartsWith("none"));
    EXPECT_EQ(scratch::status(file).st_mode & 07777u, 0644u);
}

// Links

TEST_F(EditFile, LinkStaysALinkAndItsTargetIsEdited) {
    fs::create_directories(path("real/deep"));
    const auto file = table("old\n", "real/deep/table");
    fs::create_symlink("deep/table", path("real/second"));
    fs::create_symlink(path("real/second"), path("first"));
    EXPECT_EQ(edit_file(path("first"), append_line), 0);
    EXPECT_EQ(tests::content(file), "old\nnew\n");
    EXPECT_EQ(fs::read_symlink(path("first")), path("real/second"));
    EXPECT_EQ(fs::read_symlink(path("real/second")), "deep/table");
    EXPECT_THAT(names(), ElementsAre("first", "real"));
}

TEST_F(EditFile, LinkedFolderIsFollowed) {
    fs::create_directory(path("real"));
    const auto file = table("old\n", "real/table");
    fs::create_directory_symlink("real", path("link"));
    EXPECT_EQ(edit_file(path("link/table"), append_line), 0);
    EXPECT_EQ(tests::content(file), "old\nnew\n");
    EXPECT_TRUE(fs::is_symlink(path("link")));
}

TEST_F(EditFile, LinkToNothingIsAMissingFile) {
    fs::create_symlink("nothing", path("link"));
    expect_refused(path("link"), -ENOENT);
}

TEST_F(EditFile, LinkToNothingIsFilledWhenFilesMayBeMade) {
    fs::create_symlink("made", path("link"));
    EXPECT_EQ(edit_file(path("link"), append_line, {.create = true}), 0);
    EXPECT_TRUE(fs::is_symlink(path("link")));
    EXPECT_EQ(tests::content(path("made")), "new\n");
}

TEST_F(EditFile, LinksInACircleAreRefused) {
    fs::create_symlink("two", path("one"));
    fs::create_symlink("one", path("two"));
    expect_refused(path("one"), -ELOOP);
}

TEST_F(EditFile, OtherHardLinksKeepTheOldText) {
    const auto file = table("old\n");
    fs::create_hard_link(file, path("snapshot"));
    EXPECT_EQ(edit_file(file, append_line), 0);
    EXPECT_EQ(tests::content(file), "old\nnew\n");
    EXPECT_EQ(tests::content(path("snapshot")), "old\n");
}

TEST_F(EditFile, PathMayBeRelative) {
    const auto file = table("old\n");
    const auto here = fs::current_path();
    fs::current_path(folder());
    EXPECT_EQ(edit_file("table", append_line), 0);
    EXPECT_EQ(edit_file("./table", append_line), 0);
    fs::current_path(here);
    EXPECT_EQ(tests::content(file), "old\nnew\nnew\n");
}

// Files that do not exist

TEST_F(EditFile, MissingFileIsRefused) {
    expect_refused(path("none"), -ENOENT);
    expect_refused(path("no/folder"), -ENOENT);
    EXPECT_EQ(edit_file("", append_line), -EINVAL);
}

TEST_F(EditFile, MissingFileIsMadeWithItsFolderOnRequest) {
    EXPECT_EQ(edit_file(path("new/file"), append_line, {.create = true}), 0);
    EXPECT_EQ(tests::content(path("new/file")), "new\n");
    EXPECT_EQ(scratch::status(path("new/file")).st_mode & 07777u, 0644u);
}

TEST_F(EditFile, MissingFileWithoutATextIsNotMade) {
    EXPECT_EQ(edit_file(path("new/file"), leave_alone, {.create = true}), 0);
    EXPECT_THAT(names(), ElementsAre()) << "the folder was made for the file and goes with it";
}

TEST_F(EditFile, FolderMadeForAFileGoesWhenTheEditFails) {
    EXPECT_EQ(edit_file(path("new/file"), [](std::string &) { return -EPROTO; }, {.create = true}), -EPROTO);
    EXPECT_THAT(names(), ElementsAre());
}

// Files of another kind, and where nothing may be written

TEST_F(EditFile, FolderIsRefused) {
    fs::create_directory(path("sub"));
    expect_refused(path("sub"), -EISDIR);
    expect_refused(path("sub/"), -EISDIR);
    expect_refused(path("sub/."), -EISDIR);
    expect_refused("/", -EISDIR);
}

TEST_F(EditFile, FileUsedAsAFolderIsRefused) {
    expect_refused(table("old\n") + "/table", -ENOTDIR);
}

TEST_F(EditFile, PipeIsRefusedWithoutWaiting) {
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0644), 0);
    expect_refused(path("pipe"), -ENOTSUP);
    std::string text;
    EXPECT_EQ(read_file(path("pipe"), text), -ENOTSUP);
}

TEST_F(EditFile, DeviceIsRefused) {
    EXPECT_EQ(edit_file("/dev/null", append_line), -ENOTSUP);
    fs::create_symlink("/dev/null", path("masked"));
    expect_refused(path("masked"), -ENOTSUP);
}

TEST_F(EditFile, SocketIsRefused) {
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path("socket").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    expect_refused(path("socket"), -ENOTSUP);
    close(listener);
}

TEST_F(EditFile, NameThatIsTooLongIsRefused) {
    expect_refused(path(std::string(300, 'n')), -ENAMETOOLONG);
    EXPECT_EQ(edit_file(path(std::string(250, 'n')), append_line, {.create = true}), 0);
}

TEST_F(EditFile, FolderThatMayNotBeChangedIsRefused) {
    const auto file = table("old\n");
    ASSERT_EQ(chmod(folder().c_str(), 0755), 0);
    ASSERT_EQ(chmod(file.c_str(), 0666), 0);
    scratch::as_ordinary_user([&]() -> std::string {
        const int status = edit_file(file, append_line);
        return status == -EACCES ? "" : "status " + std::to_string(status);
    });
    EXPECT_EQ(tests::content(file), "old\n");
    EXPECT_THAT(names(), ElementsAre("table"));
}

TEST_F(EditFile, FileThatMayNotBeWrittenIsRefused) {
    const auto file = table("old\n");
    ASSERT_EQ(chmod(folder().c_str(), 0777), 0);
    ASSERT_EQ(chmod(file.c_str(), 0644), 0);
    scratch::as_ordinary_user([&]() -> std::string {
        const int status = edit_file(file, append_line);
        return status == -EACCES ? "" : "status " + std::to_string(status);
    });
    EXPECT_EQ(tests::content(file), "old\n");
}

TEST_F(EditFile, FileWhoseOwnerCannotBeKeptIsRefused) {
    const auto file = table("old\n");
    ASSERT_EQ(chmod(folder().c_str(), 0777), 0);
    ASSERT_EQ(chmod(file.c_str(), 0666), 0);
    scratch::as_ordinary_user([&]() -> std::string {
        const int status = edit_file(file, append_line);
        return status == -EPERM ? "" : "status " + std::to_string(status);
    });
    EXPECT_EQ(tests::content(file), "old\n");
    EXPECT_EQ(scratch::status(file).st_uid, geteuid());
    EXPECT_THAT(names(), ElementsAre("table"));
}

TEST_F(EditFile, OrdinaryUserMayEditHisOwnFile) {
    const auto file = table("old\n");
    ASSERT_EQ(chmod(folder().c_str(), 0777), 0);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(file.c_str(), 65534, 65534), 0);
    }
    scratch::as_ordinary_user([&]() -> std::string {
        const int status = edit_file(file, append_line);
        if (status != 0)
            return "status " + std::to_string(status);
        return tests::content(file) == "old\nnew\n" ? "" : "the text is not the new one";
    });
}

TEST_F(EditFile, ImmutableFileIsRefused) {
    const auto file = table("old\n");
    const int handle = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    int flags = 0;
    if (ioctl(handle, FS_IOC_GETFLAGS, &flags) != 0) {
        close(handle);
        GTEST_SKIP() << "no file flags here: " << std::strerror(errno);
    }
    flags |= FS_IMMUTABLE_FL;
    if (ioctl(handle, FS_IOC_SETFLAGS, &flags) != 0) {
        close(handle);
        GTEST_SKIP() << "no immutable files here: " << std::strerror(errno);
    }
    expect_refused(file, -EPERM);
    EXPECT_EQ(tests::content(file), "old\n");
    flags &= ~FS_IMMUTABLE_FL;
    EXPECT_EQ(ioctl(handle, FS_IOC_SETFLAGS, &flags), 0);
    close(handle);
}

// What an edit of `file` gives in a mount namespace that `prepare`
// has arranged: the status, then the names in the folder.
std::string mount_at(const std::string &source, const std::string &target, const char *type,
                     unsigned long flags, const char *options = nullptr) {
    if (mount(source.c_str(), target.c_str(), type, flags, options) == 0)
        return "";
    return "mount of " + target + ": " + std::strerror(errno);
}

std::string expect_status(int status, int expected) {
    return status == expected ? "" : "status " + std::to_string(status) + ", not " + std::to_string(expected);
}

TEST_F(EditFile, FileThatIsAMountPointIsRefused) {
    const auto file = table("old\n");
    const auto other = table("other\n", "other");
    scratch::in_private_mounts([&]() -> std::string {
        if (const auto word = mount_at(other, file, nullptr, MS_BIND); !word.empty())
            return word;
        return expect_status(edit_file(file, append_line), -EBUSY);
    });
    EXPECT_EQ(tests::content(file), "old\n");
    EXPECT_EQ(tests::content(other), "other\n");
    EXPECT_THAT(names(), ElementsAre("other", "table"));
}

TEST_F(EditFile, ReadOnlyFileSystemIsRefused) {
    const auto file = table("old\n");
    scratch::in_private_mounts([&]() -> std::string {
        if (const auto word = mount_at(folder(), folder(), nullptr, MS_BIND); !word.empty())
            return word;
        if (const auto word = mount_at("", folder(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY);
            !word.empty())
            return word;
        if (const auto word = expect_status(edit_file(file, append_line), -EROFS); !word.empty())
            return word;
        if (const auto word = expect_status(edit_file(path("new"), append_line, {.create = true}), -EROFS);
            !word.empty())
            return word;
        return expect_status(edit_file(file, leave_alone), 0);
    });
    EXPECT_EQ(tests::content(file), "old\n");
    EXPECT_THAT(names(), ElementsAre("table"));
}

TEST_F(EditFile, FullDiskLeavesTheOldText) {
    fs::create_directory(path("small"));
    scratch::in_private_mounts([&]() -> std::string {
        if (const auto word = mount_at("tmpfs", path("small"), "tmpfs", 0, "size=64k"); !word.empty())
            return word;
        const std::string old_text(40'000, 'o');
        scratch::write(path("small/table"), old_text);
        if (const auto word = expect_status(edit_file(path("small/table"), append_line), -ENOSPC);
            !word.empty())
            return word;
        if (tests::content(path("small/table")) != old_text)
            return "the table has changed";
        const auto count = std::distance(fs::directory_iterator(path("small")), fs::directory_iterator());
        return count == 1 ? "" : "something was left behind";
    });
}

TEST_F(EditFile, DiskWithoutRoomForAFileLeavesTheOldText) {
    fs::create_directory(path("small"));
    scratch::in_private_mounts([&]() -> std::string {
        if (const auto word = mount_at("tmpfs", path("small"), "tmpfs", 0, "nr_inodes=2"); !word.empty())
            return word;
        scratch::write(path("small/table"), "old\n");
        if (const auto word = expect_status(edit_file(path("small/table"), append_line), -ENOSPC);
            !word.empty())
            return word;
        return tests::content(path("small/table")) == "old\n" ? "" : "the table has changed";
    });
}

// Leftovers and others who write

TEST_F(EditFile, LeftoverOfAKilledEditorIsCleanedByTheNextEdit) {
    const auto file = table("old\n");
    table("half of anoth", leftover);
    EXPECT_EQ(edit_file(file, append_line), 0);
    EXPECT_EQ(tests::content(file), "old\nnew\n");
    EXPECT_THAT(names(), ElementsAre("table"));
}

TEST_F(EditFile, LeftoverIsCleanedByAnEditThatChangesNothing) {
    table("half of anoth", leftover);
    EXPECT_EQ(edit_file(table("old\n"), leave_alone), 0);
    EXPECT_THAT(names(), ElementsAre("table"));
}

TEST_F(EditFile, LinkPlantedUnderTheNameOfTheNewFileIsNotFollowed) {
    const auto victim = table("precious\n", "victim");
    fs::create_symlink(victim, path(leftover));
    EXPECT_EQ(edit_file(table("old\n"), append_line), 0);
    EXPECT_EQ(tests::content(victim), "precious\n");
    EXPECT_THAT(names(), ElementsAre("table", "victim"));
}

TEST_F(EditFile, FolderUnderTheNameOfTheNewFileIsRefused) {
    fs::create_directory(path(leftover));
    expect_refused(table("old\n"), -EEXIST);
}

TEST_F(EditFile, WriterWithoutTheLockIsNoticed) {
    const auto file = table("old\n");
    int calls = 0;
    EXPECT_EQ(edit_file(file,
                        [&](std::string &text) {
                            if (++calls == 1)
                                scratch::write(file, "written meanwhile\n");
                            text += "new\n";
                            return 0;
                        }),
              0);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(tests::content(file), "written meanwhile\nnew\n");
}

TEST_F(EditFile, FileThatAppearsMeanwhileIsNotOverwritten) {
    int calls = 0;
    EXPECT_EQ(edit_file(path(),
                        [&](std::string &text) {
                            if (++calls == 1)
                                scratch::write(path(), "somebody's\n");
                            text += "new\n";
                            return 0;
                        },
                        {.create = true}),
              0);
    EXPECT_EQ(tests::content(path()), "somebody's\nnew\n");
}

TEST_F(EditFile, WriterWhoNeverStopsIsReported) {
    const auto file = table("old\n");
    std::string written;
    EXPECT_EQ(edit_file(file,
                        [&](std::string &text) {
                            written += "again\n";
                            scratch::write(file, written);
                            text += "new\n";
                            return 0;
                        }),
              -EAGAIN);
    EXPECT_EQ(tests::content(file), written);
    EXPECT_THAT(names(), ElementsAre("table"));
}

TEST_F(EditFile, ReadGivesTheWholeText) {
    const std::string text("a\0b\r\n", 5);
    std::string read;
    EXPECT_EQ(read_file(table(text), read), 0);
    EXPECT_EQ(read, text);
    EXPECT_EQ(read_file(path("none"), read), -ENOENT);
    EXPECT_EQ(read_file(folder(), read), -EISDIR);
    EXPECT_EQ(read_file("", read), -EINVAL);
    EXPECT_EQ(read, text) << "touched on success only";
}

// A limit on the size of files would end the process in the middle of the edit.
TEST_F(EditFile, LimitOnTheSizeOfFilesIsAFailureThatLeavesNothing) {
    const auto file = table("old\n");
    const pid_t child = fork();
    if (child == 0) {
        const rlimit limit{100, 100};
        setrlimit(RLIMIT_FSIZE, &limit);
        const int status = edit_file(file, [](std::string &text) {
            text.append(1000, 'x');
            return 0;
        });
        _exit(status == -EFBIG ? 0 : 1);
    }
    int outcome = -1;
    waitpid(child, &outcome, 0);
    EXPECT_TRUE(WIFEXITED(outcome) && WEXITSTATUS(outcome) == 0) << outcome;
    EXPECT_EQ(tests::content(file), "old\n");
    EXPECT_THAT(names(), testing::ElementsAre("table"));
}

TEST_F(EditFile, ClosedStandardDescriptorsHarmNoTable) {
    const auto file = table("old\n");
    const pid_t child = fork();
    if (child == 0) {
        for (const int standard : {0, 1, 2})
            close(standard);
        const int status = edit_file(file, [](std::string &text) {
            text += "new\n";
            return 0;
        });
        _exit(status == 0 && fcntl(0, F_GETFD) == -1 && fcntl(2, F_GETFD) == -1 ? 0 : 1);
    }
    int outcome = -1;
    waitpid(child, &outcome, 0);
    EXPECT_TRUE(WIFEXITED(outcome) && WEXITSTATUS(outcome) == 0) << outcome;
    EXPECT_EQ(tests::content(file), "old\nnew\n");
}

} // namespace
