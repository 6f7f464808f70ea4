#include "daemon/config.h"

#include <libdaemon/dlog.h>
#include <syslog.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <iterator>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "daemon/log.h"
#include "fe/pattern.h"
#include "llconf/nodes.h"
#include "llconf/path.h"
#include "session/commit_log.h"
#include "session/limits.h"
#include "session/session.h"
#include "tree/definition.h"
#include "ucfgd/owners.h"

namespace {

struct file_entry {
    const char *path;
    const char *fallback;
    const char *config_files::*field;
};

constexpr file_entry k_files[] = {
    {"files/param:", "/etc/ucfgd/param.conf", &config_files::param},
    {"files/management:", "/etc/ucfgd/management.conf", &config_files::management},
    {"files/functions:", "/etc/ucfgd/functions.conf", &config_files::functions},
    {"files/features:", nullptr, &config_files::features},
    {"backends/llconf/conffile:", "/etc/ucfgd/modules.conf", &config_files::modules},
    {"files/types:", "/etc/ucfgd/types.conf", &config_files::types},
    {"config/commits:", nullptr, &config_files::commits},
};

constexpr long k_commits_kept = 100;
constexpr int64_t k_commits_size = 64 << 20;

struct number_entry {
    std::string_view name;
    int *variable;
};

constexpr number_entry k_numbers[] = {
    {"timeout:", &g_session_timeout},
    {"access-override:", &g_access_override},
};

/* What memory is missing for must not be taken for something that is not configured. */
const char *entry_of(const cnfnode *root, const char *path) {
    errno = 0;
    const char *value = cnf_get_entry(root, path);
    if (!value && errno == ENOMEM) throw std::bad_alloc{};
    return value;
}

int decimal(const char *text) {
    errno_guard keep;
    long number = std::strtol(text ? text : "", nullptr, 10);
    return static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
}

/* What else the main configuration may hold, by whom it is read. */
constexpr std::string_view k_other_paths[] = {
    "config/timeout:",     "config/access-override:",                         /* k_numbers */
    "config/log-level:",                                                      /* read_log_level */
    "config/log-changes:", "config/commits-kept:",    "config/commits-size:", /* archive */
    "users/*/access:",     "users/*/exec-user:",                              /* session_users */
    "groups/*/access:",    "groups/*/exec-user:",     "groups/*/members:",    /* session_users */
    "listen/*/type:",      "listen/*/path:",          "listen/*/mode:",       /* listen.cpp */
    "listen/*/ip:",        "listen/*/host:",          "listen/*/port:",       /* listen.cpp */
    "listen/*/tls:",       "listen/*/authtype:",                              /* and log-in */
    "authtype:",
};

/* By priority. */
constexpr std::string_view k_levels[] = {"emerg",   "alert",  "crit", "err",
                                         "warning", "notice", "info", "debug"};

void read_log_level(const cnfnode *root) {
    log_set_level(LOG_DEBUG);
    const cnfnode *section = find_node(root->first_child, "config");
    const cnfnode *entry = section ? find_node(section->first_child, "log-level:") : nullptr;
    if (!entry) return;
    const char *value = cnfnode_getval(entry) ? cnfnode_getval(entry) : "";
    const auto *level = std::ranges::find(k_levels, value);
    if (level != std::end(k_levels)) {
        log_set_level(static_cast<int>(level - k_levels));
        return;
    }
    const reading_entry here{entry};
    complain(LOG_WARNING,
             "Warning: log-level: '%s' is not emerg, alert, crit, err, warning, notice, info or "
             "debug; everything is logged",
             value);
}

void read_log_changes(std::string_view value) {
    g_log_changes = value == "yes" && log_takes(LOG_NOTICE) != 0 ? 1 : 0;
    if (value != "yes" && value != "no")
        daemon_log(LOG_WARNING, "Warning: config/log-changes: is 'yes' or 'no'; 'no' is used");
}

}  // namespace

void complain_of_unknown_keys(const cnfnode *root) {
    std::vector<std::string> limits;
    limits.reserve(k_limit_count);
    for (int id = 0; id < k_limit_count; id++)
        limits.push_back(std::string{"limits/"} + limit_key(static_cast<limit_id>(id)));
    std::vector<std::string_view> known{limits.begin(), limits.end()};
    std::ranges::transform(k_files, std::back_inserter(known), &file_entry::path);
    known.insert(known.end(), std::begin(k_other_paths), std::end(k_other_paths));
    complain_of_unknown_paths(root, known);
}

config_files read_config_files(const cnfnode *root) {
    errno_guard keep;
    config_files files{};
    for (const file_entry &entry : k_files) {
        const char *value = entry_of(root, entry.path);
        files.*entry.field = value ? value : entry.fallback;
    }
    return files;
}

archive_bounds read_archive_bounds(const cnfnode *root) {
    errno_guard keep;
    archive_bounds bounds{k_commits_kept, k_commits_size};
    long value = 0;
    const struct {
        const char *path;
        long minimum;
        void (*take)(archive_bounds &bounds, long value);
    } rows[] = {
        {"config/commits-kept:", 1, [](archive_bounds &b, long v) { b.kept = v; }},
        {"config/commits-size:", 0, [](archive_bounds &b, long v) { b.size = v; }},
    };
    for (const auto &row : rows) {
        const char *text = entry_of(root, row.path);
        if (!text) continue;
        if (limit_read_amount(text, &value) == 0 && value >= row.minimum)
            row.take(bounds, value);
        else
            daemon_log(LOG_WARNING, "Warning: %s '%s' is no number from %ld on; the default holds",
                       row.path, text, row.minimum);
    }
    return bounds;
}

void parse_config(const cnfnode *root) {
    const cnfnode *limits = find_node(root->first_child, "limits");
    for (const cnfnode *node = limits ? limits->first_child : nullptr; node; node = node->next) {
        const reading_entry here{node};
        limit_read(node);
    }
    fe_set_pattern_memory(
        static_cast<size_t>(limit_value(k_limit_pattern_memory)), [](const char *pattern) {
            limit_met(k_limit_pattern_memory, "a pattern needs more: %s", pattern);
        });
    read_log_level(root);
    const char *log_changes = entry_of(root, "config/log-changes:");
    read_log_changes(log_changes ? log_changes : "no");
    const cnfnode *section = find_node(root->first_child, "config");
    if (!section) return;
    for (const cnfnode *node = section->first_child; node; node = node->next)
        for (const number_entry &entry : k_numbers)
            if (entry.name == cnfnode_getname(node))
                *entry.variable = decimal(cnfnode_getval(node));
}
