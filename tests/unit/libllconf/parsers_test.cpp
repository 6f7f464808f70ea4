#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <random>
#include <string>

#include "llconf/path.h"
#include "llconf_trees.h"

/* What holds for trees and texts at large; single files are the business of tests/formats. */
namespace {

module_ptr open_parser(const char *name) {
    register_all();
    return module_ptr{clone_cnfmodule(find_cnfmodule(name), nullptr, nullptr, nullptr)};
}

tree parse(const module_ptr &module, const std::string &text) {
    return tree{cnfmodule_parse_text(module.get(), "FILE", text.data(), text.size())};
}

std::optional<std::string> write(const module_ptr &module, const tree &top) {
    size_t length = 0;
    owned_str text{cnfmodule_unparse_text(module.get(), top.get(), &length)};
    if (!text) return std::nullopt;
    return std::string{text.get(), length};
}

std::string nested(int depth, const std::string &innermost) {
    std::string text;
    for (int i = 0; i < depth; ++i)
        text += "s {\n";
    text += innermost;
    for (int i = 0; i < depth; ++i)
        text += "}\n";
    return text;
}

class tree_maker {
  public:
    explicit tree_maker(unsigned seed) : random_(seed) {}

    tree make(bool keys_end_in_colon) {
        keys_end_in_colon_ = keys_end_in_colon;
        tree top{create_cnfnode("(root)")};
        fill(top.get(), 3);
        return top;
    }

  private:
    std::string text() {
        static const std::string k_signs = "ab:#(){}[]'\"\\ \t\r=,.|~\xc3\xa9\xff\x01";
        std::string made;
        for (auto length = random_() % 7; length > 0; --length) {
            made += k_signs[random_() % k_signs.size()];
        }
        return made;
    }

    std::string value() {
        std::string made = text();
        if (random_() % 4 == 0) made += "\n" + text();
        return made;
    }

    void fill(cnfnode *parent, int levels) {
        for (auto count = random_() % 5; count > 0; --count) {
            std::string name = text();
            bool key = random_() % 2 == 0;
            bool colon = !name.empty() && name.back() == ':';
            if (keys_end_in_colon_ && key && !colon) name += ":";
            if (keys_end_in_colon_ && !key && colon) name += "x";
            cnfnode *node = create_cnfnode(name.c_str());
            append_node(parent, node);
            if (key) cnfnode_setval(node, value().c_str());
            if ((!key || !keys_end_in_colon_) && levels > 0) fill(node, levels - 1);
        }
    }

    std::mt19937 random_;
    bool keys_end_in_colon_ = true;
};

TEST(Tavconf, WritesEveryTreeThatItCanExpressSoThatItReadsTheSame) {
    module_ptr module = open_parser("tavconf");
    for (unsigned seed = 0; seed < 2000; ++seed) {
        tree top = tree_maker(seed).make(true);
        std::optional<std::string> text = write(module, top);
        ASSERT_TRUE(text) << cnf_error_text() << " " << show(top.get());
        tree again = parse(module, *text);
        ASSERT_TRUE(again) << cnf_error_text() << "\n" << *text;
        ASSERT_EQ(compare_cnftree(again.get(), top.get()), 0) << *text;
    }
}

TEST(Tavconf, RefusesEveryTreeThatItCannotExpress) {
    module_ptr module = open_parser("tavconf");
    const char *const k_trees[] = {"a=1", "a:", "a:=1{b:=2}", "a:{b:=2}", "a=", ".unparsed=x"};
    for (const char *drawn : k_trees) {
        tree top{create_cnfnode("(root)")};
        const char *rest = drawn;
        append_node(top.get(), grow(rest));
        errno = 0;
        EXPECT_FALSE(write(module, top)) << drawn;
        EXPECT_EQ(errno, EINVAL) << drawn;
    }
    tree top{create_cnfnode("(root)")};
    append_node(top.get(), create_cnfnode("two\nlines"));
    EXPECT_FALSE(write(module, top));
}

TEST(Tavconf, ReadsAndWritesTwoHundredLevelsAndNoMore) {
    module_ptr module = open_parser("tavconf");
    tree top = parse(module, nested(200, "key: value\n"));
    ASSERT_TRUE(top) << cnf_error_text();
    cnfnode *deepest = top.get();
    while (deepest->first_child != nullptr)
        deepest = deepest->first_child;
    cnfnode_setval(deepest, "other");
    EXPECT_TRUE(write(module, top)) << cnf_error_text();
    EXPECT_EQ(cnfmodule_accepts(module.get(), deepest->parent, "section", nullptr), 0);
    EXPECT_FALSE(parse(module, nested(201, "")));
    EXPECT_STREQ(cnf_error_text(), "FILE:201: more than 200 sections within each other");
    EXPECT_FALSE(parse(module, nested(200, "alone\n")));
}

TEST(Tavconf, SaysWhichSectionIsNotClosed) {
    module_ptr module = open_parser("tavconf");
    EXPECT_FALSE(parse(module, "a: b\nouter {\n    inner {\n    }\n"));
    EXPECT_EQ(std::string{cnf_error_text()}.rfind("FILE:2: ", 0), 0U) << cnf_error_text();
    EXPECT_FALSE(parse(module, "a {\n}\n}\n"));
    EXPECT_EQ(std::string{cnf_error_text()}.rfind("FILE:3: ", 0), 0U) << cnf_error_text();
    EXPECT_FALSE(parse(module, std::string("a: b\nc\0d: e\n", 12)));
    EXPECT_STREQ(cnf_error_text(), "FILE:2: expected text, found a NUL byte");
}

TEST(Python, WritesEveryTreeSoThatItReadsTheSame) {
    module_ptr module = open_parser("python");
    for (unsigned seed = 0; seed < 500; ++seed) {
        tree top = tree_maker(seed).make(false);
        std::optional<std::string> text = write(module, top);
        ASSERT_TRUE(text) << cnf_error_text();
        tree again = parse(module, *text);
        ASSERT_TRUE(again) << cnf_error_text() << "\n" << *text;
        ASSERT_EQ(compare_cnftree(again.get(), top.get()), 0) << *text;
    }
}

/* A shell is the judge of what was stored. */
TEST(Shellvars, StoresValuesThatAShellTakesAsTheyAre) {
    module_ptr module = open_parser("shellvars");
    for (const char *value : {"plain", "", "two words", "it's", "$HOME `id` $(id)", "a\\b\"c", "~",
                              "*", "x#y # z", "two\nlines", "\xc3\xa9;&|<>!"}) {
        tree top{create_cnfnode("(root)")};
        cnfnode *node = create_cnfnode("VALUE");
        cnfnode_setval(node, value);
        append_node(top.get(), node);
        std::optional<std::string> text = write(module, top);
        ASSERT_TRUE(text) << value;
        setenv("SCRIPT", (*text + "printf '%s' \"$VALUE\"").c_str(), 1);
        FILE *shell = popen("eval \"$SCRIPT\"", "r");
        std::string heard(100, '\0');
        heard.resize(fread(heard.data(), 1, heard.size(), shell));
        pclose(shell);
        EXPECT_EQ(heard, value);
    }
}

TEST(Parsers, LeaveWhatStandsInsideQuotesAloneHoweverLong) {
    module_ptr module = open_parser("shellvars");
    std::string inner;
    for (int i = 0; i < 9000; ++i)
        inner += "B=1\n";
    std::string text = "A='" + inner + "'\nC='" + inner + "'; command\nB=2\n";
    tree top = parse(module, text);
    EXPECT_EQ(cnf_get_entry(top.get(), "A"), inner);
    EXPECT_EQ(cnf_get_node(top.get(), "B[1]"), nullptr);
    cnfnode_setval(cnf_get_node(top.get(), "B"), "3");
    EXPECT_EQ(write(module, top), text.substr(0, text.size() - 2) + "3\n");
    top = parse(module, "A='" + inner);
    EXPECT_EQ(cnf_get_node(top.get(), "B"), nullptr) << "a quote that is never closed";
}

TEST(Parsers, TakeLinearTimeWhateverStaysOpen) {
    constexpr int k_count = 100000;
    struct hostile {
        const char *parser;
        const char *start;
        const char *unit;
    };
    const hostile k_texts[] = {
        {"tavconf", "a: ", "'\\' \" "},
        {"tavconf", "", "a: (\n"},
        {"tavconf", "", "s {\n"},
        {"shellvars", "", "A=\"'\nC='\"\n"},
        {"shellvars", "A='", "B=\\'\n"},
        {"shellvars", "", "A=x\\\n"},
        {"ini", "[s]\n", "k=v\\\n#x\n"},
        {"ini", "[s]\nk=v\n", "\n"},
        {"interfaces", "", "auto e\n"},
        {"interfaces", "auto e\n", "#\n"},
        {"interfaces", "", "iface e i m\n\n"},
        {"python", "", "tree = ("},
    };
    for (const hostile &h : k_texts) {
        SCOPED_TRACE(std::string{h.parser} + ": " + h.unit);
        module_ptr module = open_parser(h.parser);
        std::string text = h.start;
        for (int i = 0; i < k_count; ++i)
            text += h.unit;
        tree top = parse(module, text);
        if (top) {
            EXPECT_EQ(write(module, top), text);
        }
    }
}

}  // namespace
