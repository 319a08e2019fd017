// SPDX-License-Identifier: MIT
#pragma once

#include <cstring>
#include <string>

#include "hostadm/table_edit.hpp"
#include "methods/client/add_diskless/failure.hpp"
#include "server/boot_links.hpp"

namespace hostadm::diskless {

// Keeps others out of /tftpboot as long as a boot program and its links belong together only half.
class BootAreaLock {
public:
    BootAreaLock() : lock_(server::tftpboot) {
        const std::string place = server::tftpboot;
        if (lock_.status() == tables::table_locked)
            fail("somebody else has been at work in " + place + " for half a minute; try again later");
        if (lock_.status() != 0)
            fail("cannot lock " + place + ": " + std::strerror(-lock_.status()));
    }

private:
    tables::FolderLock lock_;
};

} // namespace hostadm::diskless
