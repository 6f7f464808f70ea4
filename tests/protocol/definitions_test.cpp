#include <signal.h>

#include <filesystem>

#include "daemon_fixture.h"

/* Definition files at a start, in a check and at a reload: what is wrong in them, and what is used.
 */

namespace {

class Definitions : public daemon_test {};

TEST_F(Definitions, BrokenDefinitionFilesAreReportedWithTheirLineAndStartUpGoesOn) {
    for (const char *name : {"param", "management", "functions", "types", "modules"})
        put("/etc/ucfgd/" + std::string{name} + ".conf", "good {\n}\nbad {\n get: f(\n}\n");
    start();
    const std::string directory = path("/etc/ucfgd/");
    const std::string why =
        ".conf:4: \"(\" is never closed: expected \")\", found the end of the "
        "file\n";
    const std::string tree = "Error: Unable to parse parameter tree from file '" + directory;
    for (const std::string &text :
         {"Error: Unable to parse functions list from file '" + directory +
              "functions.conf': Invalid argument\n" + directory + "functions" + why,
          "could not parse file " + directory + "modules.conf: Invalid argument\n" + directory +
              "modules" + why,
          directory + "types" + why,
          tree + "param.conf': Invalid argument\n" + directory + "param" + why,
          tree + "management.conf': Invalid argument\n" + directory + "management" + why}) {
        EXPECT_TRUE(logged(text)) << text << log();
    }
    EXPECT_EQ(logged_in().ask("a LIST"), "a OK\n");
}

TEST_F(Definitions, MissingDefinitionFilesAreNoMoreThanReported) {
    for (const char *name : {"param", "management", "functions", "types", "modules"})
        std::filesystem::remove(path("/etc/ucfgd/" + std::string{name} + ".conf"));
    start();
    EXPECT_TRUE(logged("param.conf': No such file or directory\n"));
    EXPECT_EQ(logged_in().ask("a LIST"), "a OK\n");
}

TEST_F(Definitions, BrokenExpressionsAndModulesCostOnlyThemselves) {
    append("/etc/ucfgd/modules.conf",
           "ghost {\n module: none\n file: /etc/ghost\n}\n"
           "late {\n module: lines\n file: /etc/late\n}\n");
    append("/etc/ucfgd/param.conf", "odd {\n get: llget('box'\n  'name')\n help: 'h'\n}\n");
    start();
    const std::string modules = "' specified in file '" + path("/etc/ucfgd/modules.conf") + "'.\n";
    EXPECT_TRUE(logged("Unable to register module 'ghost" + modules));
    EXPECT_TRUE(logged("Unable to register module 'late" + modules));
    client c = logged_in();
    EXPECT_EQ(c.ask("a GET name"), "a.1 alpha\na OK\n");
    EXPECT_EQ(c.ask("a HELP odd"), "a.1 h\na OK\n");
}

TEST_F(Definitions, ACheckTellsTheFileLineAndColumnOfEveryComplaintAndTouchesNothing) {
    put("/etc/ucfgd/functions.conf",
        "f {\n agrs: a\n expr: $a\n}\ng {\n expr: f(1, 2) .. substr() .. llset('box', 1)\n}\n");
    append("/etc/ucfgd/ucfgd.conf",
           "confg {\n timeout: 5\n}\nconfig {\n commits: /archive\n log-level: loud\n}\nlimits {\n "
           "jobs: 0\n}\n"
           "listen {\n o {\n  type: unx\n  authtype: pan\n  mode: 600\n }\n}\nusers {\n u {\n  "
           "access: rq\n "
           "}\n}\n");
    put("/etc/ucfgd/types.conf", "t {\n validtion: 1\n parent-type: no\n}\nt {\n}\n");
    append("/etc/ucfgd/modules.conf",
           "late {\n module: lines\n file: /etc/late\n flags: creat\n}\n"
           "box2 {\n module: keyvalue\n file: /etc/box.conf\n flgs: create\n pre-read: "
           "system('touch ' .. '/x')\n}\n");
    put("/etc/ucfgd/param.conf",
        "access: in($perm, 'r', 'w')\nodd {\n type: nosuch\n get: llget('bx', 'name')\n set: '1'\n"
        " santiy: \"istype($_, 'x')\"\n help: ('ä' ..\n   x)\n"
        " choices: \"list(\\\"ä\\\\n\\\" 'b')\"\n len: x\n include: more.conf\n}\n");
    const std::string conf = path("/etc/ucfgd/");
    const std::vector<std::string> expected = {
        "ucfgd.conf:",
        "confg' is unknown and has no effect; did you mean 'config'?",
        "functions.conf:2:2: function 'f': unknown field 'agrs:'; did you mean 'args:'?",
        "functions.conf:6:2: Warning: function 'f' takes fewer arguments than are given here",
        "functions.conf:6:2: Warning: function 'substr' takes more arguments than are given here",
        "functions.conf:6:2: Warning: function 'llset' takes more arguments than are given here",
        "types.conf:2:2: Warning: 'validtion:' is unknown and has no effect; did you mean "
        "'validation:'?",
        "types.conf:5:1: Warning: type 't' is defined again",
        "types.conf:1:1: Warning: type 't' has parent 'no', which is not defined",
        "flgs:' is unknown and has no effect; did you mean 'flags:'?",
        "param.conf:3:2: Warning: Nonexistent type 'nosuch' referred to by 'odd.type:'.  Ignoring.",
        "param.conf:6:2: Warning: 'santiy:' is unknown and has no effect; did you mean 'sanity:'?",
        "type: 'unx' is not unix, tcp or tcp6",
        "ucfgd.conf:17:2: Warning: log-level: 'loud' is not emerg",
        "ucfgd.conf:20:2: Warning: limits: jobs: '0' is no number",
        "authtype: 'pan' is not a way to log in",
        "mode: '600' is not an octal number",
        "access: 'rq' is not made of the letters r, w and x",
        "param.conf:9:26: column 12: expected",
        "param.conf:10:2: Warning: 'x' is no number",
        "param.conf:11:2: Warning: there is no file '" + path("/etc/ucfgd/more.conf"),
        "Warning: 'creat' is none of create, always-revert, readonly",
        "param.conf:8:5: column 10: expected",
        "param.conf:4:7: Warning: there is no module 'bx'"};
    const program_result result = run({"--check"});
    EXPECT_EQ(result.status, 1);
    for (const std::string &text : expected)
        EXPECT_NE(result.err.find(text), std::string::npos) << text << "\n" << result.err;
    EXPECT_EQ(result.err.find("late"), std::string::npos) << result.err;
    for (const char *made : {"/x", "/archive", "/dev/ucfgd", ".log"})
        EXPECT_EQ(file(made), "<missing>");
    EXPECT_FALSE(std::filesystem::exists("/run/ucfgd.pid"));
    start();
    EXPECT_TRUE(logged(conf + "param.conf:6:2: Warning: 'santiy:' is unknown"));
    EXPECT_EQ(logged_in().ask("a SET odd 1"),
              "a.error error.type.undefined\na ERR The type of this parameter is not defined\n");
}

TEST_F(Definitions, ACommandWithDependsRunsWhileOthersAreServed) {
    put("/slow", "");
    append("/etc/ucfgd/modules.conf",
           "slow {\n module: keyvalue\n depends: /slow\n pipe-in: cd "
           "$UCFGD_ROOT; echo >>runs; sleep 0.4; . ./slow; echo is it\n}\n");
    append("/etc/ucfgd/param.conf", "slow {\n get: llget('slow', 'is')\n}\n");
    append("/etc/ucfgd/ucfgd.conf", "limits {\n command-time: 1\n}\n");
    start();
    const auto begin = std::chrono::steady_clock::now();
    client c = logged_in();
    EXPECT_TRUE(eventually([this] { return file("/runs") == "\n"; }));
    EXPECT_TRUE(c.send("b GET slow\n"))
        << "it is answered behind the command, for which nobody waits";
    EXPECT_EQ(logged_in().ask("a GET name"), "a.1 alpha\na OK\n");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds{300});
    EXPECT_EQ(c.reply("b"), "b.1 it\nb OK\n");
    put("/slow", "exec sleep 100\n");
    client d = logged_in();
    EXPECT_TRUE(eventually([this] { return child() != 0; }));
    EXPECT_EQ(d.ask("c GET slow"), "c.1 \nc OK\n");
    EXPECT_EQ(file("/runs"), "\n\n");
    put("/slow", "echo\n");
    client e = logged_in();
    EXPECT_TRUE(eventually([this] { return file("/runs") == "\n\n\n" && child() == 0; }));
    EXPECT_EQ(e.ask("d GET slow"), "d.1 it\nd OK\n");
}

TEST_F(Definitions, AReloadTakesUpWhatPassesTheCheckAndSessionsLiveOn) {
    append("/etc/ucfgd/management.conf",
           "reload {\n info: reloadstatus()\n}\nuser {\n info: sessionuser()\n}\n");
    const auto main_file = [this](const std::string &listener, const std::string &rights) {
        configure("", "root {\n access: " + rights + "\n}\n");
        put("/etc/ucfgd/ucfgd.conf", "listen {\n " + listener +
                                         " {\n type: unix\n path: /dev/gone\n }\n" +
                                         file("/etc/ucfgd/ucfgd.conf").substr(9));
    };
    main_file("gone", "rwx");
    start();
    client keeper = logged_in();
    client loser = logged_in();
    const auto reload = [this](std::string_view result) {
        const std::size_t before = log().size();
        kill(pid(), SIGHUP);
        EXPECT_TRUE(eventually([&] { return log().find(result, before) != std::string::npos; }))
            << log();
    };
    EXPECT_EQ(keeper.ask("a INFO user"), "a.1 root\na OK\n");
    EXPECT_EQ(keeper.ask("a SET level 6"), "a OK\n");
    EXPECT_EQ(loser.ask("a SET hosts.192%2e0%2e2%2e11.name x"), "a OK\n");
    const std::string good = file("/etc/ucfgd/param.conf");
    put("/etc/ucfgd/param.conf", good + "odd {\n sanitty: '1'\n}\n");
    reload("reload: refused: ");
    const std::string told = keeper.ask("a INFO reload");
    EXPECT_NE(told.find("/param%2econf:29:2:"), std::string::npos) << told;
    put("/etc/ucfgd/functions.conf", "extra {\n args: key\n expr: llget('extra', $key)\n}\n");
    put("/etc/ucfgd/param.conf",
        good + "odd {\n get: extra('a')\n set: llset('extra', 'a', $_)\n}\n");
    put("/etc/hosts.new", "192.0.2.1\tnew\n");
    put("/etc/extra", "a 1\n");
    std::string modules = file("/etc/ucfgd/modules.conf");
    modules.replace(modules.find("/etc/hosts\n"), 10, "/etc/hosts.new");
    put("/etc/ucfgd/modules.conf", modules + "extra {\n module: keyvalue\n file: /etc/extra\n}\n");
    EXPECT_TRUE(connect("/dev/gone").fd() >= 0);
    main_file("fresh", "r");
    append("/etc/ucfgd/ucfgd.conf", "config {\n log-level: notice\n}\n");
    reload("reload: done");
    EXPECT_TRUE(logged("reload: listener 'gone' is closed"));
    EXPECT_TRUE(logged("reload: listener 'fresh' is opened at the next start"));
    EXPECT_NE(loser.ask("b GET level").find("b INUSE"), std::string::npos);
    EXPECT_EQ(keeper.ask("b GET level"), "b.1 6\nb OK\n");
    EXPECT_EQ(keeper.ask("c SET odd 2"), "c OK\n");
    EXPECT_TRUE(logged("set level 6"));
    EXPECT_FALSE(logged("set odd 2"));
    EXPECT_EQ(keeper.ask("d LIST hosts"), "d.1 192%2e0%2e2%2e1\nd OK\n");
    EXPECT_EQ(keeper.ask("e COMMIT").substr(0, 4), "e OK");
    EXPECT_EQ(file("/etc/extra"), "a 2\n");
    EXPECT_EQ(file("/etc/box.conf"), "# the box\nname = alpha\nlevel = 6\n");
    EXPECT_EQ(file("/etc/hosts.new"), "192.0.2.1\tnew\n");
    EXPECT_EQ(logged_in().ask("f SET level 7"), "f NO permission denied\n");
}

TEST_F(Definitions, AnExpressionIsTriedAndEndedByRootAloneAndChangesNothing) {
    configure("authtype: debug\n", "root {\n access: rwx\n}\nop {\n access: rwx\n}\n");
    std::filesystem::copy_file(SOURCE_DIR "/packaging/etc/ucfgd/features/daemon/management",
                               path("/etc/ucfgd/management.conf"),
                               std::filesystem::copy_options::overwrite_existing);
    append("/etc/ucfgd/management.conf", "access: in($perm, 'r', 'x')\n");
    start();
    client root = logged_in("l LOGIN root root");
    EXPECT_EQ(root.ask("a ADMIN daemon.eval llset('box',+'name',+'x')"),
              "a.1 1\na.1 \na.2 \na OK\n");
    EXPECT_EQ(root.ask("a ADMIN daemon.eval llget('box',+'name')+..+$_ !"),
              "a.1 alpha!\na.1 \na.2 \na OK\n");
    EXPECT_EQ(root.ask("a ADMIN daemon.tree box level"), "a.1 5\na.1 \na.2 \na OK\n");
    client op = logged_in("l LOGIN op op");
    for (std::string_view node : {"eval 1", "tree"})
        EXPECT_EQ(op.ask("a ADMIN daemon." + std::string{node}), "a NO permission denied\n");
    root.send("w1 ADMIN daemon.eval system('echo+here;+sleep+100')\n");
    EXPECT_EQ(root.line(), "w1.1 here\n");
    const std::string none = "no action of yours runs under that tag\n";
    EXPECT_EQ(op.ask("a ADMIN daemon.end-action w1"), "a.1 " + none + "a.1 \na.2 \na ERR\n");
    EXPECT_EQ(logged_in("l LOGIN root root").ask("a ADMIN daemon.end-action w1"),
              "a.1 \na.2 \na OK\n");
    EXPECT_EQ(root.reply("w1"), "w1.1 \nw1.2 \nw1 OK\n");
}

}  // namespace
