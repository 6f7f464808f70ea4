#include <sys/resource.h>

#include "session/query.h"
#include "session_fixture.h"
#include "tree/kept.h"

class Protocol : public session_test {};

TEST_F(Protocol, EachLineIsAnsweredUnderItsTag) {
    ccd_session *session = connect();
    const std::string tag(255, 't');
    const std::pair<std::string, std::string> table[] = {
        {"a1 noop\n", "a1 OK\n"},
        {"a1 NOOP\r\n", "a1 OK\n"},
        {"a1\x01 \x07no\top\n", "a1 OK\n"},
        {"a1 NOOP trailing words\n", "a1 OK\n"},
        {"a1noop\n", "a1noop BAD id invalid\n"},
        {"\x01\x02\n", " BAD id invalid\n"},
        {"a1\n", "a1 BAD id invalid\n"},
        {"a1\xc3\xa9 NOOP\n", "a1 BAD id invalid\n"},
        {"t1 FOO\n", "t1 NO login required\n"},
        {"t1 \n", "t1 NO login required\n"},
        {"t1 LOGOUT\n", "t1 NO login required\n"},
        {"t1 GET a\nt2 NOOP\nt3 NO", "t1 NO login required\nt2 OK\n"},
        {"OP\n", "t3 OK\n"},
        {"t1 " + std::string(255, 'x') + "\n", "t1 BAD invalid command\n"},
        {tag + " NOOP\n", tag + " OK\n"},
        {tag + "t NOOP\n", tag + " BAD id invalid\n"},
    };
    for (const auto &[input, output] : table)
        EXPECT_EQ(send(session, input), output) << input;
    std::string output;
    for (char c : std::string("a NOOP\r\nb\x02 NOOP\n"))
        output += send(session, {c});
    EXPECT_EQ(output, "a OK\nb OK\n");
    ask(session, "l LOGIN admin admin");
    EXPECT_EQ(ask(session, "t1 FOO"), "t1 BAD invalid command\n");
    EXPECT_EQ(ask(session, "t1 LIST2"), "t1 ERR No such file or directory\n");
}

TEST_F(Protocol, AListingIsWholeOrNotAtAll) {
    base->fed_list = fe_register_func(
        base->fed_list, "short",
        [](fe_context *, fe_node *) { return errno = ENOMEM, (fe_node *)nullptr; }, nullptr);
    define(g_ccdtree,
           "a {\n list: list('x.y', 'z')\n * {\n list: list('in', 'w')\n * {\n deep\n }\n }\n"
           " z {\n list: short()\n }\n}\nb {\n c {\n flags: 'hidden'\n d\n }\n e\n}\n");
    ccd_session *session = logged_in("reader");
    EXPECT_EQ(ask(session, "t LISTR a.x%2ey"), "t.1 in\nt.1 in.deep\nt.1 w\nt.1 w.deep\nt OK\n");
    EXPECT_EQ(ask(session, "t LISTR b"), "t.1 c\nt.1 e\nt OK\n");
    EXPECT_EQ(ask(session, "n NOOP\nt LISTR a"), "n OK\nt ERR Cannot allocate memory\n");
    const std::string name(300, 'n');
    define(g_ccdtree, "l {\n list: list('" + name + "')\n * {\n g\n }\n}\n");
    const std::string below = "t.1 " + name + "\nt.1 " + name + ".g\nt.1 " + name + ".g.g\n";
    EXPECT_EQ(ask(session, "t LISTR l").substr(0, below.size()), below);
    EXPECT_TRUE(ask(session, "t LISTR l." + name).starts_with("t.1 g\nt.1 g.g\n"));
}

TEST_F(Protocol, ARequestIsCollectedUntilALineOfItsTagEndsIt) {
    ccd_session *session = logged_in("admin");
    EXPECT_EQ(ask(session, "x.part one\nx.part two"), "");
    EXPECT_EQ(ask(session, "y SUBMIT"), "y BAD id unexpected\n");
    EXPECT_EQ(ask(session, "x NOOP"), "x OK\n");
    EXPECT_EQ(ask(session, "y NOOP"), "y OK\n");
    EXPECT_EQ(ask(session, "ab.one\na NOOP\nb NOOP"), "a OK\nb OK\n");
    EXPECT_EQ(ask(session, "x. \nx SUBMIT"), "x. BAD unknown sub command: \nx ERR\n");
    EXPECT_EQ(ask(session, "x   list   "), "x OK\n");
}

TEST_F(Protocol, AVerdictIsNoOtherSessionsAndNoOtherPermissions) {
    g_trns_iface_list->differs = [](const trns_ctx_item *) { return 0; };
    define(g_ccdtree,
           "any {\n access: in($perm, 'r')\n get: 'a'\n set: '1'\n}\n"
           "aaa {\n access: $hlxaaa_sid == ''\n}\n"
           "own {\n access: $sid == 'mine'\n get: 'c'\n}\n");
    ccd_session *first = logged_in("admin");
    ccd_session *second = logged_in("admin");
    const owned<param_path, destroy_param_path> aaa{find_ccd_param("aaa", g_ccdtree)};
    std::free(std::exchange(second->sessionid, strdup("mine")));
    const unsigned long before = g_kept_counts.hits;
    for (int times = 0; times < 2; times++) {
        EXPECT_EQ(ask(first, "1 GET any"), "1.1 a\n1 OK\n");
        EXPECT_EQ(ask(first, "1 SET any x"), "1 NO permission denied\n");
        EXPECT_EQ(ask(first, "1 GET own"), "1 NO permission denied\n");
        EXPECT_EQ(ask(second, "2 GET any"), "2.1 a\n2 OK\n");
        EXPECT_EQ(ask(second, "2 GET own"), "2.1 c\n2 OK\n");
        EXPECT_EQ(session_may_read(first, aaa.get()), 1);
        if (!second->hlxaaa_sid) second->hlxaaa_sid = strdup("7");
        EXPECT_EQ(session_may_read(second, aaa.get()), 0);
    }
    EXPECT_EQ(g_kept_counts.hits - before, 8U);
    g_trns_iface_list->differs = nullptr;
}

TEST_F(Protocol, WhatIsTooLongClosesTheSession) {
    ccd_session *session = connect();
    const std::string longest = "a NOOP " + std::string(16382 - 7, 'x');
    EXPECT_EQ(ask(session, longest), "a OK\n");
    EXPECT_EQ(ask(session, "\x01" + longest), "a OK\n");
    EXPECT_EQ(ask(session, longest + "x"), "(closed)");
    EXPECT_EQ(send(connect(), std::string(16383, 'x')), "(closed)");
    /* Short lines take much more than their text. */
    constexpr size_t k_taken = 4 * sizeof(size_t);
    session = connect();
    for (size_t i = 0; i < 65536 / k_taken; ++i)
        EXPECT_EQ(send(session, "a.\n"), "");
    EXPECT_EQ(send(session, "a.\na NOOP\n"), "a BAD request too long\n");
    for (const auto &[user, most] : {std::pair{"reader", 4 << 20}, {"admin", 5 << 20}}) {
        limit_set(k_limit_request_size, 5 << 20);
        session = logged_in(user);
        for (size_t i = 0; i < static_cast<size_t>(most) / k_taken; ++i)
            ASSERT_EQ(session_process_line(session, "a."), 0) << user;
        EXPECT_EQ(send(session, "b NOOP\na.\n"), "b BAD id unexpected\na BAD request too long\n");
        EXPECT_EQ(session->state, k_session_logged);
    }
    limits_reset();
}

TEST_F(Protocol, AReplyKeepsItsNewlineAndNothingForgesAnother) {
    ccd_session *session = connect();
    session_writef(session, "%s ERR %s %d %5s|%%\n", "t", "a\nb\rc\x1f", -12, "\nx");
    EXPECT_EQ(replies(session), "t ERR a b c  -12     x|%\n");
    const std::string text(20000, 'x');
    for (const char *format : {"t.1 %s\n", "t.1 %-1s\n"}) {
        session_writef(session, format, text.c_str());
        const std::string reply = replies(session);
        EXPECT_EQ(reply.find('\n') + 1, 16383U) << format;
    }
}

#ifndef __SANITIZE_ADDRESS__
TEST_F(Protocol, AReplyThatFindsNoMemoryEndsTheConnectionAndIsNeverOk) {
    ccd_session *session = logged_in("admin");
    long pages = 0;
    std::ifstream{"/proc/self/statm"} >> pages;
    struct rlimit old {};
    getrlimit(RLIMIT_AS, &old);
    const struct rlimit tight {
        static_cast<rlim_t>(pages *sysconf(_SC_PAGESIZE) + (8 << 20)), old.rlim_max
    };
    setrlimit(RLIMIT_AS, &tight);
    int written = 0;
    const std::string row(10000, 'x');
    while (written < 10000 && session_write_reply(session, "t", ".1 ", row.c_str()) == 0)
        written++;
    setrlimit(RLIMIT_AS, &old);
    EXPECT_LT(written, 10000);
    EXPECT_EQ(session_writef(session, "t OK\n"), -1);
    EXPECT_EQ(replies(session).find("t OK"), std::string::npos);
    session_sweep();
    EXPECT_EQ(replies(session), "(closed)");
}
#endif

TEST_F(Protocol, LinesOfAChildBecomeReplies) {
    ccd_session *session = connect();
    const owned<databuf, destroy_databuf> buffer{create_databuf()};
    const auto write = [&](const std::string &text, int final) {
        databuf_add(buffer.get(), text.data(), static_cast<int>(text.size()));
        session_write_databuf(session, "t.1", buffer.get(), final);
        return replies(session);
    };
    EXPECT_EQ(write("one\r\n\x1b[1mtw", 0), "t.1 one\n");
    EXPECT_EQ(write("o\n\nthree", 0), "t.1 [1mtwo\nt.1 \n");
    EXPECT_EQ(write("", 1), "t.1 three\n");
    EXPECT_EQ(write("", 1), "t.1 \n");
    EXPECT_EQ(write(std::string(16383, 'a') + "\nb\n", 0).substr(16370), "aaaaaaaaaaaa\nt.1 b\n");
    EXPECT_EQ(write(std::string(16383, 'a'), 0), "");
    EXPECT_EQ(write("Xb\n", 0).substr(16382), "\nt.1 b\n");
    EXPECT_EQ(write(std::string(1000000, '\0'), 0), "");
    EXPECT_EQ(databuf_pending(buffer.get()), 0);
}

TEST_F(Protocol, SlowRequestsGiveOthersTheirTurn) {
    define(g_ccdtree, "access: '1'\nslow {\n get: system('sleep 0.03') || '1'\n}\n");
    ccd_session *session = logged_in("admin");
    const std::string requests = "a GET slow\nb GET slow\nc GET slow\n";
    databuf_add(session->inbuf, requests.data(), static_cast<int>(requests.size()));
    session_process_input(session);
    const auto one_turn = [&] {
        std::string turn = replies(session);
        EXPECT_LE(std::count(turn.begin(), turn.end(), '\n'), 2) << turn;
        return turn;
    };
    std::string all = one_turn();
    while (session->stalled) {
        session_sweep();
        all += one_turn();
    }
    EXPECT_EQ(all, "a.1 1\na OK\nb.1 1\nb OK\nc.1 1\nc OK\n");
}

TEST_F(Protocol, EveryCommandIsDocumented) {
    std::ifstream file(SOURCE_DIR "/docs/protocol.md");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    size_t count = 0;
    for (const session_command *c = session_commands(&count); count > 0; ++c, --count)
        EXPECT_NE(text.find(std::string("`") + c->word), std::string::npos) << c->word;
}
