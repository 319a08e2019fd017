// SPDX-License-Identifier: MIT
#include <cerrno>
#include <gtest/gtest.h>

#include "hostadm/table_edit.hpp"
#include "server/failure.hpp"

using hostadm::server::edit_failure;

TEST(EditFailure, SaysWhatToDoNext) {
    EXPECT_EQ(edit_failure("/etc/t", hostadm::tables::table_locked),
              "/etc/t is locked by another editor; nothing was changed, try again when it is done");
    EXPECT_EQ(edit_failure("/etc/t", -EBUSY),
              "/etc/t is a mount point and cannot be replaced; edit the file that is mounted there");
    EXPECT_EQ(edit_failure("/etc/t", -EACCES),
              "/etc/t cannot be changed: Permission denied; is root needed?");
    EXPECT_EQ(edit_failure("/etc/t", -EPERM),
              "/etc/t cannot be changed: Operation not permitted; is root needed?");
    EXPECT_EQ(edit_failure("/etc/t", -ENOSPC), "/etc/t cannot be changed: No space left on device");
}
