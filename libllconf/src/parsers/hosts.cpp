#include <cstring>
#include <string>
#include <string_view>

#include "char_set.h"
#include "guarded.h"
#include "line_tokens.h"
#include "llconf/nodes.h"
#include "llconf/parser.h"

/* /etc/hosts: an address, its name, its aliases, and a comment from "#" on, wherever that stands.
 */

namespace {

constexpr const char *k_name = "name";
constexpr const char *k_alias = "alias";

const char *comments(const void *) {
    return "#";
}

/* Takes the first word off a line; empty at its end. */
std::string_view take_word(std::string_view &line) {
    const size_t start = k_blank_set.skip(line);
    const size_t end = k_blank_set.find(line, start);
    std::string_view word = line.substr(start, end - start);
    line.remove_prefix(end);
    return word;
}

int read_host(const void *, cnf_reader *reader, int, const char *text, size_t length) {
    std::string_view line{text, length};
    line = line.substr(0, line.find('#'));
    std::string_view word = take_word(line);
    cnfnode *entry = cnf_read_node(reader, nullptr, word.data(), word.size(), nullptr, 0);
    if (entry == nullptr) return -1;
    const char *key = k_name;
    for (word = take_word(line); !word.empty(); word = take_word(line)) {
        if (cnf_read_key(reader, entry, key, word.data(), word.size()) == nullptr) return -1;
        key = k_alias;
    }
    return 1;
}

/* The words of an entry in the order of the file. */
int collect_words(const cnf_format *format, std::vector<std::string_view> &words) {
    const cnfnode *entry = format->node;
    const cnfnode *name = find_node(entry->first_child, k_name);
    words.emplace_back(entry->name);
    if (name != nullptr && name->value != nullptr) words.emplace_back(name->value);
    for (const cnfnode *child = entry->first_child; child != nullptr; child = child->next) {
        if (child->value == nullptr) {
            return cnf_out_refuse(format->out, 1, "a name without a text");
        }
        if (child == name) continue;
        if (std::strcmp(child->name, k_alias) != 0) {
            return cnf_out_refuse(format->out, 0, "there is one name, the others are aliases");
        }
        if (name == nullptr) return cnf_out_refuse(format->out, 0, "an alias needs a name");
        words.emplace_back(child->value);
    }
    return 0;
}

int format_words(const cnf_format *format) {
    std::vector<std::string_view> words;
    if (collect_words(format, words) < 0) return -1;
    line_tokens layout{{format->old, format->old_length}, "#"};
    std::string line;
    for (size_t i = 0; i < words.size(); i++) {
        constexpr std::string_view k_new_gap[] = {"", "\t", " "};
        line += layout.gap(i, k_new_gap[i < 2 ? i : 2]);
        line += words[i];
    }
    if (!layout.tokens.empty()) line += layout.rest;
    return cnf_out_add(format->out, line.data(), line.size());
}

int format_host(const void *, const cnf_format *format) {
    return llconf::guarded([&] { return format_words(format); });
}

bool is_host_word(const char *text) {
    return is_word(text) && std::strchr(text, '#') == nullptr;
}

int accepts_host(const void *, int level, const cnfnode *, const char *name, const char *value) {
    if (level == 1) return is_host_word(name) && (value == nullptr || *value == '\0') ? 1 : 0;
    bool known = std::strcmp(name, k_name) == 0 || std::strcmp(name, k_alias) == 0;
    return level == 2 && known && (value == nullptr || is_host_word(value)) ? 1 : 0;
}

constexpr cnf_parser make_parser() {
    cnf_parser parser{};
    parser.version = CNF_PARSER_VERSION;
    parser.name = "hosts";
    parser.comments = comments;
    parser.read = read_host;
    parser.format = format_host;
    parser.accepts = accepts_host;
    return parser;
}

constexpr cnf_parser k_hosts = make_parser();

}  // namespace

int cnfmodule_register_hosts(void) {
    return cnf_register_parser(&k_hosts);
}
