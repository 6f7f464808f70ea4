#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include "daemon_fixture.h"

/* Commits with an archive behind them that do not last: interrupted ones and those on trial. */

namespace {

namespace fs = std::filesystem;

constexpr std::string_view k_box = "# the box\nname = alpha\nlevel = 5\n";
constexpr std::string_view k_new_box = "# the box\nname = beta\nlevel = 5\n";

class Archived : public daemon_test {
  protected:
    void prepare() override {
        append("/etc/ucfgd/ucfgd.conf", "config {\n commits: /commits\n}\n");
        append("/etc/ucfgd/param.conf",
               "trial {\n get: trialorder()\n set: trialorder($_)\n}\n"
               "line {\n get: llget('pipe', 'line')\n set: llset('pipe', 'line', $_)\n}\n");
        append("/etc/ucfgd/management.conf",
               "trial {\n info: trialstatus()\n}\nconfirm {\n admin: trialconfirm()\n}\n"
               "cancel {\n admin: trialcancel()\n}\nwatch {\n admin: commitwatch($arg1)\n}\n");
        put("/pipe", "one\n");
        put("/take", "cat >" + path("/pipe") + "\n");
        append("/etc/ucfgd/modules.conf", "pipe {\n module: lines\n pipe-in: cat " + path("/pipe") +
                                              "\n pipe-out: sh " + path("/take") + "\n}\n");
    }
    /* The next text for the command is not taken until its writer is killed. */
    void hang_once(const std::string &then = "") {
        put("/take", "[ -e " + path("/hung") + " ] || { touch " + path("/hung") +
                         "; exec sleep 100; }\n" + then + "\ncat >" + path("/pipe") + "\n");
    }
    bool writing() {
        return eventually([this] { return fs::exists(path("/hung")); });
    }
    std::string record(int number) const {
        return file("/commits/" + std::to_string(number) + "/record");
    }
    bool has_state(int number, const std::string &state) const {
        return record(number).find("state: " + state) != std::string::npos;
    }
};

TEST_F(Archived, AKilledCommitIsPutBackBesideTheLoopAndBeforeAnyOtherBegins) {
    hang_once("sleep 0.5");
    start();
    client a = logged_in();
    client b = logged_in();
    client c = logged_in();
    EXPECT_EQ(a.ask("1.1 SET name beta\n1.2 SET line two\n1 SUBMIT"), "1.1 OK\n1.2 OK\n1 OK\n");
    b.ask("1 SET level 7");
    a.send("2 COMMIT\n");
    ASSERT_TRUE(writing());
    EXPECT_EQ(file("/etc/box.conf"), k_new_box);
    kill(child(), SIGKILL);
    ASSERT_TRUE(eventually([this] { return file("/etc/box.conf") == k_box; }));
    b.send("2 COMMIT\n");
    EXPECT_EQ(c.ask("1 GET level"), "1.1 5\n1 OK\n");
    EXPECT_TRUE(a.silent_for(0));
    EXPECT_TRUE(b.silent_for(0));
    EXPECT_EQ(a.reply("2"), "2 ERR Input/output error\n");
    EXPECT_EQ(b.reply("2"), "2 ERR commit conflict\n");
    EXPECT_EQ(file("/pipe"), "one\n");
    EXPECT_TRUE(has_state(1, "failed"));
    EXPECT_EQ(a.ask("3 GET name\n4 GET line"), "3.1 alpha\n3 OK\n4.1 one\n4 OK\n");
}

TEST_F(Archived, AStartBehindACrashPutsFilesBackAndThenCommands) {
    hang_once();
    start();
    client a = logged_in();
    a.ask("1.1 SET name beta\n1.2 SET line two\n1 SUBMIT");
    a.send("2 COMMIT\n");
    ASSERT_TRUE(writing());
    const pid_t writer = child();
    put("/pipe", "two\n");
    kill_daemon();
    kill(-writer, SIGKILL);
    start();
    EXPECT_EQ(file("/etc/box.conf"), k_box);
    ASSERT_TRUE(eventually([this] { return has_state(1, "failed"); }));
    EXPECT_EQ(file("/pipe"), "one\n");
    /* What logs in before the command has its text back, is behind. */
    EXPECT_TRUE(eventually([this] {
        client b = logged_in();
        return b.ask("1 GET line\n2 SET name beta\n3 COMMIT") == "1.1 one\n1 OK\n2 OK\n3 OK\n";
    }));
}

}  // namespace
