#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "engine.h"
#include "node_memory.h"
#include "ucfgd/owners.h"

/* From text to tree. A piece becomes a node: the engine makes the layout nodes, the parser the
 * others, through the cnf_reader. The first node that a read function makes gets the piece as its
 * source text. */

struct cnf_reader {
    node_maker *maker;  /* null: a single node */
    cnf_source *source; /* null: nodes do not remember a text */
    node_record *made;  /* the node of the piece, not linked yet */
    node_record *root;  /* read_tree: the node that a null parent means */
    bool reserved_name; /* the piece would be a formatting node */
    bool relating;      /* all pieces have been read */
    size_t error_at;
    std::string error; /* of cnf_read_error */
};

namespace {

using owned_node = owned<node_record, free_tree>;

struct open_section {
    node_record *node;
    int kind;
};

class text_reader {
  public:
    text_reader(const cnfmodule *module, std::string_view label, cnf_source *source)
        : syntax_(module), label_(label), source_(source), text_(source->text, source->length) {
        reader_.maker = &maker_;
    }

    owned_node read();

  private:
    owned_node make_root();
    bool relate();
    bool read_piece(const piece &p);
    bool read_entry(const piece &p);
    bool add_layout(std::string_view name, const piece &p);
    bool add(owned_node node, const piece &p);
    bool close_section(const piece &p);
    void end_heading();
    node_record *current() { return open_.empty() ? root_ : open_.back().node; }
    bool fail(size_t at, std::string_view what);
    void fail_reading(size_t from);

    syntax syntax_;
    std::string_view label_;
    cnf_source *source_;
    std::string_view text_;
    size_t at_ = 0;
    bool has_nul_ = false;
    node_maker maker_;
    node_record *root_ = nullptr;
    std::vector<open_section> open_;
    cnf_reader reader_{};
};

size_t line_of(std::string_view text, size_t offset) {
    size_t line = 1;
    for (char c : text.substr(0, std::min(offset, text.size())))
        line += c == '\n' ? 1 : 0;
    return line;
}

/* The value of a layout node: what a C string can show of the text. */
std::string shown(std::string_view text) {
    std::string copy{text};
    for (char &c : copy)
        c = c == '\0' ? '?' : c;
    return copy;
}

owned_node text_reader::make_root() {
    owned_node root{allocate_node({"(root)", true, {}, false}, k_has_text | k_file_root)};
    if (!root) return root;
    *root->text() = {source_, 0, source_->length, source_->length, 0};
    source_->references++;
    return root;
}

bool text_reader::fail(size_t at, std::string_view what) {
    set_error(EINVAL, label_, line_of(text_, at), what);
    set_error_column(column_of(text_, at));
    return false;
}

/* With what the parser said, or else without. */
void text_reader::fail_reading(size_t from) {
    bool said = !reader_.error.empty();
    fail(from + (said ? reader_.error_at : 0), said ? reader_.error : "this cannot be read");
}

owned_node text_reader::read() {
    owned_node root = make_root();
    if (!root) return root;
    root_ = root.get();
    if (syntax_.whole_file()) {
        reader_.root = root_;
        if (text_.find('\0') != std::string_view::npos) {
            fail(text_.find('\0'), "a NUL byte is no text");
            return nullptr;
        }
        if (syntax_.parser->read_tree(syntax_.data, &reader_, text_.data(), text_.size()) == 0) {
            return root;
        }
        if (errno == EINVAL) fail_reading(0);
        return nullptr;
    }
    has_nul_ = text_.find('\0') != std::string_view::npos;
    while (at_ < text_.size()) {
        piece p{};
        const char *error = nullptr;
        size_t error_at = 0;
        if (!cut_piece(syntax_, text_.substr(at_), static_cast<int>(open_.size()), p, error,
                       error_at)) {
            if (errno == EINVAL) fail(at_ + error_at, error);
            return nullptr;
        }
        if (!read_piece(p)) return nullptr;
        at_ += p.length;
    }
    end_heading();
    if (open_.empty()) return relate() ? std::move(root) : owned_node{};
    const node_record *section = open_.back().node;
    fail(section->text()->offset, std::string{"section '"} + section->name + "' is not closed");
    return nullptr;
}

bool text_reader::relate() {
    if (!syntax_.shares_lines()) return true;
    reader_.relating = true;
    const auto *parser = reinterpret_cast<const cnf_sharing_parser *>(syntax_.parser);
    return parser->relate(syntax_.data, &reader_, root_) == 0;
}

bool text_reader::read_piece(const piece &p) {
    switch (p.kind) {
        case CNF_EMPTY:
            return add_layout(k_empty_name, p);
        case CNF_COMMENT:
            return add_layout(k_comment_name, p);
        case CNF_UNPARSED:
        case CNF_SHARED:
            return add_layout(k_unparsed_name, p);
        case CNF_CLOSE:
            return close_section(p);
        case CNF_HEADING:
            end_heading();
            return read_entry(p);
        default:
            return read_entry(p);
    }
}

bool text_reader::read_entry(const piece &p) {
    int result = 0;
    reader_.source = source_;
    reader_.reserved_name = false;
    if (!has_nul_ || p.text.find('\0') == std::string_view::npos) {
        result = syntax_.parser->read(syntax_.data, &reader_, p.kind, p.text.data(), p.text.size());
    }
    owned_node node{std::exchange(reader_.made, nullptr)};
    if (result < 0) {
        if (errno == EINVAL) fail_reading(at_);
        return false;
    }
    if (result > 0 && !reader_.reserved_name && node) return add(std::move(node), p);
    if (syntax_.nested()) return fail(at_, "this cannot be read");
    return add_layout(k_unparsed_name, p);
}

bool text_reader::add_layout(std::string_view name, const piece &p) {
    std::string value;
    std::string_view text = p.text;
    if (p.kind == CNF_COMMENT) {
        text = trimmed(text);
        text = trimmed(text.substr(text.empty() ? 0 : 1));
    }
    if (has_nul_) {
        value = shown(text);
        text = value;
    }
    bool has_value = name != k_empty_name;
    return add(owned_node{allocate_node({name, true, text, has_value}, k_has_text, &maker_)}, p);
}

bool text_reader::add(owned_node node, const piece &p) {
    if (!node) return false;
    auto length = static_cast<uint32_t>(p.length);
    *node->text() = {source_, static_cast<uint32_t>(at_), length, length, 0};
    source_->references++;
    bool layout = cnfnode_is_formatting(node.get()) != 0;
    bool plain = layout && p.kind != CNF_SHARED;
    node->text_kind = static_cast<uint8_t>(plain ? int{CNF_ENTRY} : p.kind);
    node->text_level = static_cast<uint16_t>(open_.size() + 1);
    node_record *linked = node.release();
    link_node(current(), linked, nullptr);
    if (layout || !is_section_kind(p.kind)) return true;
    if (open_.size() >= k_max_depth) return fail(at_, "sections are nested too deeply");
    open_.push_back({linked, p.kind});
    return true;
}

bool text_reader::close_section(const piece &p) {
    if (open_.empty() || open_.back().kind != CNF_OPEN) return fail(at_, "no section is open here");
    source_text *text = open_.back().node->text();
    text->tail = static_cast<uint32_t>(p.length);
    text->length = static_cast<uint32_t>(at_ + p.length) - text->offset;
    open_.pop_back();
    return true;
}

/* A section without an end of its own reaches up to here; but blank lines at its end, and comments
 * behind them, lead over to what follows, and a node added to the section comes in front of them.
 */
void text_reader::end_heading() {
    if (open_.empty() || open_.back().kind != CNF_HEADING) return;
    node_record *section = open_.back().node;
    open_.pop_back();
    node_record *first = nullptr;
    for (node_record *node = section->last_child; node != nullptr; node = node->prev) {
        if (node->name != k_empty_name && node->name != k_comment_name) break;
        if (node->name == k_empty_name) first = node;
    }
    source_text *text = section->text();
    size_t end = first != nullptr ? first->text()->offset : at_;
    text->length = static_cast<uint32_t>(end) - text->offset;
    while (first != nullptr) {
        node_record *next = first->next_node();
        take_out(first);
        link_node(current(), first, nullptr);
        first->text_level = static_cast<uint16_t>(open_.size() + 1);
        first = next;
    }
}

/* The root of a file that holds its own: nothing of this counts as a change. */
node_record *name_root(node_record *root, const node_texts &texts) {
    owned_str name = dup_str(texts.name);
    owned_str value = texts.has_value ? dup_str(texts.value) : owned_str{};
    if (!name || (texts.has_value && !value)) return nullptr;
    if (root->has(k_heap_name)) std::free(root->name);
    if (root->has(k_heap_value)) std::free(root->value);
    root->flags &= ~uint32_t{k_static_name | k_heap_value};
    root->flags |= k_heap_name | (texts.has_value ? uint32_t{k_heap_value} : 0);
    root->name = name.release();
    root->value = value.release();
    return root;
}

/* A node as a read function asks for it: the one of the piece, or a child of one. */
node_record *read_node(cnf_reader *reader, node_record *parent, const node_texts &texts) {
    if (parent != nullptr) {
        node_record *child = allocate_node(texts, 0, reader->maker);
        if (child != nullptr) link_node(parent, child, nullptr);
        if (reader->relating && !parent->has(k_file_root)) parent->flags |= k_related;
        return child;
    }
    if (reader->root != nullptr) return name_root(reader->root, texts);
    if (reader->made != nullptr) free_tree(reader->made);
    uint32_t flags = reader->source != nullptr ? uint32_t{k_has_text} : 0;
    reader->made = allocate_node(texts, flags, reader->maker);
    if (reader->made != nullptr) reader->reserved_name = cnfnode_is_formatting(reader->made) != 0;
    return reader->made;
}

std::string_view value_text(const char *value, size_t length) {
    return value != nullptr ? std::string_view{value, length} : std::string_view{};
}

void cut_line(const syntax &s, std::string_view rest, piece &found) {
    size_t end = 0;
    found.length = cnf_line_length(rest.data(), rest.size(), &end);
    found.text = rest.substr(0, end);
    found.kind = CNF_ENTRY;
    size_t start = 0;
    while (start < end && is_blank(found.text[start]))
        start++;
    if (start == end) {
        if (!s.parser->keep_blank_lines) found.kind = CNF_EMPTY;
    } else if (s.comment_signs().find(found.text[start]) != std::string_view::npos) {
        found.kind = CNF_COMMENT;
    }
}

}  // namespace

std::string_view syntax::comment_signs() const {
    const char *signs = parser->comments != nullptr ? parser->comments(data) : nullptr;
    return signs != nullptr ? signs : "";
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back()))
        text.remove_suffix(1);
    return text;
}

bool is_section_kind(int kind) {
    return kind == CNF_OPEN || kind == CNF_HEADING;
}

bool is_shared_line(const node_record *node) {
    return node->has(k_has_text) && node->text_kind == CNF_SHARED;
}

bool cut_piece(const syntax &s, std::string_view rest, int depth, piece &found, const char *&error,
               size_t &error_at) {
    if (s.by_lines()) {
        cut_line(s, rest, found);
        return true;
    }
    cnf_cut cut{rest.data(), rest.size(), depth, CNF_ENTRY, 0, nullptr, 0};
    if (s.parser->cut(s.data, &cut) < 0) {
        error = cut.error != nullptr ? cut.error : "this cannot be read";
        error_at = cut.error_at;
        return false;
    }
    if (cut.piece == 0 || cut.piece > rest.size()) {
        error = "the parser has lost its way";
        error_at = 0;
        errno = EINVAL;
        return false;
    }
    std::string_view text = rest.substr(0, cut.piece);
    found = {cut.kind, cut.piece, text};
    if (text.ends_with('\n')) text.remove_suffix(1);
    if (text.ends_with('\r') && text.size() < cut.piece) text.remove_suffix(1);
    found.text = text;
    return true;
}

node_record *read_single(const syntax &s, const piece &p) {
    cnf_reader reader{};
    int result = s.parser->read(s.data, &reader, p.kind, p.text.data(), p.text.size());
    owned_node node{reader.made};
    if ((result < 0 && errno == ENOMEM) || (result > 0 && !node)) throw std::bad_alloc{};
    return result > 0 && !reader.reserved_name ? node.release() : nullptr;
}

node_record *parse_owned_text(const cnfmodule *module, std::string_view label, char *text,
                              size_t length) {
    cnf_source *made = nullptr;
    if (length <= k_max_file) {
        made = create_source(module->parser, module->options, text, length);
    } else {
        std::free(text);
        errno = EFBIG;
    }
    owned<cnf_source, source_release> source{made};
    if (source) {
        int before = std::exchange(errno, 0);
        owned_node root = text_reader{module, label, source.get()}.read();
        if (root) {
            errno = before;
            return root.release();
        }
        if (errno == EINVAL) return nullptr;
        if (errno == 0) errno = EINVAL;
    }
    set_error(errno, label, 0, errno_text());
    return nullptr;
}

cnfnode *cnf_read_node(cnf_reader *reader, cnfnode *parent, const char *name, size_t name_length,
                       const char *value, size_t value_length) {
    return read_node(
        reader, record(parent),
        {{name, name_length}, false, value_text(value, value_length), value != nullptr});
}

cnfnode *cnf_read_key(cnf_reader *reader, cnfnode *parent, const char *name, const char *value,
                      size_t value_length) {
    return read_node(reader, record(parent),
                     {name, true, value_text(value, value_length), value != nullptr});
}

int cnf_read_error(cnf_reader *reader, size_t offset, const char *what) {
    try {
        reader->error = what;
        reader->error_at = offset;
        errno = EINVAL;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
    }
    return -1;
}

size_t cnf_line_length(const char *text, size_t length, size_t *end) {
    const void *newline = length > 0 ? std::memchr(text, '\n', length) : nullptr;
    size_t without = newline != nullptr
                         ? static_cast<size_t>(static_cast<const char *>(newline) - text)
                         : length;
    size_t whole = newline != nullptr ? without + 1 : without;
    if (without > 0 && text[without - 1] == '\r') without--;
    if (end != nullptr) *end = without;
    return whole;
}
