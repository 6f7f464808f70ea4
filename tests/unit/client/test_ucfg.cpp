// libucfg against peers that answer late, in pieces, wrongly or not at all.
#include <gtest/gtest.h>

#include <random>

#include "fake_daemon.h"
#include "ucfg/ucfg.h"

extern "C" const char *name_of_code_in_c(int code);

namespace {

using owned_conn = owned<ucfg_conn, ucfg_destroy>;

owned_conn connect_to(const fake_daemon &daemon) {
    owned_conn conn{ucfg_create()};
    setenv("UCFGD_SOCKET", daemon.path().c_str(), 1);
    EXPECT_EQ(ucfg_connect_local(conn.get(), nullptr), k_ucfg_ok);
    unsetenv("UCFGD_SOCKET");
    ucfg_set_timeout(conn.get(), 5000);
    return conn;
}

std::string get(ucfg_conn *conn, const char *path) {
    char *value = nullptr;
    int code = ucfg_get(conn, path, &value);
    owned_str owner{value};
    return code == k_ucfg_ok ? value : std::string{"code "} + ucfg_code_name(code);
}

std::string taken(char *text) {
    owned_str owner{text};
    return text ? text : "(null)";
}

TEST(Requests, RepliesMayArriveByteByByteAndBetweenStrangeLines) {
    fake_daemon daemon{[](const fake_request &r) {
                           return fake_reply{
                               "!u99 OK\n",          "!\n",          "!" + r.tag + "9.1 no\n",
                               ".1 a+b%2ec\xc3\xa9", "!other.1 x\n", " OK"};
                       },
                       1};
    owned_conn conn = connect_to(daemon);
    EXPECT_EQ(get(conn.get(), "a.b"), "a b.c\xc3\xa9");
    EXPECT_EQ(get(conn.get(), "a.b"), "a b.c\xc3\xa9");
    EXPECT_STREQ(name_of_code_in_c(k_ucfg_inuse), "in use");
}

TEST(Requests, EveryStatusWordHasItsCodeAndItsText) {
    struct row {
        const char *line;
        int code;
        const char *text;
    };
    const row rows[] = {
        {" OK updated", k_ucfg_ok, "updated"},
        {" NO permission denied", k_ucfg_refused, "permission denied"},
        {" BAD invalid command", k_ucfg_malformed, "invalid command"},
        {" ERR", k_ucfg_failed, ""},
        {" INUSE not suspended", k_ucfg_inuse, "not suspended"},
        {" at least one argument required", k_ucfg_malformed, "at least one argument required"},
        {" OKAY", k_ucfg_malformed, "OKAY"},
    };
    size_t at = 0;
    fake_daemon daemon{[&](const fake_request &) { return fake_reply{rows[at].line}; }};
    owned_conn conn = connect_to(daemon);
    for (at = 0; at < std::size(rows); at++) {
        EXPECT_EQ(ucfg_update(conn.get()), rows[at].code) << rows[at].line;
        EXPECT_STREQ(ucfg_text(conn.get()), rows[at].text);
    }
}

TEST(Requests, AnErrorRecordIsThereUntilTheNextCall) {
    fake_daemon daemon{[](const fake_request &r) {
        if (r.word != "SET") return fake_reply{" OK"};
        return fake_reply{".error error.range", ".error.arg 68", ".error.arg a b", " ERR too big"};
    }};
    owned_conn conn = connect_to(daemon);
    EXPECT_EQ(ucfg_set(conn.get(), "net.mtu", "9"), k_ucfg_failed);
    EXPECT_STREQ(ucfg_error_id(conn.get()), "error.range");
    EXPECT_STREQ(ucfg_error_arg(conn.get(), 1), "a b");
    EXPECT_EQ(ucfg_error_arg(conn.get(), 2), nullptr);
    EXPECT_EQ(ucfg_noop(conn.get()), k_ucfg_ok);
    EXPECT_EQ(ucfg_error_id(conn.get()), nullptr);
}

TEST(Requests, ARefusalThatIsOnlyANumberIsAskedForItsReason) {
    fake_daemon daemon{[](const fake_request &r) {
        if (r.word == "SET") return fake_reply{" ERR result=2 Invalid argument"};
        return fake_reply{".1.error error.no", ".1 ERR cannot be stored", " ERR"};
    }};
    owned_conn conn = connect_to(daemon);
    EXPECT_EQ(ucfg_set(conn.get(), "net.mtu", "9"), k_ucfg_failed);
    EXPECT_STREQ(ucfg_text(conn.get()), "cannot be stored");
    EXPECT_STREQ(ucfg_error_id(conn.get()), "error.no");
}

TEST(Requests, WhatTheDaemonWouldCutIsRefusedBeforeItIsSent) {
    fake_daemon daemon{[](const fake_request &) { return fake_reply{" OK"}; }};
    owned_conn conn = connect_to(daemon);
    for (const char *port : {"0", "65536", "-1", " 22", "", "4294967518"})
        EXPECT_EQ(ucfg_connect_tcp(owned_conn{ucfg_create()}.get(), "127.0.0.1", port),
                  k_ucfg_usage);
    std::string component(256, 'c');
    std::string line(17000, 'v');
    std::string word(1024, 'w');
    const char *arg = word.c_str();
    char *text = nullptr;
    EXPECT_EQ(ucfg_set(conn.get(), ("a." + component).c_str(), "v"), k_ucfg_too_long);
    EXPECT_EQ(ucfg_set(conn.get(), "a b", "v"), k_ucfg_usage);
    EXPECT_EQ(ucfg_set(conn.get(), "", "v"), k_ucfg_usage);
    EXPECT_EQ(ucfg_set(conn.get(), "a", line.c_str()), k_ucfg_too_long);
    EXPECT_EQ(ucfg_add(conn.get(), "a", word.c_str()), k_ucfg_too_long);
    EXPECT_EQ(ucfg_add(conn.get(), "a", ""), k_ucfg_usage);
    EXPECT_EQ(ucfg_info(conn.get(), "a", &arg, 1, &text), k_ucfg_too_long);
    EXPECT_EQ(ucfg_admin(conn.get(), "", nullptr, 0, nullptr, nullptr), k_ucfg_usage);
    ucfg_item item{k_ucfg_set, "a", word.c_str(), nullptr};
    EXPECT_EQ(ucfg_submit(conn.get(), &item, 1, nullptr), k_ucfg_too_long);
    EXPECT_STREQ(ucfg_text(conn.get()), "item 1: the value is too long");
    const char *two_lines = "GET a\nx SET b";
    EXPECT_EQ(ucfg_request(conn.get(), nullptr, 0, two_lines, nullptr), k_ucfg_usage);
    EXPECT_TRUE(daemon.seen().empty());
}

// What the daemon makes of the lines before a SET.
std::string joined_value(const fake_request &r) {
    if (r.more.empty()) {
        size_t blank = r.args.find(' ');
        return blank == std::string::npos ? "" : r.args.substr(blank + 1);
    }
    std::string value;
    for (const std::string &line : r.more)
        if (line.size() > 2) value += line.substr(2) + "\n";
    if (!value.empty()) value.pop_back();
    return value;
}

TEST(Requests, ValuesOfAnyLengthArriveAsTheyAre) {
    std::string arrived;
    fake_daemon daemon{[&](const fake_request &r) {
        arrived = taken(ucfg_unescape(joined_value(r).c_str()));
        bool fits = true;
        for (const std::string &line : r.more)
            fits = fits && line.size() < 16360;
        return fake_reply{fits && r.args.size() < 1100 ? " OK" : " ERR cut"};
    }};
    owned_conn conn = connect_to(daemon);
    std::vector<std::string> values{"", " a  b ", "50%\t+.", "one\ntwo\n", std::string(1022, 'x')};
    std::mt19937 random{7};
    for (size_t i = 0; i < 30; i++) {
        std::string value;
        while (value.size() < 40000) {
            value += std::string(random() % (i < 15 ? 300 : 9000), '%') + "x";
            value += std::string(1 + random() % 3, '\n');
        }
        values.push_back(std::move(value));
    }
    values.push_back(std::string(15990, 'a') + "\n\n\n\n\n\n" + std::string(15990, 'b') + "\n");
    for (const std::string &value : values) {
        bool storable = true;
        for (size_t at = 0, end = 0; at < value.size(); at = end + 1) {
            end = std::min(value.find('\n', at), value.size());
            storable =
                storable && taken(ucfg_escape(value.substr(at, end - at).c_str())).size() < 15000;
        }
        int code = ucfg_set(conn.get(), "a", value.c_str());
        if (storable) {
            ASSERT_EQ(code, k_ucfg_ok) << value.size();
            ASSERT_EQ(arrived, value);
        } else {
            ASSERT_TRUE(code == k_ucfg_too_long || arrived == value);
        }
    }
}

TEST(Batches, EachItemLearnsItsFate) {
    fake_daemon daemon{[](const fake_request &) {
        return fake_reply{".2 NO permission denied", ".1 OK",
                          ".2 ERR result=1 Success", ".3.error error.exists",
                          ".3.error.arg x",          ".3 ERR Entry already exists",
                          ".77 ERR beyond",          " ERR"};
    }};
    owned_conn conn = connect_to(daemon);
    const ucfg_item items[] = {{k_ucfg_set, "a.b", "two words", nullptr},
                               {k_ucfg_del, "l", "e", nullptr},
                               {k_ucfg_add, "l", "x.y", nullptr},
                               {k_ucfg_move, "l", "m", "n"}};
    ucfg_batch *answer = nullptr;
    EXPECT_EQ(ucfg_submit(conn.get(), items, 4, &answer), k_ucfg_failed);
    owned<ucfg_batch, ucfg_destroy_batch> batch{answer};
    ASSERT_TRUE(batch);
    ASSERT_EQ(batch->count, 4U);
    EXPECT_EQ(batch->results[0].code, k_ucfg_ok);
    EXPECT_EQ(batch->results[1].code, k_ucfg_refused);
    EXPECT_STREQ(batch->results[1].text, "permission denied");
    EXPECT_STREQ(batch->results[2].id, "error.exists");
    EXPECT_STREQ(batch->results[2].args->items[0], "x");
    EXPECT_EQ(batch->results[3].code, k_ucfg_ok);
    const std::vector<std::string> sent{"u1.1 SET a.b two+words", "u1.2 DEL l e",
                                        "u1.3 ADD l x%2ey", "u1.4 MOVE l m n", "u1 SUBMIT"};
    EXPECT_EQ(daemon.seen(), sent);
}

TEST(Sessions, LoginSaysWhatItAsksForAndReadsWhatItGot) {
    fake_daemon daemon{[](const fake_request &r) {
        if (r.args != "ann p%2e+%25") return fake_reply{" NO auth failed"};
        return fake_reply{".1 PERMS read exec", ".1 SESSION 0123456789abcdef", " OK"};
    }};
    owned_conn conn = connect_to(daemon);
    ucfg_credentials with{"ann", "wrong", k_ucfg_perm_read | k_ucfg_perm_exec, 90, 1};
    EXPECT_EQ(ucfg_login(conn.get(), &with), k_ucfg_refused);
    EXPECT_STREQ(ucfg_session_id(conn.get()), "");
    with.password = "p. %";
    EXPECT_EQ(ucfg_login(conn.get(), &with), k_ucfg_ok);
    EXPECT_STREQ(ucfg_session_id(conn.get()), "0123456789abcdef");
    EXPECT_EQ(ucfg_perms(conn.get()), k_ucfg_perm_read | k_ucfg_perm_exec);
    EXPECT_EQ(daemon.seen()[3], "u2.1 perms read exec");
    EXPECT_EQ(daemon.seen()[4], "u2.2 timeout 90");
    EXPECT_EQ(daemon.seen()[5], "u2 LOGINFORCE ann p%2e+%25");
    with.user = "two words";
    EXPECT_EQ(ucfg_login(conn.get(), &with), k_ucfg_usage);
}

TEST(Sessions, ALostConnectionIsResumedByItsId) {
    bool hang_up = true;
    fake_daemon daemon{[&](const fake_request &r) {
        if (r.word == "LOGIN") return fake_reply{".1 PERMS read", ".1 SESSION 00ff", " OK"};
        if (r.word == "RESUME")
            return fake_reply{r.args == "00ff" ? " OK welcome back ann" : " NO invalid session id"};
        fake_reply reply{hang_up ? "!" + r.tag + ".1 ha" : ".1 whole"};
        reply.emplace_back(hang_up ? "!close" : " OK");
        hang_up = false;
        return reply;
    }};
    owned_conn conn = connect_to(daemon);
    ucfg_credentials with{"ann", nullptr, 0, 0, 0};
    ASSERT_EQ(ucfg_login(conn.get(), &with), k_ucfg_ok);
    EXPECT_EQ(get(conn.get(), "a"), "code lost");
    EXPECT_EQ(ucfg_alive(conn.get()), 0);
    EXPECT_EQ(get(conn.get(), "a"), "code lost");
    EXPECT_EQ(ucfg_reconnect(conn.get()), k_ucfg_ok);
    EXPECT_EQ(ucfg_resume(conn.get(), "beef"), k_ucfg_refused);
    EXPECT_EQ(ucfg_resume(conn.get(), nullptr), k_ucfg_ok);
    EXPECT_EQ(ucfg_perms(conn.get()), k_ucfg_perm_read);
    EXPECT_EQ(get(conn.get(), "a"), "whole");
}

TEST(Sessions, AReplyThatComesTooLateIsNotTakenForTheNextOne) {
    std::string late;
    fake_daemon daemon{[&](const fake_request &r) {
        if (late.empty()) {
            late = "!" + r.tag + ".1 " + std::string(16380, 'l') + "\n" + r.tag + " OK\n";
            return fake_reply{};
        }
        return fake_reply{late, ".1 right", " OK"};
    }};
    owned_conn conn = connect_to(daemon);
    ucfg_set_timeout(conn.get(), 50);
    EXPECT_EQ(get(conn.get(), "a"), "code timeout");
    ucfg_set_timeout(conn.get(), 5000);
    EXPECT_EQ(get(conn.get(), "b"), "right");
    volatile sig_atomic_t flag = 1;
    ucfg_set_interrupt(conn.get(), &flag);
    EXPECT_EQ(get(conn.get(), "b"), "code interrupted");
}

TEST(Queries, ManyValuesComeInOrderAndMayBeCutShort) {
    fake_daemon daemon{[](const fake_request &r) {
        if (r.args.ends_with("7")) return fake_reply{" ERR none"};
        return fake_reply{".1 v" + r.args, " OK"};
    }};
    owned_conn conn = connect_to(daemon);
    std::vector<std::string> names;
    std::vector<const char *> paths;
    for (int i = 0; i < 1000; i++)
        names.push_back("p" + std::to_string(i));
    names[500] = "not a path";
    for (const std::string &name : names)
        paths.push_back(name.c_str());
    struct collected {
        std::vector<std::string> values;
        size_t stop = 1000;
    } result;
    auto take = [](size_t index, const char *value, int, void *data) {
        auto *into = static_cast<collected *>(data);
        EXPECT_EQ(index, into->values.size());
        into->values.emplace_back(value ? value : "-");
        return into->values.size() == into->stop ? 1 : 0;
    };
    EXPECT_EQ(ucfg_get_many(conn.get(), paths.data(), 1000, take, &result), k_ucfg_ok);
    ASSERT_EQ(result.values.size(), 1000U);
    EXPECT_EQ(result.values[999], "vp999");
    EXPECT_EQ(result.values[17], "-");
    EXPECT_EQ(result.values[500], "-");
    result = {{}, 5};
    EXPECT_EQ(ucfg_get_many(conn.get(), paths.data(), 1000, take, &result), k_ucfg_ok);
    EXPECT_EQ(result.values.size(), 5U);
    EXPECT_EQ(get(conn.get(), "next"), "vnext");
}

TEST(Queries, WhatLostItsEndIsNotTakenForTheWhole) {
    fake_daemon daemon{[](const fake_request &r) {
        const std::string_view full = r.args == "fits" ? "" : "x";
        return fake_reply{".1 " + std::string(16382 - r.tag.size() - 4, 'v').append(full), " OK"};
    }};
    owned_conn conn = connect_to(daemon);
    char *text = nullptr;
    EXPECT_EQ(ucfg_info(conn.get(), "fits", nullptr, 0, &text), k_ucfg_ok);
    const owned_str whole{text};
    for (const auto &ask : {ucfg_get, ucfg_help})
        EXPECT_EQ(ask(conn.get(), "cut", &text), k_ucfg_too_long);
    EXPECT_EQ(ucfg_info(conn.get(), "cut", nullptr, 0, &text), k_ucfg_too_long);
    const char *path = "cut";
    int code = k_ucfg_ok;
    auto take = [](size_t, const char *value, int told, void *data) {
        *static_cast<int *>(data) = value ? k_ucfg_ok : told;
        return 0;
    };
    EXPECT_EQ(ucfg_get_many(conn.get(), &path, 1, take, &code), k_ucfg_ok);
    EXPECT_EQ(code, k_ucfg_too_long);
}

TEST(Queries, AnActionsOutputKeepsItsEmptyLinesButNotTheOnesThatEndIt) {
    fake_daemon daemon{[](const fake_request &) {
        return fake_reply{".1 one", ".2 warning", ".1 ", ".1 two", ".1 ", ".2 ", " ERR"};
    }};
    owned_conn conn = connect_to(daemon);
    std::string output;
    auto take = [](int stream, const char *text, void *data) {
        *static_cast<std::string *>(data) += std::to_string(stream) + text + ";";
    };
    EXPECT_EQ(ucfg_admin(conn.get(), "a", nullptr, 0, take, &output), k_ucfg_failed);
    EXPECT_EQ(output, "1one;2warning;1;1two;");
}

TEST(HostilePeers, NothingTheySendIsTakenWithoutBound) {
    std::string long_line = "!" + std::string(70000, 'x');
    std::string many_lines = "!";
    for (int i = 0; i < 3000; i++)
        many_lines += "stranger.1 line\n";
    std::string attack;
    fake_daemon daemon{[&](const fake_request &) { return fake_reply{attack, "!close"}; }};
    for (const auto &[text, expected] :
         std::vector<std::pair<std::string, int>>{{long_line, k_ucfg_protocol},
                                                  {long_line + "\n", k_ucfg_protocol},
                                                  {many_lines, k_ucfg_protocol},
                                                  {std::string("!u1\0 OK\n\0\n", 10), k_ucfg_lost},
                                                  {"!u1.1 half a line", k_ucfg_lost},
                                                  {"!u1.", k_ucfg_lost}}) {
        attack = text;
        owned_conn conn = connect_to(daemon);
        ucfg_set_reply_limit(conn.get(), 20000);
        EXPECT_EQ(ucfg_noop(conn.get()), expected) << text.substr(0, 20);
        EXPECT_EQ(ucfg_fd(conn.get()), -1);
    }
}

TEST(Paths, WhatIsTypedBecomesAWirePathAndBack) {
    struct row {
        const char *typed, *path, *printed;
    };
    const row rows[] = {
        {"a.b", "a.b", "a.b"},
        {"hosts.\"my.host\".ip", "hosts.my%2ehost.ip", "hosts.\"my.host\".ip"},
        {"hosts.my\\.host", "hosts.my%2ehost", "hosts.\"my.host\""},
        {"'a b'.c", "a+b.c", "\"a b\".c"},
        {R"("q\"\\\x09".%2e)", "q\"\\%09.%252e", R"("q\"\\\t".%2e)"},
        {"", "", ""},
    };
    for (const row &r : rows) {
        EXPECT_EQ(taken(ucfg_path_parse(r.typed, nullptr)), r.path);
        EXPECT_EQ(taken(ucfg_path_print(r.path)), r.printed);
    }
    for (const char *wrong : {"a..b", ".a", "a.", "\"a", "''", R"("\x00")"}) {
        const char *problem = nullptr;
        EXPECT_EQ(ucfg_path_parse(wrong, &problem), nullptr) << wrong;
        EXPECT_NE(problem, nullptr);
    }
}

TEST(Paths, AnyComponentSurvivesBeingPrintedAndTypedAgain) {
    std::mt19937 random{11};
    for (int i = 0; i < 2000; i++) {
        std::string name;
        do
            name += static_cast<char>(1 + random() % 255);
        while (random() % 6 != 0);
        std::string path = taken(ucfg_path_append("top", name.c_str()));
        std::string typed = taken(ucfg_path_print(path.c_str()));
        EXPECT_EQ(taken(ucfg_path_parse(typed.c_str(), nullptr)), path) << typed;
    }
}

}  // namespace
