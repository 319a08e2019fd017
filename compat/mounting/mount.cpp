// SPDX-License-Identifier: MIT
// mount: System V's "mount -F TYPE" in Debian's words. Every other call is Debian's mount, unchanged.
#include <algorithm>
#include <fcntl.h>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "compat/mounting/call.hpp"
#include "compat/support/debian_program.hpp"
#include "compat/support/failure.hpp"
#include "compat/support/files.hpp"

namespace compat {
namespace {

constexpr const char *vfstab = "/etc/vfstab";
constexpr const char *usage =
    hostadm::base::translatable("usage: mount -F TYPE [-o OPTIONS] [-m] [-O] [-r] [RESOURCE] MOUNTPOINT; see "
                                "hostadm-mount(8), and mount(8) for calls without -F TYPE");
constexpr const char *ufs_hint = hostadm::base::translatable(
    "ufs needs the option ufstype=VARIANT here, and what Linux made has a type of its own, such as ext4");

struct Call {
    std::string type, options, resource, mount_point;
    bool unrecorded = false, read_only = false, covers = false;
};

// Nothing when the call is a wrong one.
std::optional<Call> parse(int argc, char **argv) {
    Call call;
    opterr = 0;
    for (int letter; (letter = getopt(argc, argv, "+F:o:mOr")) != -1;) {
        if (letter == 'F' && call.type.empty())
            call.type = optarg;
        else if (letter == 'o')
            call.options += (call.options.empty() ? "" : ",") + std::string(optarg);
        else if (letter == 'm')
            call.unrecorded = true;
        else if (letter == 'r')
            call.read_only = true;
        else if (letter == 'O')
            call.covers = true;
        else
            return std::nullopt;
    }
    const int words = argc - optind;
    if (words != 1 && words != 2)
        return std::nullopt;
    call.mount_point = argv[argc - 1];
    if (words == 2)
        call.resource = argv[optind];
    if (call.mount_point.empty() || (words == 2 && call.resource.empty()))
        return std::nullopt;
    return call;
}

// The other half of a call that names only a mount point or only a resource. Without a line for it here,
// Debian's mount looks into its own table.
void complete_from_table(Call &call) {
    std::istringstream table(read_file(vfstab).value_or(""));
    for (std::string line; std::getline(table, line);) {
        std::istringstream words(line);
        std::string resource, check_device, mount_point, type, pass, at_boot, options;
        words >> resource >> check_device >> mount_point >> type >> pass >> at_boot >> options;
        if (resource.empty() || resource.front() == '#' || type != call.type ||
            (mount_point != call.mount_point && resource != call.mount_point))
            continue;
        call.resource = resource;
        call.mount_point = mount_point;
        if (call.options.empty() && options != "-")
            call.options = options;
        return;
    }
}

struct Translation {
    std::string_view type, word, translated; // of every type when empty; no word when empty
};

// Only words that Linux has another one for, or that ask for what it does anyway. Debian's mount complains
// about the others that it does not know.
constexpr Translation translations[] = {
    {"", "largefiles", ""},     {"", "devices", "dev"},    {"", "nodevices", "nodev"}, {"", "setuid", "suid"},
    {"", "nosetuid", "nosuid"}, {"hsfs", "nrr", "norock"}, {"nfs", "quota", ""},       {"nfs", "noquota", ""},
    {"ufs", "noquota", ""},     {"ufs", "intr", ""},       {"ufs", "nointr", ""},
};

std::string translated_options(const Call &call) {
    std::string options;
    for (const std::string_view word : hostadm::base::split(call.options, ',')) {
        const auto *const found = std::find_if(
            std::begin(translations), std::end(translations), [&](const Translation &translation) {
                return translation.word == word &&
                       (translation.type.empty() || translation.type == call.type);
            });
        const std::string_view here = found != std::end(translations) ? found->translated : word;
        if (!here.empty())
            options.append(options.empty() ? "" : ",").append(here);
    }
    return options;
}

std::vector<std::string> debian_words(const Call &call) {
    std::vector<std::string> words;
    if (call.type == "lofs")
        words = {"--bind"};
    else
        words = {"-t", call.type == "hsfs" ? "iso9660" : call.type == "pcfs" ? "vfat" : call.type};
    if (call.unrecorded)
        words.push_back("-n");
    if (call.read_only)
        words.push_back("-r");
    if (const std::string options = translated_options(call); !options.empty())
        words.insert(words.end(), {"-o", options});
    words.push_back("--");
    if (!call.resource.empty())
        words.push_back(call.resource);
    words.push_back(call.mount_point);
    return words;
}

// Linux would cover what is mounted there; System V asks for -O first.
bool would_cover(const Call &call) {
    const std::vector<std::string_view> options = hostadm::base::split(call.options, ',');
    if (call.covers || std::find(options.begin(), options.end(), "remount") != options.end())
        return false;
    struct statx place = {};
    return statx(AT_FDCWD, call.mount_point.c_str(), AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC, STATX_TYPE,
                 &place) == 0 &&
           (place.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

int mount(int argc, char **argv) {
    const DebianProgram program("mount", "mount");
    if (!is_system_v_call(argc, argv))
        program.take_over(argv);
    std::optional<Call> call = parse(argc, argv);
    if (!call) {
        print_complaint("mount", hostadm::base::tr(usage));
        return status_wrong_call;
    }
    if (call->resource.empty())
        complete_from_table(*call);
    if (would_cover(*call)) {
        print_complaint(
            "mount",
            hostadm::base::tr(
                "{1}: something is mounted there already; unmount it first, or mount over it with -O",
                call->mount_point));
        return status_mount_failed;
    }
    const bool lacks_variant = call->type == "ufs" && call->options.find("ufstype=") == std::string::npos;
    return program.run_silently(debian_words(*call), lacks_variant ? hostadm::base::tr(ufs_hint) : "");
}

} // namespace
} // namespace compat

int main(int argc, char **argv) {
    hostadm::base::speak_the_users_language();
    return compat::guarded_main("mount", compat::status_system_error,
                                [&] { return compat::mount(argc, argv); });
}
