/* A typed line and its words. */
#ifndef UCFGSH_WORDS_H
#define UCFGSH_WORDS_H

#include <string>
#include <string_view>
#include <vector>

namespace ucfgsh {

/* One word: as it was typed, quotes and all (paths have a meaning for quotes of their own), what it
 * stands for, and where it began in its line. */
struct word {
    std::string raw;
    std::string text;
    size_t start = 0;
};

struct words {
    std::vector<word> list;
    /* The line ended inside a quote or behind a single backslash. */
    bool open = false;
    /* The line ended behind a blank, so that the next character begins a new word. */
    bool fresh = true;
};

/* Splits at blanks. 'text' is literal; in "text" a backslash may lead n, t, r, xHH, a quote or
 * itself; elsewhere it makes the next character an ordinary one. "#" at a word's start begins a
 * comment. */
words split_words(std::string_view line);

/* The text as one word that split_words reads back. */
std::string quote_word(std::string_view text);

/* The same where it is only shown: quoted when empty, or when it holds blanks at an end, quotes at
 * its start or control characters. */
std::string show_value(std::string_view text);

}  // namespace ucfgsh

#endif
