#include <filesystem>

#include "daemon_fixture.h"

/* Network interfaces as administrators write them: what is set is what ifupdown then says. */

namespace {

namespace fs = std::filesystem;

class Interfaces : public daemon_test {
  protected:
    void prepare() override {
        fs::remove_all(path("/etc"));
        fs::create_directories(path("/etc"));
        fs::copy(SOURCE_DIR "/packaging/etc/ucfgd", path("/etc/ucfgd"),
                 fs::copy_options::recursive);
        put("/sbin/ifup", "");
        for (const char *name : {"lo", "eth0", "eth1", "eth2"})
            put("/sys/class/net/" + std::string{name} + "/mtu", "");
    }

    void put_network(std::string_view main, std::string_view included) const {
        put("/etc/network/interfaces", main);
        put("/etc/network/interfaces.d/eth1", included);
    }

    /* What ifquery prints of a copy whose names lead to itself. */
    std::string ask_ifupdown(const std::string &arguments) const {
        return run_program({"/bin/sh", "-c",
                            "cd " + path("") +
                                "; rm -rf copy; cp -r etc/network copy; "
                                "sed -i s,/etc/network,$PWD/copy, copy/interfaces; "
                                "ifquery -i copy/interfaces " +
                                arguments + " | tr -s '\\n ' ' '"})
            .out;
    }
};

constexpr std::string_view k_main = R"(# from the installer
source /etc/network/interfaces.d/*

auto lo eth0 \
  eth1
iface lo inet loopback

allow-hotplug eth0
iface eth0 inet static
	address 192.0.2.7
	netmask 255.255.255.0
	broadcast 192.0.2.255
	gateway 192.0.2.1
	# the branch
	up ip route add 198.51.100.0/24 \
	    via 192.0.2.2
iface eth0 inet static
	address 192.0.2.8/24

iface base inet static
	netmask 255.255.255.128
	gateway 203.0.113.1
iface eth2 inherits base
	address 203.0.113.5
)";

constexpr std::string_view k_included = R"(iface eth1 inet dhcp
iface eth1 inet6 static
  address 2001:db8::2/64
  gateway fe80::1
auto eth1
)";

struct query {
    std::string_view request, answer;
};

void expect_answers(client &c, std::initializer_list<query> queries) {
    for (const query &q : queries) {
        const std::string reply = c.ask("a " + std::string{q.request});
        EXPECT_NE(reply.find(q.answer), std::string::npos) << q.request << ": " << reply;
    }
}

TEST_F(Interfaces, AreWhatIfupdownMakesOfAllFiles) {
    if (run_program({"/bin/sh", "-c", "command -v ifquery"}).status != 0)
        GTEST_SKIP() << "ifupdown is not installed";
    put_network(k_main, k_included);
    start();
    client c = logged_in();
    expect_answers(c,
                   {{"LIST network.interfaces", "a.1 lo\na.1 eth0\na.1 base\na.1 eth2\na.1 eth1\n"},
                    {"GET network.interfaces.eth0.auto", "both"},
                    {"GET network.interfaces.eth0.address", "192%2e0%2e2%2e7/24"},
                    {"GET network.interfaces.eth0.further.1.address", "192%2e0%2e2%2e8/24"},
                    {"GET network.interfaces.eth1.address", "a.1 \n"},
                    {"GET network.interfaces.eth1.ipv6.address", "2001:db8::2/64"},
                    {"GET network.interfaces.eth1.ipv6.file", "interfaces%2ed/eth1"},
                    {"GET network.interfaces.eth2.address", "203%2e0%2e113%2e5/25"},
                    {"GET network.interfaces.eth2.gateway", "203%2e0%2e113%2e1"}});
    for (std::string_view request :
         {"SET network.interfaces.eth0.gateway", "SET network.interfaces.eth0.address 192.0.2.9/28",
          "SET network.interfaces.eth0.gateway 192.0.2.2", "SET network.interfaces.eth0.mtu 1400",
          "SET network.interfaces.eth0.auto hotplug",
          "SET network.interfaces.eth0.further.1.address 10.0.0.1/8",
          "SET network.interfaces.eth1.auto no", "ADD network.interfaces.eth1.further 1",
          "SET network.interfaces.eth1.further.1.address 2001:db8:1::1/48",
          "SET network.interfaces.eth2.auto yes", "ADD network.interfaces eth0.5",
          "SET network.interfaces.eth0%2e5.ipv6.method auto", "ADD network.hotplug usb0",
          "SET network.interfaces.usb0.ipv6.address", "SET network.interfaces.lo.address"})
        EXPECT_EQ(c.ask("b " + std::string{request}), "b OK\n") << request;
    EXPECT_EQ(c.ask("c COMMIT").substr(0, 5), "c OK\n");
    EXPECT_EQ(ask_ifupdown("--list"), "lo eth2 eth0.5 ");
    EXPECT_EQ(ask_ifupdown("--list --allow=hotplug"), "eth0 usb0 ");
    EXPECT_EQ(
        ask_ifupdown("eth0"),
        "address: 192.0.2.9 up: ip route add 198.51.100.0/24 \t via 192.0.2.2 gateway: 192.0.2.2 "
        "mtu: 1400 broadcast: 192.0.2.15 netmask: 255.255.255.240 address: 10.0.0.1 broadcast: "
        "10.255.255.255 netmask: 255.0.0.0 ");
    EXPECT_NE(ask_ifupdown("eth1").find(" address: 2001:db8:1::1 "), std::string::npos);
    EXPECT_EQ(ask_ifupdown("eth2"),
              "netmask: 255.255.255.128 gateway: 203.0.113.1 address: "
              "203.0.113.5 broadcast: 203.0.113.127 ");
    EXPECT_EQ(ask_ifupdown("usb0"), "");
    EXPECT_NE(file("/etc/network/interfaces").find("\t# the branch\n"), std::string::npos);
    EXPECT_EQ(c.ask("d DEL network.interfaces eth1"), "d OK\n");
    EXPECT_EQ(c.ask("d SET network.interfaces.eth0%2e5.ipv6.method none"), "d OK\n");
    EXPECT_EQ(c.ask("d COMMIT").substr(0, 5), "d OK\n");
    EXPECT_EQ(file("/etc/network/interfaces.d/eth1"), "");
    EXPECT_EQ(ask_ifupdown("--list"), "lo eth2 eth0.5 ");
    EXPECT_EQ(c.ask("e DEL network.interfaces base"), "e OK\n");
    EXPECT_NE(c.ask("e COMMIT").find("unknown iface to inherit from: base"), std::string::npos);
}

TEST_F(Interfaces, RefuseWhatWouldHaveNoEffect) {
    put("/run/network/interfaces.d/tap0", "iface tap0 inet static\n address 192.0.2.65/26\n");
    put_network("source-directory /run//network/interfaces.d/\n" + std::string{k_main} +
                    "auto /eth2\niface eth0-x inet dhcp\niface wlan0 inet dhcp\n",
                k_included);
    start();
    client c = logged_in();
    expect_answers(
        c,
        {{"SET network.interfaces.lo.auto no", "ERR ifupdown always sets up lo"},
         {"SET network.interfaces.eth2.auto no", "ERR the line \"auto /eth2\" sets up eth2"},
         {"SET network.interfaces.eth0.gateway 192.0.3.1", "ERR the gateway 192.0.3.1 is outside"},
         {"SET network.interfaces.eth0.gateway 192.0.2.255",
          "192.0.2.255 is the broadcast address"},
         {"SET network.interfaces.eth0.gateway 192.0.2.7", "192.0.2.7 is the address itself"},
         {"SET network.interfaces.eth1.ipv6.address ff02::5/64", "ERR no interface takes ff02::5"},
         {"SET network.interfaces.eth1.ipv6.gateway 2001:db9::1",
          "is outside the network of 2001:"},
         {"SET network.interfaces.eth0.address 192.0.3.7/24", "gateway 192.0.2.1 is outside"},
         {"SET network.interfaces.eth2.gateway", "ERR inherited from base"},
         {"SET network.interfaces.eth2.address 203.0.113.6/24", "inherited from base"},
         {"SET network.interfaces.lo.address 192.0.2.1/8", "has no address of its own"},
         {"SET network.interfaces.eth1.mtu 1400", "a OK\n"},
         {"SET network.interfaces.eth0-x.mtu 1400", "ERR eth0-x takes its MTU from where"},
         {"GET network.interfaces.tap0.address", "192%2e0%2e2%2e65/26"},
         {"SET network.interfaces.tap0.mtu 1400", "is set up in /run/network/interfaces.d/tap0:"},
         {"SET network.interfaces.wlan0.auto yes", "ERR the machine has no interface wlan0"},
         {"SET network.interfaces.eth2.method none", "ERR eth2 has no other setting"},
         {"ADD network.interfaces eth9", "ERR the machine has no interface eth9"},
         {"ADD network.interfaces.eth0.further 4", "the next further stanza of eth0 is number 2"},
         {"SET network.interfaces.eth0.further.3.address 192.0.2.9/24",
          "has no further stanza 3"}});
}

}  // namespace
