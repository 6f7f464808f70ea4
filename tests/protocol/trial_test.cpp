#include <sys/stat.h>
#include <unistd.h>

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
               "cancel {\n admin: trialcancel()\n}\nwatch {\n admin: commitwatch($arg1)\n}\nend "
               "{\n admin: commitend()\n}\n");
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

TEST_F(Archived, ARefusedCheckOrAnUnusableArchiveLeavesEverythingAsItWas) {
    std::string modules = file("/etc/ucfgd/modules.conf");
    put("/etc/ucfgd/modules.conf",
        modules.replace(modules.find("module: keyvalue"), 16,
                        "module: keyvalue\n check: system('! grep beta ' .. $file) || "
                        "seterror('no beta', 'error.box', 'b')"));
    start();
    client a = logged_in();
    EXPECT_EQ(a.ask("1.1 SET name beta\n1.2 SET line two\n1 SUBMIT"), "1.1 OK\n1.2 OK\n1 OK\n");
    EXPECT_EQ(a.ask("2 COMMIT"), "2.error error.box\n2.error.arg b\n2 ERR no beta\n");
    EXPECT_EQ(file("/etc/box.conf") + file("/pipe"), std::string{k_box} + "one\n");
    EXPECT_FALSE(fs::exists(path("/commits/1")) || fs::exists(path("/etc/box.conf.ucfgd-tmp")));
    fs::remove(path("/etc/box.conf"));
    fs::create_directory(path("/etc/box.conf"));
    client b = logged_in();
    EXPECT_EQ(b.ask("3 SET level 7"), "3 OK\n");
    EXPECT_EQ(b.ask("4 COMMIT"),
              "4.error error.commit.unread\n4.error.arg /etc/box.conf\n"
              "4 ERR /etc/box.conf: its present contents have not been read\n");
    fs::remove(path("/etc/box.conf"));
    put("/etc/box.conf", k_box);
    stop();
    fs::remove_all(path("/commits"));
    put("/commits", "");
    start();
    a = logged_in();
    EXPECT_EQ(a.ask("1 SET level 7"), "1 OK\n");
    EXPECT_EQ(a.ask("2 COMMIT").find("2.error error.commit.archive\n2 ERR "), 0u);
    EXPECT_EQ(file("/etc/box.conf"), k_box);
}

TEST_F(Archived, TwoModulesOfOneFileAreWrittenTogether) {
    append("/etc/ucfgd/modules.conf", "more {\n module: hosts\n file: /etc/hosts\n}\n");
    append("/etc/ucfgd/param.conf",
           "near {\n set: llset('hosts', '127.0.0.1/name', $_)\n}\n"
           "far {\n set: llset('more', '192.0.2.11/name', $_)\n}\n");
    start();
    client a = logged_in();
    EXPECT_EQ(a.ask("1.1 SET near n\n1.2 SET far f\n1 SUBMIT"), "1.1 OK\n1.2 OK\n1 OK\n");
    EXPECT_EQ(a.ask("2 COMMIT"), "2 OK\n");
    EXPECT_EQ(file("/etc/hosts"), "127.0.0.1\tn\n\n192.0.2.10\tfiles # disk\n192.0.2.11  f\n");
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

TEST_F(Archived, ATrialIsUndoneInTimeWithItsCommandsAndHooksUnlessItIsConfirmed) {
    put("/etc/ucfgd/modules.conf", std::string{file("/etc/ucfgd/modules.conf")}.replace(
                                       file("/etc/ucfgd/modules.conf").find("module: keyvalue"), 16,
                                       "module: keyvalue\n post-commit: system('cp " +
                                           path("/etc/box.conf") + " " + path("/told") + "')"));
    start();
    client a = logged_in();
    client b = logged_in("l LOGIN root");
    EXPECT_EQ(a.ask("1 SET trial soon"), "1 ERR result=2 a trial takes 0 to 604800 seconds\n");
    a.ask("1.1 SET trial 1\n1.2 SET name beta\n1.3 SET line two\n1 SUBMIT");
    EXPECT_EQ(a.ask("2 COMMIT\n3 GET trial"), "2 OK\n3.1 0\n3 OK\n");
    EXPECT_EQ(a.ask("4 INFO trial"), "4.1 commit+1,+user+root,+1+seconds+left\n4 OK\n");
    EXPECT_EQ(file("/told"), k_new_box);
    b.ask("5 SET name gamma");
    const std::string refusal = b.ask("6 COMMIT");
    EXPECT_EQ(refusal.find("6.error error.trial\n6.error.arg root\n6.error.arg 1\n6.error.arg "),
              0u);
    EXPECT_NE(refusal.find("\n6 ERR commit conflict\n"), std::string::npos);
    ASSERT_TRUE(eventually([this] { return has_state(1, "undone"); }));
    EXPECT_EQ(file("/etc/box.conf"), k_box);
    EXPECT_EQ(file("/pipe"), "one\n");
    EXPECT_TRUE(eventually([this] { return file("/told") == k_box; }));
    EXPECT_TRUE(eventually([&] { return a.ask("7 CURRENT") == "7 ERR commit conflict\n"; }));
    EXPECT_EQ(a.ask("8 REVERT\n9 GET name\n10 GET line\n11 INFO trial"),
              "8 OK\n9.1 alpha\n9 OK\n10.1 one\n10 OK\n11.1 \n11 OK\n");
    EXPECT_EQ(a.ask("12 ADMIN cancel"), "12.2 no commit is on trial\n12.1 \n12.2 \n12 ERR\n");

    /* It is extended and joined by its user's orders, and then confirmed by another session. */
    a.ask("1.1 SET trial 60\n1.2 SET name beta\n1 SUBMIT");
    EXPECT_EQ(a.ask("2 COMMIT"), "2 OK\n");
    a.ask("3 SET trial 90");
    EXPECT_EQ(a.ask("4 COMMIT"), "4 OK\n");
    EXPECT_EQ(a.ask("5 INFO trial"), "5.1 commit+2,+user+root,+90+seconds+left\n5 OK\n");
    a.ask("6.1 SET trial 100\n6.2 SET level 7\n6 SUBMIT");
    const std::string resume = "r RESUME " + a.session();
    a = connect(); /* The order stays with the session that lost its connection. */
    EXPECT_TRUE(eventually([&] { return a.ask(resume) == "r OK welcome back root\n"; }));
    EXPECT_EQ(a.ask("7 COMMIT"), "7 OK\n");
    EXPECT_EQ(b.ask("8 ADMIN confirm"), "8.1 \n8.2 \n8 OK\n");
    EXPECT_EQ(b.ask("9 INFO trial"), "9.1 \n9 OK\n");
    EXPECT_TRUE(has_state(2, "done") && has_state(3, "done"));

    /* Cancelled, both commits of a trial go at once. */
    for (const char *edit : {"1 SET name delta", "1 SET level 8"}) {
        a.ask(edit);
        a.ask("2 SET trial 60");
        EXPECT_EQ(a.ask("3 COMMIT"), "3 OK\n");
    }
    EXPECT_EQ(b.ask("4 ADMIN cancel"), "4.1 \n4.2 \n4 OK\n");
    EXPECT_EQ(file("/etc/box.conf"), "# the box\nname = beta\nlevel = 7\n");
    EXPECT_EQ(file("/told"), file("/etc/box.conf"));
    EXPECT_EQ(a.ask("5 CURRENT\n6 UPDATE\n7 GET name"),
              "5 ERR commit conflict\n6 OK updated\n7.1 beta\n7 OK\n");
}

TEST_F(Archived, ATrialThatCannotBeUndoneYetHoldsCommitsUpAndIsTriedAgain) {
    start();
    client a = logged_in();
    a.ask("1.1 SET trial 1\n1.2 SET name beta\n1 SUBMIT");
    EXPECT_EQ(a.ask("2 COMMIT"), "2 OK\n");
    fs::create_directory(path("/etc/box.conf.ucfgd-tmp"));
    ASSERT_TRUE(eventually([this] {
        return logged(
            "putting files back failed: Is a directory; next "
            "try in 1 seconds");
    }));
    a.ask("3 UPDATE\n4.1 SET trial 5\n4.2 SET level 7\n4 SUBMIT");
    EXPECT_EQ(a.ask("5 COMMIT")
                  .find("5.error error.trial.undo\n5.error.arg 1\n5 ERR the trial "
                        "commit 1 is being undone since 2"),
              0u);
    EXPECT_NE(a.ask("6 INFO trial").find("UTC,+which+failed:+Is+a+directory;+tried+again+in+"),
              std::string::npos);
    fs::remove(path("/etc/box.conf.ucfgd-tmp"));
    EXPECT_TRUE(eventually([this] { return has_state(1, "undone"); }));
    EXPECT_EQ(file("/etc/box.conf"), k_box);
}

TEST_F(Archived, ATrialGoesOnBehindARestartAndEndsWithTheBoot) {
    start();
    client a = logged_in();
    a.ask("1.1 SET trial 50\n1.2 SET name beta\n1 SUBMIT");
    EXPECT_EQ(a.ask("2 COMMIT"), "2 OK\n");
    kill_daemon();
    start();
    EXPECT_EQ(logged_in().ask("1 INFO trial").find("1.1 commit+1,+user+root,+"), 0u);
    EXPECT_EQ(file("/etc/box.conf"), k_new_box);
    stop();
    std::string text = record(1);
    const size_t boot = text.find("boot: ") + 6;
    put("/commits/1/record", text.replace(boot, 1, text[boot] == 'x' ? "y" : "x"));
    start();
    EXPECT_EQ(file("/etc/box.conf"), k_box);
    EXPECT_EQ(logged_in().ask("1 GET name"), "1.1 alpha\n1 OK\n");
    EXPECT_TRUE(eventually([this] { return has_state(1, "undone"); }));
}

TEST_F(Archived, AWatcherSeesEachCommitOnceUntilItsConnectionGoes) {
    hang_once();
    start();
    client a = logged_in();
    const auto commit = [&a](const std::string &edit) {
        a.ask("1 SET " + edit);
        return a.ask("2 COMMIT");
    };
    commit("name beta");
    commit("name gamma");
    client early = logged_in();
    client late = logged_in();
    early.send("3 ADMIN watch 2\n");
    EXPECT_EQ(early.line(), "3.1 2 root done /etc/box.conf\n");
    late.send("3 ADMIN watch\n");
    EXPECT_TRUE(early.silent_for(50));
    EXPECT_TRUE(late.silent_for(0));
    commit("level 7");
    for (client *watcher : {&early, &late})
        EXPECT_EQ(watcher->line(), "3.1 3 root done /etc/box.conf\n");
    early.close();
    for (int i = 4; i < 12; i++)
        EXPECT_EQ(commit("level " + std::to_string(i + 10)), "2 OK\n");
    a.ask("1.1 SET line two\n1.2 SET level 5\n1 SUBMIT");
    a.send("2 COMMIT\n");
    ASSERT_TRUE(writing());
    for (int i = 4; i < 12; i++)
        EXPECT_EQ(late.line(), "3.1 " + std::to_string(i) + " root done /etc/box.conf\n");
    EXPECT_TRUE(late.silent_for(50));
    client b = logged_in();
    EXPECT_EQ(b.ask("1 ADMIN end"), "1.1 \n1.2 \n1 OK\n");
    EXPECT_EQ(a.reply("2"), "2 ERR Input/output error\n");
    EXPECT_EQ(late.line(), "3.1 12 root failed /etc/box.conf pipe\n");
    EXPECT_NE(child(), 0);
    late.close();
    EXPECT_TRUE(eventually([this] { return child() == 0; }));
    ASSERT_EQ(unlink(path("/commits/2/record").c_str()), 0);
    client again = logged_in();
    again.send("3 ADMIN watch 2\n");
    EXPECT_EQ(again.line(), "3.1 3 root done /etc/box.conf\n");
    again.close();
    EXPECT_EQ(b.ask("2 ADMIN watch none"),
              "2.2 'none' is no number of a commit\n2.1 \n2.2 \n2 ERR\n");
}

}  // namespace
