#include "ini_scan.h"

#include <algorithm>

#include "char_set.h"

namespace llconf {
namespace {

constexpr std::string_view k_blanks = " \t";

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back()))
        text.remove_suffix(1);
    return text;
}

/* The line at pos without its line end; next is set behind that. */
std::string_view cut_line(std::string_view text, std::size_t pos, std::size_t &next) {
    std::size_t lf = text.find('\n', pos);
    std::size_t end = std::min(lf, text.size());
    next = lf == std::string_view::npos ? text.size() : lf + 1;
    if (end > pos && text[end - 1] == '\r') --end;
    return text.substr(pos, end - pos);
}

bool goes_on(std::string_view line) {
    std::size_t last = line.find_last_not_of('\\');
    std::size_t run = last == std::string_view::npos ? line.size() : line.size() - last - 1;
    return run % 2 == 1;
}

bool starts_comment(std::string_view line, const ini_syntax &syntax) {
    line = trim(line);
    return !line.empty() && syntax.comment.find(line.front()) != std::string::npos;
}

void scan_header(std::string_view line, ini_item &item, const ini_syntax &syntax) {
    std::size_t open = line.find('[');
    std::size_t close = line.find(']', open);
    if (close == std::string_view::npos || close == open + 1) return;
    std::string_view tail = line.substr(close + 1);
    if (!trim(tail).empty() && !(is_blank(tail.front()) && starts_comment(tail, syntax))) return;
    item.kind = ini_kind::section;
    item.lead = line.substr(0, open);
    item.name = line.substr(open + 1, close - open - 1);
    item.tail = tail;
}

void join(std::string &value, std::string_view segment) {
    segment = trim(segment);
    if (!value.empty() && !segment.empty()) value += ' ';
    value += segment;
}

/* Takes the lines along that the value goes on with. */
void scan_value(std::string_view text, std::size_t begin, std::string_view line, ini_item &item,
                const ini_syntax &syntax) {
    std::size_t raw_end = begin + line.size();
    bool more = goes_on(line);
    if (more) line.remove_suffix(1);
    join(item.value, line);
    while (more && item.end < text.size()) {
        std::size_t start = item.end;
        line = cut_line(text, start, item.end);
        raw_end = start + line.size();
        if (starts_comment(line, syntax)) continue;
        more = goes_on(line);
        if (more) line.remove_suffix(1);
        join(item.value, line);
    }
    std::string_view whole = text.substr(begin, raw_end - begin);
    std::size_t last = whole.find_last_not_of(k_blanks);
    item.raw = whole.substr(0, last == std::string_view::npos ? 0 : last + 1);
    item.tail = whole.substr(item.raw.size());
}

void scan_key(std::string_view text, std::size_t pos, std::string_view line, ini_item &item,
              const ini_syntax &syntax) {
    std::size_t start = k_blank_set.skip(line);
    bool blank = syntax.separator.empty();
    std::size_t found =
        blank ? line.find_first_of(k_blanks, start) : line.find(syntax.separator, start);
    std::string_view name = trim(line.substr(start, std::min(found, line.size()) - start));
    bool has_value =
        found != std::string_view::npos && (!blank || !trim(line.substr(found)).empty());
    if (name.empty() || !ini_accepts_key(name, has_value, syntax)) return;
    item.kind = ini_kind::key;
    item.lead = line.substr(0, start);
    item.name = name;
    item.has_value = has_value;
    std::size_t name_end = start + name.size();
    if (!has_value) {
        item.tail = line.substr(name_end);
        return;
    }
    std::size_t behind = blank ? found : found + syntax.separator.size();
    std::size_t value = k_blank_set.skip(line, behind);
    item.between = line.substr(name_end, value - name_end);
    scan_value(text, pos + value, line.substr(value), item, syntax);
}

}  // namespace

ini_item ini_scan(std::string_view text, std::size_t pos, const ini_syntax &syntax) {
    ini_item item;
    std::string_view line = cut_line(text, pos, item.end);
    std::string_view content = trim(line);
    if (content.empty()) {
        item.kind = ini_kind::empty;
    } else if (starts_comment(content, syntax)) {
        item.kind = ini_kind::comment;
    } else if (content.front() == '[') {
        scan_header(line, item, syntax);
    } else {
        scan_key(text, pos, line, item, syntax);
    }
    return item;
}

bool ini_accepts_section(std::string_view name) {
    return !name.empty() && name.find_first_of("]\r\n") == std::string_view::npos;
}

bool ini_accepts_key(std::string_view name, bool has_value, const ini_syntax &syntax) {
    if (name.empty() || name != trim(name) || name.front() == '[' || starts_comment(name, syntax)) {
        return false;
    }
    bool blank = syntax.separator.empty();
    constexpr char_set k_line_ends{"\r\n"};
    constexpr char_set k_gaps{" \t\r\n"};
    const char_set &unfit = blank || !has_value ? k_gaps : k_line_ends;
    if (unfit.find(name) < name.size()) return false;
    if (!has_value && name.back() == '\\') return false;
    return blank || name.find(syntax.separator) == std::string_view::npos;
}

bool ini_accepts_value(std::string_view value, const ini_syntax &syntax) {
    if (value != trim(value) || value.find_first_of("\r\n") != std::string_view::npos) return false;
    if (!syntax.separator.empty()) return !goes_on(value);
    return !value.empty() && !goes_on(value);
}

}  // namespace llconf
