#include "ucfgsh/about.h"

#include <algorithm>
#include <cstring>

#include "ucfgsh/words.h"

namespace ucfgsh {

namespace {

constexpr const char *k_help_node = "daemon.help";
constexpr const char *k_arguments_node = "daemon.arguments";
constexpr const char *k_type_node = "daemon.type";

std::string ask(session &link, const char *node, const std::string &about) {
    char *text = nullptr;
    const char *argument = about.c_str();
    link.quietly([&](ucfg_conn *conn) { return ucfg_info(conn, node, &argument, 1, &text); });
    return take_text(text);
}

}  // namespace

std::string help_of(session &link, ucfg_tree tree, const std::string &path) {
    if (tree == k_ucfg_management) return ask(link, k_help_node, path);
    char *text = nullptr;
    link.quietly([&](ucfg_conn *conn) { return ucfg_help(conn, path.c_str(), &text); });
    return take_text(text);
}

std::string arguments_of(session &link, const std::string &path) {
    return ask(link, k_arguments_node, path);
}

std::string describe_type(session &link, const std::string &name) {
    return ask(link, k_type_node, name);
}

std::string list_choices(const std::vector<std::string> &choices) {
    std::string text = "choices:";
    for (size_t i = 0; i < std::min(choices.size(), k_many_choices); i++)
        text += " " + quote_word(choices[i]);
    if (choices.size() <= k_many_choices) return text;
    return text + " and " + std::to_string(choices.size() - k_many_choices) + " more";
}

std::string usage_of(session &link, const ucfg_attr &attr, const std::string &path) {
    std::string typed = print_path(path);
    std::string arguments = arguments_of(link, path);
    if (!arguments.empty()) typed += " " + arguments;
    std::string text;
    if (strchr(attr.ops, 'I')) text += "info " + typed + "\n";
    if (strchr(attr.ops, 'A')) text += "admin " + typed + "\n";
    return text;
}

}  // namespace ucfgsh
