// The guides, the README and the manual pages: what they show is what happens.

#include <unistd.h>

#include <regex>
#include <sstream>

#include "documents.h"

namespace {

std::vector<std::string> pages() {
    std::vector<std::string> list;
    std::istringstream text{MAN_PAGES};
    for (std::string page; std::getline(text, page, ':');)
        list.push_back(page);
    return list;
}

std::vector<std::string> documents() {
    std::vector<std::string> list = pages();
    for (const char *guide : {"own-parameter", "feature-module", "parser", "security", "tree-files",
                              "how-a-commit-reaches-the-disk"})
        list.push_back(std::string{SOURCE_DIR "/docs/"} + guide + ".md");
    return list;
}

std::string test_name(const std::string &document) {
    return std::regex_replace(document.substr(document.rfind('/') + 1), std::regex{"[^a-z0-9]"},
                              "_");
}

class every_document : public document_test, public testing::WithParamInterface<std::string> {};

TEST_P(every_document, ShowsWhatHappens) {
    follow(GetParam());
}

INSTANTIATE_TEST_SUITE_P(docs, every_document, testing::ValuesIn(documents()),
                         [](const auto &document) { return test_name(document.param); });

TEST(ManualPages, AreCleanUnderLint) {
    if (run_program({"/bin/sh", "-c", "command -v mandoc"}).status != 0)
        GTEST_SKIP() << "there is no mandoc here";
    for (const std::string &page : pages()) {
        /* Which other pages there are depends on the machine. */
        const std::string complaints =
            run_program({"/bin/sh", "-c",
                         "mandoc -Tlint " + page + " 2>/dev/null | grep -v 'manual not found'"})
                .out;
        EXPECT_EQ(complaints, "");
    }
}

TEST(Examples, AreReadOffGuidesAndPages) {
    EXPECT_EQ(examples_of(SOURCE_DIR "/docs/parser.md").at(1).file, "exports.c");
    EXPECT_TRUE(fits("a\nb\nc\n", "a\n...\nc\n"));
    EXPECT_FALSE(fits("a\nb\n", "a\n...\nc\n"));
    EXPECT_FALSE(fits("a\nb\n", "a\n"));
}

/* The first session of the README: what is typed at the client's prompt, and what it answers. A
 * script is not told what was done. */
TEST_F(document_test, TheFirstSessionOfTheReadmeGoesAsShown) {
    const std::regex prompt{"^ucfg\\*?> "};
    std::string typed;
    std::string one_shot;
    std::string expected;
    for (const example &block : examples_of(SOURCE_DIR "/README.md")) {
        if (block.text.starts_with("$ ucfgsh get")) one_shot = block.text;
        std::istringstream lines{block.text};
        for (std::string line; std::getline(lines, line);) {
            if (std::regex_search(line, prompt)) {
                typed += std::regex_replace(line, prompt, "") + '\n';
            } else if (!typed.empty() && !typed.ends_with("quit\n") && !line.starts_with("set ")) {
                expected += line + '\n';
            }
        }
    }
    ASSERT_NE(typed, "");
    put("/scratch/typed", typed);
    start();
    const std::string printed = std::regex_replace(shell("ucfgsh --continue --file typed"),
                                                   std::regex{"typed:[0-9]+: "}, "");
    EXPECT_TRUE(fits(printed, expected)) << printed << "--- expected:\n" << expected;
    EXPECT_EQ(shell("diff " SOURCE_DIR "/examples/appliance/etc/ssh/sshd_config "
                    "/etc/ssh/sshd_config | grep '^[<>]'"),
              "> Port 2222\n");
    ASSERT_NE(one_shot, "");
    run_console(one_shot);
}

TEST_F(document_test, OneCommandTellsWhatAServiceHasRefused) {
    std::string modules = file("/etc/ucfgd/modules.conf");
    modules.insert(modules.find("mode: 0644"), "post-commit: commitnote('ssh', 'failed', 'no')\n");
    put("/etc/ucfgd/modules.conf", modules);
    start();
    EXPECT_EQ(shell("ucfgsh -q set ssh.port 2222 2>&1"),
              "ucfgsh: committed, but ssh: failed: no\n");
}

}  // namespace
