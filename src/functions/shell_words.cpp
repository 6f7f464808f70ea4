#include "functions/shell_words.h"

namespace {

constexpr std::string_view k_blanks = " \t\n";
constexpr std::string_view k_plain_marks = "_@%+=:,./-";
constexpr std::string_view k_escaped_in_double_quotes = "$`\"\\";

bool is_plain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           k_plain_marks.find(c) != std::string_view::npos;
}

/* Reads the quoted part that opens at position i; i is behind its closing quote afterwards. */
void read_quoted(std::string_view line, size_t &i, std::string &text) {
    char quote = line[i++];
    while (i < line.size() && line[i] != quote) {
        bool escape = quote == '"' && line[i] == '\\' && i + 1 < line.size() &&
                      k_escaped_in_double_quotes.find(line[i + 1]) != std::string_view::npos;
        if (escape) i++;
        text += line[i++];
    }
    if (i < line.size()) i++;
}

/* The options in one word that begins with "-". Returns true when the last of them takes the next
 * word as its argument. */
bool read_cluster(option_line &result, size_t word, std::string_view optstring) {
    const std::string &text = result.words[word].text;
    for (size_t at = 1; at < text.size(); at++) {
        option_use use{text[at], word, at, option_use::argument::none};
        bool last = at + 1 == text.size();
        option_kind kind = kind_of_option(optstring, use.letter);
        if (kind != option_kind::flag && !last)
            use.where = option_use::argument::attached;
        else if (kind == option_kind::with_argument && word + 1 < result.words.size())
            use.where = option_use::argument::next_word;
        else if (kind == option_kind::with_argument)
            result.incomplete = true;
        result.options.push_back(use);
        if (use.where == option_use::argument::attached) return false;
        if (use.where == option_use::argument::next_word) return true;
    }
    return false;
}

}  // namespace

std::vector<shell_word> split_shell_words(std::string_view line) {
    std::vector<shell_word> words;
    for (size_t i = 0;;) {
        i = line.find_first_not_of(k_blanks, i);
        if (i == std::string_view::npos) return words;
        shell_word word{i, i, {}};
        while (i < line.size() && k_blanks.find(line[i]) == std::string_view::npos) {
            if (line[i] == '\'' || line[i] == '"') {
                read_quoted(line, i, word.text);
                continue;
            }
            if (line[i] == '\\' && i + 1 < line.size()) i++;
            word.text += line[i++];
        }
        word.end = i;
        words.push_back(std::move(word));
    }
}

std::string quote_shell_word(std::string_view text) {
    bool plain = !text.empty();
    for (char c : text)
        plain = plain && is_plain(c);
    if (plain) return std::string{text};
    std::string quoted{"'"};
    for (char c : text) {
        if (c == '\'')
            quoted += "'\\''";
        else
            quoted += c;
    }
    quoted += '\'';
    return quoted;
}

option_kind kind_of_option(std::string_view optstring, char letter) {
    while (!optstring.empty() &&
           (optstring[0] == '+' || optstring[0] == '-' || optstring[0] == ':'))
        optstring.remove_prefix(1);
    size_t at = letter == ':' ? std::string_view::npos : optstring.find(letter);
    if (at == std::string_view::npos) return option_kind::flag;
    std::string_view behind = optstring.substr(at + 1);
    if (behind.substr(0, 2) == "::") return option_kind::with_optional_argument;
    return behind.substr(0, 1) == ":" ? option_kind::with_argument : option_kind::flag;
}

option_line read_option_line(std::string_view line, std::string_view optstring) {
    option_line result{split_shell_words(line), {}, {}, 0, false};
    result.options_end = result.words.size();
    bool stop_at_operand = optstring.substr(0, 1) == "+";
    bool ended = false;
    for (size_t i = 0; i < result.words.size(); i++) {
        const std::string &text = result.words[i].text;
        bool terminator = !ended && text == "--";
        bool operand = ended || text.size() < 2 || text[0] != '-';
        if ((terminator || operand) && result.options_end == result.words.size())
            result.options_end = i;
        if (terminator || (operand && stop_at_operand)) ended = true;
        if (terminator) continue;
        if (operand)
            result.operands.push_back(i);
        else if (text[1] != '-' && read_cluster(result, i, optstring))
            i++;
    }
    return result;
}
