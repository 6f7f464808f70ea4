#include <filesystem>

#include "daemon_fixture.h"

/* The configuration as it is installed, on the files that a Debian system has. */

namespace {

namespace fs = std::filesystem;

/* What a start says when nothing is wrong; the locale depends on the machine. */
constexpr std::string_view k_clean_start = R"(parsing configuration...
	done.
initializing felib...
	done.
parsing functions...
	done.
parsing modules configuration...
	done.
initializing backend transaction management...
	done.
loading types...
	done.
parsing parameter tree...
	done.
parsing management tree from '/etc/ucfgd/management.conf'...
	done.
sucessfully started
setting up daemon environment... done.
)";

constexpr std::string_view k_hosts = R"(127.0.0.1	localhost old # and so
127.0.1.1	Old.example.net old
192.0.2.1	gw # the gateway
192.0.2.8	old.example.org
192.0.2.1	gw.example.net	gw_b gw_c # again
192.0.2.1	x
)";

constexpr std::string_view k_interfaces = R"(source /etc/network/interfaces.d/*

auto lo
iface lo inet loopback

allow-hotplug eth0
iface eth0 inet dhcp

auto eth1
iface eth1 inet static
    address 192.0.2.7
    netmask 255.255.254.0
)";

class Configuration : public daemon_test {
  protected:
    void prepare() override {
        fs::remove_all(path("/etc"));
        fs::create_directories(path("/etc"));
        fs::copy(SOURCE_DIR "/packaging/etc/ucfgd", path("/etc/ucfgd"),
                 fs::copy_options::recursive);
        put("/etc/passwd", "root:x:0:0:root:/root:/bin/bash\nman:x:6:12:man,,:/var/cache/man:\n");
    }

    void put_system() const {
        put("/etc/hostname", "# set by the installer\nold\n");
        put("/etc/hosts", k_hosts);
        put("/etc/network/interfaces", k_interfaces);
        put("/etc/systemd/timesyncd.conf", "[Time]\n#NTP=\nNTP=x\nNTP=y\n");
        put("/etc/systemd/timesyncd.conf.d/10-site.conf", "[Time]\nFallbackNTP=b.example\n");
        put("/usr/lib/systemd/timesyncd.conf.d/10-site.conf", "[Time]\nFallbackNTP=hidden\n");
        put("/usr/lib/systemd/timesyncd.conf.d/20.conf", "[Time]\nFallbackNTP=c.example\n");
        put("/etc/timezone", "Europe/Vienna\n"); /* the link says otherwise */
        for (const char *zone : {"Europe/Vienna", "Europe/Berlin", "posixrules", "right/UTC"})
            put(std::string{"/usr/share/zoneinfo/"} + zone, "TZif2");
        put("/usr/share/zoneinfo/leapseconds", "# none\n");
        fs::create_symlink("../usr/share/zoneinfo/Europe/Berlin", path("/etc/localtime"));
        put("/usr/share/zoneinfo/zone1970.tab", "# codes\nAT\t+4813+01620\tEurope/Vienna\n");
        put("/etc/ssh/sshd_config", "#Port 22\nbanner=/etc/issue.net\nMatch User git\n\tPort 1\n");
        put("/etc/rsyslog.conf", "$IncludeConfig /etc/rsyslog.d/*.conf\n#*.* @no\n*.* @@x;F\n");
        put("/etc/rsyslog.d/10-site.conf", "mail.* /m\naction(type=\"omfwd\" target=\"c\")\n");
        for (const char *program : {"/usr/sbin/sendmail", "/usr/sbin/rsyslogd", "/usr/sbin/sshd",
                                    "/sbin/ifup", "/lib/systemd/systemd-timesyncd"})
            put(program, "");
        put("/etc/sysctl.conf", "#kernel.sysrq=438\nvm.swappiness=10\n");
        put("/etc/ssh/sshd_config.d/site.conf", "Banner none\n\n# no\n");
        put("/etc/pam.d/sshd", "#session x pam_motd.so\nsession optional pam_motd.so noupdate\n");
        put("/etc/motd.d/x", "");
        put("/etc/motd", "\nwelcome\n\nall\n");
    }

    std::string complaints() const {
        std::string text = log();
        if (std::size_t at = text.find("locale before"); at != std::string::npos)
            text.erase(at, text.find('\n', at) + 1 - at);
        return text.substr(0, k_clean_start.size()) == k_clean_start ? "" : text;
    }
};

struct change {
    std::string_view request, file, text;
};

constexpr change k_changes[] = {
    {"SET system.hostname new", "/etc/hostname", "# set by the installer\nnew\n"},
    {"SET network.hosts.192%2e0%2e2%2e1.aliases a+gw_b+gw_c", "/etc/hosts",
     "127.0.0.1\tlocalhost new # and so\n127.0.1.1\tnew.example.net new\n192.0.2.1\tgw a # the "
     "gateway\n192.0.2.8\told.example.org\n192.0.2.1\tgw_b\tgw_c # again\n"},
    {"SET time.zone Europe/Vienna", "/etc/timezone", "Europe/Vienna\n"},
    {"SET time.ntp.servers a.example.net+192.0.2.1", "/etc/systemd/timesyncd.conf",
     "[Time]\n#NTP=\nNTP=a.example.net 192.0.2.1\n"},
    {"SET time.ntp.fallback d.example", "/etc/systemd/timesyncd.conf.d/zz-ucfgd.conf",
     "[Time]\nFallbackNTP=\nFallbackNTP=d.example\n"},
    {"SET ssh.port 2222", "/etc/ssh/sshd_config",
     "#Port 22\nbanner=/etc/issue.net\nPort 2222\nMatch User git\n\tPort 1\n"},
    {"SET log.forward.host 2001:db8::1", "", ""},
    {"SET log.forward.level warning", "", ""},
    {"SET log.forward.protocol tcp", "/etc/rsyslog.d/60-ucfgd-forward.conf",
     "*.warning @@[2001:db8::1]:514\n"},
    {"SET kernel.forwarding on", "/etc/sysctl.conf",
     "#kernel.sysrq=438\nvm.swappiness=10\nnet.ipv4.ip_forward=1\n"},
    {"SET system.banner.welcome one%0a%0athree", "/etc/motd", "one\n\nthree\n"},
    {"SET network.interfaces.eth0.address 198.51.100.2/24", "", ""},
    {"SET network.interfaces.eth0.gateway 198.51.100.1", "", ""},
    {"SET network.interfaces.eth1.method dhcp", "", ""},
    {"SET network.interfaces.eth1.auto no", "/etc/network/interfaces",
     "source /etc/network/interfaces.d/*\n\nauto lo\niface lo inet loopback\n\nallow-hotplug eth0\n"
     "iface eth0 inet static\n    address 198.51.100.2/24\n    gateway 198.51.100.1\n\n"
     "iface eth1 inet dhcp\n"},
};

TEST_F(Configuration, ChangesTheLinesThatAreConcernedAndNoOthers) {
    put_system();
    fs::permissions(path("/etc/network/interfaces"), fs::perms{0600}); /* keys of radio networks */
    start();
    EXPECT_EQ(complaints(), "");
    client c = logged_in();
    for (const change &step : k_changes)
        EXPECT_EQ(c.ask("a " + std::string{step.request}), "a OK\n") << step.request;
    EXPECT_EQ(c.ask("b COMMIT").substr(0, 5), "b OK\n");
    for (const change &step : k_changes)
        if (!step.file.empty()) {
            EXPECT_EQ(file(step.file), step.text) << step.request;
        }
    EXPECT_EQ(fs::status(path("/etc/network/interfaces")).permissions(), fs::perms{0600});
    EXPECT_EQ(fs::read_symlink(path("/etc/localtime")), "/usr/share/zoneinfo/Europe/Vienna");
    EXPECT_EQ(c.ask("c GET log.forward.host"), "c.1 2001:db8::1\nc OK\n");
    EXPECT_EQ(c.ask("d SET log.forward.host"), "d OK\n");
    EXPECT_EQ(c.ask("e COMMIT").substr(0, 5), "e OK\n");
    constexpr std::string_view k_forward = "/etc/rsyslog.d/60-ucfgd-forward.conf";
    EXPECT_EQ(file(k_forward), "");
    put(k_forward, "*.* @(z9)a.example;Fmt\n");
    c = logged_in();
    EXPECT_EQ(c.ask("g GET log.forward.level"), "g.1 debug\ng OK\n");
    EXPECT_EQ(c.ask("h SET log.forward.port 99"), "h OK\n");
    EXPECT_EQ(c.ask("i COMMIT").substr(0, 5), "i OK\n");
    EXPECT_EQ(file(k_forward), "*.* @(z9)a.example:99;Fmt\n");
    put(k_forward, "*.* @a.example\n*.* action(type=\"omfile\")\n");
    EXPECT_NE(logged_in().ask("g GET log.forward.host").find("is not of the form"),
              std::string::npos);
    fs::remove_all(path("/etc/systemd/timesyncd.conf.d"));
    fs::remove_all(path("/usr/lib/systemd/timesyncd.conf.d"));
    EXPECT_EQ(logged_in().ask("f GET time.ntp.fallback"), "f.1 \nf OK\n");
}

TEST_F(Configuration, ReadsWhatTheFilesSayAndOtherwiseWhatHoldsWithoutThem) {
    put_system();
    start();
    client c = logged_in();
    constexpr std::pair<std::string_view, std::string_view> k_values[] = {
        {"network.interfaces.eth1.address", "192%2e0%2e2%2e7/23"},
        {"network.interfaces.eth0.ipv6.method", "none"},
        {"ssh.port", "22"},
        {"system.banner.welcome", "%0awelcome%0a%0aall"},
        {"kernel.settings.vm%2eswappiness.value", "10"},
        {"log.forward.level", "info"},
        {"log.forward.elsewhere",
         "rsyslog%2econf:+*%2e*+@@x;F%0a10-site%2econf:+action(type=\"omfwd\"+target=\"c\")"},
        {"system.hostname", "old"},
        {"network.hosts.192%2e0%2e2%2e1.aliases", "gw%2eexample%2enet+gw_b+gw_c+x"},
        {"time.zone", "Europe/Berlin"},
        {"time.ntp.fallback", "b%2eexample+c%2eexample"},
        {"users.man.name", "man"},
        {"users.man.shell", "/bin/sh"},
        {"users.man.group", "12"},
        {"system.banner.shown-by",
         "console:+getty%0anetwork:+sshd%0awelcome:+sshd,+beside+what+comes+of+/etc/motd%2ed"},
    };
    for (const auto &[name, value] : k_values) {
        EXPECT_EQ(c.ask("a GET " + std::string{name}), "a.1 " + std::string{value} + "\na OK\n");
    }
    EXPECT_EQ(c.ask("b ATTR time.zone"),
              "b.ops gsh\nb.len 64\nb.choices.1 Etc/UTC\nb.choices.2 Europe/Vienna\nb.flags.1 open\nb OK\n");
    EXPECT_EQ(c.ask("c MLIST services"), "c OK\n");
    EXPECT_EQ(c.ask("d ATTR users.root.shell"), "d.ops gh\nd OK\n");
    put("/etc/ssh/sshd_config", "Include /etc/ssh/sshd_config.d/*.conf\nBanner /etc/issue.net\n");
    put("/etc/hosts", "127.0.0.1 localhost localhost.localdomain\n127.0.1.1 localhost\n");
    put("/etc/hostname", "localhost\n");
    fs::remove_all(path("/usr/share/zoneinfo/Europe"));
    c = logged_in();
    EXPECT_NE(c.ask("e GET system.banner.shown-by").find("network:+nothing"), std::string::npos);
    EXPECT_NE(c.ask("f GET time.zone").find("which is no time zone"), std::string::npos);
    EXPECT_EQ(c.ask("g SET system.hostname new"), "g OK\n");
    EXPECT_EQ(c.ask("h COMMIT").substr(0, 5), "h OK\n");
    EXPECT_EQ(file("/etc/hosts"), "127.0.0.1 localhost localhost.localdomain\n127.0.1.1 new\n");
}

TEST_F(Configuration, RefusalsSayWhatIsWrong) {
    put_system();
    start();
    client c = logged_in();
    constexpr std::pair<std::string_view, std::string_view> k_refused[] = {
        {"SET ssh.port 70000", "a port must be a number from 1 to 65535, not 70000"},
        {"SET time.zone ../../etc/passwd", "there is no time zone ../../etc/passwd in"},
        {"SET time.zone posixrules", "there is no time zone"},
        {"SET time.zone right/UTC", "there is no time zone"},
        {"SET time.zone Europe", "there is no time zone"},
        {"SET time.zone leapseconds", "there is no time zone"},
        {"SET time.ntp.fallback ", "a file of timesyncd.conf.d names time servers"},
        {"SET network.interfaces.eth0.address 192.0.2.1",
         "192.0.2.1 is not an IPv4 address with a length"},
        {"SET network.interfaces.eth0.address 192.0.2.7//24",
         "192.0.2.7//24 is not an IPv4 address with a length"},
        {"SET network.interfaces.eth0.gateway 192.0.2.1", "eth0 has no address of its own"},
        {"SET network.interfaces.eth0.method static", "give eth0 an address"},
        {"ADD network.interfaces a/b", "a/b is not the name of an interface"},
        {"SET log.forward.port 515", "set log.forward.host first"},
    };
    for (const auto &[request, reason] : k_refused) {
        const std::string reply = c.ask("a " + std::string{request});
        EXPECT_NE(reply.find("a ERR " + std::string{reason}), std::string::npos) << reply;
    }
    EXPECT_EQ(c.ask("b SET ssh.key-login no"), "b OK\n");
    EXPECT_NE(c.ask("c SET ssh.password-login no").find("c ERR neither passwords nor keys"),
              std::string::npos);
}

TEST_F(Configuration, WhatIsNotInstalledIsNoTroubleUntilItIsSet) {
    EXPECT_EQ(run({"--check"}).err, "");
    start();
    EXPECT_EQ(complaints(), "");
    client c = logged_in();
    for (std::string_view request : {"SET ssh.port 2222", "SET time.ntp.servers a",
                                     "SET log.forward.host a", "ADD network.interfaces eth0"}) {
        const std::string reply = c.ask("b " + std::string{request});
        EXPECT_NE(reply.find(" is not installed here: "), std::string::npos) << reply;
    }
    for (std::string_view name :
         {"ssh.port", "time.ntp.servers", "log.forward.level", "mail.aliases.x.to"}) {
        const std::string reply = c.ask("b GET " + std::string{name});
        EXPECT_NE(reply.find("b ERR the package "), std::string::npos) << reply;
    }
    EXPECT_EQ(c.ask("b LISTR log"), "b.1 forward\nb OK\n");
    EXPECT_NE(c.ask("b HELP log.forward").find("not+installed+here+(package+rsyslog)"),
              std::string::npos);
    EXPECT_EQ(c.ask("c SET system.hostname new"), "c OK\n");
    EXPECT_EQ(c.ask("d COMMIT").substr(0, 5), "d OK\n");
    EXPECT_EQ(file("/etc/hostname"), "new\n");
    EXPECT_EQ(fs::status(path("/etc/hostname")).permissions(), fs::perms{0644});
    EXPECT_FALSE(fs::exists(path("/etc/ssh")));
}

/* What systemctl says of a unit, by a file of its properties; "fails" and "dies" are ours. */
constexpr std::string_view k_systemctl = R"(#!/bin/sh
for unit; do :; done
unit=units/${unit%.service}
case $1 in
    show) sed -n "s/^$4=//p" $unit 2>/dev/null || [ $4 != LoadState ] || echo not-found ;;
    is-active) grep -q ActiveState=active $unit ;;
    *) grep -qE 'fails|dies' $unit && sed -i s/=active/=failed/ $unit; ! grep -q fails $unit ;;
esac
)";

TEST_F(Configuration, TellsOfAServiceWhatSystemdKnows) {
    std::string script = file("/etc/ucfgd/apply");
    script.replace(script.find("PATH="), 5, "PATH=" + path("/bin") + ":");
    script.replace(script.find("[ -d /run/systemd/system ]"), 26, "cd " + path("/") + "");
    put("/apply", script);
    put("/bin/systemctl", k_systemctl);
    fs::permissions(path("/bin/systemctl"), fs::perms{0755});
    put("/units/cron", "LoadState=loaded\nActiveState=active\nSubState=running\n");
    put("/units/rsyslog", "LoadState=masked\nActiveState=inactive\n");
    put("/units/ssh",
        "LoadState=loaded\nActiveState=failed\nResult=exit-code\nfails\n"
        "UnitFileState=disabled\n");
    put("/units/networking", "LoadState=loaded\nActiveState=active\nSubState=exited\n");
    put("/units/postfix", "LoadState=loaded\nActiveState=active\nResult=signal\ndies\n");
    struct {
        std::string_view what, name, said;
        int status;
    } constexpr k_asked[] = {
        {"status", "cron", "running\n", 0},
        {"restart", "cron", "cron has been restarted: running\n", 0},
        {"restart", "rsyslog", "rsyslog is masked: systemctl unmask rsyslog first\n", 1},
        {"syslog", "", "rsyslog is left alone: masked, stopped\n", 0},
        {"status", "ssh", "failed: exit-code, not started at boot\n", 0},
        {"restart", "ssh", "ssh: failed: exit-code\n", 1},
        {"status", "networking", "done, nothing of it has to run on\n", 0},
        {"restart", "postfix", "postfix does not run: failed: signal\n", 1},
        {"restart", "none", "none is not installed\n", 1},
    };
    for (const auto &[what, name, said, status] : k_asked) {
        const program_result result =
            run_program({"/bin/sh", path("/apply"), std::string{what}, std::string{name}});
        EXPECT_EQ(result.out, said) << result.err;
        EXPECT_EQ(result.status, status) << said;
    }
}

TEST_F(Configuration, AnyAreaCanBeDropped) {
    put_system();
    for (const auto &entry : fs::directory_iterator(path("/etc/ucfgd/features"))) {
        if (entry.path().extension() != ".conf") continue;
        const std::string name = entry.path();
        fs::rename(name, name + ".dropped");
        fs::remove(path(".log"));
        EXPECT_EQ(run({"--check"}).err, "") << name;
        start();
        EXPECT_EQ(complaints(), "") << name;
        client c = logged_in();
        const std::string other = name.ends_with("/ssh.conf") ? "mail.root" : "ssh.port";
        EXPECT_TRUE(c.ask("a GET " + other).ends_with("a OK\n")) << name;
        stop();
        fs::rename(name + ".dropped", name);
    }
}

}  // namespace
