#include "ucfgd/escape.h"

#include <gtest/gtest.h>

#include <string>

#include "ucfgd/owners.h"

namespace {

std::string escaped(const char *text) {
    return owned_str{escape(text)}.get();
}

std::string unescaped(const char *text) {
    return owned_str{unescape(text)}.get();
}

TEST(Escape, KeepsReadableTextAndHidesSeparatorsControlsAndStrayBytes) {
    EXPECT_EQ(escaped("a b.c"), "a+b%2ec");
    EXPECT_EQ(escaped("100%"), "100%25");
    EXPECT_EQ(escaped("x+y"), "x%2by");
    EXPECT_EQ(escaped("\t\n\x1f"), "%09%0a%1f");
    EXPECT_EQ(escaped("~\x7f!"), "~\x7f!");
    EXPECT_EQ(escaped("caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80"),
              "caf\xC3\xA9+\xE2\x82\xAC+\xF0\x9F\x98\x80");
    EXPECT_EQ(escaped("\xE9z"), "%e9z");
    EXPECT_EQ(escaped("\xE2\x82"), "%e2%82") << "a character that the end of the text cuts";
    EXPECT_EQ(escaped("\xF8\x80\x80\x80"), "%f8\x80\x80%80") << "lenient lead bytes";
}

TEST(Escape, TakesPairsOfDigitsAndLeavesEveryOtherPercentSign) {
    EXPECT_EQ(unescaped("a+b%2Ec"), "a b.c");
    EXPECT_EQ(unescaped("%"), "%");
    EXPECT_EQ(unescaped("%4"), "%4");
    EXPECT_EQ(unescaped("%g1%zz+"), "%g1%zz ");
    EXPECT_EQ(unescaped("%%41"), "%A");
    char out[8];
    EXPECT_EQ(unescape_part("a%41", 3, out), 3u);
    EXPECT_STREQ(out, "a%4") << "a pair that the end cuts";
}

TEST(Escape, IsUndoneByUnescapeForEveryByte) {
    std::string all;
    for (int c = 1; c < 256; c++)
        all += static_cast<char>(c);
    owned_str text{escape(all.c_str())};
    EXPECT_EQ(unescape_b(text.get(), text.get()), all) << "in place";
}

TEST(Hex, DecodesPairsAndRefusesEverythingElse) {
    char out[4];
    size_t length = 9;
    EXPECT_STREQ(hexencode("\0\xff", out, 2, sizeof out), "00") << "whole pairs only";
    ASSERT_NE(hexdecode("00Ffa0", out, sizeof out, &length), nullptr);
    EXPECT_EQ(std::string(out, length), std::string("\0\xff\xa0", 3));
    ASSERT_NE(hexdecode("11223344", out, sizeof out, &length), nullptr);
    EXPECT_EQ(length, 3u) << "the buffer is never filled to its last byte";
    for (const char *bad : {"0", "0g", "00 11", "001"}) {
        EXPECT_EQ(hexdecode(bad, out, sizeof out, &length), nullptr) << bad;
        EXPECT_EQ(length, 0u);
    }
}

}  // namespace
