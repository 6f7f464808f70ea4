#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>

#include "daemon_fixture.h"

/* The parameters of the secure shell server on files as administrators write them, and what the
 * real sshd makes of these then. */

namespace {

namespace fs = std::filesystem;

constexpr std::string_view k_main = "/etc/ssh/sshd_config";
constexpr std::string_view k_debian =
    "# See sshd_config(5)\n\nInclude /etc/ssh/sshd_config.d/*.conf\n\n#Port 22\n"
    "KbdInteractiveAuthentication no\nUsePAM yes\nX11Forwarding yes\n"
    "Subsystem\tsftp\t/usr/lib/openssh/sftp-server\n";

class Sshd : public daemon_test {
  protected:
    /* The daemon and sshd see the scratch root's /etc as the machine's, since sshd knows no other.
     */
    void prepare() override {
        if (access("/usr/sbin/sshd", X_OK) != 0) GTEST_SKIP() << "there is no sshd here";
        fs::remove_all(path("/etc"));
        fs::create_directories(path("/etc/ssh/sshd_config.d"));
        fs::copy(SOURCE_DIR "/packaging/etc/ucfgd", path("/etc/ucfgd"),
                 fs::copy_options::recursive);
        fs::create_directory(path("/etc/alternatives"));
        fs::copy_symlink("/etc/alternatives/awk", path("/etc/alternatives/awk"));
        std::string conf = file("/etc/ucfgd/ucfgd.conf");
        for (std::string_view name : {" /dev/ucfgd", " /var/lib"})
            conf.insert(conf.find(name) + 1, path(""));
        put("/etc/ucfgd/ucfgd.conf", conf);
        put("/etc/passwd", "root:x:0:0::/root:/bin/sh\nsshd:x:100:65534::/run/sshd:/bin/false\n");
        run_program({"/usr/bin/ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f",
                     path("/etc/ssh/ssh_host_ed25519_key")});
        before_exec = [this] {
            if (unshare(CLONE_NEWNS) != 0 ||
                mount(path("/etc").c_str(), "/etc", nullptr, MS_BIND, nullptr) != 0)
                _exit(126);
        };
    }

    /* What sshd says of a keyword; all values of one that adds up. */
    std::string effective(const std::string &keyword) const {
        program_result said = run_program({"/usr/sbin/sshd", "-T"}, before_exec);
        said.out.insert(0, 1, '\n');
        std::string values = said.err;
        for (size_t at = 0; (at = said.out.find('\n' + keyword + ' ', at)) != std::string::npos;) {
            at += keyword.size() + 2;
            values +=
                (values.empty() ? "" : " ") + said.out.substr(at, said.out.find('\n', at) - at);
        }
        return values;
    }
};

struct setting {
    std::string_view main, other; /* the files: sshd_config, sshd_config.d/50-cloud-init.conf */
    std::string_view parameter, value, keyword;
    std::string_view
        result; /* main afterwards; what stands in the refusal, where there is no keyword */
};

constexpr setting k_settings[] = {
    {"X11Forwarding yes\n", "", "x11", "no", "x11forwarding", "X11Forwarding no\n"},
    {"Include sshd_config.d/*.conf\n\n\tX11Forwarding yes\n", "PasswordAuthentication no\n", "x11",
     "no", "x11forwarding", "Include sshd_config.d/*.conf\n\n\tX11Forwarding no\n"},
    {"# site\nInclude /etc/ssh/sshd_config.d/*.conf\nPasswordAuthentication no\n",
     "PasswordAuthentication no\n", "password-login", "yes", "passwordauthentication",
     "# site\nPasswordAuthentication yes\nInclude /etc/ssh/sshd_config.d/*.conf\n"
     "PasswordAuthentication no\n"},
    {"PORT=22 # here\n", "", "port", "2222", "port", "PORT=2222 # here\n"},
    {"permitrootlogin = \"no\" # so\n", "", "root-login", "yes", "permitrootlogin",
     "permitrootlogin = \"yes\" # so\n"},
    {"match user git\n X11Forwarding no\n", "", "x11", "yes", "x11forwarding",
     "X11Forwarding yes\nmatch user git\n X11Forwarding no\n"},
    {"MATCH all\n MaxAuthTries 3\n", "", "max-tries", "5", "", "/etc/ssh/sshd_config:2"},
    {k_debian, "Port 22\nPort 2200\n", "port", "2222", "",
     "/etc/ssh/sshd_config.d/50-cloud-init.conf:1"},
    {"ListenAddress 127.0.0.1:77\n", "", "port", "2222", "", "/etc/ssh/sshd_config:1"},
    {"Port 22\nUsePAM yes\nPort 2200\n", "", "port", "2222", "port", "Port 2222\nUsePAM yes\n"},
    {"UsePAM yes\nListenAddress ::1\nPort 22\n", "", "port", "22 2200", "port",
     "UsePAM yes\nListenAddress ::1\nPort 22\nPort 2200\n"},
    {"Include /etc/ssh/*.inc\nClientAliveInterval 10\n", "Port 22\n", "alive-interval", "30",
     "clientaliveinterval",
     "ClientAliveInterval 30\nInclude /etc/ssh/*.inc\nClientAliveInterval 10\n"},
    {"MaxAuthTries 4\nmaxauthtries 5\n", "", "max-tries", "2", "maxauthtries",
     "MaxAuthTries 2\nmaxauthtries 5\n"},
    {"UsePAM yes\n\"X11Forwarding\" yes\n", "", "x11", "no", "x11forwarding",
     "UsePAM yes\n\"X11Forwarding\" no\n"},
    {"UsePAM yes\n\"Match\" user git\nMaxAuthTries 5\n", "", "max-tries", "2", "maxauthtries",
     "UsePAM yes\nMaxAuthTries 2\n\"Match\" user git\nMaxAuthTries 5\n"},
    {"Include \"/etc/ssh/a b\"\nX11Forwarding no\n", "", "x11", "no", "x11forwarding",
     "X11Forwarding no\nInclude \"/etc/ssh/a b\"\nX11Forwarding no\n"},
    {"# nothing\n", "", "key-login", "yes", "pubkeyauthentication",
     "# nothing\nPubkeyAuthentication yes\n"},
    {"Match user git\n Include /etc/ssh/sshd_config.d/*.conf\n", "X11Forwarding yes\n", "x11", "no",
     "x11forwarding", "X11Forwarding no\nMatch user git\n Include /etc/ssh/sshd_config.d/*.conf\n"},
    {"UsePAM yes\r\nX11Forwarding 'yes'\r\n", "", "x11", "no", "x11forwarding",
     "UsePAM yes\r\nX11Forwarding 'no'\r\n"},
    {"PubkeyAuthentication no\nInclude /etc/ssh/sshd_config.d/*.conf\n", "", "password-login", "no",
     "", "neither passwords nor keys"},
};

TEST_F(Sshd, SaysOfWhateverFilesAfterwardsWhatWasSet) {
    put(k_main, k_debian);
    put("/etc/ssh/a.inc", "Include /etc/ssh/deep/*\n");
    put("/etc/ssh/a b", "X11Forwarding yes\n");
    put("/etc/ssh/deep/b", "ClientAliveInterval 5m\n");
    start({"--root="});
    for (const setting &row : k_settings) {
        put(k_main, row.main);
        put("/etc/ssh/sshd_config.d/50-cloud-init.conf", row.other);
        client c = logged_in();
        const std::string name = "ssh." + std::string{row.parameter};
        std::string value{row.value};
        if (value.find(' ') != std::string::npos) value[value.find(' ')] = '+';
        const std::string reply =
            c.ask(std::string{"a SET "}.append(name).append(" ").append(value));
        if (row.keyword.empty()) {
            EXPECT_NE(reply.find(row.result), std::string::npos) << row.main << reply;
            continue;
        }
        EXPECT_EQ(reply, "a OK\n") << row.main;
        EXPECT_EQ(c.ask("b GET " + name), "b.1 " + value + "\nb OK\n") << row.main;
        EXPECT_EQ(c.ask("c COMMIT").substr(0, 5), "c OK\n") << row.main;
        EXPECT_EQ(effective(std::string{row.keyword}), row.value) << row.main;
        EXPECT_EQ(file(k_main), row.result);
        EXPECT_EQ(c.ask("d GET " + name), "d.1 " + value + "\nd OK\n") << row.main;
    }
}

/* What the session could not know when it was told OK is found out by the commit. */
TEST_F(Sshd, RefusesACommitThatWouldHaveNoEffectOrLockEverybodyOut) {
    put(k_main, k_debian);
    start({"--root="});
    client a = logged_in();
    EXPECT_EQ(a.ask("a SET ssh.x11 no"), "a OK\n");
    put("/etc/ssh/sshd_config.d/50.conf", "X11Forwarding yes\n");
    std::string reply = a.ask("a COMMIT");
    EXPECT_NE(reply.find("sshd_config.d/50.conf:1 sets x11forwarding before"), std::string::npos)
        << reply;
    EXPECT_EQ(file(k_main), k_debian);
    put("/etc/ssh/sshd_config.d/50.conf", "KbdInteractiveAuthentication no\n");
    client b = logged_in();
    EXPECT_EQ(b.ask("b SET ssh.key-login no"), "b OK\n");
    append("/etc/ssh/sshd_config.d/50.conf", "PasswordAuthentication no\n");
    reply = b.ask("b COMMIT");
    EXPECT_NE(reply.find("no way to log in would be left"), std::string::npos) << reply;
    put("/etc/default/ssh", "SSHD_OPTS='-oPort=23 -oMaxAuthTries=3'\n");
    for (std::string_view row : {"port 23 22", "max-tries 3 4"}) {
        const size_t blank = row.find(' ');
        const std::string name = " ssh." + std::string{row.substr(0, blank)};
        client d = logged_in();
        EXPECT_TRUE(d.ask("d GET" + name).starts_with("d.1" + std::string{row.substr(blank, 2)}));
        EXPECT_EQ(d.ask("e SET" + name + std::string{row.substr(row.rfind(' '))}), "e OK\n");
        EXPECT_NE(d.ask("f COMMIT").find("ERR sshd: it would "), std::string::npos);
    }
    append(k_main, "Prot 22\n");
    for (std::string_view request : {"GET ssh.port", "SET ssh.key-login no"}) {
        reply = logged_in().ask("c " + std::string{request});
        EXPECT_NE(reply.find("/etc/ssh/sshd_config: line 10: Bad configuration option: Prot"),
                  std::string::npos)
            << reply;
    }
}

}  // namespace
