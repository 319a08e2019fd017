// SPDX-License-Identifier: MIT
// What this server's software records say of packages and of the templates of clients' roots.
#pragma once

#include <string>
#include <vector>

namespace hostadm::server {

std::string server_architecture();
std::string server_release();

// Is a package whose name begins so recorded for the architecture:
// on this server, or in the tree of a service of another release?
bool is_package_recorded(const std::string &arch, const std::string &release, const std::string &package);

// One package among the templates of a service.
class TemplateRecord {
public:
    TemplateRecord(std::string package_dir, std::string package, std::string arch,
                   const std::string &release);

    const std::string &file() const { return file_; }       // the record file of the service
    const std::string &path() const { return template_; }   // where the template belongs
    const std::string &version() const { return version_; } // empty: the package tells none
    bool is_recorded() const;                               // by both of its lines
    bool exists() const;

    // Why it must not be added, in words, or nothing: a version that the shell would take apart, that makes
    // no name or that the library would cut, or lines and templates of other packages that would go with an
    // older version, because their names hold this one's.
    std::string obstacle() const;

    // Makes the folder of the record file. The library appends to the file without looking whether it can.
    void prepare() const;
    // The library looks for older versions in what comes from standard input:
    // gives it the record file, or nothing when there is none.
    void become_standard_input() const;
    void remove_template() const;

private:
    std::vector<std::string> also_replaced() const;
    bool mentions(const std::string &text) const;

    std::string package_, arch_, os_directory_, file_, version_, template_;
    bool version_is_cut_;
};

} // namespace hostadm::server
