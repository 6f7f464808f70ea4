/* The text side of the interfaces parser: lines and stanzas. No nodes in here.
 *
 *  1. Positions are byte offsets into the text.
 *  2. A line goes on with the next one behind an odd number of backslashes; the lines are trimmed
 *     and joined by one blank.
 *  3. Nothing here allocates but the strings of its results (std::bad_alloc goes through). */
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace llconf {

enum class if_kind {
    empty,
    comment,
    flag,       // auto, allow-...: a property that a line of its own gives to interfaces
    iface,      // the head of a stanza
    mapping,    // the same
    directive,  // source and its kin: a line about the whole file
    option      // anything else
};

struct if_line {
    if_kind kind = if_kind::empty;
    std::string_view raw;   // as it stands, without the last line end
    std::string_view lead;  // blanks in front
    std::string word;       // the first word
    std::string rest;       // what follows it
    std::size_t end = 0;    // offset behind the last line end
};

if_line if_scan_line(std::string_view text, std::size_t pos);
if_kind if_kind_of_word(std::string_view word);

/* How much of what ifupdown itself accepts is read. */
enum class if_reading {
    strict,
    /* Stanzas that inherit their family and method, words behind a method that mean nothing; "#"
     * does not end a line. */
    as_ifupdown
};

/* The length of the piece that begins with `first`: the line, or the stanza with the flags in
 * front of it and its options. */
std::size_t if_stanza_length(std::string_view text, const if_line &first, if_reading reading);

/* A flag line for several interfaces, or for one whose stanza is elsewhere. */
bool if_is_shared(std::string_view text, const if_line &first, if_reading reading);

/* A flag line without some of its names, all other bytes as they were; empty without a name left.
 */
std::string if_keep_names(std::string_view raw, const std::function<bool(std::string_view)> &keep,
                          if_reading reading);

/* A word of a shared line that can be a node; any other stays where it is and means nothing. */
bool if_is_interface(std::string_view word);

/* The interfaces that a shared line names, up to a comment. */
std::vector<std::string_view> if_interfaces(const if_line &line, if_reading reading);

/* The words of a text, which must be parted by single blanks or runs of them. */
std::vector<std::string_view> if_words(std::string_view text);

/* "NAME FAMILY METHOD", and perhaps "inherits OTHER"; a part that is not there is empty. */
struct if_head {
    std::string name, family, method, inherits;
    bool operator==(const if_head &) const = default;
};

std::optional<if_head> if_read_head(std::string_view rest, if_reading reading);

/* True for what reads back as one word, or as the rest of a line. */
bool if_is_word(std::string_view text);
bool if_is_rest(std::string_view text);

}  // namespace llconf
