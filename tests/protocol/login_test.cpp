#include <crypt.h>
#include <grp.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <thread>

#include "daemon_fixture.h"

/* Who gets in and with which rights, and what becomes of sessions afterwards. */

namespace {

/* Longer than the second after which a session without patience has timed out. */
void let_a_second_pass() {
    std::this_thread::sleep_for(std::chrono::milliseconds{1100});
}

class Login : public daemon_test {
  protected:
    /* Accounts, users and groups of the tests; "x" has a passwd entry whose password is elsewhere.
     */
    void start_with(std::string_view methods, const std::vector<std::string> &arguments = {}) {
        crypt_data data{};
        const std::string hash = crypt_r("opensesame", "$6$salt$", &data);
        put("/accounts/passwd", "root:*:0:0::/:/bin/sh\nann:" + hash +
                                    ":1001:2001::/:/bin/sh\nbob:x:1002:2002::/:/bin/sh\n"
                                    "eve:*:1003:2003::/:/bin/sh\nlost:x:1004:9999::/:/bin/sh\n");
        put("/accounts/group", "root:x:0:\nadm:x:2001:bob,root\nops:x:2002:ann\n");
        put("/accounts/shadow", "bob:" + hash + ":19000:0:99999:7:::\neve:*:19000:0:99999:7:::\n");
        put("/accounts/pam.db", "ann:pamword:ucfgd\nbob:pamword:other\n");
        const std::string module = PAM_MATRIX " passdb=" + path("/accounts/pam.db") + "\n";
        put("/accounts/pam.d/ucfgd",
            "auth required " + module +
                "account optional pam_echo.so Ask the boss of %u\naccount required " + module +
                "session required " + module);
        environment = wrapped_accounts(path("/accounts"));
        configure(methods,
                  "%default {\n access: r\n}\nroot {\n access: wx\n}\n"
                  "bob {\n access: x\n}\n.hlxaaa {\n access: w\n}\n",
                  "groups {\n adm {\n  access: w\n }\n}\nlimits {\n login-delay: 0\n}\n");
        start(arguments);
    }

    /* One request on a connection of its own. */
    std::string try_login(std::string_view words) const {
        return connect().login("l LOGIN " + std::string{words});
    }

    /* The AAA store's program, where the daemon's store is. */
    std::string hlxsession(std::vector<std::string> words) const {
        words.insert(words.begin(), HLXSESSION);
        std::string text = run_program(words).out;
        return text.substr(0, text.find('\n'));
    }
};

constexpr char k_refused[] = "l NO auth failed\n";
constexpr char k_reader[] = "l.1 PERMS read\nl OK\n";

TEST_F(Login, ByPeerCredentialsIsForTheAccountOfThePeer) {
    start_with("authtype: usercred\n");
    EXPECT_EQ(try_login("root nonsense"), "l.1 PERMS read write exec\nl OK\n");
    EXPECT_EQ(try_login("bob"), k_refused);
    EXPECT_EQ(try_login("nobody-at-all"), k_refused);
    EXPECT_TRUE(logged("no passwd entry for user nobody-at-all\n"));
    EXPECT_TRUE(logged("auth for user bob failed\n"));
    EXPECT_EQ(try_login("lost"), k_refused);
    EXPECT_TRUE(logged("group with gid=9999 not found\n"));
}

TEST_F(Login, CountsAllMembersOfAGroupThatAsksForIt) {
    start_with("authtype: usercred\nauthtype: shadow\n");
    stop();
    configure("authtype: usercred\nauthtype: shadow\n", "root {\n access: r\n}\n",
              "groups {\n adm {\n  access: w\n  members: all\n }\n"
              " ops {\n  access: x\n  members: all\n }\n}\nlimits {\n login-delay: 0\n}\n");
    start();
    /* The groups of the process count, not those that the database has for its account. */
    const gid_t ops = 2002;
    ASSERT_EQ(setgroups(1, &ops), 0);
    EXPECT_EQ(try_login("root"), "l.1 PERMS read exec\nl OK\n");
    ASSERT_EQ(setgroups(0, nullptr), 0);
    EXPECT_EQ(try_login("root"), k_reader);
    EXPECT_EQ(connect().ask("l LOGINFORCE root"), "l NO you do not have write permission\n");
    EXPECT_EQ(try_login("bob opensesame"), "l.1 PERMS write exec\nl OK\n");
}

TEST_F(Login, ByPasswdAndShadowComparesHashes) {
    start_with("authtype: passwd\nauthtype: shadow\n");
    EXPECT_EQ(try_login("ann opensesame"), "l.1 PERMS read write\nl OK\n");
    EXPECT_EQ(try_login("ann wrong"), k_refused);
    EXPECT_EQ(try_login("ann"), k_refused);
    EXPECT_EQ(try_login("bob open%73esame"), "l.1 PERMS read exec\nl OK\n");
    EXPECT_EQ(try_login("bob x"), k_refused);
    EXPECT_EQ(try_login("eve *"), k_refused);
    EXPECT_EQ(try_login("eve"), k_refused);
}

TEST_F(Login, TakesAsLongForANameThatDoesNotExist) {
    start_with("authtype: passwd\nauthtype: shadow\n");
    crypt_data data{};
    put("/accounts/shadow", std::string{"eve:*:::::::\nbob:"} +
                                crypt_r("opensesame", "$6$rounds=60000$salt$", &data) +
                                ":::::::\n");
    /* In the daemon's own time, which does not depend on what else runs on the machine. */
    clockid_t clock{};
    ASSERT_EQ(clock_getcpuclockid(pid(), &clock), 0);
    const auto used = [&] {
        timespec time{};
        EXPECT_EQ(clock_gettime(clock, &time), 0);
        return time.tv_sec * 1'000'000'000LL + time.tv_nsec;
    };
    const auto shortest = [&](const char *words) {
        long long least = LLONG_MAX;
        for (int i = 0; i < 3; i++) {
            client c = connect();
            const long long before = used();
            EXPECT_EQ(c.ask(std::string{"l LOGIN "} + words), k_refused);
            least = std::min(least, used() - before);
        }
        return least;
    };
    const auto known = shortest("bob wrong");
    EXPECT_GT(shortest("nobody wrong") * 4, known);
    EXPECT_GT(shortest("eve wrong") * 4, known);
}

TEST_F(Login, OfARefusedPeerWaitsAndNobodyElseDoes) {
    configure("", "root {\n access: rwx\n}\n");
    start();
    client ordinary = logged_in();
    client c = connect();
    EXPECT_EQ(c.ask("l LOGIN bin"), k_refused);
    client other = connect();
    other.send("l LOGIN root\na GET name\n");
    c.send("l LOGIN bin\nb NOOP\n");
    EXPECT_EQ(ordinary.ask("a GET name"), "a.1 alpha\na OK\n");
    EXPECT_TRUE(other.silent_for(500));
    EXPECT_TRUE(c.silent_for(0));
    EXPECT_TRUE(other.reply("l").ends_with("l OK\n"));
    EXPECT_EQ(other.reply("a"), "a.1 alpha\na OK\n");
    EXPECT_EQ(c.reply("b"), "l NO auth failed\nb OK\n");
}

TEST_F(Login, EndsTheConnectionWhenItIsRefusedTooOftenAndToldInSum) {
    start_with("authtype: shadow\n");
    crypt_data data{};
    /* It takes longer than a turn, so the log-ins behind it wait in two lines. */
    const std::string slow = crypt_r("opensesame", "$6$rounds=60000$salt$", &data);
    put("/accounts/shadow", "bob:" + slow + ":19000:0:99999:7:::\n");
    for (int i = 0; i < 2; i++) {
        client c = connect();
        std::string all =
            c.ask("a LOGIN bob x\nb LOGIN bob y\nc LOGIN bob\nd LOGIN nobody x\ne LOGIN bob");
        EXPECT_EQ(all,
                  "a NO auth failed\nb NO auth failed\nc NO auth failed\nd NO auth failed\n"
                  "e NO auth failed\n");
        EXPECT_EQ(c.line(), "<closed>");
    }
    stop();
    EXPECT_TRUE(logged("Warning: limit login-refusals: 5: closing a connection on listen/local\n"));
    EXPECT_TRUE(logged("\nauth for user bob failed, repeated 5 times\n"));
    const std::string events = file("/var/log/tavevent.jsonl");
    EXPECT_EQ(std::count(events.begin(), events.end(), '\n'), 6) << events;
    EXPECT_TRUE(events.ends_with("\"event\": 4, \"args\": [\"bob\", 5]}\n")) << events;
}

TEST_F(Login, ByPamAsksItsServiceAndPassesItsWordsOn) {
    start_with("authtype: pam\n");
    EXPECT_EQ(try_login("ann pamword"), "l.1 PERMS read write\nl OK\n");
    EXPECT_EQ(try_login("ann wrong"), k_refused);
    EXPECT_TRUE(logged("pam_authenticate() failed: Authentication failure\n"));
    EXPECT_EQ(try_login("bob pamword"), "l NO Ask the boss of bob\n");
    EXPECT_TRUE(logged("pam_acct_mgmt() failed: "));
    EXPECT_EQ(try_login("nobody x"), k_refused);
}

TEST_F(Login, TriesTheMethodsInTheirOrder) {
    start_with("authtype: passwd\nauthtype: sorcery\nauthtype: debug\nauthtype: usercred\n");
    EXPECT_EQ(try_login("root wrong"), "l.1 PERMS read write exec\nl OK\n");
    EXPECT_TRUE(logged("unknown authtype sorcery\n"));
    EXPECT_EQ(try_login("eve eve"), k_reader);
    EXPECT_EQ(try_login("eve adam"), k_refused);
    EXPECT_EQ(try_login("ann opensesame"), "l.1 PERMS read write\nl OK\n");
}

TEST_F(Login, AForcedLoginEndsEveryOtherWriter) {
    start_with("authtype: usercred\nauthtype: debug\n");
    client writer = logged_in();
    client suspended = logged_in("l LOGIN ann ann");
    client reader = logged_in("l.1 perms read\nl LOGIN root");
    suspended.close();
    client c = connect();
    EXPECT_EQ(c.ask("l LOGINFORCE bob wrong"), "l NO you do not have write permission\n");
    EXPECT_EQ(c.ask("l LOGINFORCE ann wrong"), k_refused);
    EXPECT_EQ(writer.ask("a SET name beta"), "a OK\n");
    EXPECT_EQ(c.login("l LOGINFORCE ann ann"), "l.1 PERMS read write\nl OK\n");
    EXPECT_EQ(writer.ask("a GET name"), "a INUSE you have been logged out\n");
    EXPECT_EQ(writer.line(), "<closed>");
    EXPECT_EQ(reader.ask("a GET name"), "a.1 alpha\na OK\n");
    EXPECT_EQ(connect().ask("r RESUME " + suspended.session()), "r NO logged out\n");
    EXPECT_EQ(c.ask("a DIRTY"), "a.dirty 0\na OK\n");
    std::string events = file("/var/log/tavevent.jsonl");
    EXPECT_NE(events.find("\"ann\""), std::string::npos) << events;
}

TEST_F(Login, ALostSessionIsResumedWithItsChangesAndRights) {
    start();
    client lost = logged_in("l.1 perms read write\nl LOGIN root");
    client c = connect();
    EXPECT_EQ(c.ask("r RESUME"), "r NO invalid session id\n");
    EXPECT_EQ(c.ask("r RESUME 0123456789abcdef"), "r NO invalid session id\n");
    EXPECT_EQ(c.ask("r RESUME " + lost.session()), "r INUSE not suspended\n");
    EXPECT_EQ(lost.ask("a SET name beta"), "a OK\n");
    lost.close();
    EXPECT_TRUE(eventually([this] { return logged("client closed connection"); }));
    EXPECT_EQ(c.ask("r RESUME " + lost.session()), "r OK welcome back root\n");
    EXPECT_TRUE(logged("user root resumed session\n"));
    EXPECT_EQ(c.ask("a GET name"), "a.1 beta\na OK\n");
    EXPECT_EQ(c.ask("a ADMIN x"), "a NO permission denied\n");
    EXPECT_EQ(connect().ask("r RESUME " + lost.session()), "r INUSE not suspended\n");
    EXPECT_EQ(c.ask("a COMMIT"), "a OK\n");
    EXPECT_EQ(c.ask("a LOGOUT"), "a OK\n");
    EXPECT_EQ(c.line(), "<closed>");
    EXPECT_EQ(connect().ask("r RESUME " + lost.session()), "r NO invalid session id\n");
}

TEST_F(Login, WithAnAaaSessionTakesItsIdentifier) {
    append("/etc/ucfgd/management.conf", "sid {\n info: $hlxaaa_sid\n}\n");
    append("/etc/ucfgd/param.conf",
           "sid {\n access: $hlxaaa_sid != '' || $perm == 'w'\n get: '1'\n}\n");
    configure("authtype: hlxaaa\nauthtype: usercred\n",
              ".hlxaaa {\n access: rwx\n}\nroot {\n access: rwx\n}\n");
    start();
    const std::string good = hlxsession({"create", "--user", "ann"});
    ASSERT_EQ(good.size(), 32U);
    client c = connect();
    EXPECT_EQ(c.login("l.1 timeout 0\nl LOGIN .HLXaaa " + good), "l.1 PERMS none\nl OK\n");
    client d = logged_in("l.1 timeout 0\nl LOGIN .hlxaaa " + good);
    EXPECT_TRUE(logged("ACL Inititalization Failed\n"));
    EXPECT_EQ(d.ask("a INFO sid"), "a.1 " + good + "\na OK\n");
    EXPECT_EQ(d.ask("a GET sid"), "a.1 1\na OK\n");
    EXPECT_EQ(logged_in().ask("a GET sid"), "a NO permission denied\n");
    let_a_second_pass();
    EXPECT_EQ(d.ask("a NOOP"), "a OK\n");
    /* A session that the store has forgotten loses its identifier, not its life. */
    client e = logged_in("l LOGIN .hlxaaa " + good);
    EXPECT_EQ(hlxsession({"revoke", good}), "");
    EXPECT_EQ(e.ask("a GET sid"), "a NO permission denied\n");
    const std::vector<std::string> k_bad = {
        good,
        hlxsession({"create", "--flags", "4"}),
        hlxsession({"create", "--expires", "0"}),
        "0123456789abcdef0123456789abcdef",
        "short",
        std::string(255, 'a'),
        "",
    };
    for (const std::string &sid : k_bad)
        EXPECT_EQ(connect().login("l LOGIN .hlxaaa " + sid), k_refused) << sid;
    EXPECT_EQ(try_login("ann " + hlxsession({"create"})), k_refused);
}

}  // namespace
