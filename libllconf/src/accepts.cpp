#include <cerrno>
#include <cstring>
#include <new>

#include "engine.h"
#include "ucfgd/owners.h"

/* Which nodes a file can hold. The parser knows about its names and values; lines and layout nodes
 * are the same for all. */

namespace {

/* What a layout node must read as. */
bool reads_as_layout(const syntax &s, const piece &p, const cnfnode *node) {
    std::string_view value = node->value != nullptr ? node->value : "";
    std::string_view name = node->name;
    if (name == k_empty_name) return p.kind == CNF_EMPTY && value.empty();
    if (name == k_comment_name) return p.kind == CNF_COMMENT && value == trimmed(value);
    if (p.kind == CNF_UNPARSED) return p.text == value;
    if (p.kind != CNF_ENTRY || s.nested()) return false;
    owned<node_record, free_tree> read{read_single(s, p)};
    return !read && p.text == value;
}

/* The comment sign that was there, with the blanks around it. */
std::string comment_start(const syntax &s, int level, std::string_view old) {
    size_t at = old.find_first_not_of(" \t");
    if (at != std::string_view::npos && s.comment_signs().find(old[at]) != std::string_view::npos) {
        size_t end = at + 1;
        while (end < old.size() && is_blank(old[end]))
            end++;
        return std::string{old.substr(0, end)};
    }
    std::string start(static_cast<size_t>(s.parser->indent * (level - 1)), ' ');
    if (!s.comment_signs().empty()) start += s.comment_signs()[0];
    return start + ' ';
}

}  // namespace

std::string format_layout(const syntax &s, int level, const cnfnode *node, std::string_view old) {
    std::string_view value = node->value != nullptr ? node->value : "";
    if (node->name == k_empty_name) return {};
    if (node->name != k_comment_name) return std::string{value};
    std::string line = comment_start(s, level, old);
    if (value.empty()) {
        while (is_blank(line.back()))
            line.pop_back();
    }
    return line.append(value);
}

bool accepts_formatting(const syntax &s, int level, const cnfnode *node) {
    if (level < 1 || (level > 1 && !s.nested())) return false;
    if (cnf_fits_line(node->value) == 0) return false;
    if (node->name == k_comment_name && s.comment_signs().empty()) return false;
    std::string line = format_layout(s, level, node, {});
    size_t length = line.size() + 1;
    line += "\n\n";
    piece p{};
    const char *error = nullptr;
    size_t error_at = 0;
    if (!cut_piece(s, line, level - 1, p, error, error_at)) {
        if (errno == ENOMEM) throw std::bad_alloc{};
        return false;
    }
    return p.length == length && reads_as_layout(s, p, node);
}

bool accepts_node(const syntax &s, int level, const cnfnode *parent, const char *name,
                  const char *value) {
    if (level < 1 || level > k_max_depth + 1) return false;  // entries of the innermost section
    if (!s.whole_file()) {
        cnfnode probe{nullptr, const_cast<char *>(name), const_cast<char *>(value), nullptr,
                      nullptr};
        if (parent != nullptr && cnfnode_is_formatting(parent) != 0) return false;
        if (cnfnode_is_formatting(&probe) != 0) return accepts_formatting(s, level, &probe);
        if (s.by_lines() && (cnf_fits_line(name) == 0 || cnf_fits_line(value) == 0)) return false;
    }
    int result = s.parser->accepts(s.data, level, parent, name, value);
    if (result < 0) throw std::bad_alloc{};
    return result != 0;
}

int cnf_fits_line(const char *text) {
    return text == nullptr || std::strpbrk(text, "\r\n") == nullptr ? 1 : 0;
}
