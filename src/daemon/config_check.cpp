#include "daemon/config_check.h"

#include <syslog.h>

#include <cstdlib>
#include <string_view>

#include "auth/session_auth.h"
#include "auth/session_users.h"
#include "daemon/listen.h"
#include "llconf/nodes.h"
#include "session/limits.h"
#include "tree/definition.h"

namespace {

bool is_listener_type(const char *value) {
    return listen_knows_type(value) != 0;
}

bool is_way_to_log_in(const char *value) {
    return session_auth_knows(value) != 0;
}

bool is_rights(const char *value) {
    return std::string_view{value}.find_first_not_of("rwx") == std::string_view::npos;
}

/* Read as C writes numbers: without the 0 in front it would be decimal. */
bool is_mode(const char *value) {
    const std::string_view text{value};
    return text.starts_with('0') && text.size() < 6 &&
           text.find_first_not_of("01234567") == std::string_view::npos;
}

/* A name is for the system to look up. */
bool is_port(const char *value) {
    const std::string_view text{value};
    if (text.find_first_not_of("0123456789") != std::string_view::npos) return !text.empty();
    const long port = std::strtol(value, nullptr, 10);
    return port > 0 && port <= 65535;
}

bool is_number(const char *value) {
    long number = 0;
    return limit_read_amount(value, &number) == 0;
}

/* A key of a section, or of each row of it, and what its value must be. */
struct value_rule {
    std::string_view section;
    bool in_rows;
    std::string_view key;
    bool (*is_good)(const char *value);
    const char *what;
};

constexpr value_rule k_rules[] = {
    {"listen", true, "type:", is_listener_type, "unix, tcp or tcp6"},
    {"listen", true, "authtype:", is_way_to_log_in, "a way to log in"},
    {"listen", true, "mode:", is_mode, "an octal number with a 0 in front"},
    {"listen", true, "port:", is_port, "a port"},
    {"users", true, "access:", is_rights, "made of the letters r, w and x"},
    {"groups", true, "access:", is_rights, "made of the letters r, w and x"},
    {"config", false, "timeout:", is_number, "a number"},
    {"config", false, "access-override:", is_number, "a number"},
    {"config", false, "commits-kept:", is_number, "a number"},
    {"config", false, "commits-size:", is_number, "a number"},
};

void check_keys(const cnfnode *row, const value_rule &rule) {
    for (const cnfnode *entry = row->first_child; entry; entry = entry->next) {
        const char *value = entry->value ? entry->value : "";
        if (rule.key != entry->name || rule.is_good(value)) continue;
        const reading_entry here{entry};
        complain(LOG_WARNING, "Warning: %s '%s' is not %s", entry->name, value, rule.what);
    }
}

void check_rule(const cnfnode *section, const value_rule &rule) {
    if (!rule.in_rows) {
        check_keys(section, rule);
        return;
    }
    for (const cnfnode *row = section->first_child; row; row = row->next)
        check_keys(row, rule);
}

}  // namespace

void config_check_values(const cnfnode *root) {
    for (const value_rule &rule : k_rules)
        for (const cnfnode *section = root->first_child; section; section = section->next)
            if (rule.section == section->name) check_rule(section, rule);
    for (const char *section : {"users", "groups"})
        destroy_session_user_list(read_session_users(find_node(root->first_child, section)));
}
