/* The dump syntax: a file that Python can import, one assignment of nested triples.
 *
 *     tree = ('(root)', None, [
 *         ('name', 'value', []),
 *         ('section', None, [
 *             ('name', '', []),
 *         ]),
 *     ])
 *
 * There is one spelling for every tree, and the reader takes that spelling and no other: a dump is
 * made by this program, and one that was edited by hand should say so rather than be guessed at.
 * The syntax has no comments, so the tree remembers no texts and is written anew as a whole.
 */
#include <cerrno>
#include <string>
#include <string_view>
#include <vector>

#include "guarded.h"
#include "llconf/nodes.h"
#include "llconf/parser.h"
#include "python_literal.h"

namespace {

constexpr std::size_t k_max_depth = 200;
constexpr std::size_t k_indent = 4;
constexpr std::string_view k_assignment = "tree = ";
constexpr std::string_view k_none = "None";

class tree_reader {
  public:
    tree_reader(cnf_reader *reader, std::string_view text) : reader_(reader), text_(text) {}

    int run() {
        if (!expect(k_assignment, "\"tree = \"") || !read_node()) return result_;
        while (!open_.empty()) {
            std::size_t opening = pos_ + k_indent * open_.size();
            bool more = opening < text_.size() && text_[opening] == '(';
            if (!indent(open_.size() - (more ? 0U : 1U))) return result_;
            if (more ? !read_node() : !close("])")) return result_;
        }
        if (pos_ < text_.size()) return fail("expected the end of the file");
        return 0;
    }

  private:
    int fail(const std::string &what) {
        result_ = cnf_read_error(reader_, pos_ < text_.size() ? pos_ : text_.size(), what.c_str());
        return result_;
    }

    bool expect(std::string_view wanted, const std::string &shown) {
        if (!text_.substr(pos_).starts_with(wanted)) {
            fail("expected " + shown);
            return false;
        }
        pos_ += wanted.size();
        return true;
    }

    bool indent(std::size_t level) {
        return expect(std::string(level * k_indent, ' '),
                      std::to_string(level * k_indent) + " blanks");
    }

    bool literal(std::string &out) {
        if (llconf::python_read_literal(text_, pos_, out)) return true;
        fail("expected a string as this program writes it");
        return false;
    }

    /* "(name, value, [" and the line end or the rest of a node without children. */
    bool read_node() {
        std::string name;
        std::string value;
        if (!expect("(", "\"(\"") || !literal(name) || !expect(", ", "\", \"")) return false;
        bool none = text_.substr(pos_).starts_with(k_none);
        if (none) pos_ += k_none.size();
        if ((!none && !literal(value)) || !expect(", [", "\", [\"")) return false;
        cnfnode *parent = open_.empty() ? nullptr : open_.back();
        cnfnode *node = cnf_read_node(reader_, parent, name.data(), name.size(),
                                      none ? nullptr : value.data(), value.size());
        if (node == nullptr) {
            result_ = -1;
            return false;
        }
        if (open_.size() > k_max_depth) {
            fail("more than 200 levels");
            return false;
        }
        open_.push_back(node);
        if (text_.substr(pos_).starts_with("]")) return close("])");
        return expect("\n", "the end of the line");
    }

    bool close(std::string_view end) {
        open_.pop_back();
        std::string wanted(end);
        if (!open_.empty()) wanted += ',';
        return expect(wanted + "\n", "\"" + wanted + "\" and the end of the line");
    }

    cnf_reader *reader_;
    std::string_view text_;
    std::size_t pos_ = 0;
    std::vector<cnfnode *> open_;
    int result_ = -1;
};

void write_head(const cnfnode *node, std::string &text) {
    text += '(';
    llconf::python_write_literal(node->name, text);
    text += ", ";
    if (node->value != nullptr) {
        llconf::python_write_literal(node->value, text);
    } else {
        text += k_none;
    }
    text += ", [";
}

/* Walks the tree without recursing; false where it is deeper than the reader goes. */
bool write_tree(const cnfnode *top, std::string &text) {
    std::vector<const cnfnode *> open;
    const cnfnode *node = top;
    text += k_assignment;
    for (;;) {
        if (open.size() > k_max_depth) return false;
        write_head(node, text);
        open.push_back(node);
        const cnfnode *next = node->first_child;
        text += next != nullptr ? "\n" : "";
        while (next == nullptr && !open.empty()) {
            const cnfnode *done = open.back();
            open.pop_back();
            if (done->first_child != nullptr) text.append(open.size() * k_indent, ' ');
            text += open.empty() ? "])\n" : "]),\n";
            next = open.empty() ? nullptr : done->next;
        }
        if (next == nullptr) return true;
        text.append(open.size() * k_indent, ' ');
        node = next;
    }
}

int read_tree(const void *, cnf_reader *reader, const char *text, size_t length) {
    return llconf::guarded([&] { return tree_reader(reader, {text, length}).run(); });
}

int format_tree(const void *, const cnfnode *tree, cnf_out *out) {
    return llconf::guarded([&] {
        std::string text;
        if (write_tree(tree, text)) return cnf_out_add(out, text.data(), text.size());
        errno = EINVAL;
        return -1;
    });
}

int accepts(const void *, int level, const cnfnode *, const char *, const char *) {
    return level <= static_cast<int>(k_max_depth) ? 1 : 0;
}

constexpr cnf_parser k_parser = {
    .version = CNF_PARSER_VERSION,
    .name = "python",
    .options = nullptr,
    .keep_blank_lines = 0,
    .indent = 0,
    .prepare = nullptr,
    .release = nullptr,
    .comments = nullptr,
    .cut = nullptr,
    .read = nullptr,
    .kind_of = nullptr,
    .format = nullptr,
    .accepts = accepts,
    .read_tree = read_tree,
    .format_tree = format_tree,
    .counted_names = 0,
};

}  // namespace

int cnfmodule_register_python() {
    return cnf_register_parser(&k_parser);
}
