// SPDX-License-Identifier: MIT
#include "compat/support/debian_program.hpp"

#include <cerrno>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/descriptor.hpp"
#include "base/program.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "compat/support/failure.hpp"

namespace compat {

void DebianProgram::fail_to_run(int error) const {
    if (error == ENOENT)
        throw Failure(hostadm::base::tr("{1} is missing; install the package {2}", path_, package_));
    fail_with_errno(hostadm::base::tr("cannot run {1}", path_), error);
}

// Where both directories are one, this program would start itself for ever.
void DebianProgram::require_other_than_this() const {
    struct stat ours = {}, theirs = {};
    if (stat("/proc/self/exe", &ours) == 0 && stat(path_.c_str(), &theirs) == 0 &&
        ours.st_dev == theirs.st_dev && ours.st_ino == theirs.st_ino)
        throw Failure(hostadm::base::tr(
            "{1} is this adapter; put Debian's back: apt-get install --reinstall {2}", path_, package_));
}

void DebianProgram::take_over(char **argv) const {
    require_other_than_this();
    execv(path_.c_str(), argv);
    fail_to_run(errno);
}

int DebianProgram::run_silently(const std::vector<std::string> &words, const std::string &hint) const {
    require_other_than_this();
    // Not a pipe: a mount that goes on in the background would hold its end.
    const hostadm::base::Descriptor said(memfd_create("said", MFD_CLOEXEC));
    if (!said)
        fail_with_errno(hostadm::base::tr("cannot keep what mount says"));

    const std::string name(hostadm::base::last_component(path_));
    hostadm::base::Program program{.words = {path_}};
    program.words.insert(program.words.end(), words.begin(), words.end());
    // It may ask for a password.
    program.descriptors = {
        {STDIN_FILENO, STDIN_FILENO}, {STDOUT_FILENO, said.get()}, {STDERR_FILENO, said.get()}};
    const hostadm::base::Ending ending = hostadm::base::run(program);
    if (ending.well())
        return 0;
    if (ending.start_error != 0)
        fail_to_run(ending.start_error);
    if (!hint.empty())
        print_complaint(name, hint);
    const auto text = hostadm::base::read_whole(said.get());
    if (text)
        hostadm::base::write_all(STDERR_FILENO, *text);
    if (ending.signal != 0 || !text || text->empty())
        print_complaint(name, path_ + " " + hostadm::base::in_words(ending));
    return ending.signal != 0 ? 128 + ending.signal : ending.exit_status;
}

} // namespace compat
