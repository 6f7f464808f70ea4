#ifndef UCFGD_FUNCTIONS_SHELL_WORDS_H
#define UCFGD_FUNCTIONS_SHELL_WORDS_H

/* A command line as a shell would read it, without any expansion: words separated by blanks, with
 * quotes and backslashes. Every word remembers where it stands, so that an edit leaves all other
 * bytes as they were. */

#ifndef __cplusplus
#    error "shell_words.h is for C++ sources"
#endif

#include <string>
#include <string_view>
#include <vector>

struct shell_word {
    size_t begin; /* where it stands in the line, quotes included */
    size_t end;
    std::string text; /* without its quotes */
};

/* The words of a line. A quote that is not closed runs to the end. */
std::vector<shell_word> split_shell_words(std::string_view line);

/* The text as one word: plain when a shell would leave it alone, else in single quotes. */
std::string quote_shell_word(std::string_view text);

/* One use of an option in a line. */
struct option_use {
    enum class argument { none, attached, next_word };

    char letter;
    size_t word; /* the word that it stands in, */
    size_t at;   /* and the place of the letter in that word's text */
    argument where;
};

/* A line read as getopt(3) reads it, every word counting. */
struct option_line {
    std::vector<shell_word> words;
    std::vector<option_use> options;
    std::vector<size_t> operands; /* the words that are no options */
    size_t options_end;           /* the first word that is none, "--" included */
    bool incomplete;              /* the last word is an option that lacks its argument */
};

enum class option_kind { flag, with_argument, with_optional_argument };

/* Whether the option takes an argument; a letter that optstring does not name is a flag. */
option_kind kind_of_option(std::string_view optstring, char letter);

option_line read_option_line(std::string_view line, std::string_view optstring);

#endif
