/* Escaping, and the limits of what a request can carry. */
#include <algorithm>

#include "conn.h"
#include "ucfgd/escape.h"

namespace {

owned_str or_throw(char *text) {
    if (!text) throw std::bad_alloc{};
    return owned_str{text};
}

}  // namespace

namespace ucfg {

std::string escape_text(const char *text) {
    return or_throw(escape(text ? text : "")).get();
}

std::string unescape_text(std::string_view text) {
    return or_throw(unescape(std::string{text}.c_str())).get();
}

int check_path(ucfg_conn *conn, const char *path, size_t limit) {
    std::string_view text = path ? path : "";
    if (text.empty()) return fail(conn, k_ucfg_usage, "a path is needed");
    auto plain = [](char c) { return static_cast<unsigned char>(c) > ' '; };
    if (!std::all_of(text.begin(), text.end(), plain))
        return fail(conn, k_ucfg_usage, "the path holds a blank or a control character");
    if (text.size() > limit) return fail(conn, k_ucfg_too_long, "the path is too long");
    /* The daemon would cut a longer component and ignore the rest: another node than meant. */
    while (!text.empty()) {
        size_t dot = std::min(text.find('.'), text.size());
        if (dot > k_component_limit)
            return fail(conn, k_ucfg_too_long, "a component of the path is too long");
        text.remove_prefix(std::min(dot + 1, text.size()));
    }
    return k_ucfg_ok;
}

int append_word(ucfg_conn *conn, std::string &line, const char *word, size_t limit,
                const char *what) {
    std::string text = escape_text(word);
    if (text.empty()) return fail(conn, k_ucfg_usage, std::string{what} + " cannot be empty");
    if (text.size() > limit) return fail(conn, k_ucfg_too_long, std::string{what} + " is too long");
    line += ' ';
    line += text;
    return k_ucfg_ok;
}

int append_words(ucfg_conn *conn, std::string &line, const char *const *args, size_t count,
                 size_t limit) {
    for (size_t i = 0; i < count; i++) {
        int result = append_word(conn, line, args[i], limit, "an argument");
        if (result != k_ucfg_ok) return result;
    }
    if (line.size() + 16 > k_line_limit)
        return fail(conn, k_ucfg_too_long, "the arguments are too long together");
    return k_ucfg_ok;
}

}  // namespace ucfg

char *ucfg_escape(const char *text) {
    return escape(text ? text : "");
}

char *ucfg_unescape(const char *text) {
    return unescape(text ? text : "");
}

void ucfg_free(char *text) {
    free(text);
}
