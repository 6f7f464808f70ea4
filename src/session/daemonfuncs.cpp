/* What the daemon tells about itself, for the methods of the management tree. */

#include "session/daemonfuncs.h"

#include <libdaemon/dlog.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "fe/fe.h"
#include "session/bgexec.h"
#include "session/commit.h"
#include "session/counters.h"
#include "session/evaluate.h"
#include "session/limits.h"
#include "session/session.h"
#include "tree/arguments.h"
#include "tree/kept.h"
#include "ucfgd/owners.h"
#include "ucfgd/uptime.h"

namespace {

fe_node *number_node(unsigned long number) {
    return const_node(std::to_string(number).c_str());
}

std::string_view name_of(limit_id id) {
    std::string_view key = limit_key(id);
    key.remove_suffix(1);
    return key;
}

fe_node *fe_func_limits(fe_context * /*ctx*/, fe_node * /*call*/) try {
    node_list names;
    for (int id = 0; id < k_limit_count; id++)
        names.append(std::string{name_of(static_cast<limit_id>(id))}.c_str());
    return names.release();
} catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return nullptr;
}

/* The functions of one limit, which the argument names; without one of that name the empty text. */
template <fe_node *(*answer)(limit_id)>
fe_node *about_limit(fe_context *ctx, fe_node *call) {
    call_arguments args{ctx, call};
    for (int id = 0; id < k_limit_count; id++)
        if (name_of(static_cast<limit_id>(id)) == args[0]) return answer(static_cast<limit_id>(id));
    return const_node("");
}

fe_node *value_of(limit_id id) {
    return number_node(static_cast<unsigned long>(limit_value(id)));
}

fe_node *met_count_of(limit_id id) {
    return number_node(limit_met_count(id));
}

fe_node *meaning_of(limit_id id) {
    return const_node(limit_meaning(id));
}

template <class record>
unsigned long length_of(const record *list) {
    unsigned long count = 0;
    for (; list; list = list->next)
        count++;
    return count;
}

unsigned long count_sessions() {
    return length_of(g_session_list);
}

unsigned long count_suspended() {
    unsigned long count = 0;
    for (const ccd_session *session = g_session_list; session; session = session->next)
        if (session->left != 0) count++;
    return count;
}

unsigned long count_suspended_memory() {
    unsigned long bytes = 0;
    for (const ccd_session *session = g_session_list; session; session = session->next)
        bytes += session->holds;
    return bytes;
}

unsigned long count_jobs() {
    return length_of(g_bgexec_ctx_list);
}

unsigned long count_kept() {
    return g_kept_counts.hits;
}

unsigned long count_fresh() {
    return g_kept_counts.misses;
}

/* The pages that are in memory, in bytes. */
unsigned long count_memory() {
    const owned<FILE, fclose> file{fopen("/proc/self/statm", "re")};
    unsigned long resident = 0;
    if (!file || fscanf(file.get(), "%*u %lu", &resident) != 1) return 0;
    return resident * static_cast<unsigned long>(sysconf(_SC_PAGESIZE));
}

const time_t g_started = time(nullptr);

struct daemon_count {
    std::string_view name;
    unsigned long (*count)();
};

constexpr daemon_count k_counts[] = {
    {"sessions", count_sessions},
    {"suspended-sessions", count_suspended},
    {"suspended-memory", count_suspended_memory},
    {"jobs", count_jobs},
    {"kept-answers", count_kept},
    {"fresh-answers", count_fresh},
    {"commits", [] { return g_counters.commits; }},
    {"failed-commits", [] { return g_counters.failed_commits; }},
    {"refused-commits", [] { return g_counters.refused_commits; }},
    {"refused-logins", [] { return g_counters.refused_logins; }},
    {"last-commit", [] { return static_cast<unsigned long>(g_counters.last_commit); }},
    {"started", [] { return static_cast<unsigned long>(g_started); }},
    {"memory", count_memory},
};

fe_node *fe_func_daemoncount(fe_context *ctx, fe_node *call) {
    call_arguments args{ctx, call};
    for (const daemon_count &row : k_counts)
        if (row.name == args[0]) return number_node(row.count());
    return const_node("");
}

fe_node *fe_func_commitstatus(fe_context * /*ctx*/, fe_node * /*call*/) try {
    const bgexec_ctx *job = bgexec_running_writer();
    if (!job) return const_node("");
    const std::string user = job->user ? job->user : "";
    return const_node(("user " + user + ", process " + std::to_string(job->pid) + ", " +
                       std::to_string(get_uptime() - job->started) + " seconds")
                          .c_str());
} catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return nullptr;
}

/* Whether a process is still the daemon's child: an action knows the commit as it was when the
 * action began, and its number may be another's by now. */
bool is_child(pid_t pid, pid_t daemon) {
    const owned<FILE, fclose> status{
        fopen(("/proc/" + std::to_string(pid) + "/stat").c_str(), "re")};
    char text[512];
    if (!status || !fgets(text, sizeof(text), status.get())) return false;
    const char *behind_name = strrchr(text, ')');
    char state = 0;
    int parent = 0;
    return behind_name && sscanf(behind_name + 1, " %c %d", &state, &parent) == 2 &&
           parent == daemon;
}

/* The user of the session that the method runs for; the empty text for nobody's. */
const char *user_of(fe_context *ctx) {
    const char *sid = fe_get(ctx, "sid");
    for (const ccd_session *session = g_session_list; sid && session; session = session->next)
        if (session->sessionid && strcmp(session->sessionid, sid) == 0 && session->username)
            return session->username;
    return "";
}

fe_node *fe_func_sessionuser(fe_context *ctx, fe_node * /*call*/) {
    return const_node(user_of(ctx));
}

bool is_daemons(const bgexec_ctx *job) {
    return is_child(job->pid, getppid()) || is_child(job->pid, getpid());
}

/* Nobody ends what another user has begun, whatever its tag. */
fe_node *fe_func_actionend(fe_context *ctx, fe_node *call) try {
    call_arguments args{ctx, call};
    const char *user = user_of(ctx);
    bool ended = false;
    for (const bgexec_ctx *job = g_bgexec_ctx_list; job; job = job->next) {
        if (job->writes || !job->user || strcmp(job->user, user) != 0 || !job->id ||
            strcmp(job->id, args[0]) != 0 || !is_daemons(job))
            continue;
        daemon_log(LOG_NOTICE, "action of user '%s', process %ld, is ended as was asked for", user,
                   static_cast<long>(job->pid));
        ended = kill(-job->pid, SIGKILL) == 0 || ended;
    }
    return truth_node(ended);
} catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return nullptr;
}

/* Called in the child of an action, whose parent is the daemon, or in the daemon itself. */
fe_node *fe_func_commitend(fe_context * /*ctx*/, fe_node * /*call*/) try {
    const bgexec_ctx *job = bgexec_running_writer();
    if (!job || !is_daemons(job)) return truth_node(false);
    daemon_log(LOG_WARNING, "commit of user '%s', process %ld, is ended as was asked for",
               job->user ? job->user : "", static_cast<long>(job->pid));
    return truth_node(kill(-job->pid, SIGKILL) == 0);
} catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return nullptr;
}

std::string g_reload;

fe_node *fe_func_reloadstatus(fe_context * /*ctx*/, fe_node * /*call*/) {
    return const_node(g_reload.c_str());
}

struct native_function {
    const char *name;
    fe_function function;
};

constexpr native_function k_functions[] = {
    {"limits", fe_func_limits},
    {"limitvalue", about_limit<value_of>},
    {"limitmet", about_limit<met_count_of>},
    {"limitmeaning", about_limit<meaning_of>},
    {"daemoncount", fe_func_daemoncount},
    {"commitstatus", fe_func_commitstatus},
    {"commitend", fe_func_commitend},
    {"actionend", fe_func_actionend},
    {"reloadstatus", fe_func_reloadstatus},
    {"sessionuser", fe_func_sessionuser},
    {"evaluate", fe_func_evaluate},
};

}  // namespace

fe_def *fe_register_daemonfuncs(fe_def *list) {
    for (const native_function &function : k_functions)
        list = fe_register_func(list, function.name, function.function, list);
    return list;
}

void daemonfuncs_note_reload(const char *result) {
    g_reload = result;
}
