#include "ucfgsh/secrets.h"

#include <algorithm>
#include <cstring>

namespace ucfgsh {

namespace {

bool is_word_for_secret(const std::string &word) {
    return word == "password" || word == "secret";
}

}  // namespace

bool says_secret(const ucfg_attr &attr) {
    std::vector<std::string> words = to_vector(attr.flags);
    if (attr.type) words.emplace_back(attr.type);
    return std::any_of(words.begin(), words.end(), is_word_for_secret);
}

bool is_secret(session &link, const std::string &path) {
    ucfg_attr *found = nullptr;
    int code = link.quietly([&](ucfg_conn *conn) {
        return ucfg_attr_of(conn, k_ucfg_parameters, path.c_str(), &found);
    });
    owned_attr attr{found};
    if (code != k_ucfg_ok) return true;
    if (says_secret(*attr)) return true;
    if (!strchr(attr->ops, 's')) return false;
    char *verdict = nullptr;
    code = link.quietly([&](ucfg_conn *conn) {
        return ucfg_access(conn, k_ucfg_parameters, path.c_str(), "r", nullptr, 0, &verdict);
    });
    owned_str owner{verdict};
    return code != k_ucfg_ok || std::string_view{verdict} == "0" || !strchr(attr->ops, 'g');
}

bool sets_secret(shell &sh, const std::vector<word> &line) {
    const command *row = line.empty() ? nullptr : find_command(line[0].text);
    if (!row) return false;
    auto secret = [&](const std::string &typed) {
        auto path = resolve_path(sh, typed);
        return path && is_secret(sh.link, *path);
    };
    if (row->name == "set") return line.size() > 2 && secret(line[1].raw);
    if (row->name != "submit") return false;
    return std::any_of(line.begin() + 1, line.end(), [&](const word &item) {
        std::vector<word> words = split_words(item.text).list;
        return words.size() > 2 && words[0].text == "set" && secret(words[1].raw);
    });
}

}  // namespace ucfgsh
