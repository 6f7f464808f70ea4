/* The text side of the ini parser: headers and keys line by line. No nodes in here.
 *
 *  1. Positions are byte offsets into the text; every byte is read once.
 *  2. A value goes on with the next line when its line ends in an odd number of backslashes;
 * comment lines in between are passed over. The lines are trimmed and joined by one blank.
 *  3. Nothing here allocates but the strings of its results (std::bad_alloc goes through). */
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace llconf {

struct ini_syntax {
    std::string separator = "=";  // the empty text: a run of blanks
    std::string comment = "#;";   // each of these characters begins a comment line
};

enum class ini_kind { empty, comment, section, key, unparsed };

struct ini_item {
    ini_kind kind = ini_kind::unparsed;
    std::string_view lead;     // blanks in front
    std::string_view name;     // of the section or the key
    std::string_view between;  // separator and blanks around it; empty for a key without value
    std::string_view raw;      // the value as it stands, with all its lines
    std::string_view tail;     // behind a header or a value up to the line end
    std::string value;
    bool has_value = false;
    std::size_t end = 0;  // offset behind the last line end
};

ini_item ini_scan(std::string_view text, std::size_t pos, const ini_syntax &syntax);

bool ini_accepts_section(std::string_view name);
bool ini_accepts_key(std::string_view name, bool has_value, const ini_syntax &syntax);
bool ini_accepts_value(std::string_view value, const ini_syntax &syntax);

}  // namespace llconf
