#include "backend/restart.h"

#include "backend_fixture.h"

namespace {

std::string g_commands;

void record(const char *command) {
    std::string text{command};
    if (text.starts_with("/usr/share")) text = "/etc/init.d/time >";
    g_commands += text.substr(12, text.find(" >") - 12) + ";";
}

class restart : public backend_test {
  protected:
    restart() {
        g_commands.clear();
        g_restart_run = record;
        g_restart_rc_directory = rc.c_str();
    }
    ~restart() override {
        g_restart_run = run_restart_command;
        g_restart_rc_directory = "/etc/rc5.d";
    }

    std::string rc = path("rc5.d");
};

TEST_F(restart, ServicesAreRestartedWhenTheirModuleHasNotChangedAndStoppedWhenNotNamed) {
    put("same", "a\n");
    put("changed", "a\n");
    modules(
        "my-ntpclient {\n module: lines\n file: same\n}\n"
        "snmp {\n module: lines\n file: changed\n}\n");
    owned_ctx session{trns_copy_ctx(g_trns_ctx)};
    put("changed", "b\n");
    std::filesystem::create_directory(rc);
    for (std::string name : {"S20ntpclient", "S21snmpd", "S30portmap", "S31portmap"})
        put("rc5.d/" + name, "");
    EXPECT_EQ(llconf_restart_dirty_mods(), 1);
    EXPECT_NE(g_commands.find("time;ntpclient restart;"), std::string::npos);
    EXPECT_NE(g_commands.find("portmap restart;"), g_commands.rfind("portmap restart;"));
    EXPECT_EQ(g_commands.find("snmpd"), std::string::npos);
    EXPECT_TRUE(g_commands.ends_with(";ipsec stop;"));
    EXPECT_EQ(eval("llget('snmp', 'line')", session.get()), "");
}

TEST_F(restart, EmptyDirectoryStopsEverythingInOrderAndNoDirectoryNothing) {
    llconf_restart_dirty_mods();
    EXPECT_EQ(g_commands, "");
    std::filesystem::create_directory(rc);
    llconf_restart_dirty_mods();
    EXPECT_EQ(g_commands, "ntpclient stop;snmpd stop;ipsec stop;portmap stop;");
    run_restart_command("exit 3");
    EXPECT_EQ(unlogged({"exit 3 failed: exit status 3"}), "");
}

TEST_F(restart, HooksRunForChangedFilesAndLastForTheDeferredOnes) {
    auto note = [](fe_context *ctx, fe_node *call) {
        fe_node *result = eval_fe_expr_list(ctx, call->first_child);
        g_commands += std::string(result->text) + ";";
        return result;
    };
    functions = fe_register_func(functions, "note", note, nullptr);
    std::string text = "sysvinit {\n module: virtual\n post-read: note('sysvinit')\n}\n";
    for (std::string name : {"apache2", "rumex2", "event-notify", "plain", "same"}) {
        put(name, "old\n");
        text += name + " {\n module: lines\n file: " + name + "\n pre-commit: note('pre')\n" +
                " post-commit: note(llget('" + name + "', 'line'))\n}\n";
    }
    modules(text);
    for (const char *name : {"apache2", "rumex2", "plain"})
        put(name, std::string("new-") + name + "\n");
    g_commands.clear();
    llconf_restart_dirty_mods();
    EXPECT_EQ(g_commands, "sysvinit;pre;old;pre;new-plain;pre;new-rumex2;pre;new-apache2;");
}

}  // namespace
