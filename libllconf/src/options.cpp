#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <set>
#include <string>

#include "engine.h"
#include "ucfgd/owners.h"

/* Option strings: `name` or `name=value`, separated by blanks or commas. */

namespace {

using owned_tree = owned<cnfnode, destroy_cnftree>;

bool is_separator(char c) {
    return is_blank(c) || c == '\n' || c == '\r' || c == ',';
}

bool ends_word(char c) {
    return c == '\0' || is_separator(c);
}

/* The text in the quotes that at stands before; at moves behind the last one. */
bool take_quoted(const char *&at, std::string &value) {
    for (at++; *at != '"'; at++) {
        if (*at == '\\' && (at[1] == '"' || at[1] == '\\')) at++;
        if (*at == '\0') return false;
        value.push_back(*at);
    }
    at++;
    return ends_word(*at);
}

bool take_plain(const char *&at, std::string &value) {
    for (; !ends_word(*at); at++) {
        if (*at == '"') return false;
        value.push_back(*at);
    }
    return true;
}

/* One option, appended to the tree. False with EINVAL or ENOMEM. */
bool take_option(const char *&at, cnfnode *tree) {
    size_t length = std::strcspn(at, " \t\r\n,=\"");
    std::string name{at, length};
    at += length;
    std::string value;
    bool has_value = *at == '=';
    bool valid = length > 0 && *at != '"';
    if (has_value) {
        at++;
        valid = valid && (*at == '"' ? take_quoted(at, value) : take_plain(at, value));
    }
    if (!valid) {
        errno = EINVAL;
        return false;
    }
    owned_tree option{create_cnfnode(name.c_str())};
    if (!option || (has_value && cnfnode_setval(option.get(), value.c_str()) < 0)) return false;
    return append_node(tree, option.release()) == 0;
}

}  // namespace

cnfnode *parse_options(const char *text) {
    try {
        owned_tree tree{create_cnfnode("(root)")};
        if (!tree) return nullptr;
        for (const char *at = text != nullptr ? text : ""; *at != '\0';) {
            if (is_separator(*at)) {
                at++;
            } else if (!take_option(at, tree.get())) {
                return nullptr;
            }
        }
        return tree.release();
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}

const char *cnf_option(const cnfnode *options, const char *name, const char *fallback) {
    const cnfnode *option = options != nullptr ? find_node(options->first_child, name) : nullptr;
    return option != nullptr && option->value != nullptr ? option->value : fallback;
}

const char *cnf_intern(const char *text) {
    static std::set<std::string, std::less<>> *const g_names =
        new std::set<std::string, std::less<>>;
    try {
        return g_names->emplace(text).first->c_str();
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}
