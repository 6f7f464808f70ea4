/* /etc/aliases: who gets the mail for a name.
 *
 * An entry is `name: recipient, recipient ...`, and goes on with the lines behind it that begin
 * with a blank; comments and blank lines between those do not end it. Mail programs do not tell
 * capitals from small letters in names, so the node of "Root" is called "root"; one in quotes is
 * named by what is between them. The value is all recipients in one line, as they are written:
 * accounts, addresses, \accounts, :include:/lists, /files and "|programs".
 *
 * An entry whose recipients change is written in one line, in the spelling that its name had; the
 * comments that stood inside go behind it.
 */
#include <cstring>
#include <string>
#include <string_view>

#include "char_set.h"
#include "guarded.h"
#include "llconf/nodes.h"
#include "llconf/parser.h"

namespace {

constexpr std::string_view k_blanks = " \t";

std::string_view trimmed(std::string_view text) {
    size_t start = text.find_first_not_of(k_blanks);
    if (start == std::string_view::npos) return {};
    return text.substr(start, text.find_last_not_of(k_blanks) + 1 - start);
}

/* The first line of text without its end; text goes on behind it. */
std::string_view take_line(std::string_view &text) {
    size_t end = 0;
    size_t length = cnf_line_length(text.data(), text.size(), &end);
    std::string_view line = text.substr(0, end);
    text.remove_prefix(length);
    return line;
}

bool is_layout(std::string_view line) {
    line = trimmed(line);
    return line.empty() || line[0] == '#';
}

bool is_indented(std::string_view line) {
    return !line.empty() && k_blanks.find(line[0]) != std::string_view::npos;
}

int cut(const void *, cnf_cut *piece) {
    std::string_view text{piece->text, piece->length};
    std::string_view rest = text;
    std::string_view line = take_line(rest);
    piece->piece = text.size() - rest.size();
    piece->kind = CNF_ENTRY;
    if (is_layout(line)) {
        piece->kind = trimmed(line).empty() ? CNF_EMPTY : CNF_COMMENT;
    } else if (is_indented(line)) {
        piece->kind = CNF_UNPARSED; /* goes on with nothing */
    }
    while (piece->kind == CNF_ENTRY && !rest.empty()) {
        line = take_line(rest);
        if (is_layout(line)) continue;
        if (!is_indented(line)) break;
        piece->piece = text.size() - rest.size();
    }
    return 0;
}

/* An entry in its parts. */
struct alias {
    std::string name;          /* as the node is called */
    std::string_view spelling; /* as it is written, quotes included */
    std::string_view gap;      /* the colon and the blanks around it */
    std::string recipients;
    std::string comments; /* those inside, each behind a line end */
};

std::string in_lower_case(std::string_view text) {
    std::string lower{text};
    for (char &c : lower)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return lower;
}

/* Where the name at the start of line ends; npos when a quote is not closed. */
size_t end_of_name(std::string_view line) {
    constexpr char_set k_ends_name = k_blank_set.with(":");
    if (!line.starts_with('"')) {
        const size_t end = k_ends_name.find(line);
        return end < line.size() ? end : std::string_view::npos;
    }
    size_t end = line.find('"', 1);
    return end == std::string_view::npos ? end : end + 1;
}

bool cut_name(std::string_view line, alias &found, std::string_view &rest) {
    size_t end = end_of_name(line);
    size_t colon = end == std::string_view::npos ? end : line.find_first_not_of(k_blanks, end);
    if (end == 0 || colon == std::string_view::npos || line[colon] != ':') return false;
    size_t start = line.find_first_not_of(k_blanks, colon + 1);
    if (start == std::string_view::npos) start = line.size();
    found.spelling = line.substr(0, end);
    found.gap = line.substr(end, start - end);
    rest = line.substr(start);
    bool quoted = line[0] == '"';
    found.name = in_lower_case(quoted ? line.substr(1, end - 2) : line.substr(0, end));
    return !found.name.empty();
}

bool cut_entry(std::string_view text, alias &found) {
    std::string_view line;
    if (!cut_name(take_line(text), found, line)) return false;
    found.recipients = trimmed(line);
    while (!text.empty()) {
        line = take_line(text);
        if (!is_layout(line)) {
            if (!found.recipients.empty()) found.recipients += ' ';
            found.recipients += trimmed(line);
        } else if (!trimmed(line).empty()) {
            found.comments.append("\n").append(line);
        }
    }
    return true;
}

/* The name as it has to be written. */
std::string spelled(std::string_view name) {
    constexpr std::string_view k_plain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789!$%&'*+-/=?^_`{|}~.@";
    bool plain = name.find_first_not_of(k_plain) == std::string_view::npos;
    return plain ? std::string{name} : '"' + std::string{name} + '"';
}

int read(const void *, cnf_reader *reader, int, const char *text, size_t length) {
    return llconf::guarded([&] {
        alias entry;
        if (!cut_entry({text, length}, entry)) return 0;
        const cnfnode *node = cnf_read_node(reader, nullptr, entry.name.data(), entry.name.size(),
                                            entry.recipients.data(), entry.recipients.size());
        return node != nullptr ? 1 : -1;
    });
}

int format_entry(const cnf_format &request) {
    alias old;
    bool had = request.old != nullptr && cut_entry({request.old, request.old_length}, old);
    std::string_view value = request.node->value != nullptr ? request.node->value : "";
    bool named = had && old.name == request.node->name;
    std::string text = named ? std::string{old.spelling} : spelled(request.node->name);
    if (had && old.recipients == value) {
        std::string_view rest{request.old, request.old_length};
        text += rest.substr(old.spelling.size());
        return cnf_out_add(request.out, text.data(), text.size());
    }
    text += had ? old.gap : std::string_view{":"};
    if (!value.empty() && text.ends_with(':')) text += ' ';
    text += value;
    text += old.comments;
    return cnf_out_add(request.out, text.data(), text.size());
}

int format(const void *, const cnf_format *request) {
    return llconf::guarded([&] { return format_entry(*request); });
}

int accepts(const void *, int level, const cnfnode *, const char *name, const char *value) {
    return llconf::guarded([&] {
        std::string_view text = value != nullptr ? value : "";
        bool fits = cnf_fits_line(name) != 0 && cnf_fits_line(value) != 0 && trimmed(text) == text;
        bool named = *name != '\0' && std::strchr(name, '"') == nullptr;
        return level == 1 && fits && named && in_lower_case(name) == name ? 1 : 0;
    });
}

const char *comments(const void *) {
    return "#";
}

constexpr cnf_parser k_parser = {
    .version = CNF_PARSER_VERSION,
    .name = "aliases",
    .options = nullptr,
    .keep_blank_lines = 0,
    .indent = 0,
    .prepare = nullptr,
    .release = nullptr,
    .comments = comments,
    .cut = cut,
    .read = read,
    .kind_of = nullptr,
    .format = format,
    .accepts = accepts,
    .read_tree = nullptr,
    .format_tree = nullptr,
    .counted_names = 0,
};

}  // namespace

int cnfmodule_register_aliases() {
    return cnf_register_parser(&k_parser);
}
