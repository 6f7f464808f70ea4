/* /etc/network/interfaces: one node per stanza.
 *
 *     auto eth0                      eth0
 *     iface eth0 inet static             auto
 *         # the office                   family   inet
 *         address 192.0.2.7/24           method   static
 *                                        address  192.0.2.7/24
 *
 * A stanza is one entry with all its lines, and the flags that stand right in front of it for this
 * interface alone are lines of it: adding the child "auto" to an interface adds the line above its
 * stanza. Lines about the whole file ("source ...") are nodes with a value. Comments and blank
 * lines behind the last option belong to the file; those between the lines of a stanza are a part
 * of its text only.
 *
 * Any other flag line ("auto lo eth0") is shared. What it says is a child of the first node of each
 * name; a name without a stanza gets a node behind the line. The line names those that have the
 * child: taking that from an interface takes its name out of the line, and a line without names
 * goes.
 *
 * When a stanza is written anew, each of its old lines that still says what the tree says is taken
 * over as it was, and so are the comments in front of it.
 */
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "../node_record.h"
#include "guarded.h"
#include "interfaces_scan.h"
#include "llconf/nodes.h"
#include "llconf/parser.h"

namespace {

using llconf::if_kind;
using llconf::if_line;
using llconf::if_reading;

constexpr std::string_view k_family = "family";
constexpr std::string_view k_method = "method";
constexpr std::string_view k_inherits = "inherits";
constexpr std::string_view k_mapping = "mapping";
constexpr const char *k_shared = ".unparsed";
constexpr std::size_t k_search = 64;  // old lines that are looked through for one that still holds

bool is_head_part(std::string_view name) {
    return name == k_family || name == k_method || name == k_inherits || name == k_mapping;
}

bool is_flag(std::string_view name) {
    return llconf::if_kind_of_word(name) == if_kind::flag;
}

/* What prepare has made of the options. */
if_reading reading_of(const void *data) {
    return data != nullptr ? *static_cast<const if_reading *>(data) : if_reading::strict;
}

/* A line of a stanza that the tree does not show: layout, and what is spelt like a part of the head
 * but stands below it. */
bool is_kept(const if_line &line) {
    if (line.kind == if_kind::empty || line.kind == if_kind::comment) return true;
    return line.kind == if_kind::option && (is_head_part(line.word) || line.word.front() == '.');
}

/* The first node of a name. */
const cnfnode *first_of(const cnfnode *root, std::string_view name) {
    return root != nullptr ? find_node(root->first_child, std::string(name).c_str()) : nullptr;
}

/* Walks the shared lines of a file. */
template <class function>
bool any_shared_line(const cnfnode *root, function f) {
    const cnfnode *node = root != nullptr ? find_node(root->first_child, k_shared) : nullptr;
    for (; node != nullptr; node = find_node(node->next, k_shared)) {
        if_line line = llconf::if_scan_line(node->value != nullptr ? node->value : "", 0);
        if (line.kind == if_kind::flag && f(node, line)) return true;
    }
    return false;
}

bool shared_line_names(const cnfnode *root, std::string_view flag, std::string_view name,
                       if_reading reading) {
    return any_shared_line(root, [&](const cnfnode *, const if_line &line) {
        std::vector<std::string_view> names = llconf::if_interfaces(line, reading);
        return line.word == flag && std::find(names.begin(), names.end(), name) != names.end();
    });
}

/* --- reading -------------------------------------------------------------------------------- */

class stanza_reader {
  public:
    stanza_reader(cnf_reader *reader, std::string_view text, if_reading reading)
        : reader_(reader), text_(text), reading_(reading) {}

    int run() {
        std::size_t pos = 0;
        while (pos < text_.size() && result_ == 1) {
            if_line line = llconf::if_scan_line(text_, pos);
            pos = line.end;
            if (!read_line(line)) return result_;
        }
        return result_;
    }

  private:
    bool read_line(const if_line &line) {
        switch (line.kind) {
            case if_kind::empty:
            case if_kind::comment:
                return true;
            case if_kind::flag:
                return name(line.rest) && child(line.word, nullptr);
            case if_kind::mapping:
                return name(line.rest) && child(k_mapping, nullptr);
            case if_kind::directive:
                return make(line.word, &line.rest);
            case if_kind::iface:
                return iface(line);
            default:
                return option(line);
        }
    }

    bool fail(int result) {
        result_ = result;
        return false;
    }

    bool make(std::string_view name, const std::string *value) {
        node_ = cnf_read_node(reader_, nullptr, name.data(), name.size(),
                              value != nullptr ? value->data() : nullptr,
                              value != nullptr ? value->size() : 0);
        return node_ != nullptr || fail(-1);
    }

    bool name(std::string_view name) {
        if (node_ != nullptr) return true;
        return name.empty() ? fail(0) : make(name, nullptr);
    }

    bool child(std::string_view name, const std::string *value) {
        const cnfnode *made = cnf_read_node(reader_, node_, name.data(), name.size(),
                                            value != nullptr ? value->data() : nullptr,
                                            value != nullptr ? value->size() : 0);
        return made != nullptr || fail(-1);
    }

    bool iface(const if_line &line) {
        std::optional<llconf::if_head> head = llconf::if_read_head(line.rest, reading_);
        if (!head) return fail(0);
        return name(head->name) && part(k_family, head->family) && part(k_method, head->method) &&
               part(k_inherits, head->inherits);
    }

    bool part(std::string_view key, const std::string &text) {
        return text.empty() || child(key, &text);
    }

    bool option(const if_line &line) { return is_kept(line) || child(line.word, &line.rest); }

    cnf_reader *reader_;
    std::string_view text_;
    if_reading reading_;
    cnfnode *node_ = nullptr;
    int result_ = 1;
};

/* Adds to the tree what one shared line says. */
int relate_line(cnf_reader *reader, cnfnode *root, const cnfnode *shared, const if_line &line,
                if_reading reading) {
    const cnfnode *behind = shared;
    for (std::string_view word : llconf::if_interfaces(line, reading)) {
        std::string name(word);
        cnfnode *node = find_node(root->first_child, name.c_str());
        if (node == nullptr) {
            node = cnf_read_node(reader, root, name.data(), name.size(), nullptr, 0);
            if (node == nullptr) return -1;
            take_out(record(node));
            link_node(record(root), record(node), mutable_record(behind)->next_node());
            behind = node;
        }
        if (find_node(node->first_child, line.word.c_str()) != nullptr) continue;
        if (cnf_read_node(reader, node, line.word.data(), line.word.size(), nullptr, 0) == nullptr)
            return -1;
    }
    return 0;
}

/* --- writing -------------------------------------------------------------------------------- */

class stanza_writer {
  public:
    stanza_writer(const cnf_format &request, if_reading reading)
        : node_(request.node), reading_(reading) {
        std::string_view old(request.old, request.old_length);
        for (std::size_t pos = 0; pos < old.size(); pos = old_.back().end) {
            old_.push_back(llconf::if_scan_line(old, pos));
            if (old_.back().kind == if_kind::option && indent_.empty()) indent_ = old_.back().lead;
        }
        if (indent_.empty()) indent_ = "    ";
    }

    bool run() {
        if (node_->value != nullptr) {
            return llconf::if_kind_of_word(node_->name) == if_kind::directive &&
                   node_->first_child == nullptr &&
                   add_line("", node_->name, node_->value, if_kind::directive);
        }
        return is_first_or_whole() && flags() && head() && options();
    }

    /* Takes the names out of a shared line that no longer have the flag. */
    bool run_shared() {
        if_line line = old_.empty() ? if_line() : old_.front();
        text_ = llconf::if_keep_names(
            line.raw,
            [&](std::string_view name) {
                const cnfnode *node =
                    llconf::if_is_interface(name) ? first_of(node_->parent, name) : nullptr;
                return !llconf::if_is_interface(name) ||
                       (node != nullptr &&
                        find_node(node->first_child, line.word.c_str()) != nullptr);
            },
            reading_);
        return true;
    }

    const char *missing() const { return missing_; }

    const std::string &text() const { return text_; }

  private:
    bool has_head(const cnfnode *node) const {
        auto has = [node](std::string_view name) {
            return find_node(node->first_child, name.data()) != nullptr;
        };
        return has(k_mapping) || (has(k_family) && has(k_method)) ||
               (has(k_inherits) && reading_ == if_reading::as_ifupdown);
    }

    bool lacks(const char *what) {
        missing_ = what;
        return false;
    }

    /* Flags alone belong to the first stanza of their name, so they are no stanza beside another.
     */
    bool is_first_or_whole() {
        bool whole = has_head(node_);
        const cnfnode *other = node_->parent != nullptr ? node_->parent->first_child : nullptr;
        other = find_node(other, node_->name);
        for (; other != nullptr; other = find_node(other->next, node_->name)) {
            if (other == node_ || (whole && has_head(other))) continue;
            return lacks("there is another entry of this name, and one has no family and method");
        }
        return true;
    }

    bool was_line(std::string_view flag) const {
        return std::any_of(old_.begin(), old_.end(), [&](const if_line &line) {
            return line.kind == if_kind::flag && line.word == flag && line.rest == node_->name;
        });
    }

    bool flags() {
        bool first = first_of(node_->parent, node_->name) == node_;
        for (const cnfnode *child = node_->first_child; child != nullptr; child = child->next) {
            if (child->first_child != nullptr) return false;
            if (!is_flag(child->name)) continue;
            bool shared =
                first && shared_line_names(node_->parent, child->name, node_->name, reading_);
            if (shared && !was_line(child->name)) {
                shared_ = true;
            } else {
                add_line("", child->name, node_->name, if_kind::flag);
            }
        }
        return true;
    }

    bool options() {
        for (const cnfnode *child = node_->first_child; child != nullptr; child = child->next) {
            if (is_flag(child->name) || is_head_part(child->name)) continue;
            if (!has_head_) return lacks("options need a family and a method");
            std::string_view value = child->value != nullptr ? child->value : "";
            add_line(indent_, child->name, value, if_kind::option);
        }
        keep_until(old_.size());
        return !text_.empty() || shared_ || lacks("a family and a method are missing");
    }

    const char *value_of(std::string_view name) const {
        for (const cnfnode *child = node_->first_child; child != nullptr; child = child->next) {
            if (child->name == name) return child->value != nullptr ? child->value : "";
        }
        return nullptr;
    }

    /* A stanza of flags has none. */
    bool head() {
        const char *family = value_of(k_family);
        const char *method = value_of(k_method);
        const char *inherits = value_of(k_inherits);
        has_head_ = true;
        if (value_of(k_mapping) != nullptr) {
            return add_line("", k_mapping, node_->name, if_kind::mapping);
        }
        auto is_given = [](const char *text) { return text != nullptr && *text != '\0'; };
        bool whole = is_given(family) && is_given(method);
        bool may_inherit = reading_ == if_reading::as_ifupdown && is_given(inherits);
        if (whole || (may_inherit && !is_given(method))) {
            std::string rest = node_->name;
            for (const char *part : {family, method})
                if (is_given(part)) rest.append(" ").append(part);
            if (inherits != nullptr) rest.append(" inherits ").append(inherits);
            return add_line("", "iface", rest, if_kind::iface);
        }
        has_head_ = false;
        if (family == nullptr && method == nullptr && inherits == nullptr) return true;
        return lacks("the family or the method is missing");
    }

    bool add_raw(std::string_view raw) {
        if (!first_) text_ += '\n';
        first_ = false;
        for (char c : raw) {
            if (c == '\n' && !text_.empty() && text_.back() == '\r') text_.pop_back();
            text_ += c;
        }
        return true;
    }

    /* Passes over old lines, but for those that the tree does not show. */
    void keep_until(std::size_t index) {
        for (; next_ < index; ++next_) {
            if (is_kept(old_[next_])) add_raw(old_[next_].raw);
        }
    }

    /* The old line that says the same, or a new one where the old one stood. */
    bool add_line(std::string_view lead, std::string_view word, std::string_view rest,
                  if_kind kind) {
        auto same_word = [&](const if_line &line) {
            return line.kind == kind && line.word == word && !is_kept(line);
        };
        std::size_t end = std::min(old_.size(), next_ + k_search);
        for (std::size_t i = next_; i < end; ++i) {
            bool same = kind == if_kind::iface ? llconf::if_read_head(old_[i].rest, reading_) ==
                                                     llconf::if_read_head(rest, reading_)
                                               : old_[i].rest == rest;
            if (!same_word(old_[i]) || !same) continue;
            keep_until(i);
            return add_raw(old_[next_++].raw);
        }
        std::string made(lead);
        std::size_t shown = next_;
        while (shown < end && is_kept(old_[shown]))
            ++shown;
        if (shown < end && same_word(old_[shown])) {
            keep_until(shown);
            made = old_[next_++].lead;
        }
        made += word;
        if (!rest.empty()) made += ' ';
        made += rest;
        return add_raw(made);
    }

    const cnfnode *node_;
    std::vector<if_line> old_;
    std::size_t next_ = 0;
    std::string indent_;
    std::string text_;
    bool first_ = true;
    bool has_head_ = false;
    if_reading reading_;
    bool shared_ = false;            // a shared line has a flag of the node
    const char *missing_ = nullptr;  // what can still be added
};

/* --- what fits ------------------------------------------------------------------------------- */

bool accepts_top(std::string_view name, const char *value) {
    if (value != nullptr) {
        return llconf::if_kind_of_word(name) == if_kind::directive && llconf::if_is_rest(value);
    }
    return llconf::if_is_word(name) && name.front() != '#';
}

bool accepts_child(std::string_view name, const char *value) {
    if (name == k_mapping || is_flag(name)) {
        return llconf::if_is_word(name) && (value == nullptr || *value == '\0');
    }
    if (is_head_part(name)) return value == nullptr || llconf::if_is_word(value);
    return llconf::if_kind_of_word(name) == if_kind::option && llconf::if_is_word(name) &&
           name.front() != '#' && name.front() != '.' &&
           (value == nullptr || llconf::if_is_rest(value));
}

/* --- the parser's functions ------------------------------------------------------------------ */

const char *comments(const void *) {
    return "#";
}

int cut(const void *data, cnf_cut *piece) {
    return llconf::guarded([piece, reading = reading_of(data)] {
        std::string_view text(piece->text, piece->length);
        if_line first = llconf::if_scan_line(text, 0);
        piece->kind = CNF_ENTRY;
        piece->piece = first.end;
        if (first.kind == if_kind::empty) {
            piece->kind = CNF_EMPTY;
        } else if (first.kind == if_kind::comment) {
            piece->kind = CNF_COMMENT;
        } else if (first.kind == if_kind::option) {
            piece->kind = CNF_UNPARSED;
        } else if (llconf::if_is_shared(text, first, reading)) {
            piece->kind = CNF_SHARED;
        } else {
            piece->piece = llconf::if_stanza_length(text, first, reading);
        }
        if (std::memchr(piece->text, '\0', piece->piece) != nullptr) piece->kind = CNF_UNPARSED;
        return 0;
    });
}

int read(const void *data, cnf_reader *reader, int, const char *text, size_t length) {
    return llconf::guarded([&] {
        return stanza_reader(reader, {text, length}, reading_of(data)).run();
    });
}

int format(const void *data, const cnf_format *request) {
    return llconf::guarded([request, data] {
        stanza_writer writer(*request, reading_of(data));
        if (request->kind == CNF_SHARED ? writer.run_shared() : writer.run()) {
            return cnf_out_add(request->out, writer.text().data(), writer.text().size());
        }
        if (writer.missing() != nullptr) return cnf_out_refuse(request->out, 1, writer.missing());
        errno = EINVAL;
        return -1;
    });
}

int relate(const void *data, cnf_reader *reader, cnfnode *root) {
    return llconf::guarded([&] {
        bool failed = any_shared_line(root, [&](const cnfnode *node, const if_line &line) {
            return relate_line(reader, root, node, line, reading_of(data)) < 0;
        });
        return failed ? -1 : 0;
    });
}

int accepts(const void *, int level, const cnfnode *, const char *name, const char *value) {
    if (level == 1) return accepts_top(name, value) ? 1 : 0;
    return level == 2 && accepts_child(name, value) ? 1 : 0;
}

constexpr const char *k_options[] = {"ifupdown", nullptr};

int prepare(const cnfnode *options, void **data) {
    static if_reading as_ifupdown = if_reading::as_ifupdown;
    bool asked = options != nullptr && find_node(options->first_child, k_options[0]) != nullptr;
    *data = asked ? &as_ifupdown : nullptr;
    return 0;
}

constexpr cnf_sharing_parser k_parser = {
    .parser =
        {
            .version = CNF_SHARING_PARSER,
            .name = "interfaces",
            .options = k_options,
            .keep_blank_lines = 0,
            .indent = 4,
            .prepare = prepare,
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
        },
    .relate = relate,
};

}  // namespace

int cnfmodule_register_interfaces() {
    return cnf_register_parser(&k_parser.parser);
}
