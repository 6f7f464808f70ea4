#include "auth/session_users.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "llconf/nodes.h"
#include "ucfgd/owners.h"

namespace {

using row = std::pair<const char *, std::vector<std::pair<const char *, const char *>>>;

class Users : public testing::Test {
  protected:
    void TearDown() override { destroy_session_user_list(list); }

    void read(const std::vector<row> &rows) {
        const owned<cnfnode, destroy_cnftree> users{create_cnfnode("users")};
        for (const auto &[name, entries] : rows) {
            cnfnode *user = create_cnfnode(name);
            append_node(users.get(), user);
            for (const auto &[key, value] : entries) {
                cnfnode *entry = create_cnfnode(key);
                cnfnode_setval(entry, value);
                append_node(user, entry);
            }
        }
        list = read_session_users(users.get());
    }
    int perms(const char *name) const {
        const session_user *user = find_session_user_or_default(list, name);
        return user ? user->perms : -1;
    }

    session_user *list = nullptr;
};

}  // namespace

TEST_F(Users, AddTheirLettersToThoseOfTheDefaultRow) {
    read({{".comment", {}},
          {"%default", {{"access:", "r"}, {"exec-user:", "daemon"}}},
          {"admin", {{"access:", "w"}, {"access:", "q"}, {"other:", "x"}}},
          {"all", {{"access:", "rwxq"}, {"exec-user:", "a"}, {"exec-user:", "b"}}},
          {"admin", {{"access:", "x"}}},
          {"%other", {{"access:", "rwx"}}}});
    EXPECT_EQ(perms("admin"), 6);
    EXPECT_EQ(perms("Admin"), 4);
    EXPECT_EQ(perms("all"), 7);
    EXPECT_EQ(perms("%other"), 4);
    EXPECT_EQ(perms("%default"), 4);
    EXPECT_EQ(perms(".comment"), 4);
    EXPECT_STREQ(find_session_user(list, "all")->exec_user, "b");
    EXPECT_EQ(find_session_user(list, "admin")->exec_user, nullptr);
    EXPECT_EQ(find_session_user(list, "stranger"), nullptr);
}

TEST_F(Users, TakeNothingFromADefaultRowThatIsNotTheFirst) {
    read({{"a", {{"access:", "w"}}}, {"%default", {{"access:", "rwx"}}}, {"b", {}}});
    EXPECT_EQ(perms("a"), 2);
    EXPECT_EQ(perms("b"), 0);
    EXPECT_EQ(perms("stranger"), 0);
}
