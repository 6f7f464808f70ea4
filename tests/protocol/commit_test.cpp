#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <set>
#include <string>

#include "daemon_fixture.h"

/* From a session to the files: what is written, what stays, and what a failure leaves. */

namespace {

namespace fs = std::filesystem;

constexpr std::string_view k_box = "# the box\nname = alpha\nlevel = 5\n";
constexpr std::string_view k_new_box = "# the box\nname = beta\nlevel = 5\n";
constexpr std::string_view k_hosts =
    "127.0.0.1\tlocalhost\n\n192.0.2.10\tfiles # disk\n192.0.2.11  mail\n";

std::string replaced(std::string text, std::string_view old, std::string_view fresh) {
    return text.replace(text.find(old), old.size(), fresh);
}

class Commit : public daemon_test {
  protected:
    /* Modules and parameters besides those of the small root. */
    void begin(const std::string &modules = "", const std::string &parameters = "") {
        append("/etc/ucfgd/modules.conf", modules);
        append("/etc/ucfgd/param.conf", parameters);
        start();
        if (!HasFatalFailure()) a = logged_in();
    }

    /* The box's module with another field. */
    void begin_with_box(const std::string &field) {
        put("/etc/ucfgd/modules.conf", replaced(file("/etc/ucfgd/modules.conf"), "module: keyvalue",
                                                "module: keyvalue\n    " + field));
        begin();
    }

    /* A shell command that writes a word down. */
    std::string note(const std::string &word) const {
        return "system('echo " + word + " >> " + path("/notes") + "')";
    }

    struct stat status(std::string_view name) const {
        struct stat st {};
        EXPECT_EQ(stat(path(name).c_str(), &st), 0) << name;
        return st;
    }

    /* The names of a directory's files. */
    std::string names(std::string_view directory) const {
        std::set<std::string> all;
        for (const fs::directory_entry &entry : fs::directory_iterator{path(directory)})
            all.insert(entry.path().filename());
        std::string text;
        for (const std::string &name : all)
            text += name + ' ';
        return text;
    }

    client a;
};

TEST_F(Commit, OnlyTheLinesThatWereChangedDiffer) {
    use_appliance();
    const std::string block = "match user git\n\tX11Forwarding no\n\tPort 1\n";
    const std::string sshd =
        replaced(file("/etc/ssh/sshd_config"), "X11Forwarding yes", "x11forwarding yes");
    put("/etc/ssh/sshd_config", sshd + block);
    start();
    client c = logged_in();
    const std::string hosts = file("/etc/hosts");
    const std::string appliance = file("/etc/default/appliance");
    const ino_t untouched = status("/etc/sysctl.conf").st_ino;
    EXPECT_EQ(c.ask("1.1 SET network.hosts.192%2e0%2e2%2e11.name post%2eexample%2enet\n"
                    "1.2 SET ssh.x11 no\n1.3 SET ssh.port 2222\n"
                    "1.4 SET system.location Room+3,+\"rack\"+8\n1.5 SET system.hostname lab\n"
                    "1 SUBMIT"),
              "1.1 OK\n1.2 OK\n1.3 OK\n1.4 OK\n1.5 OK\n1 OK\n");
    EXPECT_EQ(c.ask("2 COMMIT"), "2 OK\n");
    EXPECT_EQ(file("/etc/hosts"), replaced(hosts, "mail.example.net", "post.example.net"));
    std::string expected = replaced(sshd, "x11forwarding yes", "x11forwarding no");
    EXPECT_EQ(file("/etc/ssh/sshd_config"), expected + "Port 2222\n" + block);
    EXPECT_EQ(file("/etc/default/appliance"),
              replaced(appliance, "'Machine room 2, rack 7'", "'Room 3, \"rack\" 8'"));
    EXPECT_EQ(file("/etc/hostname"), "lab\n");
    EXPECT_EQ(status("/etc/sysctl.conf").st_ino, untouched);
    EXPECT_EQ(c.ask("3 GET network.hosts.192%2e0%2e2%2e11.name"),
              "3.1 post%2eexample%2enet\n3 OK\n");
}

TEST_F(Commit, TheLogTellsWhoChangedWhichParameterAndKeepsSecrets) {
    append("/etc/ucfgd/ucfgd.conf", "config {\n log-changes: yes\n}\n");
    append("/etc/box.conf", "key = x\n");
    const unique_fd journal{socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0)};
    sockaddr_un address{AF_UNIX, "/run/systemd/journal/socket"};
    fs::create_directories("/run/systemd/journal");
    ASSERT_EQ(bind(journal.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    append("/etc/ucfgd/param.conf",
           "key {\n get: llget('box', 'key')\n set: llset('box', 'key', $_)\n flags: 'secret'\n"
           " access: in($perm, 'r', 'w')\n}\n");
    start({"-l"});
    a = logged_in();
    EXPECT_EQ(a.ask("1 SET name beta"), "1 OK\n");
    EXPECT_EQ(a.ask("2 SET key sesame"), "2 OK\n");
    EXPECT_EQ(a.ask("3 DEL hosts 127%2e0%2e0%2e1"), "3 OK\n");
    EXPECT_EQ(a.ask("4 COMMIT"), "4 OK\n");
    std::string all;
    char text[2048];
    for (ssize_t size = 0; (size = recv(journal.get(), text, sizeof text, 0)) > 0;)
        all.append(text, static_cast<size_t>(size));
    for (const char *said : {": name: 'alpha' -> 'beta'\n", ": key: changed\n",
                             ": hosts.127%2e0%2e0%2e1: removed\n", "\nUCFGD_USER=root\n",
                             "\nUCFGD_PARAMETER=name\n", "MESSAGE=commit of user 'root', session "})
        EXPECT_NE(all.find(said), std::string::npos) << said << all;
    EXPECT_EQ(all.find("sesame"), std::string::npos) << all;
}

TEST_F(Commit, EntriesComeGoAndMoveWithTheirLines) {
    begin();
    EXPECT_EQ(a.ask("1.1 ADD hosts 192%2e0%2e2%2e12\n1.2 DEL hosts 127%2e0%2e0%2e1\n"
                    "1.3 MOVE hosts 192%2e0%2e2%2e10 192%2e0%2e2%2e11\n1 SUBMIT"),
              "1.1 OK\n1.2 OK\n1.3 OK\n1 OK\n");
    EXPECT_EQ(a.ask("2 COMMIT"), "2 OK\n");
    EXPECT_EQ(file("/etc/hosts"),
              "\n192.0.2.11  mail\n192.0.2.10\tfiles # disk\n192.0.2.12\tnew\n");
    stop();
    start();
    a = logged_in();
    EXPECT_EQ(a.ask("1 LIST hosts"),
              "1.1 192%2e0%2e2%2e11\n1.1 192%2e0%2e2%2e10\n1.1 192%2e0%2e2%2e12\n1 OK\n");
}

TEST_F(Commit, NothingIsWrittenWhenNothingHasChanged) {
    begin();
    const ino_t inode = status("/etc/box.conf").st_ino;
    EXPECT_EQ(a.ask("1 SET name alpha"), "1 OK\n");
    EXPECT_EQ(a.ask("2 COMMIT"), "2 OK\n");
    EXPECT_EQ(status("/etc/box.conf").st_ino, inode);
    EXPECT_FALSE(logged("writing file"));
    a.ask("3 SET name beta");
    EXPECT_EQ(a.ask("4 COMMIT"), "4 OK\n");
    EXPECT_TRUE(logged("writing file " + path("//etc/box.conf") + "\n"));
    EXPECT_FALSE(logged("writing file " + path("//etc/hosts")));
    EXPECT_EQ(names("/etc"), "box.conf hosts ucfgd ");
}

TEST_F(Commit, AFileKeepsItsModeAndOwner) {
    chmod(path("/etc/box.conf").c_str(), 0604);
    const bool owned = chown(path("/etc/box.conf").c_str(), 7, 8) == 0;
    begin();
    a.ask("1 SET name beta");
    EXPECT_EQ(a.ask("2 COMMIT"), "2 OK\n");
    EXPECT_EQ(status("/etc/box.conf").st_mode, S_IFREG | 0604U);
    EXPECT_EQ(status("/etc/box.conf").st_uid, owned ? 7U : 0U);
    EXPECT_EQ(status("/etc/box.conf").st_gid, owned ? 8U : 0U);
}

TEST_F(Commit, AFileGetsTheModeAndOwnerThatItsModuleNames) {
    chmod(path("/etc/box.conf").c_str(), 0644);
    begin_with_box("mode: 0640\n    gid: root\n    uid: root");
    a.ask("1 SET name beta");
    EXPECT_EQ(a.ask("2 COMMIT"), "2 OK\n");
    EXPECT_EQ(status("/etc/box.conf").st_mode, S_IFREG | 0640U);
    EXPECT_EQ(status("/etc/box.conf").st_uid, 0U);
    EXPECT_EQ(file("/etc/box.conf"), k_new_box);
}

/* A directory of a file system of its own, in which the box lies. */
class FailingCommit : public Commit {
  protected:
    void begin_on_tmpfs(const char *options) {
        put("/etc/ucfgd/modules.conf",
            replaced(file("/etc/ucfgd/modules.conf"), "/etc/box.conf", "/data/box"));
        fs::create_directory(path("/data"));
        ASSERT_EQ(mount("none", path("/data").c_str(), "tmpfs", 0, options), 0);
        put("/data/box", k_box);
        begin();
    }
    /* A commit that fails, although the other file is written, and goes through once the reason has
     * gone. */
    void expect_failure(const std::string &reason, const std::function<void()> &mend) {
        EXPECT_EQ(a.ask("1.1 SET name beta\n1.2 ADD hosts 9%2e9%2e9%2e9\n1 SUBMIT"),
                  "1.1 OK\n1.2 OK\n1 OK\n");
        EXPECT_EQ(a.ask("2 COMMIT"), "2 ERR " + reason + "\n");
        EXPECT_EQ(a.ask("3 GET name"), "3.1 alpha\n3 OK\n");
        EXPECT_EQ(file("/etc/hosts"), std::string{k_hosts} + "9.9.9.9\tnew\n");
        mend();
        EXPECT_EQ(a.ask("4 SET name beta"), "4 OK\n");
        EXPECT_EQ(a.ask("5 COMMIT"), "5 OK\n");
        EXPECT_EQ(file("/data/box"), k_new_box);
        EXPECT_EQ(names("/data"), "box ");
    }
    void TearDown() override {
        if (pid() != 0) stop();
        a.close();
        umount2(path("/data").c_str(), MNT_DETACH);
        daemon_test::TearDown();
    }
};

TEST_F(FailingCommit, AFullDiskIsAnErrorAndLeavesTheOldFileWhole) {
    begin_on_tmpfs("size=64k");
    put("/data/filler", std::string(100'000, 'x'));
    expect_failure("No space left on device", [this] {
        EXPECT_EQ(file("/data/box"), k_box);
        EXPECT_EQ(names("/data"), "box box.ucfgd-tmp filler ");
        fs::remove(path("/data/filler"));
    });
}

TEST_F(FailingCommit, AReadOnlyFileSystemIsAnErrorAndLeavesTheOldFileWhole) {
    begin_on_tmpfs("");
    const std::string data = path("/data");
    ASSERT_EQ(mount(nullptr, data.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    expect_failure("Read-only file system", [&] {
        EXPECT_EQ(file("/data/box"), k_box);
        EXPECT_EQ(names("/data"), "box ");
        EXPECT_EQ(mount(nullptr, data.c_str(), nullptr, MS_REMOUNT, nullptr), 0);
    });
}

TEST_F(FailingCommit, AVanishedDirectoryIsAnErrorUntilItIsBack) {
    begin_on_tmpfs("");
    const std::string data = path("/data");
    umount2(data.c_str(), MNT_DETACH);
    fs::remove(data);
    /* There is no file to read the old value from, and yet the refused edit is gone. */
    expect_failure("No such file or directory", [&] {
        EXPECT_FALSE(fs::exists(data));
        put("/data/box", k_box);
    });
}

TEST_F(Commit, AFileThatVanishedMeanwhileIsMadeAnewByTheNextWhoKnowsThat) {
    begin();
    fs::rename(path("/etc/box.conf"), path("/kept"));
    EXPECT_EQ(a.ask("1 REVERT"), "1 ERR No such file or directory\n");
    fs::rename(path("/kept"), path("/etc/box.conf"));
    EXPECT_EQ(a.ask("1 REVERT") + a.ask("1 SET name gamma") + a.ask("1 COMMIT"),
              "1 OK\n1 OK\n1 OK\n");
    a.ask("1 SET name beta");
    fs::remove(path("/etc/box.conf"));
    EXPECT_EQ(a.ask("2 COMMIT"),
              "2.error error.commit.conflict\n2.error.arg /etc/box.conf\n2.error.arg it has been "
              "removed\n2 ERR /etc/box.conf: others have changed it meanwhile: it has been "
              "removed\n");
    a.ask("3 SET name beta");
    EXPECT_EQ(a.ask("4 COMMIT"), "4 OK\n");
    EXPECT_EQ(file("/etc/box.conf"), k_new_box);
}

TEST_F(Commit, NamesEveryFileThatOthersChangedAndTellsOfMergesThatItHasWritten) {
    begin();
    const std::string edits =
        "1.1 SET name beta\n1.2 SET hosts.192%2e0%2e2%2e11.name post\n1 SUBMIT";
    a.ask(edits);
    put("/etc/hosts", "198.51.100.1 new\n" + file("/etc/hosts"));
    put("/etc/box.conf", "# the box\nname = other\nlevel = 5\n");
    EXPECT_NE(a.ask("2 COMMIT").find("\n2 ERR /etc/box.conf: others "), std::string::npos);
    EXPECT_FALSE(logged("merged with"));
    a.ask(edits);
    put("/etc/hosts", "192.0.2.11 theirs\n# a\n");
    put("/etc/box.conf", "# the box\nlevel = 5\n");
    EXPECT_EQ(a.ask("3 COMMIT"),
              "3.error error.commit.conflict\n3.error.arg /etc/box.conf\n3.error.arg line 1\n"
              "3.error.arg /etc/hosts\n3.error.arg lines 1-2\n3 ERR /etc/box.conf: others have "
              "changed it meanwhile: line 1; /etc/hosts: others have changed it meanwhile: lines "
              "1-2\n");
    a.ask("4 SET hosts.192%2e0%2e2%2e11.name post");
    append("/etc/hosts", "# b\n");
    EXPECT_EQ(a.ask("5 COMMIT"), "5 OK\n");
    EXPECT_EQ(file("/etc/hosts"), "192.0.2.11 post\n# a\n# b\n");
    EXPECT_TRUE(logged("\n/etc/hosts: merged with changes made by others"));
}

constexpr const char *k_slow = "pre-commit: system('sleep 0.5')";

TEST_F(Commit, ADaemonThatIsKilledLeavesTheOldOrTheNewFile) {
    begin_with_box(k_slow);
    a.ask("1 SET name beta");
    a.send("2 COMMIT\n");
    ASSERT_TRUE(eventually([this] { return child() != 0; }));
    kill_daemon();
    EXPECT_EQ(file("/etc/box.conf"), k_box);
    EXPECT_EQ(a.line(), "<closed>");
    /* What it began is brought to its end, and the next daemon finds it. */
    EXPECT_TRUE(eventually([this] { return file("/etc/box.conf") != k_box; }));
    EXPECT_EQ(file("/etc/box.conf"), k_new_box);
    start();
    EXPECT_EQ(logged_in().ask("1 GET name"), "1.1 beta\n1 OK\n");
}

TEST_F(Commit, AWriterThatIsKilledBehindItsWritingIsAnErrorAndLeavesTheNewFile) {
    begin_with_box("post-commit: system('sleep 0.5')");
    EXPECT_EQ(a.ask("1 SET name beta"), "1 OK\n");
    a.send("2 COMMIT\n3 GET name\n");
    ASSERT_TRUE(eventually([this] { return file("/etc/box.conf") == k_new_box; }));
    ASSERT_NE(child(), 0);
    kill(child(), SIGKILL);
    EXPECT_EQ(a.reply("3"), "2 ERR Input/output error\n3.1 beta\n3 OK\n");
}

TEST_F(Commit, ThatHangsIsEndedWithWhatItStartedByItsTimeOrAnAction) {
    append("/etc/ucfgd/ucfgd.conf", "limits {\n    commit-time: 1\n}\n");
    append("/etc/ucfgd/management.conf",
           "commit {\n info: commitstatus()\n admin: commitend()\n}\n");
    begin_with_box("pre-commit: system('echo $$ > " + path("/hook") + "; exec sleep 100')");
    client b = logged_in();
    const auto hook = [this] { return std::atoi(file("/hook").c_str()); };
    a.ask("1 SET name beta");
    a.send("2 COMMIT\n");
    ASSERT_TRUE(eventually([&] { return hook() > 1; }));
    b.send("2 COMMIT\n");
    EXPECT_EQ(a.reply("2"), "2 ERR Timer expired\n");
    EXPECT_EQ(b.reply("2"), "2 ERR commit conflict\n");
    EXPECT_TRUE(eventually([&] { return kill(hook(), 0) != 0; }));
    EXPECT_TRUE(logged("commit of user 'root' waits for that of user 'root', process "));
    EXPECT_TRUE(logged("limit commit-time: 1: commit of user 'root', process "));
    EXPECT_EQ(file("/etc/box.conf"), k_box);
    a.ask("3 SET name beta");
    a.send("4 COMMIT\n");
    ASSERT_TRUE(eventually([this] { return child() != 0; }));
    EXPECT_EQ(b.ask("3 INFO commit").find("3.1 user+root,+process+"), 0u);
    EXPECT_EQ(b.ask("4 ADMIN commit"), "4.1 \n4.2 \n4 OK\n");
    EXPECT_EQ(a.reply("4"), "4 ERR Input/output error\n");
    EXPECT_EQ(b.ask("5 ADMIN commit"), "5.1 \n5.2 \n5 ERR\n");
}

TEST_F(Commit, ALargeTreeIsTriedWhileOthersAreServed) {
    std::string large;
    for (int i = 0; i < 30'000; i++)
        large += "s" + std::to_string(i) + " {\n    k: v\n}\n";
    put("/etc/large", large);
    begin("large {\n    module: tavconf\n    file: /etc/large\n}\n",
          "broken {\n    set: lladd('large', 's7', 'b:')\n}\n"
          "whole {\n    set: llset('large', 's7/k:', $_)\n}\n");
    a.ask("t SET broken ''");
    const std::string refused = a.ask("t COMMIT");
    EXPECT_NE(refused.find("error.commit.text"), std::string::npos) << refused;
    EXPECT_EQ(a.ask("t DIRTY"), "t.dirty 1\nt OK\n") << "the session keeps its edits";
    EXPECT_TRUE(file("/etc/large") == large);
    a.ask("r REVERT\nt SET whole w");
    EXPECT_EQ(a.ask("t COMMIT"), "t OK\n");
    EXPECT_TRUE(file("/etc/large") == replaced(large, "s7 {\n    k: v", "s7 {\n    k: w"));
}

TEST_F(Commit, OfTwoAtOnceTheSecondMeetsAConflict) {
    begin_with_box(k_slow);
    client b = logged_in();
    a.ask("1 SET name beta");
    b.ask("1 SET level 7");
    a.send("2 COMMIT\n");
    ASSERT_TRUE(eventually([this] { return child() != 0; }));
    b.send("2 COMMIT\n3 GET level\n");
    EXPECT_TRUE(b.silent_for(30));
    EXPECT_EQ(a.reply("2"), "2 OK\n");
    EXPECT_EQ(b.reply("2"), "2 ERR commit conflict\n");
    EXPECT_EQ(b.reply("3"), "3.1 7\n3 OK\n");
    EXPECT_EQ(b.ask("4 REVERT"), "4 OK\n");
    EXPECT_EQ(b.ask("5 SET level 7"), "5 OK\n");
    EXPECT_EQ(b.ask("6 COMMIT"), "6 OK\n");
    EXPECT_EQ(file("/etc/box.conf"), "# the box\nname = beta\nlevel = 7\n");
}

TEST_F(Commit, OthersWorkOnWhileItRunsAndItsOwnLinesWait) {
    begin_with_box(k_slow);
    client b = logged_in();
    a.ask("1 SET name beta");
    a.send("2 COMMIT\n3 SET name gamma\n4 GET name\n5 DIRTY\n");
    ASSERT_TRUE(eventually([this] { return child() != 0; }));
    EXPECT_EQ(b.ask("1 SET level 6"), "1 OK\n");
    EXPECT_EQ(b.ask("2 GET level"), "2.1 6\n2 OK\n");
    EXPECT_EQ(b.ask("3.1 ADD hosts 9%2e9%2e9%2e9\n3 SUBMIT"), "3.1 OK\n3 OK\n");
    EXPECT_EQ(b.ask("4 CURRENT"), "4 OK\n");
    EXPECT_NE(child(), 0);
    EXPECT_TRUE(a.silent_for(0));
    EXPECT_EQ(a.reply("5"), "2 OK\n3 OK\n4.1 gamma\n4 OK\n5.dirty 1\n5 OK\n");
    EXPECT_EQ(b.ask("5 CURRENT"), "5 ERR commit conflict\n");
    EXPECT_EQ(b.ask("6 GET level"), "6.1 6\n6 OK\n");
    EXPECT_EQ(file("/etc/box.conf"), k_new_box);
}

TEST_F(Commit, ASessionThatGoesAwayMeanwhileLeavesItsCommitRunning) {
    begin_with_box(k_slow);
    client b = logged_in();
    a.ask("1 SET name beta");
    a.send("2 COMMIT\n");
    ASSERT_TRUE(eventually([this] { return child() != 0; }));
    a.close();
    EXPECT_TRUE(eventually([this] { return child() == 0; }));
    EXPECT_EQ(file("/etc/box.conf"), k_new_box);
    EXPECT_TRUE(eventually([&] { return b.ask("1 CURRENT") == "1 ERR commit conflict\n"; }));
    EXPECT_EQ(b.ask("2 UPDATE"), "2 OK updated\n");
    EXPECT_EQ(b.ask("3 GET name"), "3.1 beta\n3 OK\n");
}

TEST_F(Commit, AStopWaitsForTheOneThatRunsAndAnswersEachClientThatWaits) {
    begin_with_box(k_slow);
    append("/etc/ucfgd/ucfgd.conf", "limits {\n stop-time: 1\n}\n");
    client b = logged_in();
    client idle = logged_in();
    a.ask("1 SET name beta");
    b.ask("1 SET level 7");
    a.send("2 COMMIT\n3 SET name gamma\n4 COMMIT\n");
    ASSERT_TRUE(eventually([this] { return child() != 0; }));
    b.send("2 COMMIT\n");
    EXPECT_TRUE(b.silent_for(30));
    kill(pid(), SIGTERM);
    EXPECT_EQ(idle.line(), "<closed>");
    EXPECT_EQ(a.line(), "2 OK\n");
    EXPECT_EQ(a.line(), "<closed>");
    EXPECT_EQ(b.line(), "2 ERR commit conflict\n");
    EXPECT_EQ(b.line(), "<closed>");
    EXPECT_EQ(wait_for_end(), 0);
    EXPECT_EQ(file("/etc/box.conf"), k_new_box);
    /* A second signal, and the limit, end the wait. */
    put("/etc/ucfgd/modules.conf", replaced(file("/etc/ucfgd/modules.conf"), "0.5", "3"));
    for (const int more : {SIGTERM, 0}) {
        start();
        a = logged_in();
        a.ask("1 SET name delta");
        a.send("2 COMMIT\n");
        ASSERT_TRUE(eventually([this] { return child() != 0; }));
        kill(pid(), SIGTERM);
        EXPECT_TRUE(eventually([this] { return logged("waiting for the commit of process"); }));
        if (more != 0) kill(pid(), more);
        EXPECT_EQ(wait_for_end(), 0);
        EXPECT_EQ(logged("limit stop-time: 1: the commit of process "), more == 0);
        EXPECT_EQ(file("/etc/box.conf"), k_new_box);
    }
}

TEST_F(Commit, HooksRunBeforeAndBehindEachWrittenFileInTheirOrder) {
    const std::string look =
        "system('cat " + path("/etc/box.conf") + " >> " + path("/notes") + "')";
    begin_with_box("post-commit: " + note("post1") + "\n    pre-commit: " + note("pre1") +
                   "\n    pre-commit: " + look + "\n    post-commit: " + look +
                   "\n    post-commit: fail()\n    pre-read: " + note("read"));
    EXPECT_EQ(file("/notes"), "read\n");
    a.ask("1 ADD hosts 9%2e9%2e9%2e9");
    EXPECT_EQ(a.ask("2 COMMIT"), "2 OK\n");
    EXPECT_EQ(file("/notes"), "read\n");
    a.ask("3 SET name beta");
    EXPECT_EQ(a.ask("4 COMMIT"), "4 OK\n");
    EXPECT_EQ(file("/notes"),
              "read\npre1\n" + std::string{k_box} + "post1\n" + std::string{k_new_box} + "read\n");
}

const char *const k_instances = R"(
notes {
    del: llset('note-' .. $_, 'text', '-') && llmoddelete('note-' .. $_)
    list: split('one two three', ' ')
    * {
        text {
            get: llget('note-' .. $1, 'text')
            set: llset('note-' .. $1, 'text', $_)
        }
    }
}
made {
    add: llmodcreate('note-' .. $_, 'keyvalue', '/etc/notes/' .. $_) && lladdne('note-' .. $_, '', 'text') && llset('note-' .. $_, 'text', 'empty')
}
)";

TEST_F(Commit, AnInstanceIsMadeAndDeletedWithItsFile) {
    fs::create_directory(path("/etc/notes"));
    begin("", k_instances);
    EXPECT_EQ(a.ask("1 ADD made one"), "1 OK\n");
    EXPECT_EQ(a.ask("2.1 ADD made two\n2.2 SET notes.two.text second\n2 SUBMIT"),
              "2.1 OK\n2.2 OK\n2 OK\n");
    EXPECT_EQ(a.ask("3 COMMIT"), "3 OK\n");
    EXPECT_EQ(file("/etc/notes/one"), "text empty\n");
    EXPECT_EQ(file("/etc/notes/two"), "text second\n");
    EXPECT_EQ(a.ask("4 SET notes.one.text first"), "4 OK\n");
    EXPECT_EQ(a.ask("5 DEL notes two"), "5 OK\n");
    EXPECT_EQ(a.ask("6 COMMIT"), "6 OK\n");
    EXPECT_EQ(file("/etc/notes/one"), "text first\n");
    EXPECT_EQ(names("/etc/notes"), "one ");
}

}  // namespace
