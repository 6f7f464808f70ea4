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

/* Names in `given` live as long as the literals passed in. */
outcome parse(std::vector<const char *> words) {
    words.insert(words.begin(), "/sbin/ucfgd");
    std::vector<char *> argv;
    for (const char *word : words)
        argv.push_back(const_cast<char *>(word));
    argv.push_back(nullptr);
    outcome result{};
    testing::internal::CaptureStderr();
    result.runs = read_options(static_cast<int>(words.size()), argv.data(), result.given);
    result.printed = testing::internal::GetCapturedStderr();
    return result;
}

TEST(Options, SetWhatTheyNameInBothForms) {
    outcome o =
        parse({"-c", "a.conf", "--prefix=/p", "--root", "/r", "-P", "log", "-nl", "--debug=3"});
    ASSERT_TRUE(o.runs);
    EXPECT_STREQ(o.given.config_file, "a.conf");
    EXPECT_STREQ(o.given.prefix, "/p");
    EXPECT_STREQ(o.given.root, "/r");
    EXPECT_STREQ(o.given.protocol_log, "log");
    EXPECT_STREQ(o.given.debug_level, "3");
    EXPECT_TRUE(o.given.foreground);
    EXPECT_TRUE(o.given.use_syslog);
    EXPECT_FALSE(o.given.kill);
    EXPECT_EQ(o.printed, "");
    EXPECT_STREQ(parse({}).given.config_file, "/etc/ucfgd/ucfgd.conf");
}

TEST(Options, DumpTheTreesInTheLongFormOnly) {
    EXPECT_STREQ(parse({"--dump-tree-to-path-and-exit=/d"}).given.dump_path, "/d");
    outcome o = parse({"-D"});
    EXPECT_TRUE(o.runs);
    EXPECT_EQ(o.given.dump_path, nullptr);
    EXPECT_FALSE(parse({"-D", "/d"}).runs) << "the directory is a stray word";
}

TEST(Options, PrintTheHelpTextForWhatDoesNotBelongThere) {
    std::string help = parse({"-h"}).printed;
    EXPECT_EQ(help.find("Usage: /sbin/ucfgd [OPTIONS...]\n\nThe Unified"), 0u);
    EXPECT_TRUE(help.ends_with("This help message.\n\n"));
    for (const char *word : {"-?", "-r", "--help", "--nonsense", "-c"}) {
        outcome o = parse({word});
        EXPECT_FALSE(o.runs) << word;
        EXPECT_NE(o.printed.find(help), std::string::npos) << word;
    }
    EXPECT_EQ(parse({"-n", "stray"}).printed, "Unrecognized option: \"stray\".\n" + help);
}

}  // namespace
