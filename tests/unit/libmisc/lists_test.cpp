#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "ucfgd/lines.h"
#include "ucfgd/owners.h"
#include "ucfgd/slist.h"
#include "ucfgd/words.h"

namespace {

using texts = std::vector<std::string>;
using lines = owned<line, destroy_line_list>;

texts read(const line *list) {
    texts result;
    for (; list; list = list->next)
        result.emplace_back(list->line);
    return result;
}

TEST(Lines, SplitABlockAtItsNewlinesAndDropControlCharactersButTabs) {
    auto split = [](std::string_view block) {
        return read(lines{convert_lines(block.data(), block.size())}.get());
    };
    EXPECT_EQ(split("a\r\nb"), (texts{"a\n", "b"}));
    EXPECT_EQ(split("t\tu\x01\n\nend\n"), (texts{"t\tu\n", "\n", "end\n"}));
    EXPECT_EQ(split(std::string_view("seen\n\0not", 9)), texts{"seen\n"});
    EXPECT_EQ(split(""), texts{});
    std::string fits(4094, 'f');
    EXPECT_EQ(split(fits + "\nx"), (texts{fits + "\n", "x"}));
    EXPECT_EQ(split(fits + "g\nx"), (texts{fits + "g", "\n", "x"}));
}

TEST(Lines, ReadAStreamKeepingNewlinesAndCuttingWhatIsTooLong) {
    std::string text = "one\n" + std::string(4094, 'l') + "tail\nlast";
    owned<FILE, fclose> file{fmemopen(text.data(), text.size(), "r")};
    lines list{read_lines(file.get())};
    EXPECT_EQ(read(list.get()), (texts{"one\n", std::string(4094, 'l'), "tail\n", "last"}));
}

TEST(Lists, UnlinkTheHeadTheMiddleAndNothingThatIsNotThere) {
    line c{nullptr, nullptr};
    line b{nullptr, nullptr};
    line a{nullptr, nullptr};
    line stranger{nullptr, nullptr};
    line *list = slist_append<line>(nullptr, &b);
    list = slist_append(list, &c);
    list = slist_prepend(list, &a);
    EXPECT_EQ(slist_unlink(list, &stranger), &a);
    EXPECT_EQ(slist_unlink(list, &b), &a);
    EXPECT_EQ(a.next, &c);
    EXPECT_EQ(slist_unlink(list, &a), &c);
}

TEST(Words, AreTakenOneByOneAndWhatDoesNotFitIsDropped) {
    const char *position = "  first verylongword\tx  ";
    char word[6];
    EXPECT_EQ(dup_next_word_b(&position, word, sizeof word), 5u);
    EXPECT_STREQ(word, "first");
    dup_next_word_b(&position, word, sizeof word);
    EXPECT_STREQ(word, "veryl");
    dup_next_word_b(&position, word, sizeof word);
    EXPECT_STREQ(word, "x");
    EXPECT_EQ(dup_next_word_b(&position, word, sizeof word), 0u);
    EXPECT_STREQ(position, "");
}

}  // namespace
