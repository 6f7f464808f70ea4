/* The text side of the tavconf parser: what stands at a place of the text, and how a name or a
 * value is spelt so that it reads back the same. No nodes in here.
 *
 *  1. Positions are byte offsets into the text handed in; a scan reads each byte once.
 *  2. Blanks are the space and the tab. A line ends with LF or CR LF.
 *  3. Nothing here allocates but the strings of its results (std::bad_alloc goes through). */
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace llconf {

enum class tav_kind { empty, comment, key, section_open, section_alone, close, end, error };

/* One thing of a file: a line, or a value with the lines that it goes on with. */
struct tav_item {
    tav_kind kind = tav_kind::end;
    std::string name;     // of a key (with its ":") or a section
    std::string value;    // of a key; of a comment line: its text from the "#" on
    std::string comment;  // behind a value, a "{", a "}" or a lone name, from the "#" on
    size_t value_at = 0;  // offset behind the ":" of a key
    size_t end = 0;       // offset behind the item's last line end
    std::string error;    // what is wrong
    size_t error_at = 0;  // and where
};

enum class tav_wanted { all, extent /* no texts, which cost most: a value and a comment */ };

/* The item that begins at pos, which is the start of a line. */
tav_item tav_scan(std::string_view text, size_t pos, tav_wanted wanted = tav_wanted::all);

/* The offset in the text of a key at which byte number `at` of its value stands. */
size_t tav_value_source(std::string_view text, size_t at);

/* Spells a name. A lone one stands on its line with nothing behind it. False: no spelling. */
bool tav_write_name(std::string_view name, bool lone, std::string &out);

/* Spells a value, plain where that reads back the same, else in double quotes. */
void tav_write_value(std::string_view value, std::string &out);

/* True for a text that is a comment line of its own or may stand behind a value. */
bool tav_is_comment(std::string_view text);

}  // namespace llconf
