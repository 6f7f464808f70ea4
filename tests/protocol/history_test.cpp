#include "daemon_fixture.h"

/* Commits that have been made: what is told of them, and to whom. */

namespace {

class History : public daemon_test {
  protected:
    /* With more fields of the one module that sets a mode. */
    void begin(const std::string &fields = "mode: 0640") {
        use_appliance();
        std::string modules = file("/etc/ucfgd/modules.conf");
        put("/etc/ucfgd/modules.conf", modules.replace(modules.find("mode: 0640"), 10, fields));
        start();
        if (!HasFatalFailure()) a = logged_in();
    }

    /* Sets, with OK as the answer, and commits. */
    void commit(const std::string &setting) {
        EXPECT_EQ(a.ask("s SET " + setting), "s OK\n") << setting;
        EXPECT_EQ(a.ask("t COMMIT"), "t OK\n");
    }

    /* What INFO tells of a node below commits, unescaped as far as tests need it. */
    std::string info(const std::string &node) { return unescaped(a.ask("i INFO commits." + node)); }

    static std::string unescaped(std::string text) {
        for (size_t at = 0; (at = text.find_first_of("%+", at)) != std::string::npos; at++) {
            if (text[at] == '+')
                text[at] = ' ';
            else
                text.replace(at, 3, 1,
                             static_cast<char>(std::stoi(text.substr(at + 1, 2), nullptr, 16)));
        }
        return text;
    }

    client a;
};

TEST_F(History, TellsOfEachCommitWhoWhenWhyAndWhat) {
    begin();
    commit("system.location first");
    EXPECT_EQ(a.ask("1 SET commits.comment new%20port"), "1 OK\n");
    EXPECT_EQ(a.ask("2 GET commits.comment"), "2.1 new+port\n2 OK\n");
    commit("ssh.port 2222");
    EXPECT_EQ(a.ask("3 GET commits.comment"), "3.1 \n3 OK\n");
    EXPECT_EQ(a.ask("4 MLIST commits.history"), "4.1 2\n4.1 1\n4 OK\n");
    EXPECT_EQ(info("history.2.comment"), "i.1 new port\ni OK\n");
    EXPECT_EQ(info("history.1.comment"), "i.1 \ni OK\n");
    EXPECT_EQ(info("history.2.user"), "i.1 root\ni OK\n");
    EXPECT_EQ(info("history.2.state"), "i.1 done\ni OK\n");
    EXPECT_EQ(info("history.2.from").find("i.1 local, uid=0 gid=0 pid="), 0u);
    EXPECT_NE(info("history.2.time").find(" UTC\ni OK"), std::string::npos);
    EXPECT_EQ(info("history.2.files"), "i.1 replaced /etc/ssh/sshd_config\ni OK\n");
    const std::string diff = info("history.2.diff");
    EXPECT_EQ(diff.find("i.1 --- a/etc/ssh/sshd_config\n+++ b/etc/ssh/sshd_config\n@@ "), 0u);
    EXPECT_NE(diff.find("\n+Port 2222\n"), std::string::npos);
    EXPECT_EQ(info("history.3.user"), "i ERR commitinfo: there is no commit 3\n");
    EXPECT_EQ(info("history.02.user"), "i ERR commitinfo: there is no commit 02\n");
}

TEST_F(History, ShowsDifferencesToAdministratorsOnly) {
    begin();
    commit("radius.secret twelve-bytes");
    client watcher = logged_in("l.1 perms read exec\nl LOGIN root");
    EXPECT_EQ(watcher.ask("1 INFO commits.history.1.files"),
              "1.1 replaced+/etc/default/appliance\n1 OK\n");
    EXPECT_EQ(watcher.ask("2 INFO commits.history.1.diff"), "2 NO permission denied\n");
    EXPECT_EQ(watcher.ask("3 ADMIN commits.history.1.diff"), "3 NO permission denied\n");
    EXPECT_NE(info("history.1.diff").find("\n+RADIUS_SECRET="), std::string::npos);
    EXPECT_NE(a.ask("4 ADMIN commits.history.1.diff").find("\n4.1 +RADIUS_SECRET="),
              std::string::npos);
}

TEST_F(History, KeepsWhatHooksSayOfTheirWork) {
    begin(
        "mode: 0640\n    pre-commit: commitnote('disk', 'full', '') && fail()\n"
        "    post-commit: commitnote('ssh', 'failed', 'no such service')");
    commit("system.location here");
    EXPECT_EQ(info("history.1.notes"), "i.1 disk: full\nssh: failed: no such service\ni OK\n");
    commit("system.contact me");
    EXPECT_EQ(info("history.2.notes"), info("history.1.notes"));
}

}  // namespace
