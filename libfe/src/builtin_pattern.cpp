// What expressions do with regular expressions.
#include <algorithm>
#include <cerrno>
#include <string>

#include "arguments.h"
#include "pattern.h"
#include "utf8.h"

namespace fe {

namespace {

// A text in the form in which it is matched.
class subject {
  public:
    explicit subject(std::string_view text) : encoded_(!is_utf8(text)), text_(text) {
        if (encoded_) text_ = copy_ = encode_stray_bytes(text);
    }
    subject(const subject &) = delete;
    subject &operator=(const subject &) = delete;

    std::string_view text() const { return text_; }
    bool encoded() const { return encoded_; }

  private:
    bool encoded_;
    std::string copy_;
    std::string_view text_;
};

fe_node *func_match(const arguments &args) {
    pattern *found = find_pattern(pattern_kind::regular, args[1], args[0].size());
    if (found == nullptr) return nullptr;
    return new_truth(found->matches(subject(args[0]).text()));
}

// \1 to \9 stand for what the groups matched, \\ for a backslash.
void append_replacement(std::string &result, std::string_view text, const match_places &places) {
    for (size_t i = 0; i < text.size(); ++i) {
        char next = i + 1 < text.size() ? text[i + 1] : '\0';
        if (text[i] != '\\' || (next != '\\' && (next < '1' || next > '9'))) {
            result.push_back(text[i]);
            continue;
        }
        ++i;
        if (next == '\\') {
            result.push_back('\\');
            continue;
        }
        const re2::StringPiece &group = places[static_cast<size_t>(next - '0')];
        result.append(group.data() == nullptr ? "" : group.data(), group.size());
    }
}

// Where a repetition has no end, every match may look at all that is left of the text.
size_t price_of_match(const pattern &found, size_t left, size_t matched) {
    return 1 + (found.is_unbounded() ? left : matched) / 128;
}

fe_node *substitute(pattern &found, std::string_view text, std::string_view replacement,
                    std::string &result) {
    for (size_t at = 0; at <= text.size();) {
        match_places places;
        const bool matched = found.find(text, at, places);
        const size_t start =
            matched ? static_cast<size_t>(places[0].data() - text.data()) : text.size();
        const size_t end = start + places[0].size();
        if (!charge(price_of_match(found, text.size() - at, end - at))) return nullptr;
        result.append(text.substr(at, start - at));
        if (!matched) break;
        append_replacement(result, replacement, places);
        if (result.size() > k_max_text) return fail_with(ENOMEM);
        at = end;
        if (start == end) {
            const size_t step = end < text.size() ? first_length(text.substr(end)) : 1;
            result.append(text.substr(std::min(end, text.size()), step));
            at += step;
        }
    }
    return new_const(result);
}

fe_node *func_regsub(const arguments &args) {
    pattern *found = find_pattern(pattern_kind::regular, args[1], args[0].size());
    if (found == nullptr) return nullptr;
    const subject text(args[0]);
    std::string result;
    if (!text.encoded()) return substitute(*found, text.text(), args[2], result);
    node_list encoded(substitute(*found, text.text(), encode_stray_bytes(args[2]), result));
    return encoded == nullptr ? nullptr : new_const(decode_stray_bytes(result));
}

constexpr builtin k_rows[] = {
    {"match", 2, 2, func_match},
    {"regsub", 3, 3, func_regsub},
};

}  // namespace

const std::span<const builtin> k_pattern_functions = k_rows;

size_t arguments_with_pattern(const fe_def *fed) {
    for (const builtin &row : k_rows) {
        if (fed->user_data == &row) return row.most_arguments;
    }
    return 0;
}

}  // namespace fe
