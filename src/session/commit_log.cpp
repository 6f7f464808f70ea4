#include "session/commit_log.h"

#include <libdaemon/dlog.h>
#include <syslog.h>

#include <cerrno>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "archive/archive.h"
#include "archive/file_state.h"
#include "archive/journal.h"
#include "backend/ll_trns.h"
#include "daemon/journal.h"
#include "session/param_changes.h"
#include "tree/param_error.h"
#include "tree/param_path.h"
#include "ucfgd/owners.h"

int g_log_changes = 0;

namespace {

/* What may be asked for and read before a commit that is only logged: a tenth of a second. */
constexpr long k_most_values = 5'000;
constexpr size_t k_most_bytes = 512 << 10;

constexpr size_t k_session_mark_length = 12;

/* One side of a line "- PATH: VALUE", or of a parameter's change. */
struct side {
    bool stands = false;
    bool told = false; /* its value */
    std::string_view value;
};

struct change {
    std::string_view path;
    side before;
    side after;
};

std::string g_changes;
bool g_complete = false;

bool is_word_for_secret(std::string_view word) {
    return word == "password" || word == "secret" || word == "hidden";
}

bool is_secret(const ccd_session *session, const std::string &path) {
    const owned<param_attr, destroy_param_attr> attr{
        ccd_param_attr(g_ccdtree, session->backend_ctx, path.c_str())};
    if (!attr) return true;
    for (const line *flag = attr->flags; flag; flag = flag->next)
        if (is_word_for_secret(flag->line)) return true;
    return attr->type_name && is_word_for_secret(attr->type_name);
}

std::vector<change> changes_in(std::string_view text) {
    std::vector<change> all;
    while (!text.empty()) {
        const size_t end = text.find('\n');
        const std::string_view entry = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (entry.size() < 3) continue;
        const size_t colon = entry.find(": ");
        const std::string_view path =
            entry.substr(2, colon == std::string_view::npos ? colon : colon - 2);
        const side one{
            true, colon != std::string_view::npos,
            colon == std::string_view::npos ? std::string_view{} : entry.substr(colon + 2)};
        const bool is_before = entry[0] == '-';
        if (is_before || all.empty() || all.back().path != path || all.back().after.stands)
            all.push_back({path, {}, {}});
        (is_before ? all.back().before : all.back().after) = one;
    }
    return all;
}

std::string in_words(const change &one, bool secret) {
    if (!one.before.stands && !one.after.told) return "added";
    if (!one.after.stands && !one.before.told) return "removed";
    if (secret || (one.before.stands && !one.before.told)) return "changed";
    const std::string before{one.before.value};
    const std::string after{one.after.value};
    if (!one.before.stands) return "set to '" + after + "'";
    if (!one.after.stands) return "no longer '" + before + "'";
    return "'" + before + "' -> '" + after + "'";
}

}  // namespace

void commit_log_look(ccd_session *session) {
    g_changes.clear();
    g_complete = false;
    if (!g_log_changes || llconf_files_size() > k_most_bytes) return;
    const errno_guard keep;
    const auto ways = std::exchange(daemon_log_use, {}); /* what is only looked at is not logged */
    try {
        g_complete =
            param_changes(session, g_trns_ctx, session->backend_ctx, k_most_values, g_changes);
    } catch (const std::bad_alloc &) {
        g_changes.clear();
    }
    daemon_log_use = ways;
    ccd_clear_error();
}

void commit_log_tell(const ccd_session *session) try {
    if (!g_log_changes) return;
    const errno_guard keep;
    const std::string user = session->username ? session->username : "";
    const std::string mark =
        digest_of(session->sessionid ? session->sessionid : "").substr(0, k_session_mark_length);
    const long number = archive_is_on() ? commit_author().number : 0;
    const std::string name = number > 0 ? "commit " + std::to_string(number) : "commit";
    std::vector<log_field> fields{{"UCFGD_USER", user}, {"UCFGD_SESSION", mark}};
    if (number > 0) fields.push_back({"UCFGD_COMMIT", std::to_string(number)});
    const std::string by = name + " of user '" + user + "', session " + mark + ": ";
    const std::vector<change> all = changes_in(g_complete ? g_changes : std::string_view{});
    log_with_fields(LOG_NOTICE,
                    by + (g_complete ? std::to_string(all.size()) + " parameters changed"
                                     : "too much to tell which parameters changed"),
                    fields);
    for (const change &one : all) {
        const std::string path{one.path};
        std::vector<log_field> own = fields;
        own.push_back({"UCFGD_PARAMETER", path});
        log_with_fields(LOG_NOTICE, by + path + ": " + in_words(one, is_secret(session, path)),
                        own);
    }
} catch (const std::bad_alloc &) {
    daemon_log(LOG_ERR, "out of memory: what the commit has changed is not in the log");
}
