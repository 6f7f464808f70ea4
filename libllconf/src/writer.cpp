#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "engine.h"
#include "ucfgd/owners.h"

/* From tree to text. Whatever has not changed since it was read is taken from the file's text, run
 * by run; the rest is formatted by the parser, checked, and put between. Nothing is written before
 * the whole plan stands.
 *
 * What was formatted is read again before it counts. A syntax of lines is checked line by line,
 * since no line depends on another; any other as a whole, since a text may also reach into its
 * neighbours.
 */

struct cnf_out {
    std::string text;
    std::string_view source; /* the text that a whole file was read from */
    refusal refused;         /* what format said to that */
};

namespace {

using owned_node = owned<node_record, free_tree>;

bool is_layout_only(const cnfnode *node) {
    return node->name == k_empty_name || node->name == k_comment_name ||
           is_shared_line(record(node));
}

/* The children that count when two trees are compared; sorted: order matters only between children
 * of one name. */
std::vector<const cnfnode *> children_of(const cnfnode *node, bool sorted) {
    std::vector<const cnfnode *> list;
    for (const cnfnode *child = node->first_child; child != nullptr; child = child->next) {
        if (!is_layout_only(child)) list.push_back(child);
    }
    if (sorted) {
        std::stable_sort(list.begin(), list.end(), [](const cnfnode *a, const cnfnode *b) {
            return std::strcmp(a->name, b->name) < 0;
        });
    }
    return list;
}

/* An entry of which nothing but shared lines may speak: where it stands follows from them. */
bool is_bare(const cnfnode *node) {
    if (node->value != nullptr || cnfnode_is_formatting(node) != 0) return false;
    for (const cnfnode *child = node->first_child; child != nullptr; child = child->next) {
        if (child->value != nullptr || child->first_child != nullptr) return false;
    }
    return true;
}

/* Puts such entries behind the others, by name. */
void bare_last(std::vector<const cnfnode *> &list) {
    auto bare = std::stable_partition(list.begin(), list.end(),
                                      [](const cnfnode *node) { return !is_bare(node); });
    std::stable_sort(bare, list.end(), [](const cnfnode *a, const cnfnode *b) {
        return std::strcmp(a->name, b->name) < 0;
    });
}

/* What may differ between a tree and what is read from its text. */
struct leniency {
    bool flat;    /* the entries of a flat syntax may order their children as they like */
    bool counted; /* names that are numbers may be other numbers */
    bool shared;  /* entries that only shared lines speak of stand anywhere */
};

bool is_number(const char *name) {
    return *name != '\0' && name[std::strspn(name, "0123456789")] == '\0';
}

bool same_name(const char *a, const char *b, const leniency &may) {
    return std::strcmp(a, b) == 0 || (may.counted && is_number(a) && is_number(b));
}

/* Whether a tree reads as it should: a missing value is as good as an empty one. As deep as what
 * was read, which is bounded. */
bool reads_same(const cnfnode *wanted, const cnfnode *got, const leniency &may, bool top) {
    std::string_view value = wanted->value != nullptr ? wanted->value : "";
    std::string_view read = got->value != nullptr ? got->value : "";
    if (value != read || (!top && !same_name(wanted->name, got->name, may))) return false;
    if (wanted->first_child == nullptr && got->first_child == nullptr) return true;
    std::vector<const cnfnode *> a = children_of(wanted, may.flat && !top);
    std::vector<const cnfnode *> b = children_of(got, may.flat && !top);
    if (top && may.shared) {
        bare_last(a);
        bare_last(b);
    }
    return std::equal(
        a.begin(), a.end(), b.begin(), b.end(),
        [&may](const cnfnode *x, const cnfnode *y) { return reads_same(x, y, may, false); });
}

class tree_writer {
  public:
    tree_writer(const cnfmodule *module, written_text &out, refusal &refused)
        : module_(module), syntax_(module), out_(out), refused_(refused) {}

    bool write(const node_record *root);
    int kind_of(const node_record *node) { return kind_of(node, text_of(node)); }

  private:
    const source_text *text_of(const node_record *node);
    int kind_of(const node_record *node, const source_text *text) const {
        bool section = text != nullptr && is_section_kind(node->text_kind);
        return section ? node->text_kind : syntax_.kind_of(node);
    }
    bool write_children(const node_record *parent, int level);
    bool write_node(const node_record *node, int level);
    bool write_section(const node_record *node, int level, const source_text *text, int kind);
    bool write_formatted(const node_record *node, int level, int kind, const source_text *text);
    bool write_layout(const node_record *node, int level, const source_text *text);
    bool write_whole(const node_record *root);
    bool holds_below(const node_record *node, int level);
    bool check_line(const node_record *node);
    bool check_all(const node_record *root);
    bool refuse(const cnfnode *node);
    bool fail();

    bool ends_line() const;
    void add_source(const char *text, size_t length);
    void add_line(std::string_view text);
    void add_raw(std::string_view text);
    void finish(bool final_newline);

    const cnfmodule *module_;
    syntax syntax_;
    written_text &out_;
    refusal &refused_;
    std::string_view line_end_ = "\n";
    cnf_out formatted_;
    const cnf_source *checked_source_ = nullptr;
    bool checked_result_ = false;
};

/* The text that a node was read from, if it was in this syntax. */
const source_text *tree_writer::text_of(const node_record *node) {
    const source_text *text = node->text();
    if (text == nullptr || text->source == nullptr) return nullptr;
    if (text->source != checked_source_) {
        checked_source_ = text->source;
        checked_result_ = text->source->parser == module_->parser &&
                          compare_cnftree_children(text->source->options, module_->options) == 0;
    }
    return checked_result_ ? text : nullptr;
}

bool tree_writer::refuse(const cnfnode *node) {
    constexpr size_t k_shown = 80;
    refused_ = std::exchange(formatted_.refused, {});
    if (!refused_.why.empty()) refused_.why.insert(0, ": ");
    std::string shown = std::string{node->name}.substr(0, k_shown);
    refused_.why.insert(0, "'" + shown + "' cannot be stored in this file");
    errno = EINVAL;
    return false;
}

/* What has nothing to do with the tree; errno stays. */
bool tree_writer::fail() {
    refused_.why = errno_text();
    return false;
}

bool tree_writer::write(const node_record *root) {
    const source_text *text = root->has(k_file_root) ? text_of(root) : nullptr;
    if (text != nullptr && !root->has(k_changed)) {
        if (text->length > 0) add_source(text->source->text, text->length);
        return true;
    }
    if (syntax_.whole_file()) return write_whole(root);
    if (root->value != nullptr && *root->value != '\0') return refuse(root);
    if (text != nullptr && text->source->crlf) line_end_ = "\r\n";
    if (!write_children(root, 1)) return false;
    finish(text == nullptr || !text->source->no_final_newline);
    return syntax_.by_lines() || check_all(root);
}

bool tree_writer::write_whole(const node_record *root) {
    int level = 0;
    for (const node_record *node = root; node != nullptr;) {
        if (level > k_max_depth) return refuse(node);
        const node_record *next = next_in_tree(node, root);
        if (next != nullptr && next->parent == node) {
            level++;
        } else {
            for (; next != nullptr && node->parent != next->parent; node = node->up())
                level--;
        }
        node = next;
    }
    const source_text *old = root->has(k_file_root) ? text_of(root) : nullptr;
    formatted_.text.clear();
    if (old != nullptr) formatted_.source = {old->source->text, old->length};
    if (syntax_.parser->format_tree(syntax_.data, root, &formatted_) < 0) {
        return errno == EINVAL ? refuse(root) : fail();
    }
    add_raw(formatted_.text);
    return check_all(root);
}

bool tree_writer::write_children(const node_record *parent, int level) {
    for (const node_record *node = parent->first(); node != nullptr; node = node->next_node()) {
        if (!write_node(node, level)) return false;
    }
    return true;
}

bool tree_writer::write_node(const node_record *node, int level) {
    const source_text *text = node->has(k_file_root) ? nullptr : text_of(node);
    bool in_place = text != nullptr && node->text_level == level;
    bool shared = text != nullptr && is_shared_line(node) && !node->has(k_own_changed);
    if (in_place && !shared && !node->has(k_changed) && !node->has(k_related)) {
        add_source(text->source->text + text->offset, text->length);
        return true;
    }
    if (level > k_max_depth + 1) return refuse(node);
    if (shared) return write_formatted(node, level, CNF_SHARED, text);
    if (cnfnode_is_formatting(node) != 0) return write_layout(node, level, text);
    if (!accepts_node(syntax_, level, node->parent, node->name, node->value)) return refuse(node);
    int kind = kind_of(node, text);
    if (is_section_kind(kind)) return write_section(node, level, text, kind);
    return holds_below(node, level) && write_formatted(node, level, CNF_ENTRY, text);
}

/* Everything below an entry, which is a part of the entry's text. */
bool tree_writer::holds_below(const node_record *node, int level) {
    const node_record *at = node;
    while (true) {
        const node_record *next = next_in_tree(at, node);
        if (next == nullptr) return true;
        if (next->parent == at) {
            level++;
        } else {
            for (; at->parent != next->parent; at = at->up())
                level--;
        }
        at = next;
        if (!accepts_node(syntax_, level, at->parent, at->name, at->value)) return refuse(at);
    }
}

bool tree_writer::write_section(const node_record *node, int level, const source_text *text,
                                int kind) {
    bool was_section = text != nullptr && node->text_kind == kind;
    bool in_place = was_section && node->text_level == level;
    if (in_place && !node->has(k_own_changed)) {
        add_source(text->source->text + text->offset, text->head);
    } else if (!write_formatted(node, level, kind, text)) {
        return false;
    }
    if (!write_children(node, level + 1)) return false;
    if (kind != CNF_OPEN) return true;
    if (!in_place) return write_formatted(node, level, CNF_CLOSE, was_section ? text : nullptr);
    add_source(text->source->text + text->offset + text->length - text->tail, text->tail);
    return true;
}

bool tree_writer::write_formatted(const node_record *node, int level, int kind,
                                  const source_text *text) {
    cnf_format format{node, kind, level, nullptr, 0, 0, &formatted_};
    if (text != nullptr) {
        bool tail = kind == CNF_CLOSE;
        size_t from = tail ? text->offset + text->length - text->tail : text->offset;
        std::string_view old{text->source->text + from, tail ? text->tail : text->head};
        if (old.ends_with('\n')) old.remove_suffix(old.ends_with("\r\n") ? 2 : 1);
        format.old = old.data();
        format.old_length = old.size();
        format.old_kind = tail ? int{CNF_CLOSE} : node->text_kind;
    }
    formatted_.text.clear();
    if (syntax_.parser->format(syntax_.data, &format) < 0) {
        return errno == EINVAL ? refuse(node) : fail();
    }
    if (formatted_.text.find('\0') != std::string::npos) return refuse(node);
    if (syntax_.by_lines() && !check_line(node)) return refuse(node);
    if (!formatted_.text.empty() || !syntax_.shares_lines()) add_line(formatted_.text);
    return true;
}

bool tree_writer::check_line(const node_record *node) {
    const std::string &line = formatted_.text;
    if (line.find('\n') != std::string::npos || line.ends_with('\r')) return false;
    piece p{CNF_ENTRY, 0, line};
    if (!line.empty()) {
        const char *error = nullptr;
        size_t error_at = 0;
        if (!cut_piece(syntax_, line, 0, p, error, error_at)) return false;
    } else if (!syntax_.parser->keep_blank_lines) {
        return false;
    }
    if (p.kind != CNF_ENTRY) return false;
    owned_node read{read_single(syntax_, p)};
    return read && reads_same(node, read.get(), {true, false, false}, false);
}

bool tree_writer::write_layout(const node_record *node, int level, const source_text *text) {
    if (node->first_child != nullptr || !accepts_formatting(syntax_, level, node)) {
        return refuse(node);
    }
    std::string_view old;
    if (text != nullptr) old = {text->source->text + text->offset, text->length};
    add_line(format_layout(syntax_, level, node, old));
    return true;
}

/* Reads everything again and compares. */
bool tree_writer::check_all(const node_record *root) {
    std::string joined = out_.joined();
    owned_str copy = dup_str(joined);
    if (!copy) return fail();
    owned_node read{parse_owned_text(module_, module_->name, copy.release(), joined.size())};
    leniency may{!syntax_.nested() && !syntax_.whole_file(), syntax_.parser->counted_names != 0,
                 syntax_.shares_lines()};
    if (read && reads_same(root, read.get(), may, true)) return true;
    if (!read && errno != EINVAL) return fail();
    refused_.why = "the tree holds a text that this file cannot hold";
    errno = EINVAL;
    return false;
}

bool tree_writer::ends_line() const {
    if (out_.runs.empty()) return true;
    const text_run &run = out_.runs.back();
    return out_.at(run)[run.length - 1] == '\n';
}

void tree_writer::add_source(const char *text, size_t length) {
    if (length == 0) return;
    if (!out_.runs.empty()) {
        text_run &last = out_.runs.back();
        if (last.text != nullptr && last.text + last.length == text) {
            last.length += length;
            return;
        }
    }
    if (!ends_line()) add_raw(line_end_);
    out_.runs.push_back({text, 0, length});
}

void tree_writer::add_raw(std::string_view text) {
    if (text.empty()) return;
    size_t offset = out_.formatted.size();
    out_.formatted += text;
    if (!out_.runs.empty() && out_.runs.back().text == nullptr) {
        out_.runs.back().length += text.size();
    } else {
        out_.runs.push_back({nullptr, offset, text.size()});
    }
}

/* Adds formatted lines with the file's line ends. */
void tree_writer::add_line(std::string_view text) {
    if (!ends_line()) add_raw(line_end_);
    size_t newline = 0;
    while ((newline = text.find('\n')) != std::string_view::npos) {
        std::string_view line = text.substr(0, newline);
        if (line.ends_with('\r')) line.remove_suffix(1);
        add_raw(line);
        add_raw(line_end_);
        text.remove_prefix(newline + 1);
    }
    add_raw(text);
    add_raw(line_end_);
}

/* Gives the last line an end, or takes it away; never from a blank line, which would be lost. */
void tree_writer::finish(bool final_newline) {
    if (out_.runs.empty()) return;
    if (final_newline) {
        if (!ends_line()) add_raw(line_end_);
        return;
    }
    if (!ends_line()) return;
    text_run &run = out_.runs.back();
    std::string_view text{out_.at(run), run.length};
    size_t end = text.ends_with("\r\n") ? 2 : 1;
    if (text.size() <= end || text[text.size() - end - 1] == '\n') return;
    run.length -= end;
}

}  // namespace

size_t written_text::length() const {
    size_t sum = 0;
    for (const text_run &run : runs)
        sum += run.length;
    return sum;
}

std::string written_text::joined() const {
    std::string text;
    text.reserve(length());
    for (const text_run &run : runs)
        text.append(at(run), run.length);
    return text;
}

bool write_tree(const cnfmodule *module, const node_record *root, written_text &out,
                refusal &refused) {
    return tree_writer{module, out, refused}.write(root);
}

int written_kind(const cnfmodule *module, const node_record *node) {
    written_text out;
    refusal refused;
    return tree_writer{module, out, refused}.kind_of(node);
}

int cnf_out_add(cnf_out *out, const char *text, size_t length) {
    try {
        out->text.append(text, length);
        return 0;
    } catch (const std::exception &) {
        errno = ENOMEM;
        return -1;
    }
}

int cnf_out_refuse(cnf_out *out, int unfinished, const char *why) {
    try {
        out->refused = {why, unfinished != 0};
        errno = EINVAL;
    } catch (const std::exception &) {
        errno = ENOMEM;
    }
    return -1;
}

const char *cnf_out_source(const cnf_out *out, size_t *length) {
    *length = out->source.size();
    return out->source.data();
}

int cnf_out_text(cnf_out *out, const char *text) {
    return text != nullptr ? cnf_out_add(out, text, std::strlen(text)) : 0;
}
