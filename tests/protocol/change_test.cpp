#include "daemon_fixture.h"

/* Changing parameters one by one and as a batch, before anything is committed. */

namespace {

constexpr std::string_view k_more = R"(
range {
    low|high {
        get: llget('box', $0)
        set: llset('box', $0, $_)
        sanity: paramget('range.low') <= paramget('range.high') || seterror('low is above high', 'error.range')
    }
}
locked {
    access: $perm == 'r'
    get: 'shut'
    set: '1'
}
silent {
    set: '1'
    sanity: '0'
}
mute {
    set: fail()
    add: fail()
    del: fail()
    move: fail()
    list: 'here'
}
failing {
    set: llset('box', 'name', 'torn') && '0'
    add: lldel('box', '', 'level') && '0'
    move: lladd('box', '', 'torn') && '0'
}
guarded {
    access: $perm == 'r' || llget('box', 'level') == '5'
    set: '1'
}
strict {
    list: 'one'
    add: '1'
    del: '1'
    sanity: '0'
}
last {
    set: '0'
    set: '1'
}
readable {
    get: '1'
}
)";

class Change : public daemon_test {
  protected:
    void prepare() override {
        append("/etc/ucfgd/param.conf", k_more);
        put("/etc/box.conf", "# the box\nname = alpha\nlevel = 5\nlow = 1\nhigh = 5\n");
        start();
        a = logged_in();
    }

    /* A log-in that has only these permissions. */
    client restricted(const std::string &perms) const {
        client made = connect();
        made.ask("l.1 perms " + perms + "\nl LOGIN root");
        return made;
    }

    client a;
};

constexpr std::string_view k_list = "1 LIST hosts";

TEST_F(Change, ASetIsSeenByItsOwnSessionAloneUntilItIsCommitted) {
    client b = logged_in();
    EXPECT_EQ(a.ask("1 SET name beta"), "1 OK\n");
    EXPECT_EQ(a.ask("2 SET hosts.192%2e0%2e2%2e10.name tapes"), "2 OK\n");
    EXPECT_EQ(a.ask("3 GET name"), "3.1 beta\n3 OK\n");
    EXPECT_EQ(b.ask("1 GET name"), "1.1 alpha\n1 OK\n");
    EXPECT_EQ(b.ask("2 GET hosts.192%2e0%2e2%2e10.name"), "2.1 files\n2 OK\n");
    EXPECT_EQ(file("/etc/box.conf"), "# the box\nname = alpha\nlevel = 5\nlow = 1\nhigh = 5\n");
}

TEST_F(Change, ASetThatIsRefusedSaysWhyAndChangesNothing) {
    EXPECT_EQ(a.ask("1 SET"), "1 BAD at least one argument required\n");
    EXPECT_EQ(a.ask("1 SET nothing x"), "1 ERR parameter not found\n");
    EXPECT_EQ(a.ask("1 SET level five"),
              "1.error error.level\n1.error.arg five\n1.error.arg 0\n"
              "1.error.arg 9\n1 ERR five is no level\n");
    EXPECT_EQ(a.ask("1 SET silent x"), "1 ERR sanity check failed\n");
    EXPECT_EQ(a.ask("1 SET locked x"), "1 NO permission denied\n");
    EXPECT_EQ(a.ask("1 SET failing x"), "1 ERR result=2 Invalid argument\n");
    EXPECT_EQ(a.ask("1 SET mute x"), "1 ERR result=1 Invalid argument\n");
    EXPECT_EQ(a.ask("1 SET readable 2"), "1 ERR result=5 Success\n");
    EXPECT_EQ(a.ask("1 SET last x"), "1 OK\n");
    EXPECT_EQ(a.ask("1 SET hosts.192%2e0%2e2%2e99.name x"),
              "1 ERR result=2 No such file or directory\n");
    EXPECT_EQ(restricted("read").ask("1 SET name x"), "1 NO permission denied\n");
    EXPECT_EQ(a.ask("1 DIRTY"), "1.dirty 0\n1 OK\n");
}

TEST_F(Change, EntriesAreAddedDeletedAndMoved) {
    EXPECT_EQ(a.ask("1 ADD hosts 192%2e0%2e2%2e12"), "1 OK\n");
    EXPECT_EQ(a.ask("1 SET hosts.192%2e0%2e2%2e12.name spare"), "1 OK\n");
    EXPECT_EQ(a.ask("1 GET hosts.192%2e0%2e2%2e12.name"), "1.1 spare\n1 OK\n");
    EXPECT_EQ(a.ask("1 DEL hosts 127%2e0%2e0%2e1"), "1 OK\n");
    EXPECT_EQ(a.ask("1 MOVE hosts 192%2e0%2e2%2e10 192%2e0%2e2%2e11"), "1 OK\n");
    EXPECT_EQ(a.ask(k_list),
              "1.1 192%2e0%2e2%2e11\n1.1 192%2e0%2e2%2e10\n1.1 192%2e0%2e2%2e12\n1 OK\n");
    EXPECT_EQ(a.ask("1 MOVE hosts 192%2e0%2e2%2e11 192%2e0%2e2%2e12"), "1 OK\n");
    EXPECT_EQ(a.ask(k_list),
              "1.1 192%2e0%2e2%2e10\n1.1 192%2e0%2e2%2e12\n1.1 192%2e0%2e2%2e11\n1 OK\n");
    EXPECT_EQ(a.ask("1 DIRTY"), "1.dirty 1\n1 OK\n");
}

TEST_F(Change, EachOtherChangeHasAnErrorReplyOfItsOwn) {
    EXPECT_EQ(a.ask("1 ADD hosts"), "1 BAD two arguments required\n");
    EXPECT_EQ(a.ask("1 DEL"), "1 BAD two arguments required\n");
    EXPECT_EQ(a.ask("1 MOVE hosts 1"), "1 BAD three arguments required\n");
    for (const char *command : {"1 ADD nothing x", "1 DEL nothing x", "1 MOVE nothing x y",
                                "1 ADD locked x", "1 DEL locked x", "1 MOVE locked x y"}) {
        EXPECT_EQ(a.ask(command), "1 NO permission denied\n") << command;
    }
    EXPECT_EQ(a.ask("1 ADD hosts 192%2e0%2e2%2e10"),
              "1.error error.exists\n1 ERR Entry already exists\n");
    EXPECT_EQ(a.ask("1 DEL hosts box"), "1.error error.not_exists\n1 ERR Entry does not exist\n");
    const std::string refused = "1.error error.ip\n1.error.arg box\n1 ERR box is no address\n";
    EXPECT_EQ(a.ask("1 ADD hosts box"), refused);
    EXPECT_EQ(a.ask("1 MOVE hosts 127%2e0%2e0%2e1 box"), refused);
    EXPECT_EQ(a.ask("1 MOVE hosts 127%2e0%2e0%2e1 9%2e9%2e9%2e9"),
              "1 ERR result=2 Invalid argument\n");
    EXPECT_EQ(a.ask("1 ADD failing x"), "1 ERR\n");
    EXPECT_EQ(a.ask("1 MOVE failing x y"), "1 ERR result=2 Invalid argument\n");
    EXPECT_EQ(a.ask("1 ADD mute x"), "1 ERR\n");
    EXPECT_EQ(a.ask("1 DEL mute here"), "1 ERR\n");
    EXPECT_EQ(a.ask("1 DEL mute x"), "1.error error.not_exists\n1 ERR Entry does not exist\n");
    EXPECT_EQ(a.ask("1 MOVE mute x y"), "1 ERR result=1 Invalid argument\n");
    EXPECT_EQ(a.ask("1 ADD readable x"), "1 ERR\n");
    EXPECT_EQ(a.ask("1 MOVE readable x y"), "1 ERR result=5 Success\n");
    EXPECT_EQ(a.ask("1 DIRTY"), "1.dirty 0\n1 OK\n");
    client reader = restricted("read");
    EXPECT_EQ(reader.ask("1 ADD hosts 9%2e9%2e9%2e9"), "1 NO permission denied\n");
    EXPECT_EQ(reader.ask("1.1 SET name x\n1 SUBMIT"), "1 NO permission denied\n");
    EXPECT_EQ(reader.ask("1 COMMIT"), "1 NO permission denied\n");
}

TEST_F(Change, AValueThatTheFileCannotHoldIsRefusedBeforeItIsTaken) {
    EXPECT_EQ(a.ask("1 SET name a%0ab"), "1 ERR result=2 Value cannot be stored in this file\n");
    EXPECT_EQ(a.ask("2.1 SET name a%0ab\n2 SUBMIT"),
              "2.1.error error.not-storable\n2.1 ERR Value cannot be stored in this file\n2 ERR\n");
    EXPECT_EQ(a.ask("3 SET hosts.192%2e0%2e2%2e10.name two+words"),
              "3 ERR result=2 Value cannot be stored in this file\n");
    EXPECT_EQ(a.ask("4 GET name"), "4.1 alpha\n4 OK\n");
    EXPECT_EQ(a.ask("5 DIRTY"), "5.dirty 0\n5 OK\n");
}

TEST_F(Change, ContinuationLinesMakeAValueOfSeveralLines) {
    stop();
    use_appliance();
    start();
    a = logged_in();
    EXPECT_EQ(a.ask("1. first\n1.    second line\r\n1.\n1.\n1. %23 last\n1 SET system.banner"),
              "1 OK\n");
    EXPECT_EQ(a.ask("1 GET system.banner"), "1.1 first%0asecond+line%0a#+last\n1 OK\n");
    /* Only the leading run of lines with one prefix counts. */
    EXPECT_EQ(a.ask("1.a one\n1.a two\n1.b three\n1 SET system.banner four"), "1 OK\n");
    EXPECT_EQ(a.ask("1 GET system.banner"), "1.1 one%0atwo\n1 OK\n");
    EXPECT_EQ(a.ask("1 SET system.banner"), "1 OK\n");
    EXPECT_EQ(a.ask("1 GET system.banner"), "1.1 \n1 OK\n");
}

TEST_F(Change, ABatchIsJudgedOnTheSessionAsItWasBeforeIt) {
    const std::string batch = "b.1 SET level 9\nb.2 SET guarded x\nb SUBMIT";
    EXPECT_EQ(a.ask("1 SET name beta"), "1 OK\n");
    EXPECT_EQ(a.ask(batch), "b.1 OK\nb.2 OK\nb OK\n");
    EXPECT_EQ(a.ask(batch), "b.2 NO permission denied\nb.1 OK\nb.2 ERR result=1 Success\nb ERR\n");
}

TEST_F(Change, ABatchIsAppliedAsAWholeOrNotAtAll) {
    EXPECT_EQ(a.ask("b SUBMIT"), "b OK\n");
    EXPECT_EQ(a.ask("b.1 SET name beta\nb.2 FROB name\nb SUBMIT"),
              "b.2 BAD unknown sub command: FROB\nb ERR\n");
    EXPECT_EQ(a.ask("b.1 SET name beta\nb.2 SET nothing 1\nb.3 set level 7\nb SUBMIT"),
              "b.1 OK\nb.2 ERR result=3 No such file or directory\nb.3 OK\nb ERR\n");
    EXPECT_EQ(a.ask("b.1 SET name beta\nb.2 SET level x\nb SUBMIT"),
              "b.1 OK\nb.2.error error.level\nb.2.error.arg x\nb.2.error.arg 0\n"
              "b.2.error.arg 9\nb.2 ERR x is no level\nb ERR\n");
    EXPECT_EQ(a.ask("b.1 SET name beta\nb.2 SET locked x\nb.3 ADD locked x\nb.4 MOVE locked x y\n"
                    "b SUBMIT"),
              "b.2 NO permission denied\nb.3 NO permission denied\nb.4 NO permission denied\n"
              "b.1 OK\nb.2 ERR result=1 Success\nb.3 ERR result=1 Success\n"
              "b.4 ERR result=1 Success\nb ERR\n");
    EXPECT_EQ(a.ask("b.1 ADD hosts 192%2e0%2e2%2e10\nb.2 DEL hosts 9%2e9%2e9%2e9\n"
                    "b.3 SET name 123456789\nb.4 SET failing x\nb.5 ADD failing x\n"
                    "b.6 SET silent x\nb.7 SET readable x\nb.8 MOVE name x 123456789\nb SUBMIT"),
              "b.1.error error.exists\nb.1 ERR Entry already exists\n"
              "b.2.error error.not_exists\nb.2 ERR Entry does not exist\n"
              "b.3.error error.exceeded.max-size\nb.3 ERR Exceeded maximum size for this field\n"
              "b.4 ERR result=2 Invalid argument\nb.5 ERR result=2 Success\n"
              "b.6 ERR sanity check failed\nb.7 ERR result=5 Success\n"
              "b.8 ERR result=1 Success\nb ERR\n");
    EXPECT_EQ(a.ask("g GET name"), "g.1 alpha\ng OK\n");
    EXPECT_EQ(a.ask("g DIRTY"), "g.dirty 0\ng OK\n");
    EXPECT_EQ(a.ask("b.1 SET name beta\nb.x ADD hosts 9%2e9%2e9%2e9\n"
                    "b.3 set hosts.9%2e9%2e9%2e9.name nine\nb.4 Del hosts 127%2e0%2e0%2e1\n"
                    "b.5 MOVE hosts 192%2e0%2e2%2e10 192%2e0%2e2%2e11\nb SUBMIT"),
              "b.1 OK\nb.x OK\nb.3 OK\nb.4 OK\nb.5 OK\nb OK\n");
    EXPECT_EQ(a.ask("1 GET name"), "1.1 beta\n1 OK\n");
    EXPECT_EQ(a.ask(k_list),
              "1.1 192%2e0%2e2%2e11\n1.1 192%2e0%2e2%2e10\n1.1 9%2e9%2e9%2e9\n1 OK\n");
}

TEST_F(Change, MalformedItemsAreAnsweredAndPassedOver) {
    EXPECT_EQ(a.ask("b.1 SET\nb.2 ADD hosts\nb.3 DEL hosts\nb.4 MOVE hosts 1\nb.5 SET name beta\n"
                    "b SUBMIT"),
              "b.1 BAD two arguments required\nb.2 BAD at least one arguments required\n"
              "b.3 BAD two arguments required\nb.4 BAD three arguments required\n"
              "b.5 OK\nb OK\n");
    EXPECT_EQ(a.ask("1 GET name"), "1.1 beta\n1 OK\n");
}

TEST_F(Change, ChecksOfABatchSeeItsOutcomeAndSpareWhatIsDeleted) {
    const std::string refused = "ERR low is above high\n";
    EXPECT_EQ(a.ask("1.1 SET range.low 7\n1 SUBMIT"),
              "1.1.error error.range\n1.1 " + refused + "1 ERR\n");
    EXPECT_EQ(a.ask("1.1 SET range.low 7\n1.2 SET range.high 9\n1 SUBMIT"),
              "1.1 OK\n1.2 OK\n1 OK\n");
    /* The first one is fine alone, and not together with the second. */
    EXPECT_EQ(a.ask("1.1 SET range.low 8\n1.2 SET range.high 3\n1 SUBMIT"),
              "1.1.error error.range\n1.1 " + refused + "1.2.error error.range\n1.2 " + refused +
                  "1 ERR\n");
    EXPECT_EQ(a.ask("1 GET range.low"), "1.1 7\n1 OK\n");
    EXPECT_EQ(a.ask("1.1 DEL strict one\n1 SUBMIT"), "1.1 OK\n1 OK\n");
    EXPECT_EQ(a.ask("1 DEL strict one"), "1 OK\n");
    EXPECT_EQ(a.ask("1.1 DEL strict one\n1.2 ADD strict two\n1 SUBMIT"),
              "1.1 OK\n1.2 ERR sanity check failed\n1 ERR\n");
}

TEST_F(Change, TheWriterWhoCommitsSecondIsToldSoAndCatchesUp) {
    client b = logged_in();
    a.ask("1 SET name first");
    b.ask("1 SET level 7");
    EXPECT_EQ(b.ask("1 CURRENT"), "1 OK\n");
    EXPECT_EQ(b.ask("1 UPDATE"), "1 OK\n");
    EXPECT_EQ(a.ask("2 COMMIT"), "2 OK\n");
    EXPECT_EQ(a.ask("3 DIRTY"), "3.dirty 0\n3 OK\n");
    EXPECT_EQ(a.ask("3 CURRENT"), "3 OK\n");
    EXPECT_EQ(b.ask("2 COMMIT"), "2 ERR commit conflict\n");
    EXPECT_EQ(b.ask("3 CURRENT"), "3 ERR commit conflict\n");
    EXPECT_EQ(b.ask("4 UPDATE"), "4 ERR session is dirty and not current\n");
    EXPECT_EQ(b.ask("5 GET level"), "5.1 7\n5 OK\n");
    EXPECT_EQ(b.ask("6 REVERT"), "6 OK\n");
    EXPECT_EQ(b.ask("7 GET level"), "7.1 5\n7 OK\n");
    EXPECT_EQ(b.ask("7 GET name"), "7.1 first\n7 OK\n");
    client c = logged_in();
    b.ask("8 SET level 8");
    EXPECT_EQ(b.ask("8 COMMIT"), "8 OK\n");
    EXPECT_EQ(c.ask("1 UPDATE"), "1 OK updated\n");
    EXPECT_EQ(c.ask("2 CURRENT"), "2 OK\n");
    EXPECT_EQ(c.ask("3 GET level"), "3.1 8\n3 OK\n");
}

TEST_F(Change, RevertDropsChangesAndAsksForNoPermission) {
    a.ask("1 SET name beta");
    a.ask("1.1 ADD hosts 9%2e9%2e9%2e9\n1 SUBMIT");
    EXPECT_EQ(a.ask("1 REVERT"), "1 OK\n");
    EXPECT_EQ(a.ask("1 DIRTY"), "1.dirty 0\n1 OK\n");
    EXPECT_EQ(a.ask("1 GET name"), "1.1 alpha\n1 OK\n");
    EXPECT_EQ(a.ask(k_list),
              "1.1 127%2e0%2e0%2e1\n1.1 192%2e0%2e2%2e10\n1.1 192%2e0%2e2%2e11\n1 OK\n");
    client nobody = restricted("exec");
    EXPECT_EQ(nobody.ask("1 REVERT"), "1 OK\n");
    EXPECT_EQ(nobody.ask("1 DIRTY"), "1 NO permission denied\n");
    EXPECT_EQ(nobody.ask("1 CURRENT"), "1 NO permission denied\n");
    EXPECT_EQ(nobody.ask("1 UPDATE"), "1 NO permission denied\n");
}

}  // namespace
