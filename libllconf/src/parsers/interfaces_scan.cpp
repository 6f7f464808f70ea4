#include "interfaces_scan.h"

#include <algorithm>
#include <array>

#include "char_set.h"

namespace llconf {
namespace {

constexpr int k_flags_ahead = 16;  // lines between a flag and the stanza that it belongs to

struct keyword {
    std::string_view word;
    if_kind kind;
};

constexpr std::array<keyword, 9> k_keywords = {{
    {"auto", if_kind::flag},
    {"no-auto-down", if_kind::flag},
    {"no-scripts", if_kind::flag},
    {"iface", if_kind::iface},
    {"mapping", if_kind::mapping},
    {"source", if_kind::directive},
    {"source-directory", if_kind::directive},
    {"rename", if_kind::directive},
    {"template", if_kind::directive},
}};

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

bool contains(std::string_view set, char c) {
    return set.find(c) != std::string_view::npos;
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back()))
        text.remove_suffix(1);
    return text;
}

bool goes_on(std::string_view line) {
    std::size_t last = line.find_last_not_of('\\');
    std::size_t run = last == std::string_view::npos ? line.size() : line.size() - last - 1;
    return run % 2 == 1;
}

std::string_view cut_line(std::string_view text, std::size_t pos, std::size_t &next) {
    std::size_t lf = text.find('\n', pos);
    std::size_t end = std::min(lf, text.size());
    next = lf == std::string_view::npos ? text.size() : lf + 1;
    if (end > pos && text[end - 1] == '\r') --end;
    return text.substr(pos, end - pos);
}

/* Behind the last option of the stanza; what comes after it up to the next stanza is no part. */
std::size_t options_end(std::string_view text, std::size_t pos) {
    std::size_t end = pos;
    while (pos < text.size()) {
        if_line line = if_scan_line(text, pos);
        pos = line.end;
        if (line.kind == if_kind::empty || line.kind == if_kind::comment) continue;
        if (line.kind != if_kind::option) break;
        end = pos;
    }
    return end;
}

}  // namespace

if_kind if_kind_of_word(std::string_view word) {
    for (const keyword &k : k_keywords) {
        if (k.word == word) return k.kind;
    }
    return word.starts_with("allow-") ? if_kind::flag : if_kind::option;
}

if_line if_scan_line(std::string_view text, std::size_t pos) {
    if_line line;
    std::string_view content = cut_line(text, pos, line.end);
    std::size_t raw_end = pos + content.size();
    line.lead = content.substr(0, k_blank_set.skip(content));
    std::string joined;
    if (trim(content).starts_with('#')) {
        line.kind = if_kind::comment;
        line.rest = trim(trim(content).substr(1));
    } else {
        while (goes_on(content) && line.end < text.size()) {
            content.remove_suffix(1);
            if (!joined.empty() && !trim(content).empty()) joined += ' ';
            joined += trim(content);
            std::size_t start = line.end;
            content = cut_line(text, start, line.end);
            raw_end = start + content.size();
        }
        if (!joined.empty() && !trim(content).empty()) joined += ' ';
        joined += trim(content);
        std::size_t word_end = k_blank_set.find(joined);
        line.word = joined.substr(0, word_end);
        line.rest = trim(std::string_view(joined).substr(word_end));
        line.kind = joined.empty() ? if_kind::empty : if_kind_of_word(line.word);
    }
    line.raw = text.substr(pos, raw_end - pos);
    return line;
}

std::size_t if_stanza_length(std::string_view text, const if_line &first, if_reading reading) {
    if (first.kind == if_kind::iface || first.kind == if_kind::mapping) {
        return options_end(text, first.end);
    }
    if (first.kind != if_kind::flag || !if_is_word(first.rest)) return first.end;
    std::size_t pos = first.end;
    for (int ahead = 0; ahead < k_flags_ahead && pos < text.size(); ++ahead) {
        if_line line = if_scan_line(text, pos);
        pos = line.end;
        if (line.kind == if_kind::empty || line.kind == if_kind::comment) continue;
        if (line.kind == if_kind::flag && line.rest == first.rest) continue;
        std::optional<if_head> head;
        if (line.kind == if_kind::iface) head = if_read_head(line.rest, reading);
        bool same = head && head->name == first.rest;
        return same ? options_end(text, pos) : first.end;
    }
    return first.end;
}

bool if_is_shared(std::string_view text, const if_line &first, if_reading reading) {
    return first.kind == if_kind::flag && !first.rest.empty() &&
           if_stanza_length(text, first, reading) == first.end;
}

std::string if_keep_names(std::string_view raw, const std::function<bool(std::string_view)> &keep,
                          if_reading reading) {
    const bool has_comment = reading == if_reading::strict;
    auto is_gap = [raw](std::size_t at) {
        bool joins = raw[at] == '\\' && at + 1 < raw.size() && contains("\r\n", raw[at + 1]);
        return joins || contains(" \t\r\n", raw[at]);
    };
    std::string kept;
    std::size_t names = 0;
    for (std::size_t at = 0, words = 0; at < raw.size(); ++words) {
        std::size_t word = at;
        while (word < raw.size() && is_gap(word))
            ++word;
        std::size_t end = word;
        while (end < raw.size() && !is_gap(end))
            ++end;
        bool comment = has_comment && raw.substr(word, 1) == "#";
        if (comment) end = raw.size();
        bool name = words > 0 && end > word && !comment;
        if (!name || keep(raw.substr(word, end - word))) {
            kept += raw.substr(at, end - at);
            names += name ? 1 : 0;
        } else if (raw.substr(at, word - at).find('\n') != std::string_view::npos) {
            kept += raw.substr(at, word - at);
        }
        at = end;
    }
    return names > 0 ? kept : std::string();
}

bool if_is_interface(std::string_view word) {
    return !contains(".#", word.front()) && if_kind_of_word(word) == if_kind::option;
}

std::vector<std::string_view> if_interfaces(const if_line &line, if_reading reading) {
    std::vector<std::string_view> names;
    for (std::string_view word : if_words(line.rest)) {
        if (word.front() == '#' && reading == if_reading::strict) break;
        if (if_is_interface(word)) names.push_back(word);
    }
    return names;
}

std::vector<std::string_view> if_words(std::string_view text) {
    std::vector<std::string_view> words;
    for (text = trim(text); !text.empty(); text = trim(text)) {
        std::size_t end = k_blank_set.find(text);
        words.push_back(text.substr(0, end));
        text.remove_prefix(end);
    }
    return words;
}

std::optional<if_head> if_read_head(std::string_view rest, if_reading reading) {
    std::vector<std::string_view> words = if_words(rest);
    auto is_inherits = [&](std::size_t i) {
        return words.size() > i + 1 && words[i] == "inherits";
    };
    auto word = [&](std::size_t i) {
        return i < words.size() ? std::string(words[i]) : std::string();
    };
    if (reading == if_reading::strict) {
        if (words.size() != 3 && !(words.size() == 5 && is_inherits(3))) return std::nullopt;
        return if_head{word(0), word(1), word(2), word(4)};
    }
    for (std::size_t parts : {1U, 2U}) {
        if (is_inherits(parts))
            return if_head{word(0), parts > 1 ? word(1) : "", "", word(parts + 1)};
    }
    if (words.size() < 3) return std::nullopt;
    return if_head{word(0), word(1), word(2), is_inherits(3) ? word(4) : ""};
}

bool if_is_word(std::string_view text) {
    return !text.empty() && k_blank_set.find(text) == text.size() && if_is_rest(text);
}

bool if_is_rest(std::string_view text) {
    return text == trim(text) && text.find_first_of("\r\n") == std::string_view::npos &&
           !goes_on(text);
}

}  // namespace llconf
