#include "session_fixture.h"

class Login : public session_test {
  protected:
    static std::string without_id(const std::string &reply) {
        const size_t at = reply.find("SESSION ");
        if (at == std::string::npos) return reply;
        std::string identifier = reply.substr(at + 8, 17);
        EXPECT_EQ(identifier.find_first_not_of("0123456789abcdef"), 16U);
        return std::string(reply).replace(at + 8, 16, "ID");
    }
    static std::string resume(const std::string &id) { return ask(connect(), "r RESUME " + id); }
};

TEST_F(Login, GivesTheRightsThatAreGrantedAndAskedFor) {
    const std::pair<const char *, const char *> table[] = {
        {"a LOGIN", "a ERR no username\n"},
        {"a LOGINFORCE", "a ERR no username\n"},
        {"a LOGIN admin wrong", "a NO auth failed\n"},
        {"a LOGIN admin admi%6E", "a.1 PERMS read write exec\na.1 SESSION ID\na OK\n"},
        {"a LOGIN reader reader", "a.1 PERMS read\na.1 SESSION ID\na OK\n"},
        {"a LOGIN stranger stranger", "a.1 PERMS none\na.1 SESSION ID\na OK\n"},
        {"a.1 Perms READ nonsense\na LOGIN admin admin", "a.1 PERMS read\na.1 SESSION ID\na OK\n"},
        {"a.1 perms read\na.2 perms write\na.3 colour blue\na LOGIN admin admin",
         "a.1 PERMS write\na.1 SESSION ID\na OK\n"},
        {"a.1 perms\na LOGIN admin admin", "a.1 PERMS none\na.1 SESSION ID\na OK\n"},
        {"a LOGINFORCE reader wrong", "a NO you do not have write permission\n"},
    };
    for (const auto &[request, reply] : table)
        EXPECT_EQ(without_id(ask(connect(), request)), reply) << request;
    EXPECT_EQ(ask(logged_in("admin"), "a LOGIN admin admin"), "a ERR already logged in\n");
}

TEST_F(Login, LeavesNoPasswordInTheInputBuffer) {
    ccd_session *session = connect();
    ask(session, "a LOGIN admin secret\na LOGIN admin admin");
    const std::string_view storage{session->inbuf->buf, 60};
    EXPECT_EQ(storage.find("secret"), std::string::npos);
}

TEST_F(Login, OfTheSessionsWithoutAConnectionTheOldestEndBeyondTheirLimits) {
    for (trns_interface *tiface = g_trns_iface_list; tiface; tiface = tiface->next)
        tiface->size = [](const trns_ctx_item *) { return size_t{1000000}; };
    const long number = limit_value(k_limit_suspended_sessions);
    std::vector<std::string> ids;
    const auto drop_five = [&] {
        for (int i = 0; i < 5; i++) {
            ccd_session *session = logged_in("admin");
            ids.insert(ids.begin(), session->sessionid);
            close_session(session);
            session_sweep();
        }
    };
    limit_set(k_limit_suspended_sessions, 3);
    drop_five();
    limit_set(k_limit_suspended_sessions, number);
    EXPECT_EQ(resume(ids[3]), "r NO invalid session id\n");
    EXPECT_EQ(resume(ids[2]), "r OK welcome back admin\n");
    limit_set(k_limit_suspended_memory, 4100000);
    drop_five();
    EXPECT_EQ(resume(ids[4]), "r NO invalid session id\n");
    EXPECT_EQ(resume(ids[3]), "r OK welcome back admin\n");
    limit_set(k_limit_suspended_memory, 64 << 20);
    EXPECT_GE(limit_met_count(k_limit_suspended_memory), 1u);
}

TEST_F(Login, ATerminatedSessionNeverComesBack) {
    ccd_session *session = logged_in("admin");
    const std::string identifier = session->sessionid;
    EXPECT_EQ(ask(session, "a LOGOUT\nb LOGIN admin admin\nc GET v"),
              "a OK\nb NO logged out\nc NO logged out\n");
    close_session(session);
    EXPECT_EQ(session->state, k_session_logout);
    EXPECT_EQ(resume(identifier), "r NO logged out\n");
}

TEST_F(Login, IdleSessionsTimeOutAndAreForgotten) {
    ccd_session *session = connect();
    ask(session, "a.1 timeout 99999999999999\na LOGIN admin admin");
    EXPECT_EQ(session->timeout, INT_MAX);
    ccd_session *negative = connect();
    ask(negative, "a.1 timeout -99999999999999999999\na LOGIN reader reader");
    EXPECT_EQ(ask(negative, "a NOOP"), "a NO timed out\n");
    close_session(negative);
    ccd_session *hasty = connect();
    ask(hasty, "a.1 timeout 10\na LOGIN reader reader");
    ccd_session *locked = logged_in("reader");
    locked->flags |= k_session_locked;
    const std::string identifier = hasty->sessionid;
    g_now += 10;
    session_timeout_check_all(session);
    EXPECT_EQ(ask(hasty, "a NOOP"), "a OK\n");
    g_now += 11;
    session_timeout_check_all(session);
    EXPECT_EQ(ask(hasty, "a NOOP"), "a NO timed out\n");
    close_session(hasty);
    g_now += 1801;
    session_timeout_check_all(nullptr);
    session_sweep();
    EXPECT_EQ(resume(identifier), "r NO invalid session id\n");
    EXPECT_EQ(session->state, k_session_logged);
    EXPECT_EQ(locked->state, k_session_logged);
}
