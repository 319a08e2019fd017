// SPDX-License-Identifier: MIT
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/boot_area.hpp"
#include "server/claims.hpp"
#include "server/files.hpp"
#include "server/page.hpp"
#include "server/rpl_area.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "netboot/setup_rplboot",
    .purpose = "make a client's boot files in /rplboot",
    .arguments = {{"client_key", Kind::word,
                   "the name under which the client asks: its Ethernet address as twelve hexadecimal digits",
                   true},
                  {"instruction_set", Kind::word, "instruction set, such as i386", true},
                  {"implementation_arch", Kind::word, "implementation architecture, such as i86pc", true},
                  {"os_name", Kind::word, "name of the operating system", true},
                  {"os_version", Kind::release, "its version", true},
                  {"root_dir", Kind::path, "directory above export/exec/INSTRUCTION_SET.NAME_VERSION", false,
                   "/"}},
    .outputs = {{"boot_program", "name of the boot program in /rplboot"}, changed_output},
    .edits = {"/rplboot"},
    .values = service_values,
};

// The first of the client's links that leads to no file; empty: none.
std::string broken_link(const std::string &key) {
    for (const char *suffix : {"hw.com", "glue.com", "inetboot"}) {
        const std::string link = "/rplboot/" + key + "." + suffix;
        if (std::error_code error; !std::filesystem::is_regular_file(link, error))
            return link;
    }
    return {};
}

// Where the client's links lead, and how large the shared files are.
std::vector<std::string> state_of(const std::string &key, const std::string &boot_name) {
    std::vector<std::string> state;
    std::error_code error;
    for (const char *suffix : {"hw.com", "glue.com", "inetboot"})
        state.push_back(std::filesystem::read_symlink("/rplboot/" + key + "." + suffix, error));
    for (const std::string &name : {boot_name, std::string("gluecode.com"), std::string("smc.com")})
        state.push_back(std::to_string(std::filesystem::file_size("/rplboot/" + name, error)));
    return state;
}

// What a run that was cut off has left of the shared files would never be refreshed.
void remove_empty_files(const std::string &boot_name) {
    std::error_code error;
    for (const std::string &name : {boot_name, std::string("gluecode.com"), std::string("smc.com")})
        if (const std::string path = "/rplboot/" + name;
            std::filesystem::is_regular_file(std::filesystem::symlink_status(path, error)) &&
            std::filesystem::file_size(path, error) == 0 && !error)
            std::filesystem::remove(path, error);
}

// The library's error names neither the file that the image lacks nor the image.
void tell_missing_sources(Call &call, const std::vector<RplFile> &files) {
    for (const RplFile &file : files)
        if (!exists(file.copy) && file.source().empty())
            call.fail(missing_source(file), static_cast<int>(Code::not_found));
}

// The library does not look how its copies end, and leaves part of one, which would be booted from ever after. False
// when a file cannot be copied.
bool copy_missing(const std::vector<RplFile> &files) {
    std::string area = "/rplboot";
    mkdir_path(area.data());
    bool whole = true;
    for (const RplFile &file : files)
        if (!exists(file.copy) && !file.source().empty())
            whole = copy_whole(file.source(), file.copy) && whole;
    return whole;
}

int work(Call &call) {
    const std::string key = call.get("client_key");
    if (key.size() != 12 || key.find_first_not_of("0123456789abcdefABCDEF") != key.npos)
        return call.refuse(base::tr(
            "client_key: \"{1}\" is no Ethernet address as twelve hexadecimal digits, such as 080020010203",
            key));
    const std::string root_dir = call.get("root_dir") == "/" ? "" : call.get("root_dir");
    const std::string inst_set = base::lower_case(call.get("instruction_set")),
                      impl_arch = base::lower_case(call.get("implementation_arch")),
                      os_name = call.get("os_name"), os_version = call.get("os_version");
    const std::string boot_name =
        make_boot_name(os_version.c_str(), os_name.c_str(), inst_set.c_str(), impl_arch.c_str());
    const Claims claims(call.method(), key, {{Claim::Kind::path, "/rplboot/" + key}});
    const auto before = state_of(key, boot_name);
    remove_empty_files(boot_name);
    const auto files =
        rpl_files({rpl_image(root_dir, {inst_set, impl_arch, os_name, os_version})}, impl_arch, boot_name);
    tell_missing_sources(call, files);
    if (copy_missing(files))
        setup_rplboot_dir(call.method().c_str(), key.c_str(), impl_arch.c_str(), root_dir.c_str(),
                          inst_set.c_str(), os_name.c_str(), os_version.c_str());
    else
        add_rplboot_dir_client(call.method().c_str(), boot_name.c_str(), key.c_str());
    const std::string broken = broken_link(key);
    call.set("boot_program", boot_name);
    if (broken.empty()) {
        flush_file_systems({"/rplboot"});
        tell_changed(call, state_of(key, boot_name) != before);
        return 0;
    }
    call.fail(base::tr("{1} leads to no file: the link cannot be made, or its file cannot be copied", broken),
              static_cast<int>(Code::no_effect));
    call.left_undone(base::tr(
        "the links of {1}; run this again when the cause is mended, or netboot/cleanup_rplboot", key));
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
