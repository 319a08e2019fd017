// SPDX-License-Identifier: MIT
// Makes device nodes with a directory's own script.
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <unistd.h>

#include "base/boundary.hpp"
#include "base/descriptor.hpp"
#include "base/owners.hpp"
#include "hostadm.h"

struct hold_dev_record hold_dev = {nullptr, nullptr};

namespace {

// The working directory, moved elsewhere while the object lives. Where its name no longer leads back (it was
// renamed, or is too long), the descriptor does.
class WorkingDirectory {
public:
    explicit WorkingDirectory(const char *elsewhere)
        : name_(getcwd(nullptr, 0)), descriptor_(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) {
        if (elsewhere != nullptr)
            moved_ = chdir(elsewhere) == 0;
    }
    ~WorkingDirectory() {
        if (moved_ && (name_ == nullptr || chdir(name_.get()) != 0))
            moved_ = fchdir(descriptor_.get()) != 0;
    }
    WorkingDirectory(const WorkingDirectory &) = delete;
    WorkingDirectory &operator=(const WorkingDirectory &) = delete;

private:
    hostadm::base::Allocated<char> name_;
    hostadm::base::Descriptor descriptor_;
    bool moved_ = false;
};

bool begins_with(const char *name, std::string_view start) {
    return std::string_view(name).starts_with(start);
}

} // namespace

int makedevs(const char *directory, const char *device_name) {
    const char *name = begins_with(device_name, "st8") ? "st0" : device_name;
    hostadm::base::at_boundary(0, [&] {
        const WorkingDirectory moved(directory);
        return system(("./MAKEDEV " + std::string(name)).c_str());
    });
    // The request held back until the tape devices are there. hold_dev is never cleared.
    if (begins_with(name, "st0") && hold_dev.device_name != nullptr)
        makedevs(hold_dev.directory, hold_dev.device_name);
    return 0;
}
