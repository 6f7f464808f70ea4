#include "auth/session_users.h"

#include <gtest/gtest.h>

#include "conf_text.h"
#include "ucfgd/owners.h"

class Users : public testing::Test {
  protected:
    void TearDown() override { destroy_session_user_list(list); }

    void read(const char *text) {
        const owned<cnfnode, destroy_cnftree> users{conf_text(text)};
        list = read_session_users(users.get());
    }
    int perms(const char *name) const {
        const session_user *user = find_session_user_or_default(list, name);
        return user ? user->perms : -1;
    }

    session_user *list = nullptr;
};

TEST_F(Users, AddTheirLettersToThoseOfTheDefaultRow) {
    read(
        "# everybody\n%default {\n access: r\n exec-user: daemon\n}\n"
        "admin {\n access: w\n access: q\n other: x\n}\n"
        "all {\n access: rwxq\n exec-user: a\n exec-user: b\n}\n"
        "admin {\n access: x\n}\n%other {\n access: rwx\n}\n");
    EXPECT_EQ(perms("admin"), 6);
    EXPECT_EQ(perms("all"), 7);
    for (const char *name : {"Admin", "%other", "%default", ".comment"})
        EXPECT_EQ(perms(name), 4);
    EXPECT_STREQ(find_session_user(list, "all")->exec_user, "b");
    EXPECT_EQ(find_session_user(list, "admin")->exec_user, nullptr);
    EXPECT_EQ(find_session_user(list, "stranger"), nullptr);
}

TEST_F(Users, TakeNothingFromADefaultRowThatIsNotTheFirst) {
    read("a {\n access: w\n}\n%default {\n access: rwx\n}\nb\n");
    EXPECT_EQ(perms("a"), 2);
    EXPECT_EQ(perms("b"), 0);
    EXPECT_EQ(perms("stranger"), 0);
}
