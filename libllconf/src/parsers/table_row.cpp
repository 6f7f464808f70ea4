#include "table_row.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "char_set.h"

namespace llconf {
namespace {

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back()))
        text.remove_suffix(1);
    return text;
}

struct field {
    std::string_view gap;  // what stands in front of it
    std::string_view text;
};

struct row {
    std::vector<field> fields;
    std::string_view tail;  // blanks and a comment behind the last field
};

/* Where the fields end: at the line's end, or, where blanks part the fields, at a comment. */
std::size_t fields_end(const row_syntax &syntax, std::string_view line) {
    std::size_t end = line.size();
    if (!syntax.separator.empty()) return end;
    for (std::size_t i = 1; i < line.size(); ++i) {
        if (is_blank(line[i - 1]) && syntax.comment.find(line[i]) != std::string::npos) {
            end = i;
            break;
        }
    }
    while (end > 0 && is_blank(line[end - 1]))
        --end;
    return end;
}

std::size_t field_end(const row_syntax &syntax, std::string_view line, std::size_t pos) {
    if (syntax.separator.empty()) return k_blank_set.find(line, pos);
    return std::min(line.find(syntax.separator, pos), line.size());
}

std::size_t behind_blanks(std::string_view line, std::size_t pos) {
    return k_blank_set.skip(line, pos);
}

/* Lets the next to last column take along the word that belongs to it. */
std::size_t take_word_behind(const row_syntax &syntax, std::string_view line, std::size_t end) {
    std::size_t word = behind_blanks(line, end);
    std::size_t word_end = field_end(syntax, line, word);
    bool taken =
        !syntax.word_behind.empty() && line.substr(word, word_end - word) == syntax.word_behind;
    return taken ? word_end : end;
}

row split(const row_syntax &syntax, std::string_view line) {
    row result;
    std::string_view body = line.substr(0, fields_end(syntax, line));
    result.tail = line.substr(body.size());
    bool blank = syntax.separator.empty();
    std::size_t gap = 0;
    std::size_t pos = blank ? behind_blanks(body, 0) : 0;
    for (std::size_t i = 0; i < syntax.columns.size(); ++i) {
        bool last = i + 1 == syntax.columns.size();
        std::size_t end = last ? body.size() : field_end(syntax, body, pos);
        if (i + 2 == syntax.columns.size()) end = take_word_behind(syntax, body, end);
        result.fields.push_back({body.substr(gap, pos - gap), body.substr(pos, end - pos)});
        if (end == body.size()) break;
        gap = end;
        pos = blank ? behind_blanks(body, end) : end + syntax.separator.size();
    }
    return result;
}

std::size_t column_of(const row_syntax &syntax, std::string_view name) {
    auto found = std::find(syntax.columns.begin(), syntax.columns.end(), name);
    return static_cast<std::size_t>(found - syntax.columns.begin());
}

bool fits(const row_syntax &syntax, std::size_t column, std::string_view text) {
    bool last = column + 1 == syntax.columns.size();
    bool word = column + 2 == syntax.columns.size() && !syntax.word_behind.empty();
    bool starts_comment =
        !trim(text).empty() && syntax.comment.find(trim(text).front()) != std::string::npos;
    if (text.find_first_of("\r\n") != std::string_view::npos) return false;
    if (column == 0 && (starts_comment || trim(text).empty())) return false;
    if (!syntax.separator.empty()) {
        return last || text.find(syntax.separator) == std::string_view::npos;
    }
    if (word && text.ends_with(syntax.word_behind)) {
        std::string_view first = text.substr(0, text.size() - syntax.word_behind.size());
        if (!first.empty() && is_blank(first.back())) text = trim(first);
    }
    if (text.empty() || text != trim(text) || starts_comment) return false;
    if (last) return fields_end(syntax, text) == text.size();
    return text.find_first_of(" \t") == std::string_view::npos;
}

/* Why a node is no row; null when it is one. */
struct row_fault {
    const char *why;
    bool unfinished;
};

/* The texts of a node by column; null for one that is missing. */
row_fault collect(const row_syntax &syntax, const cnfnode *node, std::vector<const char *> &texts) {
    texts.assign(syntax.columns.size(), nullptr);
    texts[syntax.key] = node->name;
    if (node->value != nullptr) return {"a row has columns and no value of its own", false};
    for (const cnfnode *child = node->first_child; child != nullptr; child = child->next) {
        std::size_t column = column_of(syntax, child->name);
        if (column == texts.size() || child->first_child != nullptr) {
            return {"a row has columns only", false};
        }
        if (texts[column] != nullptr) return {"a row has each column once", false};
        texts[column] = child->value != nullptr ? child->value : "";
    }
    while (!texts.empty() && texts.back() == nullptr)
        texts.pop_back();
    for (std::size_t i = 0; i < syntax.required; ++i) {
        if (i >= texts.size() || texts[i] == nullptr) return {"a column is missing", true};
    }
    for (const char *text : texts) {
        if (text == nullptr) return {"a column in front of others is missing", false};
        if (syntax.separator.empty() && *text == '\0') return {"a column needs a value", true};
    }
    return {nullptr, false};
}

}  // namespace

int row_read(const row_syntax &syntax, cnf_reader *reader, std::string_view text) {
    row parts = split(syntax, text);
    if (parts.fields.size() < syntax.required || parts.fields.size() <= syntax.key) return 0;
    std::string_view name = parts.fields[syntax.key].text;
    if (name.empty()) return 0;
    cnfnode *node = cnf_read_node(reader, nullptr, name.data(), name.size(), nullptr, 0);
    if (node == nullptr) return -1;
    for (std::size_t i = 0; i < parts.fields.size(); ++i) {
        std::string_view value = parts.fields[i].text;
        if (i == syntax.key) continue;
        if (cnf_read_key(reader, node, syntax.columns[i], value.data(), value.size()) == nullptr) {
            return -1;
        }
    }
    return 1;
}

int row_format(const row_syntax &syntax, const cnf_format &request) {
    std::vector<const char *> texts;
    row_fault fault = collect(syntax, request.node, texts);
    row old;
    if (request.old != nullptr) old = split(syntax, {request.old, request.old_length});
    std::string line;
    for (std::size_t i = 0; fault.why == nullptr && i < texts.size(); ++i) {
        if (!fits(syntax, i, texts[i])) fault.why = "a column cannot hold its text";
        if (i < old.fields.size()) {
            line += old.fields[i].gap;
        } else if (i > 0) {
            line += syntax.separator.empty() ? " " : syntax.separator;
        }
        line += texts[i];
    }
    if (fault.why != nullptr) return cnf_out_refuse(request.out, fault.unfinished, fault.why);
    line += old.tail;
    return cnf_out_add(request.out, line.data(), line.size());
}

bool row_accepts(const row_syntax &syntax, int level, const cnfnode *parent, std::string_view name,
                 const char *value) {
    if (level == 1) return value == nullptr && !name.empty() && fits(syntax, syntax.key, name);
    std::size_t column = column_of(syntax, name);
    if (level != 2 || parent == nullptr || column == syntax.columns.size()) return false;
    return column != syntax.key && (value == nullptr || fits(syntax, column, value));
}

}  // namespace llconf
