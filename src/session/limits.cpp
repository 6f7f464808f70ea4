#include "session/limits.h"

#include <libdaemon/daemon.h>
#include <syslog.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "llconf/nodes.h"
#include "ucfgd/owners.h"
#include "ucfgd/uptime.h"

/* To add a limit:
 *
 *  1. a name in limit_id and, in the same place, a row below;
 *  2. where it acts, limit_value and limit_met;
 *  3. its line in docs/security.md and in the manual page of the main configuration.
 */

namespace {

constexpr long k_quiet_seconds = 10;
constexpr size_t k_text_size = 512;
constexpr long k_kib = 1024;
constexpr long k_mib = 1024 * k_kib;
constexpr long k_day = 86400;

struct limit_row {
    limit_id id;
    const char *key;
    long otherwise;
    long minimum;
    long maximum;
    const char *meaning;
};

constexpr limit_row k_rows[] = {
    {k_limit_connections, "connections:", 1000, 1, 100000, "connections at a time"},
    {k_limit_connections_reserved, "connections-reserved:", 8, 0, 1000,
     "places that are kept for each listener"},
    {k_limit_connections_per_user, "connections-per-user:", 750, 1, 100000,
     "connections of one peer user at a time"},
    {k_limit_login_time, "login-time:", 300, 1, k_day, "seconds until a connection must log in"},
    {k_limit_login_refusals, "login-refusals:", 5, 1, 1000,
     "refused log-ins until the connection is closed"},
    {k_limit_login_delay, "login-delay:", 1, 0, 60,
     "seconds that a refused peer's next log-in waits"},
    {k_limit_request_size, "request-size:", 16 * k_mib, 64 * k_kib, 1024 * k_mib,
     "bytes of the lines of one request"},
    {k_limit_suspended_sessions, "suspended-sessions:", 256, 0, 100000,
     "sessions without a connection"},
    {k_limit_suspended_memory, "suspended-memory:", 64 * k_mib, 0, 2047 * k_mib,
     "bytes that sessions without a connection hold"},
    {k_limit_jobs, "jobs:", 64, 1, 10000, "actions that run at a time"},
    {k_limit_jobs_per_user, "jobs-per-user:", 16, 1, 10000,
     "actions of one user that run at a time"},
    {k_limit_commit_time, "commit-time:", 60, 1, k_day, "seconds that a commit may take"},
    {k_limit_command_time, "command-time:", 10, 1, k_day,
     "seconds that a command inside the daemon may take"},
    {k_limit_stop_time, "stop-time:", 10, 0, k_day, "seconds that a stop waits for a commit"},
    {k_limit_farewell_time, "farewell-time:", 10, 0, k_day,
     "seconds that a client may take for what is left when its session has ended"},
    {k_limit_log_queue, "log-queue:", 256 * k_kib, 4 * k_kib, 64 * k_mib,
     "bytes of log lines that wait for a reader"},
    {k_limit_pattern_memory, "pattern-memory:", 8 * k_mib, 64 * k_kib, 256 * k_mib,
     "bytes that one pattern may take"},
};

constexpr bool rows_in_order() {
    for (int i = 0; i < k_limit_count; i++)
        if (k_rows[i].id != i) return false;
    return true;
}
static_assert(std::size(k_rows) == k_limit_count && rows_in_order());

struct limit_state {
    long value;
    unsigned long met;
    unsigned long unsaid; /* met since the last line */
    long last_line;       /* uptime; 0 before the first line */
};

constexpr std::array<limit_state, k_limit_count> initial_states() {
    std::array<limit_state, k_limit_count> states{};
    for (const limit_row &row : k_rows)
        states[row.id] = {row.otherwise, 0, 0, 0};
    return states;
}

constinit std::array<limit_state, k_limit_count> g_states = initial_states();

/* False for a text that is no number with at most one of the letters behind it. */
bool read_amount(const char *text, long &value) {
    static constexpr std::string_view k_letters = "KMG";
    char *end = nullptr;
    errno = 0;
    value = std::strtol(text, &end, 10);
    if (end == text || errno != 0 || value < 0) return false;
    if (*end == '\0') return true;
    size_t power = k_letters.find(*end);
    if (power == std::string_view::npos || end[1] != '\0') return false;
    return !__builtin_mul_overflow(value, 1L << (10 * (power + 1)), &value);
}

bool read_limit(const cnfnode *node) {
    const char *key = cnfnode_getname(node);
    const char *text = cnfnode_getval(node) ? cnfnode_getval(node) : "";
    limit_id id = limit_find(key);
    if (id == k_limit_count) {
        daemon_log(LOG_WARNING, "Warning: limits: there is no limit '%s'", key);
        return false;
    }
    long value = 0;
    if (read_amount(text, value) && limit_set(id, value) == 0) return true;
    const limit_row &row = k_rows[id];
    daemon_log(LOG_WARNING, "Warning: limits: %s '%s' is no number from %ld to %ld; %ld holds", key,
               text, row.minimum, row.maximum, limit_value(id));
    return false;
}

}  // namespace

long limit_value(enum limit_id id) {
    return g_states[id].value;
}

int limit_set(enum limit_id id, long value) {
    if (value < k_rows[id].minimum || value > k_rows[id].maximum) {
        errno = EINVAL;
        return -1;
    }
    g_states[id].value = value;
    return 0;
}

long limit_minimum(enum limit_id id) {
    return k_rows[id].minimum;
}

long limit_maximum(enum limit_id id) {
    return k_rows[id].maximum;
}

const char *limit_key(enum limit_id id) {
    return k_rows[id].key;
}

const char *limit_meaning(enum limit_id id) {
    return k_rows[id].meaning;
}

enum limit_id limit_find(const char *key) {
    for (const limit_row &row : k_rows)
        if (std::string_view{row.key} == key) return row.id;
    return k_limit_count;
}

void limit_met(enum limit_id id, const char *format, ...) {
    errno_guard keep;
    limit_state &state = g_states[id];
    state.met++;
    long now = get_uptime();
    if (state.last_line != 0 && now - state.last_line < k_quiet_seconds) {
        state.unsaid++;
        return;
    }
    char text[k_text_size];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (state.unsaid > 0)
        daemon_log(LOG_WARNING, "Warning: limit %s %ld: %s (and %lu times more before)",
                   k_rows[id].key, state.value, text, state.unsaid);
    else
        daemon_log(LOG_WARNING, "Warning: limit %s %ld: %s", k_rows[id].key, state.value, text);
    state.unsaid = 0;
    state.last_line = now > 0 ? now : 1;
}

void limit_count(enum limit_id id, unsigned long times) {
    g_states[id].met += times;
}

unsigned long limit_met_count(enum limit_id id) {
    return g_states[id].met;
}

int limit_read_amount(const char *text, long *value) {
    if (read_amount(text, *value)) return 0;
    errno = EINVAL;
    return -1;
}

int limit_read(const struct cnfnode *entry) {
    errno_guard keep;
    return cnfnode_is_formatting(entry) || read_limit(entry) ? 0 : -1;
}

void limits_reset(void) {
    for (const limit_row &row : k_rows)
        g_states[row.id].value = row.otherwise;
}
