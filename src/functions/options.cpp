#include <stdlib.h>

#include <string>
#include <vector>

#include "functions/llmisc.h"
#include "functions/shell_words.h"

/* Command lines as settings files keep them, such as OPTIONS="-l -p 22 host": options and operands
 * are read and changed, and every byte that is not concerned stays. */

namespace {

/* The option letter that an argument names; a NUL, and the reason, when it is not one letter. */
char option_letter(const char *option) {
    if (option[0] != '\0' && option[1] == '\0' && option[0] != '-') return option[0];
    fe_fail(EINVAL, option, "no option letter");
    return '\0';
}

const option_use *last_use(const option_line &line, char letter) {
    for (size_t i = line.options.size(); i > 0; i--)
        if (line.options[i - 1].letter == letter) return &line.options[i - 1];
    return nullptr;
}

void replace_word(std::string &text, const shell_word &word, const std::string &by) {
    text.replace(word.begin, word.end - word.begin, by);
}

/* Puts a word before the word of that number; behind the last one when there is none. */
void insert_before(std::string &text, const std::vector<shell_word> &words, size_t number,
                   const std::string &word) {
    if (number < words.size())
        text.insert(words[number].begin, word + ' ');
    else if (words.empty())
        text += word;
    else
        text.insert(words.back().end, ' ' + word);
}

/* The first n characters of a word as they stand, or quoted anew where they hold quotes. */
std::string word_prefix(const std::string &text, const shell_word &word, size_t n) {
    std::string raw = text.substr(word.begin, n);
    std::string plain = word.text.substr(0, n);
    return raw == plain ? raw : quote_shell_word(plain);
}

std::string set_argument(std::string text, const option_line &line, const option_use &use,
                         bool optional, const std::string &value) {
    const shell_word &word = line.words[use.word];
    if (use.where == option_use::argument::next_word) {
        replace_word(text, line.words[use.word + 1], quote_shell_word(value));
        return text;
    }
    /* An empty argument must be a word of its own, else the option would take the next one. */
    bool apart = !optional && (value.empty() || use.where == option_use::argument::none);
    std::string changed = word_prefix(text, word, use.at + 1);
    if (apart) changed += ' ';
    if (apart || !value.empty()) changed += quote_shell_word(value);
    replace_word(text, word, changed);
    return text;
}

std::string add_option(std::string text, const option_line &line, char letter, option_kind kind,
                       const std::string &value) {
    std::string word{'-', letter};
    if (kind == option_kind::with_argument) word += ' ' + quote_shell_word(value);
    if (kind == option_kind::with_optional_argument && !value.empty())
        word += quote_shell_word(value);
    /* Behind an option that lacks its argument, it would become that. */
    insert_before(text, line.words, line.incomplete ? line.words.size() - 1 : line.options_end,
                  word);
    return text;
}

/* What becomes of a word when an option is removed. */
struct word_change {
    bool touched = false;
    bool dropped = false; /* it was the option's argument */
    std::string rest;     /* of a word with options: what is left of it */
};

std::vector<word_change> changes_without(const option_line &line, char letter) {
    std::vector<word_change> changes(line.words.size());
    for (const option_use &use : line.options) {
        word_change &change = changes[use.word];
        if (use.at == 1) change.rest = "-";
        if (use.letter == letter) {
            change.touched = true;
            if (use.where == option_use::argument::next_word) changes[use.word + 1].dropped = true;
        } else {
            bool attached = use.where == option_use::argument::attached;
            change.rest.append(line.words[use.word].text, use.at,
                               attached ? std::string::npos : size_t{1});
        }
    }
    return changes;
}

/* Removes every use of an option, in one pass. A word goes with the blanks behind it, or with those
 * before it when it is the last one. */
std::string remove_option(const std::string &text, std::string_view optstring, char letter) {
    option_line line = read_option_line(text, optstring);
    if (line.words.empty()) return text;
    std::vector<word_change> changes = changes_without(line, letter);
    std::string result = text.substr(0, line.words.front().begin);
    size_t end = result.size();
    for (size_t i = 0; i < line.words.size(); i++) {
        const shell_word &word = line.words[i];
        const word_change &change = changes[i];
        if (change.dropped || (change.touched && change.rest == "-")) continue;
        if (change.touched)
            result += quote_shell_word(change.rest);
        else
            result.append(text, word.begin, word.end - word.begin);
        end = result.size();
        if (i + 1 < line.words.size())
            result.append(text, word.end, line.words[i + 1].begin - word.end);
    }
    result.resize(end);
    return result.append(text, line.words.back().end);
}

/* The number of an operand; -1, and the reason, for a text that is none. */
long operand_number(const char *text) {
    long number = 0;
    if (read_whole_number(text, number) && number >= 0) return number;
    fe_fail(EINVAL, text, "no number of a word");
    return -1;
}

}  // namespace

fe_node *llmisc_shoptions(const call_arguments &arguments) {
    node_list words;
    for (const shell_word &word : split_shell_words(arguments[0]))
        words.append(word.text.c_str());
    return words.release();
}

fe_node *llmisc_makeshoptions(const call_arguments &arguments) {
    std::string line;
    for (const fe_node *word = arguments.first(); word != nullptr; word = word->next) {
        if (word != arguments.first()) line += ' ';
        line += quote_shell_word(word->text);
    }
    return const_node(line.c_str());
}

fe_node *llmisc_getopt(const call_arguments &arguments) {
    char letter = option_letter(arguments[2]);
    if (letter == '\0') return nullptr;
    option_line line = read_option_line(arguments[0], arguments[1]);
    const option_use *use = last_use(line, letter);
    if (use == nullptr) return const_node("");
    const std::string &text = line.words[use->word].text;
    switch (use->where) {
        case option_use::argument::attached:
            return const_node(text.c_str() + use->at + 1);
        case option_use::argument::next_word:
            return const_node(line.words[use->word + 1].text.c_str());
        case option_use::argument::none:
            break;
    }
    bool required = kind_of_option(arguments[1], letter) == option_kind::with_argument;
    return const_node(required ? "" : "1");
}

fe_node *llmisc_setopt(const call_arguments &arguments) {
    char letter = option_letter(arguments[2]);
    if (letter == '\0') return nullptr;
    std::string text = arguments[0];
    std::string value = arguments[3];
    option_kind kind = kind_of_option(arguments[1], letter);
    if (kind == option_kind::flag && value != "1")
        return const_node(remove_option(text, arguments[1], letter).c_str());
    option_line line = read_option_line(text, arguments[1]);
    const option_use *use = last_use(line, letter);
    if (use == nullptr)
        text = add_option(text, line, letter, kind, value);
    else if (kind != option_kind::flag)
        text = set_argument(text, line, *use, kind == option_kind::with_optional_argument, value);
    return const_node(text.c_str());
}

fe_node *llmisc_delopt(const call_arguments &arguments) {
    char letter = option_letter(arguments[2]);
    if (letter == '\0') return nullptr;
    return const_node(remove_option(arguments[0], arguments[1], letter).c_str());
}

fe_node *llmisc_get_nonoptarg(const call_arguments &arguments) {
    option_line line = read_option_line(arguments[0], arguments[1]);
    long n = operand_number(arguments[2]);
    if (n < 0) return nullptr;
    bool there = static_cast<size_t>(n) < line.operands.size();
    return const_node(there ? line.words[line.operands[static_cast<size_t>(n)]].text.c_str() : "");
}

/* One behind the last operand is appended; further off there is nothing to set. A value that would
 * be read as an option is refused unless "--" stands before it. */
fe_node *llmisc_set_nonoptarg(const call_arguments &arguments) {
    std::string text = arguments[0];
    option_line line = read_option_line(text, arguments[1]);
    std::string_view value = arguments[3];
    long number = operand_number(arguments[2]);
    if (number < 0) return nullptr;
    auto n = static_cast<size_t>(number);
    if (n > line.operands.size())
        return fe_fail(EINVAL, arguments[2], "the line has %zu words that are no options",
                       line.operands.size());
    bool like_option = value.size() > 1 && value[0] == '-';
    bool ended = line.options_end < line.words.size() && line.words[line.options_end].text == "--";
    if (like_option && !ended)
        return fe_fail(EINVAL, arguments[3], "the word would be read as an option");
    if (n < line.operands.size())
        replace_word(text, line.words[line.operands[n]], quote_shell_word(value));
    else if (line.incomplete)
        return fe_fail(EINVAL, arguments[0], "the last option lacks its argument");
    else
        insert_before(text, line.words, line.words.size(), quote_shell_word(value));
    return const_node(text.c_str());
}
