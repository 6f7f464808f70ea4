#include "session_fixture.h"

class Query : public session_test {
  protected:
    void SetUp() override {
        session_test::SetUp();
        define(
            g_ccdtree,
            "access: '1'\n"
            "plain {\n get: 'a b'\n choices: list('x y', 'z')\n"
            " flags: 'rare'\n len: 9\n}\n"
            "broken {\n get: fail()\n}\n"
            "complaint {\n set: '0'\n sanity: seterror('no such\\nthing', 'error.thing', 'a1')\n}\n"
            "closed {\n access: '0'\n get: 'secret'\n}\n"
            "asked {\n access: $perm .. $parampath .. $paramtree == 'rasked.kconfiguration'\n"
            " k {\n  get: 'seen'\n }\n}\n"
            "group {\n entry {\n  leaf\n }\n}\n");
        define(g_mgmttree, "access: '1'\ninfo {\n info: $argc .. $arg1\n}\n");
    }
};

TEST_F(Query, AnswersAsEachCommandDoes) {
    ccd_session *session = logged_in("admin");
    const std::pair<const char *, const char *> table[] = {
        {"t GET", "t BAD one argument required\n"},
        {"t GET plain", "t.1 a+b\nt OK\n"},
        {"t GET broken", "t ERR Invalid argument\n"},
        {"t GET closed", "t NO permission denied\n"},
        {"t GET asked.k", "t.1 seen\nt OK\n"},
        {"t LISTR group", "t.1 entry\nt.1 entry.leaf\nt OK\n"},
        {"t LIST group.entry.leaf", "t OK\n"},
        {"t LIST no.such", "t ERR No such file or directory\n"},
        {"t HELP group", "t OK\n"},
        {"t HELP", "t ERR No such file or directory\n"},
        {"t ATTR plain",
         "t.ops g\nt.len 9\nt.choices.1 x+y\nt.choices.2 z\nt.flags.1 rare\nt OK\n"},
        {"t ACCESS closed r", "t.1 0\nt OK\n"},
        {"t INFO info a+b c", "t.1 2a+b\nt OK\n"},
        {"t ADMIN", "t at least one argument required\n"},
        {"t ADMIN no.such", "t NO permission denied\n"},
        {"t SET complaint 1", "t.error error.thing\nt.error.arg a1\nt ERR no such thing\n"},
        {"t MOVE complaint 1 2", "t.error error.thing\nt.error.arg a1\nt ERR no such thing\n"},
        {"t SET plain 1", "t ERR result=5 Success\n"},
        {"t ADD plain 1", "t ERR\n"},
    };
    for (const auto &[request, reply] : table)
        EXPECT_EQ(ask(session, request), reply) << request;
}

TEST_F(Query, NeedsTheRightsOfTheSession) {
    ccd_session *reader = logged_in("reader");
    ccd_session *nobody = logged_in("stranger");
    testing::internal::CaptureStderr();
    EXPECT_EQ(ask(reader, "t ADMIN info"), "t NO permission denied\n");
    EXPECT_EQ(ask(reader, "t DEL group entry"), "t NO permission denied\n");
    EXPECT_EQ(ask(nobody, "t GET plain"), "t NO permission denied\n");
    EXPECT_EQ(ask(nobody, "t REVERT"), "t OK\n");
    EXPECT_NE(testing::internal::GetCapturedStderr().find(
                  "Request denied: User 'reader' accessing node 'group'. Session perms required: "
                  "'w', granted: 'r'\n"),
              std::string::npos);
    g_access_override = 1;
    EXPECT_EQ(ask(nobody, "t GET closed"), "t.1 secret\nt OK\n");
    EXPECT_EQ(ask(reader, "t ACCESS closed r"), "t.1 0\nt OK\n");
    g_access_override = 2;
    EXPECT_EQ(ask(reader, "t ACCESS no.such r"), "t.1 1\nt OK\n");
}
