/* Reading the daemon's own files again.
 *
 *      SIGHUP -> a child runs "ucfgd --check" -> complaints: all stays as it was
 *                                             -> none: wait for commits -> definitions_read_anew
 *
 * The check is a program of its own, so that nothing that is wrong in a file, or slow, reaches the
 * daemon that serves. What has passed is then read a second time, between two requests: nobody
 * holds a node, a type or a function from one request to the next.
 *
 * Sessions live on, with their changes. Only one that has changed what a module holds that is no
 * longer there, or reads something else, is ended: its changes have nowhere to go. */

#include "daemon/reload.h"

#include <libdaemon/daemon.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "auth/session_auth.h"
#include "auth/session_users.h"
#include "daemon/config.h"
#include "daemon/definitions.h"
#include "daemon/dirs.h"
#include "daemon/listen.h"
#include "daemon/loop.h"
#include "daemon/notify.h"
#include "daemon/options.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "llconf/path.h"
#include "session/bgexec.h"
#include "session/daemonfuncs.h"
#include "session/limits.h"
#include "session/login.h"
#include "session/restore.h"
#include "tree/definition.h"
#include "ucfgd/owners.h"

namespace {

constexpr char k_this_program[] = "/proc/self/exe";
constexpr long k_wait_ms = 100;
constexpr int k_most_kept = 65536; /* bytes of complaints */

using owned_buffer = owned<databuf, destroy_databuf>;
using owned_job = owned<bgexec_ctx, destroy_bgexec_ctx>;
using owned_tree = owned<cnfnode, destroy_cnftree>;

enum class reload_step { none, checking, waiting };

std::string g_config_file;
reload_step g_step = reload_step::none;
bool g_again = false;
loop_timer g_timer;

std::string now() {
    const time_t seconds = time(nullptr);
    struct tm local {};
    char text[32];
    localtime_r(&seconds, &local);
    return {text, strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local)};
}

void end_with(int priority, const std::string &result) {
    daemon_log(priority, "reload: %s", result.c_str());
    daemonfuncs_note_reload((now() + ": " + result).c_str());
    notify_ready();
    g_step = reload_step::none;
    if (std::exchange(g_again, false)) reload_begin();
}

/* The lines of the check, logged; the first one and the number of all, for the result. */
std::string log_complaints(const databuf *buffer) {
    std::string_view text{buffer->buf + buffer->start,
                          static_cast<size_t>(databuf_pending(buffer))};
    std::string first;
    size_t count = 0;
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        const std::string line{text.substr(0, end)};
        text.remove_prefix(std::min(end + 1, text.size()));
        if (count++ == 0) first = line;
        daemon_log(LOG_ERR, "reload: %s", line.c_str());
    }
    if (count < 2) return first;
    return first + " (and " + std::to_string(count - 1) + " more)";
}

void end_pipe(bgexec_ctx *job) {
    job->cb_err->state = FD_CALLBACK_FINISHED;
    job->cb_err->data = nullptr;
    job->cb_err = nullptr;
}

int collect(int fd, void *data) {
    auto *job = static_cast<bgexec_ctx *>(data);
    if (!job || !job->cb_err) return 0;
    const int got = databuf_flushin(job->ebuf, fd);
    const int beyond = databuf_pending(job->ebuf) - k_most_kept;
    if (beyond > 0) databuf_remove(job->ebuf, beyond);
    if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) end_pipe(job);
    return 0;
}

/* Whether somebody is in the middle of something that looks at the definitions. */
bool is_busy() {
    for (const bgexec_ctx *job = g_bgexec_ctx_list; job; job = job->next)
        if (job->writes) return true;
    for (const ccd_session *session = g_session_list; session; session = session->next)
        if (session->sanity_list || session->backend_ctx_sub) return true;
    return restore_is_owed() || restore_is_needed();
}

void end_who_edited(const llconf_item *module) {
    for (ccd_session *session = g_session_list; session; session = session->next) {
        if (session->backend_ctx == g_trns_ctx || session->state == k_session_logout) continue;
        if (!llconf_is_edited(session->backend_ctx, module)) continue;
        daemon_log(
            LOG_WARNING,
            "reload: session of user '%s' ended with its changes: module '%s' is not what it "
            "was",
            session->username ? session->username : "", module->name);
        session_terminate_with_reason(session, k_reason_forced);
    }
}

session_user *read_users(const cnfnode *root, const char *section) {
    const cnfnode *node = find_node(root->first_child, section);
    return node ? read_session_users(node) : nullptr;
}

void take_users(const cnfnode *root) {
    destroy_session_user_list(std::exchange(g_users_list, read_users(root, "users")));
    destroy_session_user_list(std::exchange(g_groups_list, read_users(root, "groups")));
}

void tell_what_waits(const cnfnode *before, const cnfnode *after) {
    for (const char *path : {"config/commits:", "config/commits-kept:", "config/commits-size:"}) {
        const char *old = cnf_get_entry(before, path);
        const char *made = cnf_get_entry(after, path);
        if (std::string_view{old ? old : ""} != (made ? made : ""))
            daemon_log(LOG_NOTICE, "reload: %s counts from the next start on", path);
    }
}

void take_up() {
    owned_str name{needed(prefix_ucfgdconffilename(g_config_file.c_str()))};
    const reading_file reading{name.get()};
    owned_tree tree{cnfmodule_parse_file(find_cnfmodule("tavconf"), name.get())};
    if (!tree) {
        end_with(LOG_ERR, std::string{"refused: "} + cnf_error_text());
        return;
    }
    definitions_read_anew(read_config_files(tree.get()), end_who_edited);
    limits_reset();
    g_session_timeout = k_default_session_timeout;
    g_access_override = 0;
    parse_config(tree.get());
    take_users(tree.get());
    tell_what_waits(g_conftree, tree.get());
    listen_take_up(find_node(tree->first_child, "listen"));
    const owned_tree before{std::exchange(g_conftree, tree.release())};
    end_with(LOG_NOTICE, "done");
}

void take_up_when_quiet(void * /*data*/) {
    if (loop_stopping()) return;
    if (is_busy()) {
        loop_set_timer(&g_timer, k_wait_ms, take_up_when_quiet, nullptr);
        return;
    }
    try {
        take_up();
    } catch (const std::bad_alloc &) {
        end_with(LOG_ERR, "failed: out of memory");
    }
}

void checked(bgexec_ctx *job, int status) {
    try {
        const std::string complaints = log_complaints(job->ebuf);
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
            g_step = reload_step::waiting;
            loop_set_timer(&g_timer, 0, take_up_when_quiet, nullptr);
            return;
        }
        end_with(LOG_ERR, "refused: " + (complaints.empty() ? "the check has failed" : complaints));
    } catch (const std::bad_alloc &) {
        end_with(LOG_ERR, "failed: out of memory");
    }
}

owned_job make_job() {
    owned_buffer out{create_databuf()};
    owned_buffer err{create_databuf()};
    if (!out || !err) return nullptr;
    owned_job job{create_bgexec_ctx(nullptr, "", nullptr, out.get(), err.get(), nullptr,
                                    bgcommit_std_out, collect, checked)};
    if (!job) return nullptr;
    (void)out.release();
    (void)err.release();
    return job;
}

std::vector<std::string> command_line() {
    std::vector<std::string> words{"ucfgd", "--check", "-c", g_config_file};
    if (ucfgd_conffilesprefix) words.push_back(std::string{"--root="} + ucfgd_conffilesprefix);
    if (g_filesprefix) words.push_back(std::string{"--prefix="} + g_filesprefix);
    return words;
}

void start_check() {
    std::vector<std::string> words = command_line();
    std::vector<char *> argv;
    argv.reserve(words.size() + 1);
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    owned_job job = make_job();
    errno = ENOMEM;
    const pid_t pid =
        job ? bgexec_file(k_this_program, argv.data(), getuid(), nullptr, job->cb_out, job->cb_err)
            : -1;
    if (pid < 0) {
        end_with(LOG_ERR, std::string{"failed: "} + strerror(errno));
        return;
    }
    bgexec_start(job.release(), pid);
}

}  // namespace

void reload_keep_options(const options &given) {
    g_config_file = given.config_file;
    if (g_config_file.starts_with('/')) return;
    const owned_str directory{getcwd(nullptr, 0)};
    if (directory) g_config_file.insert(0, std::string{directory.get()} + '/');
}

void reload_begin(void) {
    if (loop_stopping()) return;
    if (g_step != reload_step::none) {
        g_again = true;
        return;
    }
    g_step = reload_step::checking;
    notify_reloading();
    daemon_log(LOG_NOTICE, "reload: checking");
    try {
        start_check();
    } catch (const std::bad_alloc &) {
        end_with(LOG_ERR, "failed: out of memory");
    }
}
