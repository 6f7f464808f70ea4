#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <thread>

#include "daemon_fixture.h"

/* The command line, start-up with good and bad files, and how the daemon ends. */

namespace {

constexpr std::string_view k_help = R"(Usage: %s [OPTIONS...]

The Unified Configuration Daemon.

Configuration Options:
 -c file, --config-file=file    Sets the main UCFGD configuration file.
 -f file, --functions-file=file Read felib functions from given file.
 -p file, --param-file=file     Read configuration tree from given file.
 -m file, --modules-file=file   Read backend module list from given file.
 -t file, --types-file=file     Read type definitions from given file.
 -r prefix, --root=prefix       Prepend the given prefix to ALL filenames.
 -C prefix, --prefix=prefix
            Prepend the given prefix to filenames read or written by modules.

Debugging Options:
 -d level, --debug=level        Sets the debug level (1-5).
 -n, --foreground               Don't fork, stay in foreground.
 -l, --use-syslog               Used with -n, sends messages to syslog.
 -k, --kill                     Kill the running instance of UCFGD.
 -P file, --protocol-log=file   Dump all communication to the given file.

Miscellaneous Options:
 -h, --help                     This help message.

)";

constexpr char k_pid_file[] = "/run/ucfgd.pid";

std::string help() {
    return std::string{k_help}.replace(k_help.find("%s"), 2, UCFGD);
}

unsigned mode_of(const std::string &name) {
    struct stat file {};
    return stat(name.c_str(), &file) == 0 ? file.st_mode & 07777 : 0;
}

/* A connection to the loopback address; -1 when nobody listens there. */
unique_fd tcp(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    unique_fd fd{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    if (connect(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) fd.reset();
    return fd;
}

class Startup : public daemon_test {
  protected:
    void end_background() {
        EXPECT_EQ(run({"-k"}).status, 0);
        EXPECT_TRUE(eventually([] { return !std::filesystem::exists(k_pid_file); }));
    }
};

TEST_F(Startup, HelpIsWhatEveryWrongCommandLineGets) {
    for (const char *option : {"-h", "-?", "--help"}) {
        const program_result result = run_program({UCFGD, option});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, help());
        EXPECT_EQ(result.out, "");
    }
    const std::string name{UCFGD};
    const std::pair<std::vector<std::string>, std::string> k_wrong[] = {
        {{name, "-r", "/x"}, name + ": invalid option -- 'r'\n"},
        {{name, "--nonsense"}, name + ": unrecognized option '--nonsense'\n"},
        {{name, "-c"}, name + ": option requires an argument -- 'c'\n"},
        {{name, "-n", "stray", "more"}, "Unrecognized option: \"stray\".\n"},
        {{name, "-D", "dir"}, "Unrecognized option: \"dir\".\n"},
    };
    for (const auto &[words, message] : k_wrong) {
        const program_result result = run_program(words);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, message + help());
    }
}

TEST_F(Startup, TheShortFormOfTheDumpOptionDoesNothing) {
    start({"-D"});
    EXPECT_EQ(connect().ask("a NOOP"), "a OK\n");
}

TEST_F(Startup, FilesAreFoundUnderTheRootWhateverTheOptionsForThemSay) {
    put("/other.conf", "other {\n get: 'x'\n}\n");
    start({"-p", path("/other.conf"), "-m", "/none", "-f", "/none", "-t", "/none", "--debug=1"});
    client c = logged_in();
    EXPECT_EQ(c.ask("a LIST"), "a.1 name\na.1 level\na.1 hosts\na OK\n");
    EXPECT_EQ(c.ask("a GET name"), "a.1 alpha\na OK\n");
}

TEST_F(Startup, ModulesMayHaveAPrefixOfTheirOwn) {
    put("/elsewhere/etc/box.conf", "name=omega\n");
    put("/elsewhere/etc/hosts", "");
    start({"-C", path("/elsewhere")});
    EXPECT_EQ(logged_in().ask("a GET name"), "a.1 omega\na OK\n");
}

TEST_F(Startup, OnlyOneRunsAndKillEndsIt) {
    EXPECT_EQ(run({"-k"}).err, "Failed to kill daemon.\n");
    start();
    EXPECT_EQ(std::stoi(file("/../ucfgd.pid")), pid());
    program_result second = run({"-n"});
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.err, "daemon already running on pid file " + std::to_string(pid()) + "\n");
    EXPECT_EQ(run({"--dump-tree-to-path-and-exit=" + path("/")}).status, 1);
    /* A daemon that nobody has reaped yet would count as running. */
    std::thread waiting{[this] { EXPECT_EQ(wait_for_end(), 0); }};
    EXPECT_EQ(run({"-k"}).status, 0);
    waiting.join();
    EXPECT_FALSE(std::filesystem::exists(k_pid_file));
    EXPECT_TRUE(logged("received signal 2\n"));
}

TEST_F(Startup, APidFileThatNamesNoDaemonKeepsNobodyFromStarting) {
    const pid_t alien = fork();
    if (alien == 0) {
        pause();
        _exit(0);
    }
    put("/../ucfgd.pid", std::to_string(alien));
    EXPECT_NE(run({"-k"}).err.find("Failed to kill daemon.\n"), std::string::npos);
    for (const std::string &text : {std::to_string(alien), std::string{}, std::string{"what\n"}}) {
        put("/../ucfgd.pid", text);
        start();
        stop();
    }
    EXPECT_EQ(kill(alien, SIGKILL), 0);
    EXPECT_EQ(run_program({UCFGD, "--root=" + path(""), "--dump-tree-to-path-and-exit=" + path("")},
                          [this] { put("/../ucfgd.pid", std::to_string(getpid())); })
                  .status,
              0)
        << "its own number";
}

TEST_F(Startup, WithoutStandardDescriptorsMessagesGoNowhere) {
    before_exec = [] {
        for (const int fd : {0, 1, 2})
            close(fd);
    };
    launch();
    EXPECT_EQ(connect().ask("a NOOP"), "a OK\n");
    for (const char *fd : {"0", "1", "2"})
        EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(pid()) + "/fd/" + fd),
                  "/dev/null");
}

TEST_F(Startup, TheLargestLibraryIsLoadedWhenItIsNeeded) {
    put("/etc/ucfgd/param.conf", "access: '1'\nsecret {\n get: tav_encrypt('a')\n}\n");
    start();
    const auto is_mapped = [this] {
        std::ifstream maps{"/proc/" + std::to_string(pid()) + "/maps"};
        const std::string text{std::istreambuf_iterator<char>{maps}, {}};
        return text.find("libcrypto") != std::string::npos;
    };
    client someone = connect();
    someone.login();
    EXPECT_FALSE(is_mapped());
    EXPECT_NE(someone.ask("a GET secret"), "a value \na OK\n");
    EXPECT_TRUE(is_mapped());
}

TEST_F(Startup, AnotherUserHasAPidFileOfTheirOwn) {
    const uid_t user = 40000 + static_cast<uid_t>(getpid()) % 20000;
    const std::string name = "/tmp/ucfgd-" + std::to_string(user) + ".pid";
    chmod(path("").c_str(), 0755);
    if (chown(path("/dev").c_str(), user, user) != 0)
        GTEST_SKIP() << "only root can run the daemon as somebody else";
    const auto as_user = [&] {
        if (setuid(user) != 0) _exit(99);
    };
    /* Where it was built, somebody else need not reach it. */
    const std::string program = path("/ucfgd");
    std::filesystem::copy_file(UCFGD, program);
    EXPECT_EQ(run_program({program, "--root=" + path("")}, as_user).status, 0);
    EXPECT_TRUE(std::filesystem::exists(name));
    EXPECT_EQ(connect().ask("a NOOP"), "a OK\n");
    EXPECT_EQ(run_program({program, "-k"}, as_user).status, 0);
    EXPECT_TRUE(eventually([&] { return !std::filesystem::exists(name); }));
}

TEST_F(Startup, DumpModeWritesBothTrees) {
    put("/etc/ucfgd/param.conf", "a {\n help: 'A'\n b|c {\n  get: '1'\n }\n * {\n }\n}\n~a.c\n");
    put("/etc/ucfgd/management.conf", "go {\n admin: '1'\n}\n");
    const program_result result = run({"--dump-tree-to-path-and-exit=" + path("")});
    EXPECT_EQ(result.status, 0);
    const std::string here = std::filesystem::current_path().string();
    EXPECT_NE(result.err.find("Writing parameter tree to " + here + "/" + path("") +
                              "/parameter_tree.py\nWriting management tree to " + here + "/" +
                              path("") + "/management_tree.py\n"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(file("/parameter_tree.py"), R"(tree = ('(root)', None, [
    ('a', None, [
        ('help:', '', []),
        ('b', None, [
            ('get:', '', []),
        ]),
        ('c', None, [
            ('get:', '', []),
        ]),
        ('*', None, []),
    ]),
])
)");
    EXPECT_EQ(file("/management_tree.py"), R"(tree = ('(root)', None, [
    ('go', None, [
        ('admin:', '', []),
    ]),
])
)");
    EXPECT_EQ(run({"--dump-tree-to-path-and-exit=/nowhere"}).status, 1);
}

TEST_F(Startup, TheLogTellsTheWholeStartInOrder) {
    environment = {{"LC_ALL", "C"}};
    start();
    stop();
    EXPECT_EQ(log(),
              "parsing configuration...\n\tdone.\n"
              "initializing felib...\n\tdone.\n"
              "parsing functions...\n\tdone.\n"
              "parsing modules configuration...\n\tdone.\n"
              "initializing backend transaction management...\n\tdone.\n"
              "loading types...\n\tdone.\n"
              "parsing parameter tree...\n\tdone.\n"
              "parsing management tree from '/etc/ucfgd/management.conf'...\n\tdone.\n"
              "locale before fork is C.UTF-8\n"
              "sucessfully started\n"
              "setting up daemon environment... done.\n"
              "received signal 15\n"
              "loop: no more sockets to listen, returning\n"
              "exiting...\n");
}

TEST_F(Startup, ItsServiceManagerHearsWhenClientsMayComeAndWhenTheEndBegins) {
    const unique_fd manager{socket(AF_UNIX, SOCK_DGRAM, 0)};
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path("/manager").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(manager.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    const auto heard = [&](int flags) {
        char text[64];
        const ssize_t size = recv(manager.get(), text, sizeof text, flags);
        return std::string(text, static_cast<size_t>(std::max<ssize_t>(size, 0)));
    };
    environment = {{"NOTIFY_SOCKET", address.sun_path}, {"WATCHDOG_USEC", "20000"}};
    append("/etc/ucfgd/param.conf", "told {\n get: readlinespipe('echo x$NOTIFY_SOCKET')\n}\n");
    launch({"-n"});
    EXPECT_EQ(heard(0), "READY=1");
    EXPECT_EQ(logged_in().ask("a GET told"), "a.1 x\na OK\n");
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(heard(0), "WATCHDOG=1");
    kill(pid(), SIGHUP);
    std::set<std::string> all;
    while (!all.contains("READY=1"))
        all.insert(heard(0).substr(0, 11));
    EXPECT_TRUE(all.contains("RELOADING=1"));
    stop();
    std::string last;
    for (std::string text = heard(MSG_DONTWAIT); !text.empty(); text = heard(MSG_DONTWAIT))
        last = text;
    EXPECT_EQ(last, "STOPPING=1");
}

TEST_F(Startup, WithoutItsMainFileItDoesNotStart) {
    const std::string name = "/etc/ucfgd/ucfgd.conf";
    const std::string message =
        "Unable to read configuration from '/etc/ucfgd/ucfgd.conf'.  Terminating.\n";
    put(name, "listen {\n");
    program_result result = run({"-n"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find(message + path(name) + ":1: "), std::string::npos) << result.err;
    std::filesystem::remove(path(name));
    result = run({"-n"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find(message), std::string::npos) << result.err;
    EXPECT_EQ(run({"-n", "-c", "none.conf"}).status, 1);
    EXPECT_FALSE(std::filesystem::exists(k_pid_file));
}

TEST_F(Startup, ChosenLocaleIsWhatCommandsGet) {
    put("/etc/ucfgd/param.conf",
        "access: $perm == 'r'\nlocale {\n get: readlinespipe('echo $LC_ALL $LANG')\n}\n");
    environment = {{"LC_ALL", "POSIX"}, {"LANG", "de_DE"}};
    start();
    EXPECT_EQ(logged_in().ask("a GET locale"), "a.1 C%2eUTF-8+C%2eUTF-8\na OK\n");
}

TEST_F(Startup, ListenersDifferInKindAndModeAndBadOnesAreSkipped) {
    const int port = 20000 + getpid() % 10000;
    put("/dev/two", "stale");
    put("/etc/ucfgd/ucfgd.conf",
        "listen {\n one {\n  type: unix\n }\n"
        " two {\n  type: unix\n  path: /dev/two\n  mode: 438\n }\n"
        " three {\n  type: unix\n  path: /dev/three\n  mode: 0640\n }\n"
        " none {\n  path: /dev/four\n }\n odd {\n  type: pigeon\n }\n"
        " safe {\n  type: tcp\n  tls: yes\n }\n"
        " far {\n  type: tcp6\n  host: 192.0.2.1\n  port: 1\n }\n"
        " net {\n  type: tcp\n  port: " +
            std::to_string(port) + "x\n  ip: here\n  authtype: usercred\n }\n}\n");
    start();
    EXPECT_TRUE(logged("listener 'net': ip: 'here' is no address; 127.0.0.1 is used\n"));
    EXPECT_TRUE(logged("x' is no port; " + std::to_string(port) + " is used\n"));
    EXPECT_EQ(mode_of(path("/dev/ucfgd")), 0600U);
    EXPECT_EQ(mode_of(path("/dev/two")), 0666U);
    EXPECT_EQ(mode_of(path("/dev/three")), 0640U);
    EXPECT_EQ(connect("/dev/two").ask("a NOOP"), "a OK\n");
    EXPECT_TRUE(logged("unknown type pigeon\n"));
    EXPECT_TRUE(logged("gnutls not supported, skipping listener 'safe'\n"));
    EXPECT_TRUE(logged("socket/bind: Cannot assign requested address\n"));
    unique_fd fd = tcp(port);
    ASSERT_TRUE(fd);
    EXPECT_EQ(client{std::move(fd)}.ask("a LOGIN root"), "a NO auth failed\n");
}

TEST_F(Startup, ASocketThatCannotBeMadeEndsTheStartAndRemovesThePidFile) {
    const std::string k_long(120, 'x');
    for (const std::string &name : {std::string{"/none/ucfgd"}, "/dev/" + k_long}) {
        configure("path: " + name + "\n", "");
        const program_result result = run({"-n"});
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.err.find("bind: "), std::string::npos) << result.err;
        EXPECT_NE(result.err.find(" on '" + path(name) + "'.\n"), std::string::npos) << result.err;
        EXPECT_FALSE(std::filesystem::exists(k_pid_file));
    }
}

/* It runs from the log-in on that finds a file changed, is reaped when nobody asks, ended when
 * late. */
TEST_F(Startup, WithoutListenersItWarnsAndWaits) {
    put("/etc/ucfgd/ucfgd.conf", "config {\n}\n");
    start();
    EXPECT_TRUE(
        eventually([&] { return logged("Warning: the configuration has no listen section"); }));
    kill_daemon();
    std::filesystem::remove(k_pid_file);
}

TEST_F(Startup, ABackgroundDaemonCreatesFilesThatOthersMayRead) {
    append("/etc/ucfgd/modules.conf",
           "fresh {\n module: keyvalue\n file: /etc/fresh\n flags: create\n}\n");
    append("/etc/ucfgd/param.conf",
           "fresh {\n set: lladdne('fresh', '', 'name') && llset('fresh', 'name', $_)\n}\n");
    in_background = true;
    before_exec = [] { umask(077); };
    start();
    client c = logged_in();
    EXPECT_EQ(c.ask("a SET fresh yes"), "a OK\n");
    EXPECT_EQ(c.ask("b COMMIT"), "b OK\n");
    EXPECT_EQ(mode_of(path("/etc/fresh")), 0644U);
    stop();
    EXPECT_FALSE(std::filesystem::exists(k_pid_file));
}

TEST_F(Startup, TheParentOfABackgroundDaemonTellsHowItsStartWent) {
    EXPECT_EQ(run({}).status, 0);
    EXPECT_EQ(connect().ask("a NOOP"), "a OK\n");
    end_background();
    std::filesystem::create_directory(k_pid_file);
    EXPECT_EQ(run({}).status, 1);
    const program_result foreground = run({"-n"});
    EXPECT_EQ(foreground.status, 0);
    EXPECT_NE(foreground.err.find("could not create PID file (File exists).\n"), std::string::npos)
        << foreground.err;
    std::filesystem::remove(k_pid_file);
}

TEST_F(Startup, TheProtocolLogHoldsTheWholeConversationAndIsPrivate) {
    put("/protocol.log", "old");
    chmod(path("/protocol.log").c_str(), 0666);
    start({"-P", path("/protocol.log")});
    EXPECT_EQ(mode_of(path("/protocol.log")), 0600U);
    client c = connect();
    c.ask("a NOOP\r");
    c.ask("b.1 one\nb GET name");
    c.close();
    EXPECT_TRUE(eventually([this] { return logged("client closed connection"); }));
    stop();
    std::string text = file("/protocol.log");
    for (size_t at = 0; (at = text.find("X(", at)) != std::string::npos; at += 2)
        text.erase(at + 2, text.find(')', at) - at - 2);
    EXPECT_EQ(text,
              "X(): Accepted connection on listen/local\n"
              "C: a NOOP\nS: a OK\n"
              "C: b.1 one\nC: b GET name\nS: b NO login required\n"
              "X(): Connection closed from listen/local\n");

    std::filesystem::remove(path("/protocol.log"));
    ASSERT_EQ(mkfifo(path("/protocol.log").c_str(), 0600), 0);
    start({"-P", path("/protocol.log")});
    client unread = connect();
    for (int i = 0; i < 3000; i++)
        ASSERT_EQ(unread.ask("a." + std::string(100, 'x') + "\na NOOP"), "a OK\n");
}

TEST_F(Startup, EveryStopSignalEndsItInOrder) {
    for (const int signal : {SIGINT, SIGQUIT, SIGTERM}) {
        start();
        client c = logged_in();
        stop(signal);
        EXPECT_TRUE(logged("received signal " + std::to_string(signal) + "\n"));
        EXPECT_TRUE(log().ends_with("exiting...\n"));
        EXPECT_EQ(c.ask("a NOOP"), "<closed>");
        EXPECT_FALSE(std::filesystem::exists(k_pid_file));
    }
}

TEST_F(Startup, SignalsSwitchTracingOnAndOff) {
    start();
    client c = connect();
    kill(pid(), SIGUSR1);
    EXPECT_TRUE(eventually([&] { return logged("received signal 10\n"); }));
    EXPECT_EQ(c.ask("a NOOP"), "a OK\n");
    EXPECT_TRUE(eventually([&] { return logged("state=[unknown], idle 0 sec of 1800 timeout."); }))
        << log();
    kill(pid(), SIGUSR2);
    EXPECT_TRUE(eventually([&] { return logged("received signal 12\n"); }));
    c.ask("a NOOP");
    const std::string before = log();
    c.ask("a NOOP");
    EXPECT_EQ(log(), before);
}

}  // namespace
