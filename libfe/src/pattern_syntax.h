// Patterns in the syntax of the engine that matches them.
#ifndef FE_PATTERN_SYNTAX_H
#define FE_PATTERN_SYNTAX_H

#include <string>
#include <string_view>

namespace fe {

enum class pattern_kind { regular, wildcards, path_wildcards };

// The pattern as the engine understands it, or what is wrong with it in `error`. A shell pattern
// matches a whole text and is never wrong.
bool translate_pattern(pattern_kind kind, std::string_view pattern, std::string &translated,
                       std::string &error);

// A text of which every byte that belongs to no character of UTF-8 has become a character that no
// text has, and the way back.
bool is_utf8(std::string_view text);
std::string encode_stray_bytes(std::string_view text);
std::string decode_stray_bytes(std::string_view text);

}  // namespace fe

#endif
