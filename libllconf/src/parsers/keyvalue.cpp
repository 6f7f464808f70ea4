#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "char_set.h"
#include "guarded.h"
#include "line_tokens.h"
#include "llconf/nodes.h"
#include "llconf/parser.h"

/* A key and the rest of its line, as in resolv.conf, sshd_config and sysctl.conf. The rest is the
 * value of the node, or is cut into columns, which are its children. */

namespace {

struct keyvalue_data {
    std::string separator; /* empty: a run of blanks */
    std::string comment;
    std::vector<const char *> columns;
    std::vector<std::string> only;     /* keys that have columns; empty: all */
    bool nocase = false;               /* keys are named in lower case */
    bool kernel_names = false;         /* keys are parameters of the kernel, by their own names */
    bool trailing = false;             /* a comment may stand behind the rest */
    bool bare = false;                 /* a new key without a value stands alone */
    bool equals = false;               /* a "=" may stand in place of blanks, or among them */
    bool quoted = false;               /* quotes around a key or all of a value are no part of it */
    std::vector<std::string> spelling; /* how new keys are written */

    bool cuts(std::string_view key) const {
        return !columns.empty() &&
               (only.empty() || std::find(only.begin(), only.end(), key) != only.end());
    }
};

/* A line in its parts; key and rest are empty where there is none. */
struct key_line {
    std::string_view lead;
    std::string_view key;
    std::string_view gap; /* blanks and separator */
    std::string_view rest;
    std::string_view tail; /* blanks and a comment behind the rest */
};

constexpr std::string_view k_blanks = " \t";

const keyvalue_data &options_of(const void *data) {
    return *static_cast<const keyvalue_data *>(data);
}

std::string_view without_blanks_behind(std::string_view text) {
    return text.substr(0, text.find_last_not_of(k_blanks) + 1);
}

/* The kernel's own name of a parameter has points between its parts and "/" for a point inside one.
 * Files may have it the other way round; which way it is, the first of the two tells. A "-" in
 * front says that errors do not matter. */
std::string kernel_name(std::string_view key, bool alone) {
    std::string_view sign = key.substr(0, key.starts_with('-') ? 1 : 0);
    std::string name{key.substr(sign.size())};
    size_t first = name.find_first_of("./");
    if (first != std::string::npos && name[first] == '/') {
        for (char &c : name)
            c = c == '/' ? '.' : c == '.' ? '/' : c;
    }
    /* A name alone with a "-" sets nothing: it keeps patterns away from that parameter. */
    return alone ? std::string{sign} + name : name;
}

/* What the node of a key is called. alone: nothing parts it from a rest. */
std::string name_of(const keyvalue_data &options, std::string_view key, bool alone) {
    if (options.kernel_names) return kernel_name(key, alone);
    const bool quoted = options.quoted && key.size() > 2 && key[0] == '"' && key.ends_with('"');
    std::string name{quoted ? key.substr(1, key.size() - 2) : key};
    if (options.nocase) {
        for (char &c : name)
            c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return name;
}

/* Where the comment behind a text begins: at a sign behind a blank, or at the very start; not
 * between double quotes. */
size_t comment_at(const keyvalue_data &options, std::string_view text) {
    bool quoted = false;
    for (size_t at = 0; options.trailing && at < text.size(); at++) {
        if (text[at] == '"') quoted = !quoted;
        bool starts = at == 0 || k_blanks.find(text[at - 1]) != std::string_view::npos;
        if (starts && !quoted && options.comment.find(text[at]) != std::string::npos) return at;
    }
    return text.size();
}

/* Where the key at the start of body ends, and its rest begins; both npos where it stands alone. */
std::pair<size_t, size_t> ends_of_key(const keyvalue_data &options, std::string_view body) {
    if (!options.separator.empty()) {
        const size_t end = body.find(options.separator);
        if (end == std::string_view::npos) return {end, end};
        return {end, body.find_first_not_of(k_blanks, end + options.separator.size())};
    }
    constexpr char_set k_ends_key = k_blank_set.with("=");
    const size_t end = (options.equals ? k_ends_key : k_blank_set).find(body);
    size_t rest = k_blank_set.skip(body, end);
    if (options.equals && rest < body.size() && body[rest] == '=')
        rest = k_blank_set.skip(body, rest + 1);
    constexpr size_t k_none = std::string_view::npos;
    return {end < body.size() ? end : k_none, rest < body.size() ? rest : k_none};
}

/* A value that is one text in quotes, with nothing in it that quotes would have to be told from. */
bool is_quoted(const keyvalue_data &options, std::string_view value) {
    if (!options.quoted || value.size() < 2 || value.front() != value.back()) return false;
    if (value.front() != '"' && value.front() != '\'') return false;
    return value.substr(1, value.size() - 2).find_first_of("\"'\\") == std::string_view::npos;
}

std::string_view unquoted(const keyvalue_data &options, std::string_view value) {
    return is_quoted(options, value) ? value.substr(1, value.size() - 2) : value;
}

/* A value in place of the old one: within the quotes that this had, unless they would change it. */
std::string with_quotes_of(const keyvalue_data &options, std::string_view old, std::string value) {
    if (!is_quoted(options, old)) return value;
    if (unquoted(options, old) == value) return std::string{old};
    std::string quoted = old.front() + value + old.front();
    return is_quoted(options, quoted) ? quoted : value;
}

/* Cuts a line; false when it has no key. */
bool cut_line(const keyvalue_data &options, std::string_view line, key_line &parts) {
    line = without_blanks_behind(line);
    size_t start = line.find_first_not_of(k_blanks);
    if (start == std::string_view::npos) return false;
    std::string_view body = line.substr(start);
    std::string_view whole = body;
    body = without_blanks_behind(body.substr(0, comment_at(options, body)));
    auto [key_end, rest] = ends_of_key(options, body);
    std::string_view key = without_blanks_behind(body.substr(0, key_end));
    rest = std::min(rest, body.size());
    parts = {line.substr(0, start), key, body.substr(key.size(), rest - key.size()),
             body.substr(rest), whole.substr(body.size())};
    bool alone = key_end == std::string_view::npos;
    return !key.empty() && !(alone && key.find_first_of(k_blanks) != std::string_view::npos);
}

bool split_names(const char *list, std::vector<std::string> &names) {
    for (std::string_view rest = list;;) {
        size_t slash = rest.find('/');
        names.emplace_back(rest.substr(0, slash));
        if (names.back().empty()) return false;
        if (slash == std::string_view::npos) return true;
        rest.remove_prefix(slash + 1);
    }
}

bool read_columns(const char *list, std::vector<const char *> &columns) {
    std::vector<std::string> names;
    if (!split_names(list, names)) return false;
    for (const std::string &name : names) {
        const char *kept = cnf_intern(name.c_str());
        if (kept == nullptr) throw std::bad_alloc{};
        /* Columns of one name could not be told apart. */
        if (std::find(columns.begin(), columns.end(), kept) != columns.end()) return false;
        columns.push_back(kept);
    }
    return true;
}

bool read_options(const cnfnode *options, keyvalue_data &data) {
    data.comment = cnf_option(options, "comment", "#");
    data.separator = cnf_option(options, "separator", "");
    if (data.separator == "blank" ||
        data.separator.find_first_not_of(k_blanks) == std::string::npos) {
        data.separator.clear();
    }
    const cnfnode *first = options != nullptr ? options->first_child : nullptr;
    data.nocase = find_node(first, "nocase") != nullptr;
    data.kernel_names = find_node(first, "kernel-names") != nullptr;
    data.trailing = find_node(first, "trailing") != nullptr;
    data.bare = find_node(first, "bare") != nullptr;
    data.equals = find_node(first, "equals") != nullptr;
    data.quoted = find_node(first, "quoted") != nullptr;
    const char *spelling = cnf_option(options, "spelling", nullptr);
    if (spelling != nullptr && !split_names(spelling, data.spelling)) return false;
    const char *columns = cnf_option(options, "columns", nullptr);
    const char *only = cnf_option(options, "only", nullptr);
    if (columns != nullptr && !read_columns(columns, data.columns)) return false;
    if (only == nullptr) return true;
    return columns != nullptr && split_names(only, data.only);
}

int prepare(const cnfnode *options, void **data) {
    return llconf::guarded([&] {
        auto made = std::make_unique<keyvalue_data>();
        if (!read_options(options, *made)) {
            errno = EINVAL;
            return -1;
        }
        *data = made.release();
        return 0;
    });
}

void release(void *data) {
    delete static_cast<keyvalue_data *>(data);
}

const char *comments(const void *data) {
    return options_of(data).comment.c_str();
}

int read_line(const void *data, cnf_reader *reader, int, const char *text, size_t length) {
    const keyvalue_data &options = options_of(data);
    key_line line;
    if (!cut_line(options, {text, length}, line)) return 0;
    return llconf::guarded([&] {
        std::string name = name_of(options, line.key, line.gap.empty());
        bool cuts = options.cuts(name);
        std::string_view value = unquoted(options, line.rest);
        cnfnode *entry = cnf_read_node(reader, nullptr, name.data(), name.size(),
                                       cuts ? nullptr : value.data(), value.size());
        if (entry == nullptr) return -1;
        if (!cuts) return 1;
        line_tokens columns{line.rest, "", options.columns.size()};
        for (size_t i = 0; i < columns.tokens.size(); i++) {
            std::string_view word = columns.tokens[i].word;
            if (cnf_read_key(reader, entry, options.columns[i], word.data(), word.size()) ==
                nullptr) {
                return -1;
            }
        }
        return 1;
    });
}

/* The columns as text, with the blanks that they had. */
int join_columns(const keyvalue_data &options, const cnf_format *format, std::string_view old,
                 std::string &text) {
    line_tokens layout{old, "", options.columns.size()};
    bool ended = false;
    for (size_t i = 0; i < options.columns.size(); i++) {
        const cnfnode *column = find_node(format->node->first_child, options.columns[i]);
        if (column == nullptr) {
            ended = true;
            continue;
        }
        bool empty = column->value == nullptr || *column->value == '\0';
        if (empty) return cnf_out_refuse(format->out, 1, "a column needs a value");
        if (ended) return cnf_out_refuse(format->out, 0, "a column in front of others is missing");
        if (i > 0) text += layout.gap(i, " ");
        text += column->value;
    }
    return 0;
}

std::string_view spelled(const keyvalue_data &options, const char *name) {
    for (const std::string &spelling : options.spelling)
        if (strcasecmp(spelling.c_str(), name) == 0) return spelling;
    return name;
}

int format_parts(const keyvalue_data &options, const cnf_format *format) {
    const cnfnode *node = format->node;
    key_line old;
    bool had_line = cut_line(options, {format->old, format->old_length}, old);
    if (!had_line) old = {};
    std::string rest;
    if (!options.cuts(node->name)) {
        rest = with_quotes_of(options, old.rest, node->value != nullptr ? node->value : "");
    } else if (join_columns(options, format, old.rest, rest) < 0) {
        return -1;
    }
    std::string line{old.lead};
    bool was_alone = had_line && old.gap.empty();
    bool named = had_line && name_of(options, old.key, was_alone) == node->name;
    line += named ? old.key : spelled(options, node->name);
    std::string_view separator = options.separator;
    if (separator.empty()) separator = " ";
    /* A key that stands alone, and has nothing behind it now either, stays alone. */
    bool wants_none = !had_line && options.bare && node->value == nullptr;
    bool alone = rest.empty() && (options.separator.empty() || was_alone || wants_none);
    if (!alone) line += old.gap.empty() ? separator : old.gap;
    line += rest;
    line += old.tail;
    return cnf_out_add(format->out, line.data(), line.size());
}

int format_line(const void *data, const cnf_format *format) {
    return llconf::guarded([&] { return format_parts(options_of(data), format); });
}

/* Neither empty nor with blanks at its ends. */
bool is_trimmed(std::string_view text) {
    return !text.empty() && k_blanks.find(text.front()) == std::string_view::npos &&
           k_blanks.find(text.back()) == std::string_view::npos;
}

bool accepts_key(const keyvalue_data &options, std::string_view key) {
    if (!is_trimmed(key) || options.comment.find(key[0]) != std::string::npos) return false;
    bool alone = options.kernel_names && key.starts_with('-');
    if (name_of(options, key, alone) != key) return false;
    if (options.equals && key.find('=') != std::string_view::npos) return false;
    if (options.separator.empty()) return is_word(key);
    return key.find(options.separator) == std::string_view::npos;
}

bool accepts_column(const keyvalue_data &options, const cnfnode *parent, const char *name,
                    const char *value) {
    if (!options.cuts(parent->name)) return false;
    for (size_t i = 0; i < options.columns.size(); i++) {
        if (std::strcmp(options.columns[i], name) != 0) continue;
        bool last = i + 1 == options.columns.size();
        return value == nullptr || ((last ? is_trimmed(value) : is_word(value)) &&
                                    comment_at(options, value) == std::strlen(value));
    }
    return false;
}

int accepts_line(const void *data, int level, const cnfnode *parent, const char *name,
                 const char *value) {
    const keyvalue_data &options = options_of(data);
    if (level == 2) return accepts_column(options, parent, name, value) ? 1 : 0;
    if (level != 1 || !accepts_key(options, name)) return 0;
    if (value == nullptr || *value == '\0') return 1;
    bool plain = is_trimmed(value) && comment_at(options, value) == std::strlen(value) &&
                 !is_quoted(options, value) && !(options.equals && *value == '=');
    return !options.cuts(name) && plain ? 1 : 0;
}

constexpr const char *k_options[] = {"separator", "comment", "columns",  "only",
                                     "bare",      "nocase",  "trailing", "kernel-names",
                                     "equals",    "quoted",  "spelling", nullptr};

constexpr cnf_parser make_parser() {
    cnf_parser parser{};
    parser.version = CNF_PARSER_VERSION;
    parser.name = "keyvalue";
    parser.options = k_options;
    parser.prepare = prepare;
    parser.release = release;
    parser.comments = comments;
    parser.read = read_line;
    parser.format = format_line;
    parser.accepts = accepts_line;
    return parser;
}

constexpr cnf_parser k_keyvalue = make_parser();

}  // namespace

int cnfmodule_register_keyvalue(void) {
    return cnf_register_parser(&k_keyvalue);
}
