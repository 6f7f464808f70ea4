#include "archive/merge.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

namespace {

TEST(Merge, KeepsTheChangesOfBothSidesAndNamesTheLinesThatBothChanged) {
    const std::string base = "a\nb\nc\nd\ne\n";
    text_merge merged = merge_texts(base, "a\nB\nc\nd\ne\n", "a\nb\nc\nd\ne\nf\n");
    EXPECT_EQ(merged.result, merge_result::merged);
    EXPECT_EQ(merged.text, "a\nB\nc\nd\ne\nf\n");
    EXPECT_EQ(merge_texts(base, base, "").text, "");
    const std::string zero(1, 0);
    EXPECT_EQ(merge_texts(base, zero + base, base + "f\n").text, zero + base + "f\n");
    EXPECT_EQ(merge_texts(base, "x\n", "x\n").text, "x\n");
    merged = merge_texts(base, "A\nb\nc\nd\nE\n", "A\nb\nC\nd\ne\n");
    EXPECT_EQ(merged.text, "A\nb\nC\nd\nE\n");
    merged = merge_texts(base, "a\nB\nBB\nc\nd\nmine\n", "a\nbb\nc\nd\nyours\n");
    EXPECT_EQ(merged.result, merge_result::conflict);
    EXPECT_EQ(merged.conflicts, "lines 2-3, line 6");
}

TEST(Merge, WorksOnTextsOfAnySizeAndWithoutALastNewline) {
    std::string base;
    for (int i = 0; i < 50000; i++)
        base += "line " + std::to_string(i) + "\n";
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    const rlimit none{0, files.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none); /* so that no program can do it */
    const text_merge merged = merge_texts(base, "first\n" + base, base + "last");
    setrlimit(RLIMIT_NOFILE, &files);
    EXPECT_EQ(merged.text, "first\n" + base + "last");
    std::string many;
    for (int i = 0; i < 600; i++)
        many += "more\n";
    EXPECT_EQ(merge_texts(base, many + base, base + "last").text, many + base + "last");
}

TEST(Merge, ShowsTheDifferenceUnderTheNamesGiven) {
    std::string difference;
    EXPECT_EQ(unified_diff("a\nb\n", "a\nc\n", "old", "new", difference), 0);
    EXPECT_EQ(difference, "--- old\n+++ new\n@@ -1,2 +1,2 @@\n a\n-b\n+c\n");
    EXPECT_EQ(unified_diff("a\n", "a\n", "old", "new", difference), 0);
    EXPECT_EQ(difference, "");
}

}  // namespace
