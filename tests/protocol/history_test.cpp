#include <sys/stat.h>
#include <unistd.h>

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

    /* What ADMIN prints, without the tags and the empty lines at its end. */
    std::string action(const std::string &node) {
        const std::string reply = a.ask("a ADMIN commits." + node);
        std::string text;
        for (size_t at = 0; reply.compare(at, 4, "a.1 ") == 0;) {
            const size_t end = reply.find('\n', at) + 1;
            if (end - at > 5) text += reply.substr(at + 4, end - at - 4);
            at = end;
        }
        for (size_t at = 0; (at = text.find("%09", at)) != std::string::npos;)
            text.replace(at, 3, "\t");
        for (size_t at = 0; (at = text.find("%25", at)) != std::string::npos; at++)
            text.replace(at, 3, "%");
        return text;
    }

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
    EXPECT_EQ(info("history.3.user"), "i ERR there is no commit 3\n");
    EXPECT_EQ(info("history.02.user"), "i ERR there is no commit 02\n");
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

TEST_F(History, LoadsTheFilesAsTheyStoodAfterACommitAsEdits) {
    begin();
    const std::string hosts = file("/etc/hosts");
    commit("ssh.port 2222");
    commit("network.hosts.192%2e0%2e2%2e11.name post");
    commit("ssh.port 3333");
    EXPECT_EQ(a.ask("1 SET commits.load 1"), "1 OK\n");
    EXPECT_EQ(a.ask("2 GET ssh.port"), "2.1 2222\n2 OK\n");
    EXPECT_EQ(a.ask("3 DIRTY"), "3.dirty 1\n3 OK\n");
    EXPECT_NE(file("/etc/hosts"), hosts);
    commit("system.location here");
    EXPECT_EQ(file("/etc/hosts"), hosts);
    EXPECT_NE(file("/etc/ssh/sshd_config").find("Port 2222\n"), std::string::npos);
    EXPECT_EQ(a.ask("4 SET commits.load 9"),
              "4.error error.commit.number\n4.error.arg 9\n4 ERR there is no commit 9\n");
    client writer = logged_in("l.1 perms read write\nl LOGIN root");
    EXPECT_EQ(writer.ask("1 SET commits.undo 1"), "1 NO permission denied\n");
    EXPECT_EQ(writer.ask("2 SET commits.comment x"), "2 OK\n");
}

TEST_F(History, UndoesOneCommitAndKeepsWhatHasBeenChangedSince) {
    begin();
    const std::string sshd = file("/etc/ssh/sshd_config");
    commit("ssh.x11 no");
    commit("ssh.port 3333");
    EXPECT_EQ(a.ask("1 SET commits.undo 1"), "1 OK\n");
    EXPECT_EQ(a.ask("2 COMMIT"), "2 OK\n");
    EXPECT_EQ(file("/etc/ssh/sshd_config"), sshd + "Port 3333\n");
    commit("ssh.port 4444");
    EXPECT_EQ(a.ask("3.1 SET commits.comment lost\n3.2 SET commits.undo 2\n3 SUBMIT"),
              "3.1 OK\n3.2.error error.commit.overlap\n3.2.error.arg /etc/ssh/sshd_config\n"
              "3.2.error.arg line 123\n3.2 ERR commit 2 cannot be undone: /etc/ssh/sshd_config has "
              "been changed since in line 123\n3 ERR\n");
    EXPECT_EQ(a.ask("4 SET commits.undo 2").find("4 ERR result=2 commit 2 cannot be undone: "), 0U);
    EXPECT_EQ(a.ask("4 DIRTY"), "4.dirty 0\n4 OK\n");
    EXPECT_EQ(a.ask("5 GET commits.comment"), "5.1 \n5 OK\n");
    for (const char *port : {"5", "6"}) {
        const std::string host = "6.1 SET network.hosts.192%2e0%2e2%2e11.name h";
        a.ask(host + port + "\n6.2 SET ssh.port " + port + "\n6 SUBMIT");
        EXPECT_EQ(a.ask("7 COMMIT"), "7 OK\n");
    }
    const std::string refusal = a.ask("8 SET commits.undo 5");
    EXPECT_NE(refusal.find("/etc/hosts has been changed since in line "), std::string::npos);
    EXPECT_NE(refusal.find("/etc/ssh/sshd_config has been changed since in line 123"),
              std::string::npos);
}

TEST_F(History, GivesBackOwnerAndModeAndThatThereWasNoFile) {
    begin("");
    const std::string name = path("/etc/default/appliance");
    const auto mode_of = [](const std::string &at) {
        struct stat st {};
        return stat(at.c_str(), &st) == 0 ? st.st_mode & 07777U : 0;
    };
    ASSERT_EQ(chmod(name.c_str(), 0600) + unlink(path("/etc/issue").c_str()), 0);
    a = logged_in();
    commit("system.location first");
    chmod(name.c_str(), 0644);
    commit("system.banner hello");
    EXPECT_EQ(a.ask("1 SET commits.load 1"), "1 OK\n");
    const std::string mode = "# mode of /etc/default/appliance: 0644 -> 0600\n";
    EXPECT_TRUE(action("changes").ends_with(mode + "# removed: /etc/issue\n"));
    EXPECT_EQ(action("diff").substr(0, mode.size()), mode);
    commit("system.contact me");
    EXPECT_EQ(mode_of(name), 0600U);
    EXPECT_EQ(file("/etc/issue"), "<missing>");
    EXPECT_NE(info("history.3.changes").find(mode), std::string::npos);
    EXPECT_NE(info("history.2.changes").find("# created: /etc/issue"), std::string::npos);
    commit("commits.undo 3");
    EXPECT_EQ(mode_of(name), 0644U);
    EXPECT_EQ(file("/etc/issue"), "hello\n");
    EXPECT_EQ(a.ask("2.1 SET commits.load 1\n2.2 SET system.banner more\n2 SUBMIT"),
              "2.1 OK\n2.2 OK\n2 OK\n");
    EXPECT_EQ(a.ask("3 COMMIT"), "3 OK\n");
    EXPECT_EQ(file("/etc/issue"), "more\n");
}

TEST_F(History, BringsFilesOfADirectoryBackAndTakesThemAway) {
    begin("mode: 0640\n}\ndropins {\n module: keyvalue\n file: /etc/dropins\n pattern: \"*.conf\"");
    stop();
    put("/etc/dropins/a.conf", "level 1\n");
    append("/etc/ucfgd/param.conf",
           "dropins {\n list: lllist('dropins', '.')\n add: lladd('dropins', '', slashify($_))\n"
           " del: lldel('dropins', '', slashify($_))\n sanity: '1'\n * {\n  level {\n"
           "   set: lladdne('dropins', slashify($1), 'level') && llset('dropins', slashify($1) .. "
           "'/level', $_)\n   sanity: '1'\n  }\n }\n}\n");
    start();
    a = logged_in();
    commit("dropins.a%2econf.level 2");
    EXPECT_EQ(a.ask("1 ADD dropins b.conf"), "1 OK\n");
    EXPECT_EQ(a.ask("2 DEL dropins a.conf"), "2 OK\n");
    commit("dropins.b%2econf.level 3");
    EXPECT_EQ(info("history.2.files"),
              "i.1 created /etc/dropins/b.conf\nremoved /etc/dropins/a.conf\ni OK\n");
    commit("commits.load 1");
    EXPECT_EQ(file("/etc/dropins/a.conf") + file("/etc/dropins/b.conf"), "level 2\n<missing>");
    commit("commits.undo 3");
    EXPECT_EQ(file("/etc/dropins/a.conf") + file("/etc/dropins/b.conf"), "<missing>level 3\n");
}

TEST_F(History, ShowsBeforeACommitWhatItWouldChange) {
    begin("mode: 0640\n    post-commit: system('true')");
    EXPECT_NE(a.ask("1.1 SET radius.secret twelve-bytes\n1.2 DEL network.hosts 192%2e0%2e2%2e11\n"
                    "1.3 MOVE network.hosts ::1 ff02::1\n1.4 SET ssh.hardened yes\n"
                    "1.5 SET ssh.port 22\n1.6 SET system.banner one%0atwo\n1 SUBMIT")
                  .find("\n1 OK\n"),
              std::string::npos);
    EXPECT_EQ(a.ask("2 SET network.hosts.1%2e2%2e3%2e4.name refused").substr(0, 5), "2 ERR");
    const std::string changes =
        "- system.banner: Debian GNU/Linux 12 \\\\n \\\\l\\n\n+ system.banner: one\\ntwo\n"
        "- network.hosts: 127%2e0%2e0%2e1 127%2e0%2e1%2e1 192%2e0%2e2%2e10 192%2e0%2e2%2e12 ::1 "
        "ff02::1 ff02::2\n"
        "+ network.hosts: 127%2e0%2e0%2e1 127%2e0%2e1%2e1 192%2e0%2e2%2e10 192%2e0%2e2%2e12 "
        "ff02::1 ::1 ff02::2\n- network.hosts.192%2e0%2e2%2e11\n"
        "- network.hosts.192%2e0%2e2%2e11.name: mail.example.net\n"
        "- network.hosts.192%2e0%2e2%2e11.aliases: mail\n+ ssh.port: 22\n"
        "- ssh.root-login: prohibit-password\n+ ssh.root-login: no\n- ssh.password-login: yes\n"
        "+ ssh.password-login: no\n- ssh.hardened: no\n+ ssh.hardened: yes\n- radius.secret\n"
        "+ radius.secret\n- radius.secret-set: no\n+ radius.secret-set: yes\n"
        "# mode of /etc/default/appliance: 0644 -> 0640\n";
    EXPECT_EQ(action("changes"), changes);
    const std::string diff = action("diff");
    EXPECT_NE(diff.find("\n-192.0.2.11\tmail.example.net\tmail\t# moves"), std::string::npos);
    EXPECT_NE(diff.find("\n-RADIUS_SECRET=\n+RADIUS_SECRET="), std::string::npos);
    const std::string hooks = "# runs: post-commit of appliance\n";
    ASSERT_TRUE(diff.ends_with(hooks)) << diff;
    EXPECT_EQ(logged_in("l.1 perms read exec\nl LOGIN root").ask("3 ADMIN commits.diff"),
              "3 NO permission denied\n");
    client stale = logged_in();
    EXPECT_EQ(a.ask("4 COMMIT"), "4 OK\n");
    EXPECT_EQ(stale.ask("5 ADMIN commits.diff"), "5.1 commit conflict\n5.1 \n5.2 \n5 ERR\n");
    EXPECT_EQ(action("diff") + action("changes"), "");
    EXPECT_EQ(action("history.1.diff") + hooks, diff);
    EXPECT_EQ(action("history.1.changes"), changes);
    EXPECT_EQ(action("history.9.diff"), "there is no commit 9\n");
    EXPECT_EQ(info("history.1.changes"), "i.1 " + changes + "i OK\n");
}

TEST_F(History, ShowsTheMergeThatACommitWouldWrite) {
    begin();
    EXPECT_EQ(a.ask("1 SET network.hosts.192%2e0%2e2%2e11.name post"), "1 OK\n");
    put("/etc/hosts", "# of others\n" + file("/etc/hosts"));
    const std::string diff = action("diff");
    EXPECT_NE(diff.find("\n+192.0.2.11\tpost\t"), std::string::npos) << diff;
    EXPECT_EQ(diff.find("# of others"), std::string::npos) << diff;
    EXPECT_EQ(a.ask("2 COMMIT"), "2 OK\n");
    EXPECT_EQ(action("history.1.diff"), diff);
}

}  // namespace
