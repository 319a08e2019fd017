// SPDX-License-Identifier: MIT
// The table interface gives up a locked table after half a minute. A program of its own, since it takes that
// long.
#include <memory>

#include "hostadm/table_edit.hpp"
#include "hostadm/tables.h"
#include "scratch.hpp"

namespace {

class LockWait : public scratch::Test {};

TEST_F(LockWait, EndsWithItsStatus) {
    const auto file = table("key old\n");
    auto holder = std::make_unique<hostadm::tables::FolderLock>(folder());
    ASSERT_EQ(holder->status(), 0);
    col_list *list = nullptr;
    ASSERT_EQ(new_col_list(&list, " ", "#", nullptr), 0);
    ASSERT_EQ(new_column(list, 0, 0, 0, "key", "key", 0), 0);
    ASSERT_EQ(new_column(list, 1, 1, 1, nullptr, "new", 0), 0);
    EXPECT_EQ(replace_db_entry(file.c_str(), list, 3), -26);
    EXPECT_EQ(tests::content(file), "key old\n");
    holder.reset();
    EXPECT_EQ(replace_db_entry(file.c_str(), list, 3), 0);
    free_col_list(list);
}

} // namespace
