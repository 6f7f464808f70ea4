#include "session/change.h"

#include "session_fixture.h"

class Change : public session_test {
  protected:
    void SetUp() override {
        session_test::SetUp();
        define(
            g_ccdtree,
            "access: '1'\n"
            "a {\n get: fetch('a')\n set: store('a', $_)\n}\n"
            "b {\n get: fetch('b')\n set: store('b', $_)\n sanity: fetch('a') != 'bad'\n}\n"
            "c {\n set: store('a', 'torn') && seterror('no such\\nthing', 'error.thing', 'a1')\n}\n"
            "d {\n set: '0'\n}\n"
            "list {\n list: 'x'\n del: store('deleted', $_)\n sanity: fail()\n * \n}\n"
            "closed {\n access: '0'\n set: '1'\n}\n");
    }
};

TEST(CmdlinesToBuf, JoinsTheLeadingLinesOfOnePrefix) {
    const std::pair<std::vector<const char *>, const char *> table[] = {
        {{"t. first", "t. second", "t SET p"}, "first\nsecond"},
        {{"t.1 first", "t.2 second", "t SET p"}, "first"},
        {{"t. one", "t.   ", "t. two\r", "t SET p"}, "one\ntwo"},
        {{"t.", "t SET p"}, ""},
        {{}, ""},
    };
    for (const auto &[texts, expected] : table) {
        line *lines = nullptr;
        for (const char *text : texts)
            lines = append_line(lines, create_line(text));
        const owned_str buffer{cmdlines_to_buf(lines)};
        EXPECT_STREQ(buffer.get(), expected);
        destroy_line_list(lines);
    }
}

TEST_F(Change, OneAtATimeGoesIntoTheSessionsOwnContext) {
    ccd_session *session = logged_in("admin");
    EXPECT_EQ(ask(session, "t DIRTY"), "t.dirty 0\nt OK\n");
    EXPECT_EQ(ask(session, "t SET a v+1"), "t OK\n");
    EXPECT_EQ(ask(session, "t GET a\nt DIRTY"), "t.1 v+1\nt OK\nt.dirty 1\nt OK\n");
    EXPECT_EQ(ask(session, "t. first\nt. second\nt SET a ignored\nt GET a"),
              "t OK\nt.1 first%0asecond\nt OK\n");
    EXPECT_EQ(ask(session, "t SET d 1"), "t ERR result=2 Invalid argument\n");
    EXPECT_EQ(ask(session, "t SET c secret\nt GET a"),
              "t ERR result=2 Invalid argument\nt.1 first%0asecond\nt OK\n");
    EXPECT_EQ(ask(logged_in("admin"), "t.1 SET d 1\nt SUBMIT"),
              "t.1 ERR result=2 Invalid argument\nt ERR\n");
    EXPECT_EQ(ask(session, "t REVERT\nt GET a"), "t OK\nt ERR Invalid argument\n");
}

TEST_F(Change, ABatchIsAppliedWholeOrNotAtAll) {
    ccd_session *session = logged_in("admin");
    EXPECT_EQ(ask(session, "t SUBMIT"), "t OK\n");
    EXPECT_EQ(ask(session, "t.1 set a good\nt.2 SET b 1\nt.3 DEL list x\nt SUBMIT"),
              "t.1 OK\nt.2 OK\nt.3 OK\nt OK\n");
    EXPECT_EQ(ask(session, "t GET a"), "t.1 good\nt OK\n");
    EXPECT_EQ(ask(session, "t.1 SET b 2\nt.2 SET a bad\nt SUBMIT\nt GET b"),
              "t.1 ERR sanity check failed\nt.2 OK\nt ERR\nt.1 1\nt OK\n");
    EXPECT_EQ(ask(session,
                  "t.1 SET no.such 1\nt.2 SET c 1\nt.3 SET closed 1\nt.4 DEL list y\nt.5 SET a x\n"
                  "t SUBMIT"),
              "t.3 NO permission denied\n"
              "t.1 ERR result=3 No such file or directory\n"
              "t.2.error error.thing\nt.2.error.arg a1\nt.2 ERR no such thing\n"
              "t.3 ERR result=1 Success\n"
              "t.4.error error.not_exists\nt.4 ERR Entry does not exist\n"
              "t.5 OK\nt ERR\n");
    EXPECT_EQ(ask(session, "t.1 SET a x\nt.2 frob y\nt SUBMIT"),
              "t.2 BAD unknown sub command: frob\nt ERR\n");
    EXPECT_EQ(ask(session, "t.1 SET\nt.2 ADD list\nt.3 MOVE list x\nt.4 DEL list\nt SUBMIT"),
              "t.1 BAD two arguments required\nt.2 BAD at least one arguments required\n"
              "t.3 BAD three arguments required\nt.4 BAD two arguments required\nt OK\n");
    EXPECT_EQ(ask(session, "t GET a"), "t.1 good\nt OK\n");
    EXPECT_EQ(ask(logged_in("reader"), "t.1 SET a 1\nt SUBMIT"), "t NO permission denied\n");
}
