/* Sections of keys: systemd units, smb.conf, .desktop files.
 *
 *     [Section]              Section
 *     Key=value                  Key   value
 *     flag                       flag  (no value)
 *
 * A header opens a section that ends where the next one begins. Keys in front of the first header
 * are children of the root. A key and its value stand on one line, or go on behind a backslash;
 * there are no comments behind a value, since in these files "#" and ";" are part of it. When a
 * value changes, the blanks around the separator stay; a new key is spelt without any.
 */
#include <cerrno>
#include <cstring>
#include <memory>

#include "guarded.h"
#include "ini_scan.h"
#include "llconf/nodes.h"
#include "llconf/parser.h"

namespace {

using llconf::ini_item;
using llconf::ini_kind;
using llconf::ini_syntax;

constexpr const char *k_options[] = {"separator", "comment", nullptr};

const ini_syntax &syntax_of(const void *data) {
    return *static_cast<const ini_syntax *>(data);
}

int kind_of_item(ini_kind kind) {
    switch (kind) {
        case ini_kind::empty:
            return CNF_EMPTY;
        case ini_kind::comment:
            return CNF_COMMENT;
        case ini_kind::section:
            return CNF_HEADING;
        case ini_kind::key:
            return CNF_ENTRY;
        default:
            return CNF_UNPARSED;
    }
}

int read_piece(const ini_syntax &syntax, cnf_reader *reader, std::string_view text) {
    ini_item item = llconf::ini_scan(text, 0, syntax);
    bool fits = item.kind == ini_kind::section || item.kind == ini_kind::key;
    if (!fits) return 0;
    const char *value = item.has_value ? item.value.c_str() : nullptr;
    const cnfnode *node = cnf_read_node(reader, nullptr, item.name.data(), item.name.size(), value,
                                        item.value.size());
    return node != nullptr ? 1 : -1;
}

void add_lines(std::string_view text, std::string &out) {
    for (char c : text) {
        if (c == '\n' && !out.empty() && out.back() == '\r') out.pop_back();
        out += c;
    }
}

std::string section_text(const char *name, const ini_item &old) {
    std::string text(old.lead);
    text.append("[").append(name).append("]").append(old.tail);
    return text;
}

std::string key_text(const ini_syntax &syntax, const cnfnode *node, const ini_item &old) {
    std::string text(old.lead);
    text += node->name;
    if (node->value == nullptr) return text;
    bool same = old.kind == ini_kind::key && old.has_value && old.value == node->value;
    if (!old.between.empty()) {
        text += old.between;
    } else {
        text += syntax.separator.empty() ? " " : syntax.separator;
    }
    if (same) {
        add_lines(old.raw, text);
    } else {
        text += node->value;
    }
    return text;
}

int format_piece(const ini_syntax &syntax, const cnf_format &request) {
    ini_item old;
    if (request.old != nullptr) {
        old = llconf::ini_scan({request.old, request.old_length}, 0, syntax);
        if (request.old_kind != request.kind) old = ini_item();
    }
    bool section_without_keys = request.level == 1 && request.node->value == nullptr;
    bool heading = request.kind == CNF_HEADING || section_without_keys;
    if (heading && request.node->value != nullptr) {
        errno = EINVAL;
        return -1;
    }
    std::string text =
        heading ? section_text(request.node->name, old) : key_text(syntax, request.node, old);
    return cnf_out_add(request.out, text.data(), text.size());
}

int prepare(const cnfnode *options, void **data) {
    return llconf::guarded([&] {
        auto syntax = std::make_unique<ini_syntax>();
        syntax->separator = cnf_option(options, "separator", "=");
        syntax->comment = cnf_option(options, "comment", "#;");
        bool blank = syntax->separator == "blank" || syntax->separator == " ";
        bool usable = !syntax->separator.empty() && cnf_fits_line(syntax->separator.c_str()) == 1;
        if (!usable || syntax->comment.find('[') != std::string::npos) {
            errno = EINVAL;
            return -1;
        }
        if (blank) syntax->separator.clear();
        *data = syntax.release();
        return 0;
    });
}

void release(void *data) {
    std::unique_ptr<ini_syntax>(static_cast<ini_syntax *>(data)).reset();
}

const char *comments(const void *data) {
    return syntax_of(data).comment.c_str();
}

int cut(const void *data, cnf_cut *piece) {
    return llconf::guarded([&] {
        ini_item item = llconf::ini_scan({piece->text, piece->length}, 0, syntax_of(data));
        piece->kind = kind_of_item(item.kind);
        piece->piece = item.end;
        bool lone_on_top = item.kind == ini_kind::key && !item.has_value && piece->depth == 0;
        bool has_nul = std::memchr(piece->text, '\0', piece->piece) != nullptr;
        if (lone_on_top || has_nul) piece->kind = CNF_UNPARSED;
        return 0;
    });
}

int read(const void *data, cnf_reader *reader, int, const char *text, size_t length) {
    return llconf::guarded([&] { return read_piece(syntax_of(data), reader, {text, length}); });
}

int kind_of(const void *, const cnfnode *node) {
    bool top = node->parent == nullptr || node->parent->parent == nullptr;
    return node->value == nullptr && (top || node->first_child != nullptr) ? CNF_HEADING
                                                                           : CNF_ENTRY;
}

int format(const void *data, const cnf_format *request) {
    return llconf::guarded([&] { return format_piece(syntax_of(data), *request); });
}

/* A section has no value. Which node of that name is meant is not known here; the first one counts.
 */
int accepts(const void *data, int level, const cnfnode *parent, const char *name,
            const char *value) {
    const ini_syntax &syntax = syntax_of(data);
    const cnfnode *there = value != nullptr ? find_node(parent->first_child, name) : nullptr;
    if (level == 1 && there != nullptr && there->first_child != nullptr) return 0;
    if (value != nullptr && !llconf::ini_accepts_value(value, syntax)) return 0;
    bool key = level <= 2 && llconf::ini_accepts_key(name, value != nullptr, syntax);
    bool section = level == 1 && value == nullptr && llconf::ini_accepts_section(name);
    return section || (key && (level == 2 || value != nullptr)) ? 1 : 0;
}

constexpr cnf_parser k_parser = {
    .version = CNF_PARSER_VERSION,
    .name = "ini",
    .options = k_options,
    .keep_blank_lines = 0,
    .indent = 0,
    .prepare = prepare,
    .release = release,
    .comments = comments,
    .cut = cut,
    .read = read,
    .kind_of = kind_of,
    .format = format,
    .accepts = accepts,
    .read_tree = nullptr,
    .format_tree = nullptr,
    .counted_names = 0,
};

}  // namespace

int cnfmodule_register_ini() {
    return cnf_register_parser(&k_parser);
}
