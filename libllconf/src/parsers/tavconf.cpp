/* The daemon's own syntax: keys with values, sections in braces, comments.
 *
 * The engine keeps what was read as it was; this file knows how one piece of it reads and how a
 * changed one is written. Three kinds of pieces carry nodes: a key with its value and all the lines
 * that the value goes on with (an entry), a name alone (an entry, too: a section without entries),
 * and the head of a section, whose end is a piece of its own.
 *
 * The rule that decides between a key and a section is the ":" at the end of the name, and it is
 * part of the name. So a tree can be written when every node with a ":" behind its name has a value
 * and no children, and every other node has no value. Values can always be written: what does not
 * read back as it stands is put in double quotes, and the scanner itself is asked whether it reads
 * back, so that writer and reader cannot disagree. Names can be written unless a line end is in
 * them.
 *
 * A changed entry keeps its comment, and the spelling of its value when only the name has changed;
 * the head of a section keeps its text until its name changes. Everything else is spelt anew with
 * four blanks a level.
 */
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

#include "guarded.h"
#include "llconf/nodes.h"
#include "llconf/parser.h"
#include "tavconf_scan.h"

namespace {

using llconf::tav_item;
using llconf::tav_kind;

constexpr int k_max_depth = 200;
constexpr std::size_t k_indent = 4;

bool is_key(std::string_view name) {
    return !name.empty() && name.back() == ':';
}

int kind_of_item(const tav_item &item) {
    switch (item.kind) {
        case tav_kind::empty:
            return CNF_EMPTY;
        case tav_kind::comment:
            return CNF_COMMENT;
        case tav_kind::section_open:
            return CNF_OPEN;
        case tav_kind::close:
            return CNF_CLOSE;
        default:
            return CNF_ENTRY;
    }
}

/* What is wrong with a piece is told when it is read: only there a message may be made up. */
int cut_piece(cnf_cut *cut) {
    tav_item item = llconf::tav_scan({cut->text, cut->length}, 0, llconf::tav_wanted::extent);
    cut->kind = kind_of_item(item);
    cut->piece = item.end;
    if (std::memchr(cut->text, '\0', cut->piece) != nullptr) {
        cut->error = "expected text, found a NUL byte";
    } else if (cut->depth >= k_max_depth &&
               (item.kind == tav_kind::section_open || item.kind == tav_kind::section_alone)) {
        cut->error = "more than 200 sections within each other";
    } else {
        return 0;
    }
    errno = EINVAL;
    return -1;
}

int read_piece(cnf_reader *reader, std::string_view text) {
    tav_item item = llconf::tav_scan(text, 0);
    if (item.kind == tav_kind::error) {
        return cnf_read_error(reader, item.error_at, item.error.c_str());
    }
    bool key = item.kind == tav_kind::key;
    const char *value = key ? item.value.c_str() : nullptr;
    const cnfnode *node = cnf_read_node(reader, nullptr, item.name.data(), item.name.size(), value,
                                        key ? item.value.size() : 0);
    return node != nullptr ? 1 : -1;
}

/* The spelling of a value as it was read, with "\n" between its lines. */
std::string raw_value(std::string_view old, const tav_item &item) {
    std::string raw;
    for (char c : old.substr(item.value_at)) {
        if (c == '\n' && !raw.empty() && raw.back() == '\r') raw.pop_back();
        raw += c;
    }
    return raw;
}

class formatter {
  public:
    explicit formatter(const cnf_format &format)
        : format_(format), name_(format.node->name), old_(format.old, format.old_length) {
        if (format.old != nullptr) item_ = llconf::tav_scan(old_, 0);
    }

    int run() {
        bool same_kind = format_.old != nullptr && format_.old_kind == format_.kind;
        bool head = format_.kind == CNF_OPEN && item_.name == name_;
        if (same_kind && (format_.kind == CNF_CLOSE || head)) {
            text_ = old_;
        } else if (format_.kind == CNF_CLOSE) {
            indent();
            text_ += '}';
        } else if (is_key(name_) && format_.kind == CNF_ENTRY && format_.node->value == nullptr) {
            return cnf_out_refuse(format_.out, 1, "a key needs a value");
        } else if (!entry()) {
            return cnf_out_refuse(format_.out, 0, "a key has a value, and a section has none");
        }
        return cnf_out_add(format_.out, text_.data(), text_.size());
    }

  private:
    void indent() {
        text_.append(k_indent * static_cast<std::size_t>(format_.level > 0 ? format_.level - 1 : 0),
                     ' ');
    }

    bool entry() {
        indent();
        bool lone = format_.kind == CNF_ENTRY;
        if (!llconf::tav_write_name(name_, lone, text_)) return false;
        const char *value = format_.node->value;
        if (is_key(name_)) {
            if (value == nullptr || format_.kind != CNF_ENTRY) return false;
            if (item_.kind == tav_kind::key && item_.value == value) {
                text_ += raw_value(old_, item_);
                return true;
            }
            if (*value != '\0') text_ += ' ';
            llconf::tav_write_value(value, text_);
        } else if (value != nullptr) {
            return false;
        } else if (!lone) {
            text_ += " {";
        }
        comment();
        return true;
    }

    void comment() {
        if (item_.comment.empty()) return;
        text_ += "  ";
        text_ += item_.comment;
    }

    const cnf_format &format_;
    std::string_view name_;
    std::string_view old_;
    tav_item item_;
    std::string text_;
};

bool accepts_node(int level, std::string_view name, const char *value) {
    std::string spelt;
    if (!llconf::tav_write_name(name, true, spelt)) return false;
    if (is_key(name)) return true;
    return value == nullptr && level <= k_max_depth;
}

const char *comments(const void *) {
    return "#";
}

int cut(const void *, cnf_cut *piece) {
    return llconf::guarded([&] { return cut_piece(piece); });
}

int read(const void *, cnf_reader *reader, int, const char *text, size_t length) {
    return llconf::guarded([&] { return read_piece(reader, {text, length}); });
}

int kind_of(const void *, const cnfnode *node) {
    return node->first_child != nullptr && !is_key(node->name) ? CNF_OPEN : CNF_ENTRY;
}

int format(const void *, const cnf_format *request) {
    return llconf::guarded([&] { return formatter(*request).run(); });
}

int accepts(const void *, int level, const cnfnode *parent, const char *name, const char *value) {
    if (is_key(parent->name) && level > 1) return 0;
    return llconf::guarded([&] { return accepts_node(level, name, value) ? 1 : 0; });
}

constexpr cnf_parser k_parser = {
    .version = CNF_PARSER_VERSION,
    .name = "tavconf",
    .options = nullptr,
    .keep_blank_lines = 0,
    .indent = static_cast<int>(k_indent),
    .prepare = nullptr,
    .release = nullptr,
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

int cnfmodule_register_tavconf() {
    return cnf_register_parser(&k_parser);
}
