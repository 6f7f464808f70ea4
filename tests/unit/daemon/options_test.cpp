#include "daemon/options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct outcome {
    bool runs;
    options given;
    std::string printed;
};

outcome parse(std::vector<const char *> words) {
    words.insert(words.begin(), "/sbin/ucfgd");
    words.push_back(nullptr);
    outcome result{};
    testing::internal::CaptureStderr();
    result.runs = read_options(static_cast<int>(words.size()) - 1,
                               const_cast<char **>(words.data()), result.given);
    result.printed = testing::internal::GetCapturedStderr();
    return result;
}

TEST(Options, SetWhatTheyNameInBothForms) {
    outcome o = parse({"-ca.conf", "--prefix=/p", "--root", "/r", "-nl", "--debug=3"});
    ASSERT_TRUE(o.runs);
    EXPECT_STREQ(o.given.config_file, "a.conf");
    EXPECT_STREQ(o.given.prefix, "/p");
    EXPECT_STREQ(o.given.root, "/r");
    EXPECT_STREQ(o.given.debug_level, "3");
    EXPECT_EQ(parse({"-D"}).given.dump_path, nullptr);
    EXPECT_STREQ(parse({"--dump-tree-to-path-and-exit=/d"}).given.dump_path, "/d");
    EXPECT_TRUE(o.given.foreground && o.given.use_syslog && !o.given.kill);
}

TEST(Options, PrintTheHelpTextForWhatDoesNotBelongThere) {
    std::string help = parse({"-h"}).printed;
    EXPECT_EQ(help.find("Usage: /sbin/ucfgd [OPTIONS...]\n\nThe Unified"), 0u);
    EXPECT_TRUE(help.ends_with("This help message.\n\n"));
    for (const char *word : {"-?", "-r", "--help", "--nonsense", "-c"}) {
        outcome o = parse({word});
        EXPECT_FALSE(o.runs) << word;
        EXPECT_TRUE(o.printed.ends_with(help)) << word;
    }
    EXPECT_EQ(parse({"-n", "stray"}).printed, "Unrecognized option: \"stray\".\n" + help);
}

}  // namespace
