// The functions file: user functions as entries of a parsed tree.
#include <cerrno>
#include <new>
#include <string>
#include <vector>

#include "fe/functions.h"
#include "fe/parse.h"
#include "internal.h"
#include "llconf/nodes.h"

namespace fe {

namespace {

void report_function(std::string_view name, std::string_view problem) {
    report("function '" + std::string(name) + "': " + std::string(problem));
}

std::string_view text_of(const char *text) {
    return text == nullptr ? "" : text;
}

bool is_parameter_name(std::string_view name) {
    if (name == "-") return true;
    for (char c : name) {
        if (!is_word(c)) return false;
    }
    return !name.empty();
}

bool read_parameters(std::string_view name, std::string_view words,
                     std::vector<std::string_view> &parameters) {
    while (true) {
        while (!words.empty() && is_blank(words[0]))
            words.remove_prefix(1);
        if (words.empty()) return true;
        size_t length = 0;
        while (length < words.size() && !is_blank(words[length]))
            ++length;
        std::string_view parameter = words.substr(0, length);
        if (!is_parameter_name(parameter)) {
            report_function(name, "'" + std::string(parameter) + "' is no name of a parameter");
            return false;
        }
        parameters.push_back(parameter);
        words.remove_prefix(length);
    }
}

// Reads the fields of an entry; false when there is something that keeps it from being defined.
bool read_fields(const cnfnode *entry, std::vector<std::string_view> &parameters,
                 std::vector<const char *> &lines) {
    std::string_view name = entry->name;
    for (const cnfnode *field = entry->first_child; field != nullptr; field = field->next) {
        std::string_view key = text_of(field->name);
        if (key.starts_with('.')) continue;
        if (key == "args:") {
            if (!read_parameters(name, text_of(field->value), parameters)) return false;
        } else if (key == "expr:") {
            lines.push_back(field->value);
        } else {
            report_function(name, "unknown field '" + std::string(key) + "'");
        }
    }
    if (lines.empty()) report_function(name, "no \"expr:\"");
    return !lines.empty();
}

fe_node *parse_lines(std::string_view name, const std::vector<const char *> &lines, fe_def *list) {
    result_list body;
    for (const char *line : lines) {
        fe_node *expression = parse_fe_expression(line, list);
        if (expression == nullptr) {
            report_function(name, errno == ENOMEM ? "out of memory" : fe_error_text());
            return nullptr;
        }
        body.append(expression);
    }
    return body.release();
}

void define(const cnfnode *entry, fe_def *&list) {
    std::string_view name = text_of(entry->name);
    if (name.starts_with('.')) return;
    if (!is_function_name(name)) {
        report_function(name, "no name of a function");
        return;
    }
    std::vector<std::string_view> parameters;
    std::vector<const char *> lines;
    if (!read_fields(entry, parameters, lines)) return;
    const bool taken = find_definition(list, name) != nullptr;
    fe_def *fed = append_user_function(list, name, parameters);
    if (fed == nullptr) {
        report_function(name, "out of memory");
        return;
    }
    fe_node *body = parse_lines(name, lines, list);
    if (body == nullptr) {
        take_out_of_list(list, fed);
        return;
    }
    set_user_function_body(fed, body);
    if (taken) report_redefinition(name);
}

}  // namespace

}  // namespace fe

extern "C" fe_def *felib_parse_functions_cn(const struct cnfnode *tree, fe_def *list) {
    using namespace fe;
    if (tree == nullptr) return list;
    for (const cnfnode *entry = tree->first_child; entry != nullptr; entry = entry->next) {
        try {
            define(entry, list);
        } catch (const std::bad_alloc &) {
            report("a function of the functions file is not defined: out of memory");
        }
    }
    return list;
}
