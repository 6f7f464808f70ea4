#include "ucfgsh/change_input.h"

#include <fstream>
#include <iostream>

#include "ucfgsh/terminal.h"

namespace ucfgsh {

namespace {

constexpr size_t k_value_limit = 4U << 20U;

}  // namespace

std::optional<std::string> read_all(shell &sh, const std::string &name) {
    std::ifstream file;
    if (name != "-") file.open(name, std::ios::binary);
    std::istream &in = name == "-" ? std::cin : file;
    std::string text;
    char c = 0;
    while (text.size() <= k_value_limit && in.get(c))
        text += c;
    if (name != "-" && !file.is_open())
        complain_usage(sh, name + " cannot be read");
    else if (text.size() > k_value_limit)
        complain_usage(sh, name + " is too long");
    else
        return text;
    return std::nullopt;
}

std::optional<std::string> read_lines(shell &sh, const std::string &end) {
    std::string text;
    std::string line;
    while (sh.lines && text.size() < k_value_limit &&
           sh.lines->next(line, "[up to " + end + "] ")) {
        if (line == end) {
            if (!text.empty()) text.pop_back();
            return text;
        }
        text += line + "\n";
    }
    if (g_interrupted == 0) complain_usage(sh, "\"" + end + "\" is missing");
    return std::nullopt;
}

std::optional<entry> find_entry(const shell &sh, const std::vector<word> &typed,
                                std::string &reason) {
    const char *problem = nullptr;
    auto path = resolve_path(sh, typed[0].raw, k_ucfg_parameters, &problem);
    if (!path) {
        reason = typed[0].raw + ": " + (problem ? problem : "not a path");
        return std::nullopt;
    }
    if (typed.size() > 1) return entry{*path, typed[1].text};
    size_t dot = path->rfind('.');
    if (dot == std::string::npos) {
        reason = typed[0].raw + ": the name of an entry is missing";
        return std::nullopt;
    }
    return entry{path->substr(0, dot), take_text(ucfg_unescape(path->c_str() + dot + 1))};
}

std::optional<entry> take_entry(shell &sh, const std::vector<word> &typed) {
    std::string reason;
    auto found = find_entry(sh, typed, reason);
    if (!found) complain_usage(sh, reason);
    return found;
}

}  // namespace ucfgsh
