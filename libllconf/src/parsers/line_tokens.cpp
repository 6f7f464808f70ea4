#include "line_tokens.h"

#include "../engine.h"

line_tokens::line_tokens(std::string_view line, std::string_view comment, size_t most) {
    size_t end = line.find_first_of(comment);
    std::string_view words = line.substr(0, end);
    size_t at = 0;
    size_t behind = 0;
    while (true) {
        size_t start = words.find_first_not_of(" \t", at);
        if (start == std::string_view::npos) break;
        bool last = most > 0 && tokens.size() + 1 == most;
        size_t stop = last ? words.find_last_not_of(" \t") + 1 : words.find_first_of(" \t", start);
        if (stop == std::string_view::npos) stop = words.size();
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
