#include "format_case.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>

#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "llconf/path.h"

namespace formats {
namespace {

bool take_prefix(std::string &line, const std::string &prefix) {
    if (line.rfind(prefix, 0) != 0) return false;
    line.erase(0, prefix.size());
    return true;
}

void begin_edit(format_case &c, verdict expected, const std::string &operation, int line) {
    edit e;
    e.expected = expected;
    e.operations.push_back(split_words(operation));
    e.line = line;
    c.edits.push_back(e);
}

/* One line of a case; false when it means nothing. */
bool read_line(format_case &c, std::string line, int number) {
    if (take_prefix(line, "|")) {
        c.text += line + "\n";
    } else if (take_prefix(line, ">")) {
        c.tree.push_back(line);
    } else if (take_prefix(line, "parser ")) {
        std::size_t blank = line.find(' ');
        c.parser = line.substr(0, blank);
        c.options = blank == std::string::npos ? "" : line.substr(blank + 1);
    } else if (take_prefix(line, "lines ")) {
        c.crlf = line == "crlf";
        c.unended = line == "unended";
    } else if (take_prefix(line, "edit ")) {
        begin_edit(c, verdict::written, line, number);
    } else if (take_prefix(line, "refuse ")) {
        begin_edit(c, verdict::refused, line, number);
    } else if (take_prefix(line, "unwritable ")) {
        begin_edit(c, verdict::unwritable, line, number);
    } else if (take_prefix(line, "error ")) {
        c.error = line;
    } else if (!c.edits.empty() && take_prefix(line, "then ")) {
        c.edits.back().operations.push_back(split_words(line));
    } else if (!c.edits.empty() && (line[0] == '-' || line[0] == '+')) {
        c.edits.back().diff.push_back(line);
    } else {
        return false;
    }
    return true;
}

void finish(format_case &c) {
    if (c.unended && !c.text.empty()) c.text.pop_back();
    if (!c.crlf) return;
    std::string text;
    for (char ch : c.text) {
        if (ch == '\n') text += '\r';
        text += ch;
    }
    c.text = text;
}

char unescape(char c) {
    switch (c) {
        case 'n':
            return '\n';
        case 'r':
            return '\r';
        case 't':
            return '\t';
        default:
            return c;
    }
}

std::string quoted(const char *text) {
    static const std::map<char, std::string> k_escapes = {
        {'"', "\\\""}, {'\\', "\\\\"}, {'\n', "\\n"}, {'\r', "\\r"}, {'\t', "\\t"}};
    std::string out = "\"";
    for (; *text != '\0'; ++text) {
        auto escape = k_escapes.find(*text);
        if (escape != k_escapes.end()) {
            out += escape->second;
        } else {
            out += *text;
        }
    }
    return out + "\"";
}

void describe_children(const cnfnode *node, std::size_t level, std::vector<std::string> &lines) {
    for (const cnfnode *child = node->first_child; child != nullptr; child = child->next) {
        std::string line(level * 2, ' ');
        line += child->name;
        if (child->value != nullptr) line += " = " + quoted(child->value);
        lines.push_back(line);
        describe_children(child, level + 1, lines);
    }
}

const char *argument(const words &operation, std::size_t i) {
    return i < operation.size() ? operation[i].c_str() : nullptr;
}

bool accepts(const cnfmodule *module, const cnfnode *root, const cnfnode *parent, const char *name,
             const char *value) {
    return cnfmodule_accepts_below(module, root, parent, name, value) == 1;
}

cnfnode *new_node(const words &operation) {
    cnfnode *made = create_cnfnode(argument(operation, 2));
    cnfnode_setval(made, argument(operation, 3));
    return made;
}

}  // namespace

words split_words(const std::string &text) {
    words result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == ' ') continue;
        std::string word;
        bool in_quotes = text[i] == '"';
        i += in_quotes ? 1 : 0;
        for (; i < text.size() && text[i] != (in_quotes ? '"' : ' '); ++i) {
            if (in_quotes && text[i] == '\\' && i + 1 < text.size()) {
                word += unescape(text[++i]);
            } else {
                word += text[i];
            }
        }
        result.push_back(word);
    }
    return result;
}

std::vector<format_case> read_cases(const std::string &path) {
    std::vector<format_case> cases;
    std::ifstream file(path);
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        if (line.empty() || line.rfind("##", 0) == 0) continue;
        if (take_prefix(line, "= ")) {
            cases.emplace_back();
            cases.back().title = line;
            cases.back().source = path + ":" + std::to_string(number);
        } else if (cases.empty() || !read_line(cases.back(), line, number)) {
            format_case bad;
            bad.title = "Line " + std::to_string(number) + " means nothing";
            bad.source = path + ":" + std::to_string(number);
            cases.push_back(bad);
        }
    }
    for (format_case &c : cases)
        finish(c);
    return cases;
}

bool apply(const cnfmodule *module, cnfnode *root, const words &operation, bool *accepted) {
    const std::string &verb = operation.at(0);
    cnfnode *node = cnf_get_node(root, argument(operation, 1));
    const char *text = argument(operation, 2);
    if (node == nullptr) return false;
    cnfnode *parent = node->parent;
    *accepted = true;
    if (verb == "set") {
        *accepted = accepts(module, root, parent, node->name, text);
        cnfnode_setval(node, text);
    } else if (verb == "clear") {
        *accepted = accepts(module, root, parent, node->name, nullptr);
        cnfnode_setval(node, nullptr);
    } else if (verb == "del") {
        destroy_cnftree(node);
    } else if (verb == "rename") {
        *accepted = accepts(module, root, parent, text, node->value);
        cnfnode_setname(node, text);
    } else if (verb == "add") {
        *accepted = accepts(module, root, node, text, argument(operation, 3));
        append_node(node, new_node(operation));
    } else if (verb == "before") {
        *accepted = accepts(module, root, parent, text, argument(operation, 3));
        insert_node_before(node, new_node(operation));
    } else if (verb == "move") {
        return insert_node_before(cnf_get_node(root, text), node) == 0;
    } else if (verb == "last") {
        return append_node(parent, node) == 0;
    } else {
        return false;
    }
    return true;
}

std::vector<std::string> describe(const cnfnode *root) {
    std::vector<std::string> lines;
    describe_children(root, 0, lines);
    return lines;
}

std::vector<std::string> split_lines(const std::string &text) {
    std::vector<std::string> lines;
    for (std::size_t pos = 0; pos < text.size();) {
        std::size_t end = std::min(text.find('\n', pos), text.size());
        lines.push_back(text.substr(pos, end - pos));
        if (!lines.back().empty() && lines.back().back() == '\r') lines.back().pop_back();
        pos = end + 1;
    }
    return lines;
}

std::vector<std::string> difference(const std::string &from, const std::string &to) {
    std::vector<std::string> a = split_lines(from);
    std::vector<std::string> b = split_lines(to);
    std::vector<std::vector<int>> common(a.size() + 1, std::vector<int>(b.size() + 1, 0));
    for (std::size_t i = a.size(); i-- > 0;) {
        for (std::size_t j = b.size(); j-- > 0;) {
            common[i][j] = a[i] == b[j] ? common[i + 1][j + 1] + 1
                                        : std::max(common[i + 1][j], common[i][j + 1]);
        }
    }
    std::vector<std::string> result;
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < a.size() || j < b.size()) {
        if (i < a.size() && j < b.size() && a[i] == b[j]) {
            ++i;
            ++j;
        } else if (i < a.size() && (j == b.size() || common[i + 1][j] >= common[i][j + 1])) {
            result.push_back("-" + a[i++]);
        } else {
            result.push_back("+" + b[j++]);
        }
    }
    return result;
}

}  // namespace formats
