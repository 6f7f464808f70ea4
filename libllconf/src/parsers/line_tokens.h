#ifndef LLCONF_LINE_TOKENS_H
#define LLCONF_LINE_TOKENS_H

#include <string>
#include <string_view>
#include <vector>

/* A line as words with the blanks before them, so that a line whose words have changed can be
 * written with the blanks and the comment that it had. */
struct line_tokens {
    struct token {
        std::string_view gap;
        std::string_view word;
    };
    std::vector<token> tokens;
    std::string_view rest; /* behind the last word: blanks, and the comment if there is one */

    /* Cuts line into at most `most` words (0: any number); the last of that number is all that is
     * left. A character of comment ends the words wherever it stands; empty: none does. */
    line_tokens(std::string_view line, std::string_view comment, size_t most = 0);

    /* The gap before the word of that index, or fallback for one that was not there. */
    std::string_view gap(size_t index, std::string_view fallback) const;
};

/* A text that is one word: not empty, without blanks and control characters. */
bool is_word(std::string_view text);

#endif
