/* Files of shell assignments: /etc/default, os-release and their kin.
 *
 * One entry is one assignment with all the lines that its quotes and backslashes take along; the
 * node is named after the variable and holds the text that a shell would store if it expanded
 * nothing. "export", blanks in front and a comment behind belong to the entry's text and are kept
 * when it is written anew. A new value is never expanded: what is not plain goes into single
 * quotes. The old spelling stays when only the name changes, so that "$HOME/x" renamed is still
 * expanded.
 *
 * Everything that is not a lone assignment (commands, arrays, "A=1; B=2") stays as it is, as
 * ".unparsed", together with the lines that it goes on with behind a backslash.
 */
#include <cstring>
#include <string>
#include <string_view>

#include "guarded.h"
#include "llconf/nodes.h"
#include "llconf/parser.h"
#include "shellvars_scan.h"

namespace {

using llconf::shell_item;
using llconf::shell_kind;

int kind_of_item(shell_kind kind) {
    switch (kind) {
        case shell_kind::empty:
            return CNF_EMPTY;
        case shell_kind::comment:
            return CNF_COMMENT;
        case shell_kind::assignment:
            return CNF_ENTRY;
        default:
            return CNF_UNPARSED;
    }
}

int read_piece(cnf_reader *reader, std::string_view text) {
    shell_item item = llconf::shell_scan(text);
    if (item.kind != shell_kind::assignment || item.value.find('\0') != std::string::npos) return 0;
    const cnfnode *node = cnf_read_node(reader, nullptr, item.name.data(), item.name.size(),
                                        item.value.data(), item.value.size());
    return node != nullptr ? 1 : -1;
}

void add_lines(std::string_view text, std::string &out) {
    for (char c : text) {
        if (c == '\n' && !out.empty() && out.back() == '\r') out.pop_back();
        out += c;
    }
}

int format_entry(const cnf_format &request) {
    shell_item old;
    if (request.old != nullptr) old = llconf::shell_scan({request.old, request.old_length});
    std::string_view value = request.node->value != nullptr ? request.node->value : "";
    bool had_value = old.kind == shell_kind::assignment;
    std::string text(had_value ? old.lead : std::string_view());
    text += request.node->name;
    text += '=';
    if (had_value && old.value == value) {
        add_lines(old.raw, text);
    } else {
        llconf::shell_write_value(value, text);
    }
    text += had_value ? old.tail : std::string_view();
    return cnf_out_add(request.out, text.data(), text.size());
}

const char *comments(const void *) {
    return "#";
}

int cut(const void *, cnf_cut *piece) {
    return llconf::guarded([&] {
        shell_item item = llconf::shell_scan({piece->text, piece->length});
        piece->kind = kind_of_item(item.kind);
        piece->piece = item.end;
        return 0;
    });
}

int read(const void *, cnf_reader *reader, int, const char *text, size_t length) {
    return llconf::guarded([&] { return read_piece(reader, {text, length}); });
}

int format(const void *, const cnf_format *request) {
    return llconf::guarded([&] { return format_entry(*request); });
}

/* A line end fits, between quotes, but only one that a file with CRLF gives back as it was. */
int accepts(const void *, int level, const cnfnode *, const char *name, const char *value) {
    return level == 1 && llconf::shell_is_name(name) &&
                   (value == nullptr || std::strstr(value, "\r\n") == nullptr)
               ? 1
               : 0;
}

constexpr cnf_parser k_parser = {
    .version = CNF_PARSER_VERSION,
    .name = "shellvars",
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

int cnfmodule_register_shellvars() {
    return cnf_register_parser(&k_parser);
}
