#include "line_tokens.h"

#include "../engine.h"
#include "char_set.h"

line_tokens::line_tokens(std::string_view line, std::string_view comment, size_t most) {
    size_t end = line.find_first_of(comment);
    std::string_view words = line.substr(0, end);
    size_t at = 0;
    size_t behind = 0;
    while (true) {
        size_t start = k_blank_set.skip(words, at);
        if (start == words.size()) break;
        bool last = most > 0 && tokens.size() + 1 == most;
        size_t stop = last ? words.find_last_not_of(" \t") + 1 : k_blank_set.find(words, start);
        tokens.push_back({words.substr(at, start - at), words.substr(start, stop - start)});
        at = behind = stop;
    }
    rest = line.substr(behind);
}

std::string_view line_tokens::gap(size_t index, std::string_view fallback) const {
    if (index >= tokens.size() || (index > 0 && tokens[index].gap.empty())) return fallback;
    return tokens[index].gap;
}

bool is_word(std::string_view text) {
    return !text.empty() && text.find_first_of(" \t\r\n") == std::string_view::npos;
}
