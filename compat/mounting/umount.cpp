// SPDX-License-Identifier: MIT
// umount: System V's "umount -F TYPE" in Debian's words. Every other call is Debian's umount, unchanged.
#include <string>
#include <unistd.h>
#include <vector>

#include "base/translation.hpp"
#include "compat/mounting/call.hpp"
#include "compat/support/debian_program.hpp"
#include "compat/support/failure.hpp"

namespace compat {
namespace {

constexpr const char *usage = hostadm::base::translatable(
    "usage: umount -F TYPE [-f] MOUNTPOINT; see hostadm-umount(8), and umount(8) for calls without -F TYPE");

// The type says nothing that the kernel does not know.
int umount(int argc, char **argv) {
    const DebianProgram program("umount", "mount");
    if (!is_system_v_call(argc, argv))
        program.take_over(argv);
    std::vector<std::string> words;
    opterr = 0;
    int types = 0;
    bool wrong = false;
    for (int letter; (letter = getopt(argc, argv, "+F:f")) != -1;) {
        if (letter == 'f')
            words.push_back("-f");
        wrong = wrong || letter == '?' || (letter == 'F' && ++types > 1);
    }
    if (wrong || argc - optind != 1 || argv[optind][0] == '\0') {
        print_complaint("umount", hostadm::base::tr(usage));
        return status_wrong_call;
    }
    words.insert(words.end(), {"--", argv[optind]});
    return program.run_silently(words);
}

} // namespace
} // namespace compat

int main(int argc, char **argv) {
    hostadm::base::speak_the_users_language();
    return compat::guarded_main("umount", compat::status_system_error,
                                [&] { return compat::umount(argc, argv); });
}
