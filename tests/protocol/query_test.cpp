#include <algorithm>

#include "daemon_fixture.h"

/* Reading both trees, who may, and actions of the management tree. */

namespace {

constexpr std::string_view k_param = R"(
access: in($perm, 'r', 'w')
text {
    help: 'Some text'
    len: 12
    type: word
    get: llget('box', 'name')
    set: llset('box', 'name', $_)
    choices: list('one', 'a b')
    flags: list('shown', 'odd')
}
odd {
    get: 'a b.c'
}
none {
    get: fail()
}
empty {
}
hosts {
    list: lllist('hosts', '.')
    add: '1'
    del: '1'
    move: '1'
    * {
        name {
            get: llget('hosts', slashify($1) .. '/name')
        }
    }
}
closed {
    access: '0'
    inner {
        access: $perm == 'r'
        get: 'x'
    }
    other {
        get: 'y'
    }
}
secret {
    flags: 'hidden'
    get: 'known'
    inner {
        get: 'too'
    }
}
who {
    access: join(',', $sid != '', $perm, $parampath, $paramtree, $arg1, $argc) =~ '^1,r,who,configuration,[^,]*,[0-9]$'
    get: 'me'
}
)";

constexpr std::string_view k_management = R"(
access: in($perm, 'r', 'x')
show {
    info: join(':', $0, $argc, $arg1, $arg2, $sid != '')
}
silent {
    info: fail()
}
do {
    say {
        admin: print('one', 'tw' .. "\t" .. 'o', $arg1) && system('echo wrong >&2')
    }
    refuse {
        admin: seq(print('refused'), '0')
    }
    slow {
        admin: print('begun') && system('while ! test -e ' .. $arg1 .. '; do sleep 0.01; done') && print('done')
    }
    orphan {
        admin: system('sleep 1.5 & echo early')
    }
    die {
        admin: system('kill -9 $PPID')
    }
    long {
        admin: system('head -c 40000 /dev/zero | tr "\\0" x; echo; seq 3')
    }
    touch {
        admin: writelines('/touched', 'x')
    }
    only {
        access: $perm == 'x' && $arg1 == 'please' || $perm == 'r'
        admin: print('ok')
    }
}
)";

class Query : public daemon_test {
  protected:
    void prepare() override {
        put("/etc/ucfgd/param.conf", k_param);
        put("/etc/ucfgd/management.conf", k_management);
        put("/etc/ucfgd/types.conf", "word {\n choices: list('typed')\n len: 3\n}\n");
        start();
    }
};

TEST_F(Query, GetAnswersTheEscapedValueOrTheReason) {
    client c = logged_in();
    EXPECT_EQ(c.ask("a GET text"), "a.1 alpha\na OK\n");
    EXPECT_EQ(c.ask("a GET odd more words"), "a.1 a+b%2ec\na OK\n");
    EXPECT_EQ(c.ask("a GET hosts.192%2e0%2e2%2e10.name"), "a.1 files\na OK\n");
    EXPECT_EQ(c.ask("a GET hosts.nobody.name"), "a.1 \na OK\n");
    EXPECT_EQ(c.ask("a GET none"), "a ERR Invalid argument\n");
    EXPECT_EQ(c.ask("a GET"), "a BAD one argument required\n");
    EXPECT_EQ(c.ask("a GET nothing"), "a ERR parameter not found\n");
    EXPECT_EQ(c.ask("a GET " + std::string(3000, 'x')), "a ERR parameter not found\n");
    EXPECT_EQ(c.ask("a GET .text"), "a ERR parameter not found\n");
    EXPECT_EQ(c.ask("a GET closed"), "a NO permission denied\n");
    EXPECT_EQ(c.ask("a GET closed.inner"), "a.1 x\na OK\n");
}

TEST_F(Query, ListsNameChildrenAndWholeSubtrees) {
    client c = logged_in();
    EXPECT_EQ(c.ask("a LIST hosts"),
              "a.1 127%2e0%2e0%2e1\na.1 192%2e0%2e2%2e10\n"
              "a.1 192%2e0%2e2%2e11\na OK\n");
    EXPECT_EQ(c.ask("a LISTR hosts.192%2e0%2e2%2e11"), "a.1 name\na OK\n");
    EXPECT_EQ(c.ask("a LIST empty"), "a OK\n");
    EXPECT_EQ(c.ask("a LIST nothing"), "a ERR No such file or directory\n");
    EXPECT_EQ(c.ask("a MLIST do"),
              "a.1 say\na.1 refuse\na.1 slow\na.1 orphan\na.1 die\na.1 long\n"
              "a.1 touch\na.1 only\na OK\n");
    EXPECT_EQ(c.ask("a MLISTR nothing"), "a ERR No such file or directory\n");
}

TEST_F(Query, HiddenNodesAreListedForNobody) {
    client c = logged_in();
    EXPECT_EQ(c.ask("a LIST secret"), "a OK\n");
    EXPECT_EQ(c.ask("a LISTR").find("secret.inner"), std::string::npos);
    EXPECT_EQ(c.ask("a GET secret.inner"), "a.1 too\na OK\n");
}

TEST_F(Query, AttributesHelpAndTextsOfTheManagementTree) {
    client c = logged_in();
    EXPECT_EQ(c.ask("a ATTR text"),
              "a.ops gsh\na.len 12\na.choices.1 one\na.choices.2 a+b\n"
              "a.flags.1 shown\na.flags.2 odd\na.type word\na OK\n");
    EXPECT_EQ(c.ask("a ATTR hosts"), "a.ops adml\na OK\n");
    EXPECT_EQ(c.ask("a ATTR empty"), "a.ops \na OK\n");
    EXPECT_EQ(c.ask("a ATTR nothing"), "a ERR No such file or directory\n");
    EXPECT_EQ(c.ask("a MATTR do.say"), "a.ops A\na OK\n");
    EXPECT_EQ(c.ask("a HELP text"), "a.1 Some+text\na OK\n");
    EXPECT_EQ(c.ask("a HELP odd"), "a OK\n");
    EXPECT_EQ(c.ask("a HELP nothing"), "a ERR No such file or directory\n");
    EXPECT_EQ(c.ask("a INFO show"), "a.1 show:0:::1\na OK\n");
    EXPECT_EQ(c.ask("a INFO show x+y z"), "a.1 show:2:x+y:z:1\na OK\n");
    EXPECT_EQ(c.ask("a INFO"), "a BAD at least one argument required\n");
    EXPECT_EQ(c.ask("a INFO nothing"), "a ERR parameter not found\n");
}

TEST_F(Query, AccessTellsWhatTheMethodSays) {
    client c = logged_in();
    EXPECT_EQ(c.ask("a ACCESS text r"), "a.1 1\na OK\n");
    EXPECT_EQ(c.ask("a ACCESS text x"), "a.1 0\na OK\n");
    EXPECT_EQ(c.ask("a ACCESS who r one"), "a.1 1\na OK\n");
    EXPECT_EQ(c.ask("a ACCESS closed.other r"), "a.1 0\na OK\n");
    EXPECT_EQ(c.ask("a MACCESS do.only x please"), "a.1 1\na OK\n");
    EXPECT_EQ(c.ask("a MACCESS do.only x"), "a.1 0\na OK\n");
    EXPECT_EQ(c.ask("a ACCESS text"), "a BAD two arguments required\n");
    EXPECT_EQ(c.ask("a GET who"), "a.1 me\na OK\n");
}

TEST_F(Query, RefusalsAreLoggedWithThePermissionLetters) {
    client c = logged_in("l.1 perms read\nl LOGIN root");
    const std::string user = "Request denied: User 'root'";
    EXPECT_EQ(c.ask("a ADMIN do.say"), "a NO permission denied\n");
    EXPECT_TRUE(logged(user + ". Session perms required: 'x', granted: 'r'\n"));
    EXPECT_EQ(c.ask("a SET text x"), "a NO permission denied\n");
    EXPECT_TRUE(logged(user + " accessing node 'text'. 'access:' returned false.\n"));
    EXPECT_EQ(c.ask("a ADD hosts x"), "a NO permission denied\n");
    EXPECT_TRUE(
        logged(user + " accessing node 'hosts'. Session perms required: 'w', granted: 'r'\n"));
    EXPECT_EQ(c.ask("a SUBMIT"), "a NO permission denied\n");
    EXPECT_EQ(c.ask("a COMMIT"), "a NO permission denied\n");
    client blind = logged_in("l.1 perms exec\nl LOGIN root");
    for (const char *word : {"LIST", "MLIST", "HELP", "ATTR text", "GET text", "DIRTY", "CURRENT",
                             "UPDATE", "ACCESS text r", "INFO show"}) {
        EXPECT_EQ(blind.ask("a " + std::string{word}), "a NO permission denied\n") << word;
    }
    EXPECT_EQ(blind.ask("a REVERT"), "a OK\n");
    EXPECT_EQ(logged_in().ask("a ADMIN nothing"), "a NO permission denied\n");
    EXPECT_TRUE(logged(user + " accessing node 'nothing'. Session perms required: 'x', granted: "
                              "'rwx'\n"));
}

TEST_F(Query, TheOverrideSwitchesAccessMethodsOff) {
    stop();
    for (const char *level : {"1", "2"}) {
        configure("", "%default {\n access: r\n}\n",
                  "config {\n access-override: " + std::string{level} + "\n}\n");
        start();
        client c = logged_in();
        EXPECT_EQ(c.ask("a GET closed.other"), "a.1 y\na OK\n");
        EXPECT_EQ(c.ask("a SET text beta"), "a OK\n");
        EXPECT_EQ(c.ask("a ADMIN do.say"), "a NO permission denied\n");
        EXPECT_EQ(c.ask("a ACCESS closed r"), *level == '1' ? "a.1 0\na OK\n" : "a.1 1\na OK\n");
        stop();
    }
    start();
}

TEST_F(Query, AnActionsOutputComesWhileItRuns) {
    client c = logged_in();
    c.send("a ADMIN do.slow " + path("/go") + "\nb NOOP\n");
    EXPECT_EQ(c.line(), "a.1 begun\n");
    EXPECT_TRUE(c.silent_for(30));
    client other = logged_in();
    EXPECT_EQ(other.ask("x GET text"), "x.1 alpha\nx OK\n");
    put("/go", "");
    EXPECT_EQ(c.reply("a"), "a.1 done\na.1 \na.2 \na OK\n");
    EXPECT_EQ(c.line(), "b OK\n");
}

TEST_F(Query, AnActionEndsWithItsStatus) {
    client c = logged_in();
    EXPECT_EQ(c.ask("a ADMIN"), "a at least one argument required\n");
    EXPECT_EQ(c.ask("a ADMIN do.say x+y"),
              "a.1 one\na.1 two\na.1 x y\na.2 wrong\na.1 \na.2 \na OK\n");
    EXPECT_EQ(c.ask("a ADMIN do.refuse"), "a.1 refused\na.1 \na.2 \na ERR\n");
    EXPECT_EQ(c.ask("a ADMIN do"), "a.1 \na.2 \na ERR\n");
    EXPECT_EQ(c.ask("a ADMIN do.die"), "a.1 \na.2 \na OK\n");
    EXPECT_EQ(c.ask("a ADMIN do.only"), "a NO permission denied\n");
    EXPECT_EQ(c.ask("a ADMIN do.only please"), "a.1 ok\na.1 \na.2 \na OK\n");
    EXPECT_EQ(c.ask("a ADMIN do.touch"), "a.1 \na.2 \na OK\n");
    EXPECT_EQ(file("/touched"), "x\n");
}

TEST_F(Query, LongLinesOfAnActionComeInPieces) {
    client c = logged_in();
    const std::string reply = c.ask("a ADMIN do.long");
    /* Two cuts: each takes the byte there, and the end of a reply line that would be too long. */
    EXPECT_EQ(std::count(reply.begin(), reply.end(), 'x'), 40000 - 2 * 6);
    EXPECT_TRUE(reply.ends_with("\na.1 1\na.1 2\na.1 3\na.1 \na.2 \na OK\n"));
}

}  // namespace
