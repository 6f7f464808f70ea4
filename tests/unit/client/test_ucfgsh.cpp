// The client program's parts, with a small daemon in memory behind them.
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <fstream>

#include "toy_shell.h"
#include "ucfgsh/explain.h"
#include "ucfgsh/terminal.h"
#include "ucfgsh/tree_view.h"

namespace {

TEST(Words, QuotesBackslashesAndCommentsMeanWhatTheySay) {
    words w = split_words(R"(set a."b c" 'x \n' "x\n\x41" y\ z # rest)");
    strings texts, raws;
    for (const word &each : w.list) {
        texts.push_back(each.text);
        raws.push_back(each.raw);
    }
    EXPECT_EQ(texts, (strings{"set", "a.b c", "x \\n", "x\nA", "y z"}));
    EXPECT_EQ(raws[1], "a.\"b c\"");
    EXPECT_TRUE(split_words("a \"b").open);
    EXPECT_TRUE(split_words("a \\").open);
    EXPECT_FALSE(split_words("a b").fresh);
    EXPECT_TRUE(split_words("a b ").fresh);
    for (const char *text : {"", "-1", "#x", "<<E", "a b", "\"\\'", "tab\t\x01\nend", "\xc3\xa9"})
        EXPECT_EQ(split_words(quote_word(text)).list[0].text, text);
}

TEST(Words, TheDaemonsResultNumbersBecomeWords) {
    EXPECT_EQ(readable("result=3 No such file or directory"), "no such parameter");
    EXPECT_EQ(readable("result=2 No space left on device"),
              "refused by the node's method: No space left on device");
    EXPECT_EQ(readable("result=9 x"), "result=9 x");
    EXPECT_EQ(readable("Entry already exists"), "Entry already exists");
}

TEST_F(ShellTest, CompletesWhatBelongsWhereTheCursorStands) {
    EXPECT_EQ(completed("co"), (strings{"commit", "confirm"}));
    EXPECT_EQ(completed("get ne"), strings{"net."});
    EXPECT_EQ(completed("get net."), (strings{"net.mode", "net.name"}));
    EXPECT_EQ(completed("get hosts.m"), strings{"hosts.\"my.host\""});
    EXPECT_EQ(completed("get hosts.\"my.h"), strings{"hosts.\"my.host\""});
    EXPECT_EQ(completed("set net.mode "), (strings{"dhcp", "\"fixed address\""}));
    EXPECT_EQ(completed("set net.mode \"fixed a"), strings{"\"fixed address\""});
    EXPECT_EQ(completed("set net.name "), strings{"box"});
    EXPECT_EQ(completed("del hosts m"), strings{"my.host"});
    EXPECT_EQ(completed("add hosts m"), strings{});
    EXPECT_EQ(completed("nonsense "), strings{});
    toy.nodes["commits.history"] = {".1 12", ".1 11", ".1 9", " OK"};
    EXPECT_EQ(completed("undo 1"), (strings{"12", "11"}));
    EXPECT_EQ(completed("commit --t"), strings{"--trial"});
    EXPECT_EQ(completed("del "), strings{"hosts"});
    EXPECT_EQ(completed("del hosts.m"), strings{"hosts.\"my.host\""});
    EXPECT_EQ(completed("list "), (strings{"hosts", "net"}));
    EXPECT_EQ(script("list net.\n").second, "mode\nname\n");
    toy.values["makers.level"] = "7"; /* hidden */
    EXPECT_EQ(script("list\nlist makers\n").second, "hosts\nmotd\nnet\nlevel\n");
    toy.values.erase("makers.level");
    EXPECT_EQ(common_prefix({"n\xc3\xa9", "n\xc3\xa8"}), "n");
    EXPECT_TRUE(asks_for_help("get net."));
    EXPECT_FALSE(asks_for_help("set motd what"));
    EXPECT_NE(explain(sh, "set net.mode ", {80, 24}).find("choices: dhcp"), std::string::npos);
    EXPECT_EQ(explain(sh, "get net.", {80, 24}), "get PATH...\n  mode  dhcp\n  name  box\n");
    toy.values["net.name"] = "a%20long%20name";
    EXPECT_EQ(explain(sh, "get net.", {16, 24}), "get PATH...\n  mode  dhcp\n  name  a long..\n");
    for (int i = 0; i < 10000; i++)
        toy.values["hosts.h" + std::to_string(i)] = "1";
    const size_t before = daemon.seen().size();
    EXPECT_NE(explain(sh, "get hosts.h", {80, 24}).find("\n... 9980 more of 10000\n"),
              std::string::npos);
    EXPECT_LT(daemon.seen().size() - before, 100U);
    EXPECT_EQ(run_command(sh, split_words("cd net").list), k_exit_done);
    EXPECT_EQ(completed("get n"), strings{"name"});
    EXPECT_EQ(completed("get .n"), strings{".net."});
    EXPECT_EQ(completed("get .net.n"), strings{".net.name"});
}

TEST_F(ShellTest, PathsBeginWhereTheUserStands) {
    auto [status, said] = script(
        "cd hosts\nget a .net.mode\nshow\nset \"my.host\" 1.1.1.1\nup\n"
        "get hosts.\"my.host\"\ncd net\ncd ..\nlist\ncd net.name\n");
    EXPECT_EQ(said,
              "10.0.0.1\ndhcp\nhosts\n  a: 10.0.0.1\n  \"my.host\": 10.0.0.2\n1.1.1.1\n"
              "hosts\nmotd\nnet\ns:10: net.name has nothing below it\n");
    EXPECT_EQ(status, k_exit_usage);
}

TEST_F(ShellTest, ChangesComparesWithWhatWasThereBefore) {
    auto [status, said] = script(
        "set net.name other\nset net.name third\nset net.mode fixed\n"
        "set net.mode dhcp\nadd hosts.new\nset hosts.new 10.0.0.3\n"
        "del hosts a\nset motd <<END\none\n2\nthree\nEND\nchanges\n");
    EXPECT_EQ(status, k_exit_done) << said;
    EXPECT_EQ(said,
              "- hosts.a: 10.0.0.1\n"
              "+ hosts.new: 10.0.0.3\n"
              "  motd: line 2\n"
              "-   two\n"
              "+   2\n"
              "- net.name: box\n"
              "+ net.name: third\n");
    std::tie(status, said) = script("commit\nset net.name x\nrevert\nchanges\n");
    EXPECT_EQ(said.find("net.name"), std::string::npos);

    toy.nodes["commits.changes"] = {R"(.1 - motd: a\nb)", R"(.1 + motd: c\\n\\)", " OK"};
    EXPECT_EQ(script("changes\n").second, "  motd: line 1\n-   a\n-   b\n+   c\\n\\\n");
    toy.nodes["commits.changes"] = {".1 - hosts: a my%2ehost", ".1 + hosts: my%2ehost a", " OK"};
    EXPECT_EQ(script("changes\n").second, "  hosts: order\n- a\n+ my.host\n- my.host\n+ a\n");
    toy.no_actions = true;
    EXPECT_EQ(script("set net.name z\nchanges\n").second, "- net.name: third\n+ net.name: z\n");
}

TEST_F(ShellTest, OrdersAreGivenAgainAfterAConflictAndInANewSession) {
    toy.conflicts = 1;
    opts.go_on = true;
    auto [status, said] = script("set net.name x\nset hosts.a 1.1.1.1\ncommit\nrebase\ncommit\n");
    EXPECT_EQ(status, k_exit_conflict);
    EXPECT_NE(said.find("\"rebase\" makes your changes again"), std::string::npos);
    EXPECT_NE(said.find("- net.name: box\n+ net.name: x\n"), std::string::npos) << said;
    EXPECT_EQ(toy.commits, strings{"x"});

    link.ask_about_loss([this] { return !sh.orders.steps.empty(); });
    script("set net.name y\nsubmit 'set net.mode fixed' 'del hosts a'\n");
    toy.last = "ADD";
    toy.ending = {" INUSE you have been logged out", "!close"};
    std::tie(status, said) = script("add hosts late\n");
    EXPECT_EQ(status, k_exit_unreachable);
    EXPECT_NE(told.find("another writer has logged you out: \"rebase\""), std::string::npos);
    std::tie(status, said) = script("login\ncommit\nrebase\ncommit\nrebase\n");
    EXPECT_NE(said.find("\"rebase\" makes them again"), std::string::npos) << said;
    EXPECT_NE(said.find("- hosts.a: 1.1.1.1\n+ hosts.late"), std::string::npos) << said;
    EXPECT_NE(said.find("no changes to make again"), std::string::npos) << said;
    EXPECT_EQ(toy.commits, (strings{"x", "y"}));
    EXPECT_EQ(toy.values["net.mode"], "fixed");
}

TEST_F(ShellTest, OneCommandTriesAgainButNeverCarriesAnOrderOutTwice) {
    auto once = [this](std::vector<word> line) {
        testing::internal::CaptureStderr();
        int status = commit_once(sh, run_command(sh, line));
        return status * 1000 + static_cast<int>(testing::internal::GetCapturedStderr().size() > 0);
    };
    toy.conflicts = 2;
    EXPECT_EQ(once(split_words("set net.name z").list), 0);
    EXPECT_EQ(toy.commits, strings{"z"});
    toy.conflicts = 100;
    EXPECT_EQ(once(split_words("set net.name zz").list), k_exit_conflict * 1000 + 1);
    EXPECT_EQ(toy.conflicts, 92U);
    toy.conflicts = 0;
    sh.orders.steps.clear();
    for (bool repeatable : {true, false}) {
        toy.commits.clear();
        EXPECT_EQ(run_command(sh, split_words(repeatable ? "set net.name w" : "add hosts w").list),
                  k_exit_done);
        toy.last = "COMMIT";
        toy.ending = {"!close"};
        EXPECT_EQ(commit_once(sh, k_exit_done), repeatable ? k_exit_done : k_exit_unreachable);
        EXPECT_EQ(toy.commits.size(), repeatable ? 1U : 0U);
    }
}

TEST_F(ShellTest, ATreeIsSavedAsTheCommandsThatMakeItAgain) {
    toy.values["motd"] = "dark";
    EXPECT_EQ(script("show motd\nshow --commands motd\n").second,
              "motd  # too dark\n# motd cannot be read: too dark\n");
    toy.values["motd"] = "";
    toy.values["hosts.a"] = "a+b";
    const std::string file = daemon.path() + ".saved";
    auto [status, said] = script("show --commands hosts\nsave " + file + "\nsave " + file + "\n");
    EXPECT_EQ(said,
              "add hosts a\nset hosts.a \"a b\"\nadd hosts my.host\n"
              "set hosts.\"my.host\" 10.0.0.2\ns:3: save: " +
                  file + " exists; -f replaces it\n");
    struct stat made {};
    ASSERT_EQ(stat(file.c_str(), &made), 0);
    EXPECT_EQ(made.st_mode & 0777U, 0600U);
    const std::string before = script("show\n").second;
    script("del hosts a\nset net.name other\ncd net\nload " + file + "\n");
    EXPECT_EQ(script("show\n").second, before);
    const unsigned sets = toy.sets;
    script("load " + file + "\n");
    EXPECT_EQ(toy.sets, sets);
    unlink(file.c_str());

    setenv("EDITOR", "sed -i -e /hosts.a/d -e s/dhcp/fixed/", 1);
    unsetenv("VISUAL");
    script("edit\n");
    EXPECT_FALSE(toy.values.contains("hosts.a"));
    EXPECT_EQ(toy.values["net.mode"], "fixed");
    for (const char *editor : {"true", "truncate -s 0", "sed -i s/^set/sset/"}) {
        setenv("EDITOR", editor, 1);
        std::tie(status, said) = script("edit net\n");
        EXPECT_EQ(toy.sets, sets + 1);
        EXPECT_EQ(status == k_exit_done, editor[0] == 't') << said;
    }
    const std::string kept = said.substr(said.rfind(' ') + 1);
    EXPECT_EQ(unlink(kept.substr(0, kept.size() - 1).c_str()), 0) << said;
}

TEST_F(ShellTest, ATerminalKeepsItsHistoryAndAsksBeforeChangesAreDropped) {
    link.close();
    toy.values["net.secret"] = "";
    const std::string home = daemon.path() + ".home", history = home + "/.ucfgsh_history";
    ASSERT_EQ(mkdir(home.c_str(), 0700), 0);
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        setenv("HOME", home.c_str(), 1);
        execl(UCFGSH, "ucfgsh", "--plain", "--socket", daemon.path().c_str(), nullptr);
        _exit(1);
    }
    ASSERT_GT(child, 0);
    unique_fd owner{terminal};
    auto type = [&](const std::string &keys, const std::string &until) {
        std::string said;
        EXPECT_EQ(write(terminal, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
        for (pollfd watch{terminal, POLLIN, 0}; poll(&watch, 1, 5000) > 0;) {
            char chunk[512];
            const ssize_t got = read(terminal, chunk, sizeof chunk);
            if (got <= 0) break;
            said.append(chunk, static_cast<size_t>(got));
            if (said.find(until) != std::string::npos) return;
        }
        ADD_FAILURE() << keys << " gave " << said;
    };
    type("", "ucfg*> ");
    type("cd net\n", "ucfg net*> ");
    type("set secret abcd\n", "set net.secret\r\n");
    type("set .motd <<E\n", "[up to E] ");
    type("lost\n", "[up to E] ");
    type("\x03", "ucfg net*> ");
    type("set .motd <<E\n", "[up to E] ");
    kill(child, SIGINT); /* as the terminal does between two lines */
    type("", "ucfg net*> ");
    type("login\n", "Drop them? [y/N] ");
    type("n\n", "ucfg net*> ");
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(toy.values["motd"], "one%0atwo%0athree");
    const strings seen = daemon.seen();
    EXPECT_EQ(std::count_if(seen.begin(), seen.end(),
                            [](const std::string &line) { return line.find(" LOGIN ") < 9; }),
              2);
    std::ifstream file{history};
    std::stringstream kept;
    kept << file.rdbuf();
    EXPECT_EQ(kept.str(),
              "_HiStOrY_V2_\ncd\\040net\nset\\040.motd\\040<<E\nset\\040.motd\\040<<E\nlogin\n");
    struct stat made {};
    ASSERT_EQ(stat(history.c_str(), &made), 0);
    EXPECT_EQ(made.st_mode & 0777U, 0600U);
    unlink(history.c_str());
    rmdir(home.c_str());
}

TEST_F(ShellTest, ACommitTellsWhatItDidAndWhatFailed) {
    auto [status, said] = script("commit --trial 5\n");
    EXPECT_EQ(status, k_exit_failed);
    EXPECT_NE(said.find("this daemon has no commits.trial"), std::string::npos);
    EXPECT_TRUE(toy.commits.empty());
    toy.nodes = {{"commits.history", {".1 7", " OK"}},
                 {"commits.history.8.files", {".1 replaced /etc/a", " OK"}},
                 {"commits.history.8.notes", {".1 b:+done%0ac:+failed:+no", " OK"}},
                 {"commits.history.8.state", {".1 trial", " OK"}},
                 {"commits.diff", {".1 +a%09b%", ".1 c%25", ".2 50%", ".1 ", ".2 ", " OK"}},
                 {"commits.trial", {".1 commit 8, user ann, 245 seconds left", " OK"}}};
    EXPECT_EQ(script("diff\n").second, "+a\tbc%\ns:1: 50%\n");
    std::tie(status, said) = script("commit --trial 5 -m 'a b'\n");
    EXPECT_EQ(said,
              "commit 8\n  replaced /etc/a\n  b: done\n  c: failed: no\n"
              "on trial, undone by itself in 4:05: \"confirm\" keeps it, \"cancel\" undoes it at "
              "once\n");
    EXPECT_EQ(toy.values["commits.trial"], "300");
    EXPECT_EQ(toy.values["commits.comment"], "a+b");
    std::tie(status, said) = script("commit --trial soon\n");
    EXPECT_EQ(status, k_exit_usage);
    std::tie(status, said) = script("commit --trial 6\n");
    EXPECT_TRUE(said.starts_with("nothing was to be written\non trial, ")) << said;
    opts.quiet = true;
    EXPECT_EQ(script("commit\n").second, "");
    toy.nodes["commits.history.8.time"] = {" NO permission denied"};
    EXPECT_EQ(script("history\n").first, k_exit_failed);
}

TEST_F(ShellTest, AFailingLineIsNamedAndEndsTheScript) {
    auto [status, said] = script("# first\nget net.name\n\nset net.name bad\nget net.mode\n");
    EXPECT_EQ(status, k_exit_failed);
    EXPECT_EQ(said, "box\ns:4: net.name: not that (error.bad)\n");
    std::tie(status, said) = script("get \"net\n");
    EXPECT_EQ(status, k_exit_usage);
    EXPECT_EQ(said, "s:1: a quote is not closed\n");
    std::tie(status, said) = script("submit\n  set net.name y\n");
    EXPECT_EQ(said, "s:1: \"end\" is missing\n");
    opts.go_on = true;
    std::tie(status, said) = script("frob\nget net.\\\nmode\n");
    EXPECT_EQ(status, k_exit_usage);
    EXPECT_NE(said.find("s:1: unknown command"), std::string::npos);
    EXPECT_NE(said.find("dhcp\n"), std::string::npos);
}

TEST_F(ShellTest, ARefusalSaysWhatToDoNextAndAnEntryThatIsNotThereIsOne) {
    opts.go_on = true;
    toy.nodes = {
        {"net.ping", {".ops A", " OK"}}, {"net.name", {" ERR parameter not found"}}, {"", {" OK"}}};
    constexpr std::pair<const char *, const char *> k_lines[] = {
        {"get hosts.nosuch", "hosts.nosuch: no entry nosuch in hosts; \"list hosts\" shows"},
        {"set hosts.my.host 1", "a name with dots stands in quotes: hosts.\"my.host\""},
        {"show hosts.b", "no entry b in hosts: did you mean hosts.a?"},
        {"show --commands hosts.nosuch", "no entry nosuch in hosts"},
        {"attr hosts.no-such-name", "no entry no-such-name in hosts"},
        {"get net.nmae", "net.nmae: there is no nmae in net: did you mean net.name?"},
        {"add hosts x\nset hosts.x 1\ndel hosts x\nset hosts.x 2", "s:4: hosts.x: no entry x in"},
        {"get 'net.name'", "these dots stand outside of quotes: net.name"},
        {"get net", "net: a section: use \"show net\""},
        {"get net.ping", "an action: use \"admin net.ping\""},
        {"info net.name", "a parameter: use \"get net.name\""},
        {"sohw net", "unknown command \"sohw\": did you mean show?"},
        {"cd hosts\nget .net.nmae", "did you mean .net.name?"},
        {"cd .\ncd hsots", "there is no hsots: did you mean hosts?"},
        {"cd hosts.nosuch", "no entry nosuch in hosts"},
        {"get hosts.9.8", "a name with dots stands in quotes: hosts.\"9.8\""},
        {"cd hosts\nget net.name", "no entry net in hosts; from the root it is .net.name"},
        {"cd .\nset net.mode bad", "choices: dhcp \"fixed address\""},
    };
    for (const auto &[line, text] : k_lines) {
        auto [status, said] = script(line + std::string{"\n"});
        EXPECT_NE(status, k_exit_done) << line;
        EXPECT_NE(said.find(text), std::string::npos) << line << "\n" << said;
    }
    EXPECT_EQ(script("get hosts.\"my.host\"\n").second, "10.0.0.2\n");
    EXPECT_EQ(toy.sets, 2U);
    std::erase_if(toy.values, [](const auto &item) { return item.first.starts_with("hosts."); });
    EXPECT_EQ(script("show hosts\nset hosts.a 1\n").second,
              "hosts  # not installed\ns:2: hosts.a: no entry a in hosts: not installed\n");
}

TEST_F(ShellTest, ALostConnectionIsBroughtBackAndOnlySafeRequestsAreRepeated) {
    toy.hang_ups = 1;
    EXPECT_EQ(script("get net.name\n").second, "box\n");
    EXPECT_NE(told.find("the session is back"), std::string::npos);
    toy.hang_ups = 1;
    auto add = [](ucfg_conn *conn) { return ucfg_add(conn, "hosts", "x"); };
    EXPECT_EQ(link.call(after_loss::report, add), k_ucfg_lost);
    EXPECT_FALSE(toy.values.contains("hosts.x"));
    EXPECT_NE(told.find("may or may not have been carried out"), std::string::npos);
    EXPECT_EQ(link.call(after_loss::report, add), k_ucfg_ok);
    EXPECT_TRUE(toy.values.contains("hosts.x"));
    g_interrupted = 1;
    link.close();
    EXPECT_EQ(g_interrupted, 1);
    g_interrupted = 0;
    const strings seen = daemon.seen();
    EXPECT_NE(seen[seen.size() - 2].find(" RESUME "), std::string::npos);
    EXPECT_TRUE(seen.back().ends_with(" LOGOUT"));
}

}  // namespace