// The functions file: user functions as entries of a parsed tree.
#include <array>
#include <cerrno>
#include <new>
#include <string>
#include <vector>

#include "fe/functions.h"
#include "fe/parse.h"
#include "internal.h"
#include "llconf/nodes.h"
#include "ucfgd/nearest.h"

namespace fe {

namespace {

// The entry that is being read, while somebody may ask.
const cnfnode *g_reported = nullptr;

// `at` is the function's entry or one of its fields.
void report_function(const cnfnode *at, std::string_view problem) {
    g_reported = at;
    const bool field = at->parent != nullptr && at->parent->parent != nullptr;
    const cnfnode *function = field ? at->parent : at;
    report("function '" + std::string(function->name) + "': " + std::string(problem));
    g_reported = nullptr;
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

bool read_parameters(const cnfnode *field, std::vector<std::string_view> &parameters) {
    std::string_view words = text_of(field->value);
    while (true) {
        while (!words.empty() && is_blank(words[0]))
            words.remove_prefix(1);
        if (words.empty()) return true;
        size_t length = 0;
        while (length < words.size() && !is_blank(words[length]))
            ++length;
        std::string_view parameter = words.substr(0, length);
        if (!is_parameter_name(parameter)) {
            report_function(field, "'" + std::string(parameter) + "' is no name of a parameter");
            return false;
        }
        parameters.push_back(parameter);
        words.remove_prefix(length);
    }
}

void report_unknown(const cnfnode *field) {
    constexpr std::array<std::string_view, 2> k_known{"args:", "expr:"};
    std::string problem = "unknown field '" + std::string(text_of(field->name)) + "'";
    const std::string_view near = nearest_word(text_of(field->name), k_known);
    if (!near.empty()) problem += "; did you mean '" + std::string(near) + "'?";
    report_function(field, problem);
}

// Reads the fields of an entry; false when there is something that keeps it from being defined.
bool read_fields(const cnfnode *entry, std::vector<std::string_view> &parameters,
                 std::vector<const cnfnode *> &lines) {
    for (const cnfnode *field = entry->first_child; field != nullptr; field = field->next) {
        std::string_view key = text_of(field->name);
        if (key.starts_with('.')) continue;
        if (key == "args:") {
            if (!read_parameters(field, parameters)) return false;
        } else if (key == "expr:") {
            lines.push_back(field);
        } else {
            report_unknown(field);
        }
    }
    if (lines.empty()) report_function(entry, "no \"expr:\"");
    return !lines.empty();
}

fe_node *parse_lines(const std::vector<const cnfnode *> &lines, fe_def *list) {
    result_list body;
    for (const cnfnode *line : lines) {
        g_reported = line;
        fe_node *expression = parse_fe_expression(line->value, list);
        g_reported = nullptr;
        if (expression == nullptr) {
            report_function(line, errno == ENOMEM ? "out of memory" : fe_error_text());
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
        report_function(entry, "no name of a function");
        return;
    }
    std::vector<std::string_view> parameters;
    std::vector<const cnfnode *> lines;
    if (!read_fields(entry, parameters, lines)) return;
    const bool taken = find_definition(list, name) != nullptr;
    fe_def *fed = append_user_function(list, name, parameters);
    if (fed == nullptr) {
        report_function(entry, "out of memory");
        return;
    }
    fe_node *body = parse_lines(lines, list);
    if (body == nullptr) {
        take_out_of_list(list, fed);
        return;
    }
    set_user_function_body(fed, body);
    g_reported = entry;
    if (taken) report_redefinition(name);
    g_reported = nullptr;
}

}  // namespace

}  // namespace fe

extern "C" const struct cnfnode *fe_reported_entry(void) {
    return fe::g_reported;
}

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
