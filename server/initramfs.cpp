// SPDX-License-Identifier: MIT
#include "server/initramfs.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <optional>
#include <unistd.h>
#include <vector>

#include "base/program.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/failure.hpp"
#include "server/pc_client.hpp"
#include "server/tree_program.hpp"

namespace hostadm::server {

namespace {

// ---- how it is made

constexpr const char *settings = "# For machines that boot from the network.\nBOOT=nfs\nMODULES=most\n";

// What klibc's program is called beside the one that takes its place.
constexpr std::string_view klibc_program = "nfsmount.klibc";

constexpr const char *hook = R"(#!/bin/sh
# Written by hostadm: lets an initramfs mount a root by version 4 of NFS. The nfsmount of klibc knows versions 2 and 3;
# version 4 the kernel mounts by itself.
case ${1:-} in prereqs) exit 0 ;; esac
. /usr/share/initramfs-tools/hook-functions
program=$DESTDIR/bin/nfsmount
[ -e "$program" ] || exit 0
manual_add_modules nfsv4
mv "$program" "$program.klibc"
cat >"$program" <<'PROGRAM'
#!/bin/sh
# nfsmount [-o OPTIONS]... SERVER:PATH DIRECTORY
case " $* " in
*[\ ,]nfsvers=4* | *[\ ,]vers=4*) ;;
*) exec nfsmount.klibc "$@" ;;
esac
options='' versions=''
while [ "$1" = -o ]; do
    IFS=,
    for word in $2; do
        case $word in
        nfsvers=4 | vers=4) versions='4.2 4.1 4.0' ;;
        nfsvers=* | vers=*) versions=${word#*=} ;;
        nolock) ;; # of earlier versions
        *) options=$options,$word ;;
        esac
    done
    unset IFS
    shift 2
done
# The server tells its clients apart by their names.
for card in /run/net-*.conf; do
    [ ! -e "$card" ] || . "$card"
done
[ -z "$HOSTNAME" ] || echo "$HOSTNAME" >/proc/sys/kernel/hostname
modprobe -q nfsv4
for version in $versions; do
    mount -t nfs4 -o "vers=$version,addr=${1%%:*}$options" "$1" "$2" && exit 0
done
exit 1
PROGRAM
chmod 755 "$program"
)";

// ---- how it is read

constexpr std::size_t head_size = 110; // of an entry: magic, and thirteen numbers of eight hexadecimal digits
constexpr std::size_t name_size_place = 94, file_size_place = 54;
constexpr std::size_t longest_name = 4096, longest_list = 1 << 20;
constexpr std::string_view built_in_list = "/modules.builtin";

std::size_t padded(std::size_t size) {
    return (size + 3) & ~std::size_t{3};
}

std::size_t number_at(std::string_view head, std::size_t place) {
    std::size_t number = 0;
    std::from_chars(head.data() + place, head.data() + place + 8, number, 16);
    return number;
}

// nfsv3.ko, packed or not; some makers number them.
bool is_module(std::string_view path, std::string_view name) {
    const std::string_view file = path.substr(path.rfind('/') + 1);
    const std::size_t place = file.find(std::string(name) + ".ko");
    return place == 0 || (place != file.npos && file[place - 1] == '-');
}

struct Packing {
    std::string_view magic;
    std::vector<std::string> unpacked_by;
};

const Packing *packing_of(std::string_view begin) {
    using namespace std::string_view_literals;
    static const std::array<Packing, 7> all = {{{"\x1f\x8b"sv, {"gzip", "-dc"}},
                                                {"\x28\xb5\x2f\xfd"sv, {"zstd", "-dcq"}},
                                                {"\xfd\x37zXZ"sv, {"xz", "-dc"}},
                                                {"\x02\x21\x4c\x18"sv, {"lz4", "-dcq"}},
                                                {"BZh"sv, {"bzip2", "-dc"}},
                                                {"\x5d\x00\x00"sv, {"xz", "--format=lzma", "-dc"}},
                                                {"\x89LZO"sv, {"lzop", "-dc"}}}};
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&](const Packing &packing) { return begin.starts_with(packing.magic); });
    return found == all.end() ? nullptr : &*found;
}

void unpack(const Packing &packing, const base::Descriptor &file, InitramfsReader &reader) {
    // It may be a client's, so it has neither all the time nor all the bytes of the world.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    std::size_t rest = std::size_t{4} << 30U;
    base::run_together(
        {{.program = {.words = packing.unpacked_by, .search = true, .descriptors = {{0, file.get()}}},
          .hear =
              [&](int stream, std::string_view piece) {
                  if (stream != 1)
                      return true;
                  rest -= std::min(rest, piece.size());
                  return rest != 0 && reader.hear(piece);
              },
          .deadline = [&] { return std::optional(end); },
          .ended = [](const base::Ending &) {}}},
        1);
}

} // namespace

std::string build_network_initramfs(const base::Beneath &root) {
    const std::string kernel = newest_kernel_in(root).kernel;
    constexpr std::string_view prefix = "boot/vmlinuz-";
    if (!kernel.starts_with(prefix))
        fail(Code::unusable,
             base::tr("{1} tells no release, so no initramfs can be made for it", root.path_of(kernel)));
    root.make_directories("etc/initramfs-tools/conf.d");
    root.write("etc/initramfs-tools/conf.d/hostadm", settings);
    root.make_directories("etc/initramfs-tools/hooks");
    root.write("etc/initramfs-tools/hooks/hostadm", hook, {.mode = 0755});
    const std::string release = kernel.substr(prefix.size()), initramfs = "boot/initrd.img-" + release;
    const char *mode = root.is_file(initramfs) ? "-u" : "-c";
    constexpr unsigned longest = 1800; // seconds, on a slow machine
    const TreeProgramEnd end =
        run_in_tree(root.path(), {"/usr/sbin/update-initramfs", mode, "-k", release}, longest);
    if (!end.well()) {
        fail(Code::system,
             base::tr("the initramfs of {1} cannot be made (update-initramfs ended with status {2}): {3}",
                      root.path(), end.status, base::last_line(end.output)));
    }
    if (const auto made = root.status(initramfs); !made || made->st_size == 0)
        fail(Code::no_effect, base::tr("{1} is not there, although update-initramfs did not complain",
                                       root.path_of(initramfs)));
    return root.path_of(initramfs);
}

bool InitramfsReader::hear(std::string_view piece) {
    while (!piece.empty()) {
        if (skipped_ != 0) {
            const std::size_t count = std::min(skipped_, piece.size());
            skipped_ -= count;
            place_ += count;
            piece.remove_prefix(count);
            continue;
        }
        if (entry_.empty() && piece.front() == '\0') { // between two archives
            ++place_;
            piece.remove_prefix(1);
            continue;
        }
        if (entry_.empty())
            wanted_ = head_size;
        const std::size_t count = std::min(wanted_ - entry_.size(), piece.size());
        entry_.append(piece.substr(0, count));
        piece.remove_prefix(count);
        // As soon as it can be told: what follows an archive may be short.
        constexpr std::string_view magic = "07070";
        if (!std::string_view(entry_).starts_with(magic.substr(0, entry_.size())))
            return false;
        if (entry_.size() == wanted_ && !(wanted_ == head_size ? hear_head() : hear_entry()))
            return false;
    }
    return true;
}

bool InitramfsReader::hear_head() {
    name_size_ = number_at(entry_, name_size_place);
    file_size_ = number_at(entry_, file_size_place);
    if (name_size_ == 0 || name_size_ > longest_name)
        return false;
    wanted_ = padded(head_size + name_size_);
    return true;
}

bool InitramfsReader::hear_entry() {
    const std::size_t head = padded(head_size + name_size_);
    const std::string_view name = std::string_view(entry_).substr(head_size, name_size_ - 1);
    if (wanted_ == head) {
        note_name(name);
        if (name.ends_with(built_in_list) && file_size_ != 0 && file_size_ <= longest_list) {
            wanted_ += padded(file_size_);
            return true;
        }
        skipped_ = padded(file_size_);
    } else {
        note_built_in(std::string_view(entry_).substr(head, file_size_));
    }
    begin_next();
    // Once all is there, the rest can add nothing.
    return !(nfs3_module_ && nfs4_module_ && mounts_version4_);
}

void InitramfsReader::begin_next() {
    place_ += entry_.size();
    entry_.clear();
}

void InitramfsReader::note_name(std::string_view name) {
    while (name.starts_with("./") || name.starts_with('/'))
        name.remove_prefix(1);
    const std::string_view file = name.substr(name.rfind('/') + 1);
    modules_known_ = modules_known_ || name.ends_with(built_in_list) || file.find(".ko") != file.npos;
    nfs3_module_ = nfs3_module_ || is_module(name, "nfsv3");
    nfs4_module_ = nfs4_module_ || is_module(name, "nfsv4");
    debians_scripts_ = debians_scripts_ || name == "scripts/nfs";
    mounts_version4_ = mounts_version4_ || file == klibc_program;
}

void InitramfsReader::note_built_in(std::string_view list) {
    base::for_each_line(list, [&](std::string_view line) {
        nfs3_module_ = nfs3_module_ || is_module(line, "nfsv3");
        nfs4_module_ = nfs4_module_ || is_module(line, "nfsv4");
    });
}

InitramfsRoots InitramfsReader::roots() const {
    return {.known = modules_known_,
            .nfs3 = nfs3_module_,
            .nfs4 = nfs4_module_ && (!debians_scripts_ || mounts_version4_)};
}

InitramfsRoots roots_of_initramfs(const base::Descriptor &file) {
    const off_t begin = lseek(file.get(), 0, SEEK_CUR);
    InitramfsReader reader;
    std::string piece(1 << 16, '\0');
    bool more = true;
    while (more) {
        const ssize_t count = read(file.get(), piece.data(), piece.size());
        more = count > 0 && reader.hear(std::string_view(piece).substr(0, static_cast<std::size_t>(count)));
        if (count <= 0)
            return reader.roots();
    }
    // What has come unpacked may be the processor's firmware only, before the packed rest.
    char magic[6] = {};
    const off_t rest = begin + static_cast<off_t>(reader.place());
    const ssize_t count = pread(file.get(), magic, sizeof magic, rest);
    const Packing *packing = packing_of({magic, static_cast<std::size_t>(std::max<ssize_t>(count, 0))});
    if (packing == nullptr || lseek(file.get(), rest, SEEK_SET) < 0)
        return reader.roots();
    InitramfsReader unpacked;
    unpack(*packing, file, unpacked);
    const InitramfsRoots early = reader.roots(), late = unpacked.roots();
    return {late.known || early.known, late.nfs3 || early.nfs3, late.nfs4 || early.nfs4};
}

} // namespace hostadm::server
