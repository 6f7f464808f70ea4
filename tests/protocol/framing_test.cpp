#include "daemon_fixture.h"

/* Lines, tags and requests, byte by byte. */

namespace {

class Framing : public daemon_test {
  protected:
    void prepare() override { start(); }
};

TEST_F(Framing, TagsAreLettersAndDigitsAndComeBackOnEveryLine) {
    client c = logged_in();
    EXPECT_EQ(c.ask("a1 noop"), "a1 OK\n");
    EXPECT_EQ(c.ask("Zz9 NoOp"), "Zz9 OK\n");
    EXPECT_EQ(c.ask("7 GET name"), "7.1 alpha\n7 OK\n");
    EXPECT_EQ(c.ask("a1noop"), "a1noop BAD id invalid\n");
    EXPECT_EQ(c.ask("a1"), "a1 BAD id invalid\n");
    c.send("a-1 NOOP\n");
    EXPECT_EQ(c.line(), "a BAD id invalid\n");
    c.send("\n");
    EXPECT_EQ(c.line(), " BAD id invalid\n");
    EXPECT_EQ(c.ask(" NOOP"), " OK\n");
    const std::string longest(254, 'x');
    EXPECT_EQ(c.ask(longest + " NOOP"), longest + " OK\n");
    c.send(longest + "xyz NOOP\n");
    EXPECT_EQ(c.line(), longest + "x BAD id invalid\n");
}

TEST_F(Framing, ControlCharactersAreDroppedWhereverTheyStand) {
    client c = logged_in();
    EXPECT_EQ(c.ask("a NOOP\r"), "a OK\n");
    c.send("\x01\x02\x1f\n");
    EXPECT_EQ(c.line(), " BAD id invalid\n");
    c.send(std::string{"b\0 NO\tOP\x1b\n", 11});
    EXPECT_EQ(c.line(), "b OK\n");
    EXPECT_EQ(c.ask("c SET name \x7f\xc3\xa4"), "c OK\n");
    EXPECT_EQ(c.ask("d GET name"), "d.1 \x7f\xc3\xa4\nd OK\n");
    EXPECT_EQ(c.ask("e SET name a%0ab"), "e ERR result=2 Value cannot be stored in this file\n");
}

TEST_F(Framing, WordsThatAreNoCommandAreAnsweredByWhoAsks) {
    client c = connect();
    EXPECT_EQ(c.ask("t1 FOO"), "t1 NO login required\n");
    EXPECT_EQ(c.ask("t2"), "t2 BAD id invalid\n");
    EXPECT_EQ(c.ask("t3 GET name"), "t3 NO login required\n");
    EXPECT_EQ(c.ask("t4 LOGOUT"), "t4 NO login required\n");
    EXPECT_EQ(c.ask("t5 NOOP and more"), "t5 OK\n");
    EXPECT_EQ(c.login(), "l.1 PERMS read write exec\nl OK\n");
    EXPECT_EQ(c.ask("t6 FOO"), "t6 BAD invalid command\n");
    EXPECT_EQ(c.ask("t7 "), "t7 BAD invalid command\n");
    EXPECT_EQ(c.ask("t8 GETS name"), "t8 BAD invalid command\n");
    EXPECT_EQ(c.ask("t9 " + std::string(255, 'A')), "t9 BAD invalid command\n");
    EXPECT_EQ(c.ask("u1   get    name   "), "u1.1 alpha\nu1 OK\n");
    EXPECT_EQ(c.ask("u2 GET2 name"), "u2 ERR parameter not found\n");
}

TEST_F(Framing, ContinuationLinesBelongToTheNextRequestOfTheirTag) {
    client c = logged_in();
    EXPECT_EQ(c.ask("x.1 SET name beta\ny SUBMIT"), "y BAD id unexpected\n");
    EXPECT_EQ(c.ask("x SUBMIT"), "x.1 OK\nx OK\n");
    EXPECT_EQ(c.ask("x GET name"), "x.1 beta\nx OK\n");
    /* The tag is compared over its own length only. */
    EXPECT_EQ(c.ask("ab.1 SET name gamma\na NOOP"), "a OK\n");
    EXPECT_EQ(c.ask("x GET name"), "x.1 beta\nx OK\n");
    EXPECT_EQ(c.ask("x. \nx SUBMIT"), "x. BAD unknown sub command: \nx ERR\n");
}

TEST_F(Framing, PipelinedRequestsMayArriveInAnyPieces) {
    client c = logged_in();
    std::string requests;
    std::string replies;
    for (int i = 0; i < 40; i++) {
        const std::string tag = "p" + std::to_string(i);
        requests += tag + (i % 2 == 0 ? " GET name\n" : " NOOP\r\n");
        replies += (i % 2 == 0 ? tag + ".1 alpha\n" : "") + tag + " OK\n";
    }
    for (size_t at = 0, size = 1; at < requests.size(); at += size, size = size % 13 + 1)
        ASSERT_TRUE(c.send(requests.substr(at, size)));
    std::string all;
    for (int i = 0; i < 40; i++)
        all += c.reply("p" + std::to_string(i));
    EXPECT_EQ(all, replies);
}

TEST_F(Framing, ALineThatIsTooLongClosesTheConnectionAndNoOther) {
    client other = logged_in();
    client c = logged_in();
    std::string longest = "a NOOP ";
    longest.append(16382 - longest.size(), 'x');
    EXPECT_EQ(c.ask(longest + std::string(5000, '\r')), "a OK\n");
    EXPECT_EQ(c.ask(longest + "x"), "<closed>");
    client unfinished = connect();
    ASSERT_TRUE(unfinished.send(std::string(16383, 'x')));
    EXPECT_EQ(unfinished.line(), "<closed>");
    EXPECT_TRUE(logged("line too long, closing session"));
    EXPECT_EQ(other.ask("b GET name"), "b.1 alpha\nb OK\n");
}

TEST_F(Framing, CollectedLinesAreBoundedMoreTightlyBeforeLogin) {
    const std::string piece = "a." + std::string(16000, 'x') + "\n";
    client stranger = connect();
    for (int i = 0; i < 4; i++)
        ASSERT_TRUE(stranger.send(piece));
    EXPECT_EQ(stranger.ask("a NOOP"), "a OK\n");
    for (int i = 0; i < 5; i++)
        stranger.send(piece);
    EXPECT_EQ(stranger.line(), "<closed>");
    client user = logged_in();
    for (int i = 0; i < 261; i++)
        ASSERT_TRUE(user.send(piece));
    EXPECT_EQ(user.ask("a NOOP"), "a OK\n");
    for (int i = 0; i < 263; i++)
        user.send(piece);
    EXPECT_EQ(user.line(), "<closed>");
    EXPECT_TRUE(logged("request too long, closing session"));
}

TEST_F(Framing, ALogoutAnswersWhatStandsBehindItWithItsReason) {
    client c = logged_in();
    c.send("a LOGOUT\nb GET name\nc NOOP\n");
    EXPECT_EQ(c.line(), "a OK\n");
    EXPECT_EQ(c.line(), "b NO logged out\n");
    EXPECT_EQ(c.line(), "c NO logged out\n");
    EXPECT_EQ(c.line(), "<closed>");
}

}  // namespace
