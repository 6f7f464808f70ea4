#include "ucfgsh/commits.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace ucfgsh {

namespace {

std::string quiet_info(session &link, const std::string &path) {
    char *text = nullptr;
    link.quietly([&](ucfg_conn *conn) { return ucfg_info(conn, path.c_str(), nullptr, 0, &text); });
    owned_str owner{text};
    return owner ? owner.get() : "";
}

}  // namespace

bool is_commit_order(const std::string &path) {
    constexpr std::array k_orders{k_comment_parameter, k_trial_parameter, k_load_parameter,
                                  k_undo_parameter};
    return std::find(k_orders.begin(), k_orders.end(), path) != k_orders.end();
}

bool has_node(session &link, ucfg_tree tree, const char *path) {
    ucfg_attr *attr = nullptr;
    int code = link.quietly([&](ucfg_conn *conn) { return ucfg_attr_of(conn, tree, path, &attr); });
    owned_attr owner{attr};
    return code == k_ucfg_ok;
}

std::vector<std::string> commit_numbers(session &link) {
    ucfg_strings *names = nullptr;
    link.quietly([&](ucfg_conn *conn) {
        return ucfg_list(conn, k_ucfg_management, k_history_node, &names);
    });
    owned_strings owner{names};
    return to_vector(names);
}

bool output_goes_on(std::string_view text) {
    return text.ends_with('%');
}

std::string plain_output(std::string_view text) {
    if (output_goes_on(text)) text.remove_suffix(1);
    std::string plain;
    for (size_t i = 0; i < text.size(); i++) {
        int byte = 0;
        const char *digits = text.data() + i + 1;
        bool coded = text[i] == '%' && i + 2 < text.size() &&
                     std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2;
        plain += coded ? static_cast<char>(byte) : text[i];
        if (coded) i += 2;
    }
    return plain;
}

/* A text that no reply can hold is what the action of its node prints. */
std::string commit_part(session &link, const std::string &number, const char *part) {
    const std::string node = std::string{k_history_node} + "." + number + "." + part;
    char *text = nullptr;
    const int code = link.quietly(
        [&](ucfg_conn *conn) { return ucfg_info(conn, node.c_str(), nullptr, 0, &text); });
    const owned_str owner{text};
    if (code != k_ucfg_too_long) return owner ? owner.get() : "";
    std::string printed;
    const auto take = [](int stream, const char *line, void *data) {
        if (stream != 1) return;
        auto *all = static_cast<std::string *>(data);
        *all += plain_output(line);
        if (!output_goes_on(line)) *all += '\n';
    };
    link.quietly([&](ucfg_conn *conn) {
        return ucfg_admin(conn, node.c_str(), nullptr, 0, take, &printed);
    });
    return printed;
}

std::optional<long> trial_left(session &link) {
    std::string text = quiet_info(link, k_trial_node);
    size_t end = text.rfind(" seconds left");
    if (end == std::string::npos) return std::nullopt;
    size_t start = text.find_last_not_of("0123456789", end - 1) + 1;
    long seconds = 0;
    auto [stop, problem] = std::from_chars(text.data() + start, text.data() + end, seconds);
    if (problem != std::errc{}) return std::nullopt;
    return seconds;
}

std::string print_duration(long seconds) {
    auto two = [](long number) { return (number < 10 ? "0" : "") + std::to_string(number); };
    std::string rest = ":" + two(seconds % 60);
    long minutes = seconds / 60;
    if (minutes < 60) return std::to_string(minutes) + rest;
    return std::to_string(minutes / 60) + ":" + two(minutes % 60) + rest;
}

owned_json json_number(const std::string &number) {
    json_int_t value = 0;
    auto [end, problem] = std::from_chars(number.data(), number.data() + number.size(), value);
    return owned_json{problem == std::errc{} ? json_integer(value) : json_null()};
}

std::vector<std::string> split_lines(const std::string &text) {
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
        size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

}  // namespace ucfgsh
