// SPDX-License-Identifier: MIT
#include "server/catalogue.hpp"

#include "hostadm/table_edit.hpp"
#include "server/failure.hpp"
#include "server/files.hpp"

namespace hostadm::server {

namespace {

constexpr const char *place = "/var/sadm/system/admin/";

struct CatalogueFile {
    const char *name, *old_place;
};
constexpr CatalogueFile files[] = {{".clustertoc", "/var/sadm/install_data/"},
                                   {"CLUSTER", "/var/sadm/install_data/"},
                                   {"INST_RELEASE", "/var/sadm/softinfo/"}};

std::string own_text(const std::string &name, const CatalogueOf &what) {
    if (name == "CLUSTER")
        return "CLUSTER=all\n";
    if (name == "INST_RELEASE")
        return "OS=" + what.os_name + "\nVERSION=" + what.os_version + "\n";
    std::string text = "CLUSTER=all\nNAME=all of " + what.os_name + " " + what.os_version + "\n";
    for (const std::string &package : what.packages)
        text += "MEMBER=" + package + "\n";
    return text + "END\n";
}

std::string text_of(const CatalogueFile &file, const CatalogueOf &what) {
    std::vector<std::string> candidates;
    for (const std::string &above : {std::string(place), std::string(file.old_place)})
        candidates.push_back(what.area + above + file.name);
    for (const std::string &source : what.sources)
        for (const std::string &above : {std::string("/"), std::string(place), std::string(file.old_place)})
            candidates.push_back(source + above + file.name);
    for (const std::string &candidate : candidates) {
        std::string text;
        const int status = tables::read_file(candidate, text);
        if (status == 0)
            return text;
        if (status != tables::no_such_line)
            fail_reading(candidate, status);
    }
    return own_text(file.name, what);
}

} // namespace

bool ensure_catalogue(const CatalogueOf &what, Journal &journal) {
    bool made = false;
    for (const CatalogueFile &file : files)
        for (const std::string &above : {std::string(place), std::string(file.old_place)}) {
            const std::string path = what.area + above + file.name;
            made = (!exists(path) && make_text_file(path, text_of(file, what), journal)) || made;
        }
    return made;
}

} // namespace hostadm::server
