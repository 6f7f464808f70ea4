#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "daemon_fixture.h"

/* Clients that are slow, many, broken or malicious, and actions that misbehave: whatever they do,
 * everybody else is served and the daemon stays as it was. */

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr std::string_view k_management = R"(
slow {
    admin: system('echo one; sleep 0.5; echo two >&2; sleep 0.3; echo three')
}
hold {
    admin: system('sleep 30 & echo started')
}
babble {
    admin: system('yes & echo started')
}
flood {
    admin: system('head -c 3000000 /dev/zero | tr "\\0" "x" | fold -w 100')
}
files {
    admin: system('ulimit -Sn')
}
crash {
    admin: system('echo gone; kill -9 $PPID')
}
hang {
    info: foreach('i', range(1, 9), default(system('echo asked; sleep 60'), '')) .. system('sleep 60')
    admin: system('sleep 2; echo done')
}
)";

/* A long request with a long reply, and no process that would wake the daemon by its end. */
const std::string k_big =
    "big {\n get: seq(foreach('i', range(1, 100), foreach('j', range(1, 400), $i * $j)), '" +
    std::string(12000, 'x') + "')\n}\nlong {\n get: '" + std::string(12000, 'x') +
    "'\n}\nlazy {\n get: system('sleep 0.03') || '1'\n}\n";

class Hostile : public daemon_test {
  protected:
    void prepare() override {
        append("/etc/ucfgd/management.conf", k_management);
        append("/etc/ucfgd/ucfgd.conf", "limits {\n command-time: 1\n farewell-time: 1\n}\n");
        append("/etc/ucfgd/param.conf", k_big);
        start();
        a = logged_in();
    }

    /* The daemon serves those who were there and those who come, and quickly. */
    void expect_service() {
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(a.ask("alive GET name"), "alive.1 alpha\nalive OK\n");
        client fresh = logged_in();
        EXPECT_EQ(fresh.ask("alive GET level"), "alive.1 5\nalive OK\n");
        EXPECT_EQ(fresh.ask("bye LOGOUT"), "bye OK\n");
        EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s);
        EXPECT_EQ(file("/etc/box.conf"), "# the box\nname = alpha\nlevel = 5\n");
    }

    size_t descriptors() const {
        const fs::directory_iterator all{"/proc/" + std::to_string(pid()) + "/fd"};
        return static_cast<size_t>(std::distance(begin(all), end(all)));
    }

    long resident_kib() const {
        std::ifstream statm{"/proc/" + std::to_string(pid()) + "/statm"};
        long size = 0;
        long resident = 0;
        statm >> size >> resident;
        return resident * sysconf(_SC_PAGESIZE) / 1024;
    }

    /* The sanitizer keeps what is freed. */
    bool grew_below(long kib, long before) const {
#ifndef __SANITIZE_ADDRESS__
        return resident_kib() - before < kib;
#else
        return resident_kib() + kib != before;
#endif
    }
    void expect_growth_below(long kib, long before) const {
        EXPECT_TRUE(grew_below(kib, before)) << before << " to " << resident_kib();
    }

    /* Processor time of the daemon, in seconds. */
    double used() const {
        clockid_t clock{};
        timespec time{};
        clock_getcpuclockid(pid(), &clock);
        clock_gettime(clock, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
    }

    client a;
};

class HostileInBackground : public Hostile {
  protected:
    void prepare() override {
        in_background = true;
        Hostile::prepare();
    }
};

/* Sends until the daemon takes no more for a while; how many bytes it took. */
size_t stuff(const client &c, std::string_view request) {
    std::string many;
    while (many.size() < 1U << 20)
        many += request;
    many.resize(many.size() / request.size() * request.size());
    size_t total = 0;
    for (auto last = std::chrono::steady_clock::now();
         std::chrono::steady_clock::now() - last < 100ms && total < 64U << 20;) {
        const size_t at = total % many.size();
        const ssize_t sent =
            send(c.fd(), many.data() + at, many.size() - at, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            total += static_cast<size_t>(sent);
            last = std::chrono::steady_clock::now();
        } else {
            std::this_thread::sleep_for(1ms);
        }
    }
    return total;
}

TEST_F(Hostile, AClientThatNeverReadsHoldsUpNobodyAndLosesNothing) {
    client c = logged_in();
    const long before = resident_kib();
    const std::string request = "t LISTR" + std::string(92, ' ') + '\n';
    const size_t taken = stuff(c, request);
    EXPECT_LT(taken, 16U << 20);
    expect_service();
    expect_growth_below(8192, before);
    const double start_time = used();
    std::this_thread::sleep_for(100ms);
    EXPECT_LT(used() - start_time, 0.05);
    /* Once it reads, every request that got through has its whole reply. */
    const std::string expected = a.ask("t LISTR");
    for (size_t i = 0; i < taken / request.size(); i++)
        ASSERT_EQ(c.reply("t"), expected) << i;
    if (taken % request.size() != 0) c.send("\n");
    c.send("u NOOP\n");
    EXPECT_TRUE(c.reply("u").ends_with("u OK\n"));
}

TEST_F(Hostile, APipeliningClientThatReadsLastIsServedToItsEnd) {
    client c = logged_in();
    const int small = 4096;
    const timeval patience{30, 0};
    setsockopt(c.fd(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    setsockopt(c.fd(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    std::string requests;
    for (int i = 0; i < 40; i++)
        requests += "b GET big\n";
    for (int i = 0; i < 400; i++)
        requests += "n NOOP" + std::string(90, ' ') + '\n';
    EXPECT_TRUE(c.send(requests + "end NOOP\n")) << "the daemon reads no more";
    EXPECT_EQ(c.reply("end").size(), 40 * 12'010U + 400 * 5U + 7U);
}

TEST_F(Hostile, AShortRequestComesInBetweenACrowdOfLongOnes) {
    std::vector<client> crowd(30);
    for (client &c : crowd)
        c = logged_in();
    auto answered = [&] {
        long ready = 0;
        for (client &c : crowd) {
            pollfd reply{c.fd(), POLLIN, 0};
            ready += poll(&reply, 1, 0);
        }
        return ready;
    };
    for (int round = 0; round < 2; round++) {
        for (client &c : crowd)
            c.send("b GET big\n");
        a.send("x GET name\n");
        EXPECT_EQ(a.reply("x"), "x.1 alpha\nx OK\n");
        EXPECT_LT(answered(), std::ssize(crowd)) << "everybody else came first";
        for (client &c : crowd)
            EXPECT_TRUE(c.reply("b").ends_with("b OK\n"));
    }
}

TEST_F(Hostile, TwoThousandClientsAtOnceLeaveTheFirstServedAndTheNextWelcome) {
    const size_t before = descriptors();
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(a.ask("x ADMIN files"),
              "x.1 " + std::to_string(limit.rlim_cur) + "\nx.1 \nx.2 \nx OK\n");
    limit = {4096, 4096};
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) GTEST_SKIP() << "too few descriptors here";
    std::vector<client> crowd(2000);
    for (client &c : crowd)
        c = connect();
    EXPECT_EQ(a.ask("x GET name"), "x.1 alpha\nx OK\n");
    EXPECT_EQ(crowd[0].ask("x NOOP"), "<closed>") << "the oldest that never logged in";
    EXPECT_EQ(crowd[1700].login(), "l.1 PERMS read write exec\nl OK\n");
    EXPECT_EQ(crowd[1700].ask("x GET name"), "x.1 alpha\nx OK\n");
    EXPECT_TRUE(logged("limit connections-per-user: 750: closing an idle connection on listen/"));
    EXPECT_EQ(crowd[1700].ask("y LOGOUT"), "y OK\n");
    /* Room for a child's pipes is left, too. */
    EXPECT_EQ(a.ask("x ADMIN crash"), "x.1 gone\nx.1 \nx.2 \nx OK\n");
    crowd.clear();
    EXPECT_TRUE(eventually([&] { return descriptors() == before; })) << descriptors();
    expect_service();
}

TEST_F(Hostile, ACrowdOnOneListenerKeepsNobodyFromAnotherAndMustLogInInTime) {
    stop();
    put("/etc/ucfgd/ucfgd.conf",
        "limits {\n connections: 20\n connections-reserved: 4\n login-time: 1\n}\n"
        "users {\n root {\n  access: rwx\n }\n}\n"
        "listen {\n local {\n  type: unix\n  authtype: usercred\n }\n"
        " open {\n  type: unix\n  path: /dev/open\n  mode: 0666\n  authtype: usercred\n }\n}\n");
    start();
    std::vector<client> busy(15);
    for (client &c : busy) {
        c = connect("/dev/open");
        EXPECT_TRUE(c.login().ends_with("l OK\n"));
    }
    std::vector<client> idle(10);
    for (client &c : idle)
        c = connect("/dev/open");
    EXPECT_EQ(idle.front().line(), "<closed>") << "there is one place left for all of them";
    EXPECT_EQ(idle.back().ask("x NOOP"), "x OK\n");
    EXPECT_TRUE(idle.back().login().ends_with("l OK\n"));
    EXPECT_EQ(connect("/dev/open").line(), "<closed>") << "everybody there has logged in";
    std::vector<client> kept(4);
    for (client &c : kept)
        c = connect();
    EXPECT_EQ(kept[0].ask("x NOOP"), "x OK\n");
    EXPECT_TRUE(kept[1].login().ends_with("l OK\n"));
    EXPECT_EQ(kept[0].line(), "<closed>") << "though nobody else did anything";
    EXPECT_EQ(kept[1].ask("x GET name"), "x.1 alpha\nx OK\n");
    EXPECT_TRUE(logged("closing a connection on listen/local that never logged in"));
}

TEST_F(Hostile, WithoutDescriptorsNewClientsWaitForTheNextTry) {
    rlimit usual{};
    ASSERT_EQ(prlimit(pid(), RLIMIT_NOFILE, nullptr, &usual), 0);
    const rlimit few{3, usual.rlim_max};
    ASSERT_EQ(prlimit(pid(), RLIMIT_NOFILE, &few, nullptr), 0);
    client waiting = connect();
    EXPECT_TRUE(eventually([this] { return logged("accept: Too many open files, listener"); }));
    EXPECT_EQ(a.ask("x GET name"), "x.1 alpha\nx OK\n");
    const double before = used();
    EXPECT_TRUE(waiting.silent_for(200));
    EXPECT_LT(used() - before, 0.1);
    ASSERT_EQ(prlimit(pid(), RLIMIT_NOFILE, &usual, nullptr), 0);
    EXPECT_EQ(waiting.ask("x NOOP"), "x OK\n");
    waiting.close();
    expect_service();
}

TEST_F(Hostile, AStopBeginsNothingThatWaits) {
    a.send("b GET big\nb GET big\nx ADMIN hold\n");
    std::this_thread::sleep_for(5ms);
    const auto begin = std::chrono::steady_clock::now();
    stop();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 3s);
    EXPECT_FALSE(logged("hold")) << log();
}

TEST_F(Hostile, AClientMayEndItsInputFirstOrNotListenAtAll) {
    const size_t before = descriptors();
    client half = connect();
    half.send("l LOGIN root\nx GET name\ny LOGOUT\n");
    shutdown(half.fd(), SHUT_WR);
    EXPECT_TRUE(half.reply("l").ends_with("l OK\n"));
    EXPECT_EQ(half.reply("y"), "x.1 alpha\nx OK\ny OK\n");
    EXPECT_EQ(half.line(), "<closed>");
    half = connect();
    half.send("l LOGIN root\na GET lazy\nb GET lazy\nc GET lazy\n");
    shutdown(half.fd(), SHUT_WR);
    EXPECT_TRUE(half.reply("c").ends_with("c.1 1\nc OK\n"));
    for (int i = 0; i < 50; i++) {
        client deaf = connect();
        shutdown(deaf.fd(), SHUT_RD);
        deaf.send("l LOGIN root\nx LISTR\ny INFO a\n");
    }
    half.close();
    /* What the socket has not taken by then still comes, but does not wait for ever. */
    std::string requests = "l LOGIN root\n";
    for (int i = 0; i < 60; i++)
        requests += "t GET long\n";
    for (const std::string_view last : {"u NOOP\n", "u LOGOUT\n"}) {
        client late = connect();
        client never = connect();
        for (const client *c : {&late, &never}) {
            c->send(requests + std::string{last});
            shutdown(c->fd(), SHUT_WR);
        }
        std::this_thread::sleep_for(200ms);
        EXPECT_TRUE(late.reply("l").ends_with("l OK\n"));
        EXPECT_EQ(late.reply("u").size(), 60 * 12'010U + 5U);
        EXPECT_TRUE(eventually([&] { return logged("limit farewell-time: 1: closing"); }));
    }
    expect_service();
    EXPECT_TRUE(eventually([&] { return descriptors() == before; })) << descriptors();
}

TEST_F(HostileInBackground, RandomBytesAreAnsweredOrCutOffAndNothingElse) {
    std::mt19937 random{20240601};
    const std::vector<std::string> words{
        "GET ",    "SET ",   "SUBMIT", "ADD ", "DEL ",  "MOVE ", "LISTR ", "ATTR ",  "ACCESS ",
        "RESUME ", "LOGIN ", "HELP ",  "name", "level", "hosts", ".*",     "%",      "%2e",
        "%zz",     "a.1 ",   "a ",     "a.",   "\n",    "\n",    "\n",     "\\",     "'",
        "INFO ",   "DIRTY",  "REVERT", "..",   " ",     " ",     "\xff",   "UPDATE", "CURRENT"};
    for (int i = 0; i < 120; i++) {
        client c = i % 2 == 0 ? connect() : logged_in();
        std::string bytes;
        while (bytes.size() < 4000) {
            if (i % 4 < 2) {
                bytes += static_cast<char>(random());
            } else {
                bytes += words[random() % words.size()];
            }
        }
        c.send(bytes);
        c.send("\nend NOOP\n");
        /* The last line may meet an end of the session, or lines of another tag. */
        std::string line;
        while (line != "end OK\n" && line != "end BAD id unexpected\n" && line.back() != '>')
            line = c.line();
        EXPECT_NE(line, "<silent>") << i;
    }
    expect_service();
}

TEST_F(HostileInBackground, ClientsThatDieInMidCommandLeaveNothingBehind) {
    const size_t before = descriptors();
    const std::vector<std::string> beginnings{
        "a GE",
        "a.1 SET name beta\n",
        "l.1 perms read\nl LOGIN ro",
        "l LOGIN root\na.1 SET name beta\na.2 ADD hosts 9%2e9%2e9%2e9\n",
        "l LOGIN root\na SET name beta\na SET lev",
        "l LOGIN root\na ADMIN slow\n",
        "l LOGIN root\na ADMIN flood\n",
        "l LOGIN root\na COMMIT\n",
        "l LOGIN root\na LISTR\nb LISTR\nc LOGOUT\nd",
    };
    for (int i = 0; i < 5; i++) {
        for (const std::string &beginning : beginnings) {
            client c = connect();
            c.send(beginning);
            if (i % 2 == 0) std::this_thread::sleep_for(2ms);
        }
    }
    EXPECT_TRUE(eventually([&] { return descriptors() == before && child() == 0; }))
        << descriptors();
    client fresh = logged_in();
    EXPECT_EQ(fresh.ask("x GET name"), "x.1 alpha\nx OK\n");
    a.ask("x UPDATE");
    expect_service();
}

TEST_F(HostileInBackground, AnActionThatLeavesAProcessBehindEndsAllTheSame) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(a.ask("x ADMIN hold"), "x.1 started\nx.1 \nx.2 \nx OK\n");
    EXPECT_TRUE(a.ask("x ADMIN babble").ends_with("\nx.2 \nx OK\n"));
    EXPECT_EQ(a.ask("x ADMIN crash"), "x.1 gone\nx.1 \nx.2 \nx OK\n");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 20s);
    expect_service();
}

TEST_F(Hostile, ACommandThatHangsInAMethodIsEndedAndOneOfAnActionIsNot) {
    client b = logged_in();
    ASSERT_TRUE(b.send("1 INFO hang\n"));
    ASSERT_TRUE(eventually([&] { return logged("asked"); }));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(a.ask("2 GET name"), "2.1 alpha\n2 OK\n");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 3s);
    EXPECT_TRUE(b.reply("1").starts_with("1 ERR "));
    EXPECT_TRUE(logged("limit command-time: 1: command 'echo asked; sleep 60' is ended"));
    EXPECT_EQ(b.ask("3 ADMIN hang"), "3.1 done\n3.1 \n3.2 \n3 OK\n");
}

TEST_F(HostileInBackground, MuchOutputOfAnActionWaitsForItsReaderInBoundedMemory) {
    const long before = resident_kib();
    a.send("x ADMIN flood\n");
    EXPECT_EQ(a.line(), "x.1 " + std::string(100, 'x') + "\n");
    std::this_thread::sleep_for(100ms);
    expect_growth_below(8192, before);
    EXPECT_EQ(logged_in().ask("1 GET name"), "1.1 alpha\n1 OK\n");
    const std::string rest = a.reply("x");
    EXPECT_EQ(rest.size(), 29'999U * 105U + 10U);
    EXPECT_TRUE(rest.ends_with("x\nx.2 \nx OK\n"));
}

TEST_F(Hostile, ASessionThatIsResumedTakesItsRunningActionAlong) {
    client b = logged_in();
    b.ask("1 SET level 7");
    b.send("x ADMIN slow\n");
    EXPECT_EQ(b.line(), "x.1 one\n");
    client thief = connect();
    EXPECT_EQ(thief.ask("r RESUME " + b.session()), "r INUSE not suspended\n");
    b.close();
    EXPECT_TRUE(eventually([this] { return logged("client closed connection"); }));
    client c = connect();
    c.send("r RESUME " + b.session() + "\ns GET level\n");
    EXPECT_EQ(c.reply("s"),
              "r OK welcome back root\nx.2 two\nx.1 three\nx.1 \nx.2 \nx OK\ns.1 7\ns OK\n");
}

TEST_F(HostileInBackground, ARequestOfFourMegabytesIsAnsweredInBoundedMemory) {
    client c = logged_in();
    const long before = resident_kib();
    for (int i = 0; i < 250; i++)
        c.send("x. " + std::string(16000, 'v') + '\n');
    EXPECT_EQ(c.ask("x SET name"),
              "x.error error.exceeded.max-size\n"
              "x ERR Exceeded maximum size for this field\n");
    EXPECT_EQ(c.ask("x GET name"), "x.1 alpha\nx OK\n");
    std::string batch;
    std::string replies;
    for (int i = 0; i < 10'000; i++) {
        const std::string tag = "x." + std::to_string(i);
        batch += tag + " SET name " + std::to_string(i) + '\n';
        replies += tag + " OK\n";
    }
    EXPECT_EQ(c.ask(batch + "x SUBMIT"), replies + "x OK\n");
    EXPECT_EQ(c.ask("x GET name"), "x.1 9999\nx OK\n");
    /* The shortest of lines are charged with what it costs to keep them. */
    std::string empty;
    for (int i = 0; i < 1'400'000; i++)
        empty += "x.\n";
    EXPECT_TRUE(c.send(empty));
    EXPECT_EQ(c.ask("x NOOP"), "x BAD request too long\n");
    EXPECT_EQ(c.line(), "<closed>");
    expect_growth_below(100 * 1024, before);
    /* What it took is given back. */
    EXPECT_TRUE(eventually([&] { return grew_below(12 * 1024, before); })) << resident_kib();
    expect_service();
}

TEST_F(Hostile, NothingIsKeptOfRequestsLogInsAndCommits) {
    const size_t open = descriptors();
    const auto round = [this](int times) {
        for (int i = 0; i < times; i++) {
            client c = logged_in();
            c.ask("1 LISTR");
            c.ask("2.1 SET name x" + std::to_string(i) + "\n2.2 ADD hosts 9%2e9%2e9%2e9\n2 SUBMIT");
            c.ask("2.1 SET name beta\n2.2 SET level x\n2 SUBMIT");
            c.ask("3 SET level x");
            c.ask("3 REVERT");
            c.ask("4 INFO no.such");
            if (i % 20 == 0) c.ask("5 SET level " + std::to_string(i % 7 + 1));
            if (i % 20 == 0) c.ask("5 COMMIT");
            if (i % 50 == 0) c.ask("6 ADMIN crash");
            c.ask("7 LOGOUT");
            connect().send("x.1 half a request");
        }
    };
    round(150);
    const long before = resident_kib();
    round(500);
    expect_growth_below(400, before);
    EXPECT_TRUE(eventually([&] { return descriptors() == open; }));
}

}  // namespace
