// SPDX-License-Identifier: MIT
#include "server/new_service.hpp"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "base/beneath.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/table_edit.hpp"
#include "server/boot_area.hpp"
#include "server/catalogue.hpp"
#include "server/failure.hpp"
#include "server/files.hpp"
#include "server/filling.hpp"
#include "server/host_tables.hpp"
#include "server/initramfs.hpp"
#include "server/patches.hpp"
#include "server/pc_client.hpp"
#include "server/roots.hpp"
#include "server/shares.hpp"
#include "server/tree_program.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

using method::Call;

namespace {

constexpr const char *all_implementations = "all";

bool is_file(const std::string &path) {
    std::error_code error;
    return fs::is_regular_file(path, error);
}

std::vector<std::string> names_in(const std::string &directory) {
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error))
        names.push_back(entry->path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

// The boot programs of a tree, or of the executables in an export area; of several places the first counts.
std::map<std::string, std::string> boot_programs_in(const std::string &directory, const Service &service) {
    constexpr const char *below = "/lib/fs/nfs/inetboot";
    std::map<std::string, std::string> found;
    const auto take = [&](const std::string &implementation, const std::string &file) {
        if (is_file(file))
            found.emplace(implementation, file);
    };
    for (const std::string &name : names_in(directory + "/boot")) {
        const std::string architecture = architecture_of(name);
        if (!architecture.empty() &&
            name == make_boot_name(service.os_version.c_str(), service.os_name.c_str(),
                                   service.instruction_set.c_str(), architecture.c_str()))
            take(architecture, directory + "/boot/" + name);
    }
    for (const char *platforms : {"/usr/platform", "/platform"})
        for (const std::string &name : names_in(directory + platforms))
            take(name, directory + platforms + "/" + name + below);
    take(all_implementations, directory + "/usr" + below);
    take(all_implementations, directory + below);
    return found;
}

// Keeps those that are wanted: of one implementation, if one was named.
void choose_boot_programs(NewService &wanted, const std::string &architecture, const std::string &where) {
    if (architecture.empty())
        return;
    auto &all = wanted.boot_programs;
    const auto own = all.find(architecture), common = all.find(all_implementations);
    if (own == all.end() && common == all.end() && !where.empty())
        fail(Code::not_found,
             base::tr("no boot program for {1} in {2}; name it with boot_program", architecture, where));
    const auto kept = own != all.end() ? own : common;
    if (kept != all.end())
        all = {{kept->first, kept->second}};
}

bool is_for(const SpooledPackage &package, const std::string &instruction_set) {
    if (package.architecture.empty())
        return true;
    for (const std::string_view one : base::split(package.architecture, ',')) {
        const std::string_view word = base::trimmed(one);
        if (word == "all" || word.starts_with(instruction_set))
            return true;
    }
    return false;
}

void take_packages(NewService &wanted, const std::string &directory) {
    if (!holds_packages(directory))
        fail(Code::unusable,
             base::tr("{1} holds no packages (folders with a pkginfo file in them)", directory));
    PackagesToTake taken{directory, {}};
    for (const SpooledPackage &package : packages_in(directory)) {
        if (!is_for(package, wanted.service.instruction_set)) {
            wanted.left_out.push_back(base::tr("{1} (for {2})", package.name, package.architecture));
            continue;
        }
        constexpr const char *plain =
            "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+-_.:@%=";
        if (package.version.empty() || package.version.find_first_not_of(plain) != std::string::npos)
            fail(Code::unusable, base::tr("the package {1}/{2} tells no VERSION in its pkginfo that can be "
                                          "part of a directory's name",
                                          directory, package.name));
        for (const PackagesToTake &other : wanted.packages)
            for (const SpooledPackage &twin : other.packages)
                if (twin.name == package.name)
                    fail(Code::unusable, base::tr("{1} lies in {2} and in {3}; leave out one of the two",
                                                  package.name, other.directory, directory));
        taken.packages.push_back(package);
    }
    if (!taken.packages.empty())
        wanted.packages.push_back(std::move(taken));
}

// What of packages is executables, where they do not come otherwise.
bool is_of_usr(const SpooledPackage &package) {
    return package.base == "/usr";
}

// A tree, or an export area.
void read_hierarchy(NewService &wanted, const std::string &hierarchy) {
    const Service &service = wanted.service;
    const std::string above = hierarchy == "/" ? "" : hierarchy;
    const std::string exec = above + service.exec_directory();
    if (!is_directory(exec)) {
        if (!is_tree(hierarchy))
            fail(Code::unusable,
                 base::tr(
                     "{1} is no install hierarchy: it holds neither {2} nor a root file system (etc or usr)",
                     hierarchy, exec));
        wanted.tree = hierarchy;
        return;
    }
    const std::string roots = above + "/export/root/templates/" + service.directory_name();
    const std::string source = is_directory(roots) ? roots : exec;
    if (!service.os_version.starts_with("4.") && holds_packages(source))
        take_packages(wanted, source);
    else
        wanted.tree = source;
    if (is_directory(exec + "/usr"))
        wanted.executables = exec + "/usr";
    wanted.boot_programs = boot_programs_in(exec, service);
    if (is_directory(above + "/Patches"))
        wanted.patches = above + "/Patches";
}

void check_directory(const std::string &path) {
    if (!is_directory(path))
        fail(Code::not_found, base::tr("there is no operating system at {1}: no such directory", path));
}

void read_source(const Call &call, NewService &wanted) {
    const Service &service = wanted.service;
    if (call.given("tree"))
        wanted.tree = split_paths(call.get("tree")).front();
    for (const std::string &directory : split_paths(call.get("packages"))) {
        check_directory(directory);
        take_packages(wanted, directory);
    }
    if (call.given("install_hierarchy")) {
        check_directory(call.get("install_hierarchy"));
        read_hierarchy(wanted, split_paths(call.get("install_hierarchy")).front());
    }
    if (wanted.tree.empty() && wanted.packages.empty())
        fail(Code::not_found, base::tr("there is no package for {1} in {2}; they are for others: {3}",
                                       service.instruction_set, service.source, wanted.left_out.front()));
    if (wanted.tree.empty())
        return;
    check_directory(wanted.tree);
    if (!is_tree(wanted.tree))
        fail(Code::unusable,
             base::tr("{1} is no root file system: it holds neither etc nor usr", wanted.tree));
    for (const std::string &place : {service.area(), service.template_place("root", service.os_version)})
        if (const std::string defect = defect_of_source(place, wanted.tree); !defect.empty())
            fail(Code::unusable,
                 base::tr("the place {1} and the tree {2} lie in one another", place, wanted.tree));
    if (wanted.executables.empty() && is_directory(wanted.tree + "/usr"))
        wanted.executables = wanted.tree + "/usr";
    for (const auto &[implementation, file] : boot_programs_in(wanted.tree, service))
        wanted.boot_programs.emplace(implementation, file);
}

void read_boot_program(const Call &call, NewService &wanted) {
    const std::string architecture = base::lower_case(call.get("implementation_arch"));
    if (!call.given("boot_program")) {
        choose_boot_programs(wanted, architecture, wanted.tree.empty() ? "" : wanted.tree);
    } else {
        const std::string file = call.get("boot_program");
        if (!is_file(file))
            fail(Code::not_found, base::tr("there is no boot program {1}", file));
        wanted.boot_programs = {{architecture.empty() ? all_implementations : architecture, file}};
    }
    auto &architectures = wanted.service.architectures;
    const auto add = [&](const std::string &name) {
        if (!name.empty() && name != all_implementations &&
            std::find(architectures.begin(), architectures.end(), name) == architectures.end())
            architectures.push_back(name);
    };
    add(architecture);
    for (const auto &[implementation, file] : wanted.boot_programs)
        add(implementation);
}

// What is laid out already stays as it is: only a further boot program may come.
void check_known(const NewService &wanted, const Service &known) {
    if (known.source != wanted.service.source)
        fail(Code::taken,
             base::tr("the service {1} is there already, made of {2}; remove it first (service/remove)",
                      known.title(), known.source));
}

// Where the pieces of a service are to lie nobody else's may.
void check_place(const std::string &path) {
    if (exists(path) && !is_being_filled(path))
        fail(Code::taken, base::tr("{1} is there already and belongs to no service; remove it first", path));
}

class Layout {
public:
    Layout(Call &call, const NewService &wanted, Journal &journal, Report &report)
        : call_(call), wanted_(wanted), journal_(journal), report_(report), now_(wanted.service) {}

    void make() {
        make_area();
        make_templates();
        make_initramfs();
        make_executables();
        make_catalogue();
        store_boot_programs();
        take_patches();
        put_boot_programs_in_place();
        record();
        for (const std::string &each : filled_)
            end_filling(each);
        tell_left_out();
    }

private:
    std::string owner() const { return now_.directory_name() + "." + now_.instruction_set; }

    void begin(const std::string &directory) {
        prepare_filling(call_, directory, owner(), journal_);
        filled_.push_back(directory);
    }

    void copy(const std::string &from, const std::string &to) {
        call_.progress(base::tr("copying {1} to {2}", from, to));
        if (copy_tree(call_, from, to) != 0)
            throw Recorded();
    }

    void make_area() {
        if (!exists(now_.area()) || is_being_filled(now_.area()))
            begin(now_.area());
    }

    void make_template(const std::string &name, const std::string &version, const std::string &source,
                       bool is_tree) {
        const std::string place = now_.template_place(name, version);
        begin(place);
        if (!is_tree)
            make_directories(place + "/" + name, journal_);
        copy(source, is_tree ? place : place + "/" + name);
        now_.templates.push_back(place);
        now_.packages.push_back(name + "," + version);
        report_.step("template", true, place);
    }

    void make_templates() {
        if (wanted_.is_known) {
            for (const std::string &place : now_.templates)
                report_.step("template", false, place);
            return;
        }
        if (!wanted_.tree.empty())
            make_template("root", now_.os_version, wanted_.tree, true);
        for (const PackagesToTake &taken : wanted_.packages)
            for (const SpooledPackage &package : taken.packages)
                if (!is_executables(package))
                    make_template(package.name, package.version, taken.directory + "/" + package.name, false);
    }

    // Of a tree that today's PCs boot, so that its initramfs finds a root by NFS whatever machine made it.
    void make_initramfs() {
        if (wanted_.is_known || wanted_.tree.empty())
            return;
        const std::string place = now_.template_place("root", now_.os_version);
        const base::Beneath root(place, base::Links::inside);
        if (newest_kernel_in(root).kernel.empty())
            return;
        boots_pcs_ = true;
        if (!root.is_file("usr/sbin/update-initramfs")) {
            report_.warn("initramfs",
                         base::tr("{1} has no update-initramfs; PCs boot it with the initramfs that is in "
                                  "its boot, if that finds a root by NFS (package initramfs-tools)",
                                  place));
            return;
        }
        call_.progress(base::tr("making the initramfs of {1}, which takes a minute", place));
        try {
            report_.step("initramfs", true, build_network_initramfs(root));
        } catch (const CannotEnterTree &failure) {
            const std::string there = newest_kernel_in(root).initramfs, why = failure.what();
            if (there.empty())
                fail(Code::system, base::tr("the initramfs of {1} cannot be made: {2}; make it in {3} first: "
                                            "chroot {3} update-initramfs -c -k all",
                                            place, why, wanted_.tree));
            report_.warn("initramfs",
                         base::tr("that of the tree counts, since none can be made here: {1}", why));
        }
    }

    bool is_executables(const SpooledPackage &package) const {
        return wanted_.executables.empty() && is_of_usr(package);
    }

    bool has_usr_packages() const {
        return std::any_of(wanted_.packages.begin(), wanted_.packages.end(), [](const PackagesToTake &taken) {
            return std::any_of(taken.packages.begin(), taken.packages.end(), is_of_usr);
        });
    }

    void install_executables() {
        journal_.note(InstalledPackages{now_.area(), now_.executables_base()});
        for (const PackagesToTake &taken : wanted_.packages) {
            std::vector<std::string> names;
            for (const SpooledPackage &package : taken.packages)
                if (is_of_usr(package))
                    names.push_back(package.name);
            call_.progress(base::tr("installing packages in {1}", now_.executables_place()));
            if (!names.empty() &&
                install_in_area(call_, now_.area(), now_.executables_base(), taken.directory, names) != 0)
                throw Recorded();
        }
        if (fs::is_empty(now_.executables_place()))
            fail(Code::no_effect,
                 base::tr("{1} is empty, although packages were installed there without a complaint",
                          now_.executables_place()));
    }

    void make_executables() {
        if (wanted_.is_known || (wanted_.executables.empty() && !has_usr_packages())) {
            if (!now_.executables.empty())
                report_.step("executables", false, now_.executables);
            return;
        }
        now_.executables = now_.executables_place();
        begin(now_.executables);
        if (wanted_.executables.empty())
            install_executables();
        else
            copy(wanted_.executables, now_.executables);
        report_.step("executables", true, now_.executables);
    }

    void make_catalogue() {
        std::vector<std::string> names, sources;
        for (const std::string &package : now_.packages)
            names.push_back(package.substr(0, package.find(',')));
        if (!wanted_.tree.empty())
            sources.push_back(wanted_.tree);
        for (const PackagesToTake &taken : wanted_.packages)
            sources.push_back(taken.directory);
        const bool made =
            ensure_catalogue({now_.area(), now_.os_name, now_.os_version, names, sources}, journal_);
        report_.step("catalogue", made, now_.area() + "/var/sadm/system/admin");
    }

    // Kept with the service, so that /tftpboot can be made anew from it.
    void store_boot_programs() {
        const std::string exec = now_.exec_directory();
        if (!wanted_.is_known) {
            begin(exec);
            if (!now_.executables.empty() &&
                symlink(("../../" + now_.directory_name() + now_.executables_base()).c_str(),
                        (exec + "/usr").c_str()) != 0)
                fail_errno(base::tr("cannot make {1}/usr", exec));
        }
        for (const auto &[implementation, file] : wanted_.boot_programs) {
            const std::string folder =
                exec + (implementation == all_implementations ? "" : "/platform/" + implementation) +
                "/lib/fs/nfs";
            const std::string place = folder + "/inetboot";
            const bool is_there = exists(place);
            if (is_there && !same_content(place, file))
                fail(Code::taken,
                     base::tr(
                         "{1} is another boot program than {2}; remove the service first (service/remove)",
                         place, file));
            if (!is_there) {
                make_directories(folder, journal_);
                if (!copy_whole(file, place))
                    fail(Code::system, base::tr("cannot copy the boot program {1} to {2}", file, place));
                journal_.note_made(MadeFile{place, identity_of(place).value_or(FileIdentity{})});
                now_.boot_programs.emplace_back(implementation, place);
            }
            report_.step("boot program", !is_there, place);
        }
        if (now_.boot_programs.empty() && !boots_pcs_)
            report_.warn(
                "boot program",
                base::tr("none was found; clients get that of their new root, or name it with boot_program"));
    }

    void take_patches() {
        if (wanted_.patches.empty() || wanted_.is_known)
            return;
        for (const std::string &patch : patches_for(now_.instruction_set, wanted_.patches)) {
            const std::string place = Service::patch_place(patch);
            const bool is_there = exists(place) && !is_being_filled(place);
            if (!is_there) {
                begin(place);
                copy(wanted_.patches + "/" + patch, place);
            }
            now_.patches.push_back(patch);
            report_.step("patch", !is_there, place);
        }
    }

    void put_boot_programs_in_place() {
        make_directories(tftpboot, journal_);
        const BootAreaLock lock;
        for (const std::string &architecture : now_.architectures) {
            const std::string file = now_.boot_program_of(architecture);
            if (file.empty())
                continue;
            const std::string name = make_boot_name(now_.os_version.c_str(), now_.os_name.c_str(),
                                                    now_.instruction_set.c_str(), architecture.c_str());
            const std::string place = std::string(tftpboot) + "/" + name;
            const bool made = ensure_boot_program(
                lock, call_.method(), {now_.instruction_set, architecture, now_.os_name, now_.os_version},
                name, {file, ""}, journal_);
            report_.step("boot program", made, place);
            if (!made && !same_content(place, file))
                report_.warn("boot program", base::tr("{1} differs from {2} and stays, since clients may "
                                                      "boot it; to replace it, remove it first",
                                                      place, file));
        }
    }

    // What stands in the journal and is still there.
    void note_made() {
        const auto add = [&](MadeForService::Kind kind, const std::string &path) {
            const bool is_told =
                std::any_of(now_.made.begin(), now_.made.end(), [&](const MadeForService &made) {
                    return is_at_or_below(path, made.path) &&
                           (made.kind == MadeForService::Kind::tree || made.path == path);
                });
            if (!is_told && exists(path))
                now_.made.push_back({kind, path});
        };
        for (const Written &words : journal_.entries()) {
            if (const auto root = read_entry<MadeRoot>(words))
                add(MadeForService::Kind::tree, root->path);
            else if (const auto directory = read_entry<MadeDirectory>(words))
                add(MadeForService::Kind::directory, directory->path);
            else if (const auto file = read_entry<MadeFile>(words))
                add(MadeForService::Kind::file, file->path);
            else if (const auto program = read_entry<MadeBootProgram>(words))
                add(MadeForService::Kind::file, program->path);
        }
    }

    void record() {
        const std::string file = now_.record_file();
        make_directories(parent_of(file), journal_);
        note_made();
        note_new_table(file, journal_);
        std::string there;
        tables::read_file(file, there); // one that cannot be read is told by its edit
        std::vector<std::string> missing = record_lines(now_);
        base::for_each_line(there, [&](std::string_view line) { std::erase(missing, line); });
        for (const std::string &line : missing)
            journal_.note(AddedLine{file, line + "\n"});
        const auto change = [&](std::string &text) {
            if (!text.empty() && !text.ends_with('\n') && !missing.empty())
                text += '\n';
            for (const std::string &line : missing)
                text += line + "\n";
            return 0;
        };
        if (const int status = tables::edit_file(file, change, {.create = true}); status != 0)
            fail_edit(file, status);
        report_.step("record", !missing.empty(), file);
    }

    void tell_left_out() {
        for (const std::string &package : wanted_.left_out)
            report_.kept("package", base::tr("{1} was left out", package));
    }

    Call &call_;
    const NewService &wanted_;
    Journal &journal_;
    Report &report_;
    Service now_;
    bool boots_pcs_ = false; // its tree has a kernel
    std::vector<std::string> filled_;
};

void check_places(const NewService &wanted) {
    const Service &service = wanted.service;
    check_place(service.executables_place());
    check_place(service.exec_directory());
    if (!wanted.tree.empty())
        check_place(service.template_place("root", service.os_version));
    for (const PackagesToTake &taken : wanted.packages)
        for (const SpooledPackage &package : taken.packages)
            check_place(service.template_place(package.name, package.version));
}

// Another service of which something lies at or below a path.
std::optional<Service> other_user_of(const MadeForService &made, const Service &service) {
    for (Service &other : all_services()) {
        if (other.record_file() == service.record_file() && other.instruction_set == service.instruction_set)
            continue;
        std::vector<std::string> theirs = other.templates;
        theirs.push_back(other.record_file());
        theirs.push_back(other.exec_directory());
        theirs.push_back(other.area());
        for (const MadeForService &each : other.made)
            theirs.push_back(each.path);
        for (const std::string &patch : other.patches)
            theirs.push_back(Service::patch_place(patch));
        for (const std::string &path : theirs)
            if (is_at_or_below(path, made.path))
                return std::move(other);
    }
    return std::nullopt;
}

void edit_record(const std::string &file, const std::function<std::string(const std::string &)> &edit) {
    const auto change = [&](std::string &text) {
        text = edit(text);
        return 0;
    };
    if (const int status = tables::edit_file(file, change); status != 0)
        fail_edit(file, status);
}

void hand_on(const MadeForService &made, const Service &to) {
    const std::string line = record_line_of(made, to);
    edit_record(to.record_file(), [&](const std::string &text) { return text + line + "\n"; });
}

bool remove_made(const MadeForService &made) {
    if (!exists(made.path))
        return false;
    if (made.kind == MadeForService::Kind::tree) {
        remove_tree(made.path);
        return true;
    }
    if (made.kind == MadeForService::Kind::file)
        return remove_file(made.path);
    if (!fs::is_empty(made.path)) // of somebody else by now
        return false;
    return remove_file(made.path);
}

void remove_record(const Service &service) {
    const std::string file = service.record_file();
    edit_record(file, [&](const std::string &text) { return without_service(text, service); });
    const tables::FolderLock lock(parent_of(file));
    struct stat state {};
    if (lock.status() == 0 && lstat(file.c_str(), &state) == 0 && state.st_size == 0)
        unlink(file.c_str());
}

} // namespace

std::vector<Claim> NewService::claims() const {
    return {{Claim::Kind::path, service.area()}, {Claim::Kind::path, service.exec_directory()}};
}

NewService read_new_service(const Call &call) {
    NewService wanted;
    Service &service = wanted.service;
    service.os_name = call.get("os_name");
    service.os_version = call.get("os_version");
    service.instruction_set = base::lower_case(call.get("instruction_set"));
    check_service_names(service.os_name, service.instruction_set, call.get("implementation_arch"));
    const int sources = (call.given("tree") ? 1 : 0) + (call.given("packages") ? 1 : 0) +
                        (call.given("install_hierarchy") ? 1 : 0);
    if (sources != 1)
        refuse(base::tr(
            "say where the operating system comes from: one of tree, packages and install_hierarchy"));
    if (call.given("packages") && service.os_version.starts_with("4."))
        refuse(base::tr("a 4.x release has no packages; give the tree that its roots are copied from"));
    for (const char *argument : {"tree", "packages", "install_hierarchy"})
        if (call.given(argument))
            service.source = call.get(argument);

    const auto known = find_service(service.os_name, service.os_version, service.instruction_set);
    if (known) {
        check_known(wanted, *known);
        wanted.service = *known;
        wanted.is_known = true;
    }
    read_source(call, wanted);
    read_boot_program(call, wanted);
    if (call.given("patches"))
        wanted.patches = call.get("patches");
    if (std::error_code error;
        exists(service.record_file()) && !fs::is_regular_file(service.record_file(), error))
        fail(Code::table, base::tr("{1}, which is to record the service, is no file; remove it first",
                                   service.record_file()));
    if (!wanted.is_known)
        check_places(wanted);
    return wanted;
}

void lay_out(Call &call, const NewService &wanted, Journal &journal, Report &report) {
    Layout(call, wanted, journal, report).make();
    flush_file_systems({wanted.service.area(), wanted.service.exec_directory(), tftpboot,
                        parent_of(wanted.service.record_file())});
    const auto now =
        find_service(wanted.service.os_name, wanted.service.os_version, wanted.service.instruction_set);
    if (!now)
        fail(Code::no_effect, base::tr("{1} does not tell of the service", wanted.service.record_file()));
}

void check_nobody_uses(const Service &service) {
    if (const std::vector<std::string> clients = clients_of(service); !clients.empty())
        fail(Code::taken,
             base::tr("the service {1} is used by {2}; remove these clients first (client/remove)",
                      service.title(), base::joined(clients)));
    for (const auto &[path, options] : current_shares())
        if (service.holds(path) && (path != service.executables || options != executables_share_options))
            fail(Code::taken,
                 base::tr("{1} is shared with {2}; unshare it first (filesystem/unshare)", path, options));
}

void remove_service(Call &call, const Service &service, Report &report) {
    const ShareState share = service.executables.empty() ? ShareState{} : share_state(service.executables);
    if (share.now || share.at_boot) {
        withdraw_share(call.method(), service.executables);
        report.step("share", true, service.executables);
    }
    std::vector<MadeForService> directories;
    for (auto made = service.made.rbegin(); made != service.made.rend(); ++made) {
        if (const auto other = other_user_of(*made, service)) {
            hand_on(*made, *other);
            report.kept("keeps", base::tr("{1}, which {2} needs", made->path, other->title()));
            continue;
        }
        if (made->kind == MadeForService::Kind::directory) {
            directories.push_back(*made);
            continue;
        }
        call.progress(base::tr("removing {1}", made->path));
        report.step("remove", remove_made(*made), made->path);
    }
    if (is_directory(service.area()))
        forget_installed(service.area(), service.executables_base());
    for (const std::string &place : service.templates)
        if (exists(place) && !service.made_itself(place))
            report.kept("template", base::tr("{1} was not made with the service, and stays", place));
    // The deepest first.
    std::sort(directories.begin(), directories.end(),
              [](const MadeForService &one, const MadeForService &other) {
                  return one.path.size() > other.path.size();
              });
    remove_record(service);
    report.step("record", true, service.record_file());
    for (const MadeForService &made : directories)
        if (!remove_made(made) && exists(made.path))
            report.kept("directory", base::tr("{1} holds something else by now, and stays", made.path));
}

} // namespace hostadm::server
