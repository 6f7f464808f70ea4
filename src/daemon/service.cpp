#include "daemon/service.h"

#include <errno.h>
#include <libdaemon/daemon.h>
#include <signal.h>
#include <sys/stat.h>
#include <syslog.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "auth/session_auth.h"
#include "auth/session_users.h"
#include "backend/discarded.h"
#include "daemon/dirs.h"
#include "daemon/listen.h"
#include "daemon/log.h"
#include "daemon/loop.h"
#include "daemon/notify.h"
#include "daemon/signals.h"
#include "daemon/startup.h"
#include "daemon/stop.h"
#include "fe/functions.h"
#include "llconf/nodes.h"
#include "session/login_gate.h"
#include "session/restore.h"
#include "session/session.h"
#include "tree/ccdtree.h"
#include "tree/trns.h"
#include "ucfgd/owners.h"

namespace {

constexpr int k_verdict_wait_seconds = 20;
constexpr int k_no_verdict_status = 255;

/* What the child tells its parent. */
enum verdict { k_started = 0, k_no_pid_file = 1, k_no_signals = 2 };

/* What the daemon creates may be read by others unless its mode says otherwise, whoever starts it;
 * libdaemon would take all rights from them. */
constexpr mode_t k_background_umask = 022;

bool g_pid_file_made = false;

bool is_utf8(const char *locale) {
    return locale && strstr(locale, "UTF-8");
}

verdict take_over() {
    if (daemon_pid_file_create() < 0) {
        daemon_log(LOG_ERR, "could not create PID file (%s).", strerror(errno));
        return k_no_pid_file;
    }
    g_pid_file_made = true;
    if (signals_install() < 0) {
        daemon_log(LOG_ERR, "could not register signal handlers (%s).", strerror(errno));
        return k_no_signals;
    }
    return k_started;
}

void serve() {
    daemon_log(LOG_INFO, "sucessfully started");
    do_loop(g_conftree);
}

int wait_for_verdict() {
    int value = daemon_retval_wait(k_verdict_wait_seconds);
    if (value < 0) {
        daemon_log(LOG_ERR, "could not receive return value from daemon process.");
        return k_no_verdict_status;
    }
    daemon_log(value == 0 ? LOG_INFO : LOG_ERR, "daemon returned %i as return value.", value);
    return value;
}

void sweep() {
    session_sweep();
    discard_go_on();
    stop_go_on();
}

session_user *read_users(const cnfnode *root, const char *section) {
    const cnfnode *node = find_node(root->first_child, section);
    return node ? read_session_users(node) : nullptr;
}

/* The loop has freed the registrations, and private contexts must go before the root's. */
void destroy_sessions() {
    for (ccd_session *session : removal_safe(std::exchange(g_session_list, nullptr))) {
        session->fdcb_in = nullptr;
        session->fdcb_out = nullptr;
        destroy_session(session);
    }
}

}  // namespace

void choose_locale(void) {
    setlocale(LC_ALL, "");
    const char *name = setlocale(LC_ALL, nullptr);
    for (const char *otherwise : {"en_US.UTF-8", "C.UTF-8"}) {
        if (is_utf8(name)) break;
        setlocale(LC_ALL, otherwise);
        name = setlocale(LC_ALL, nullptr);
    }
    if (!name) return;
    setenv("LC_ALL", name, 1);
    setenv("LANG", name, 1);
    daemon_log(LOG_INFO, "locale before fork is %s", name);
}

int run_in_foreground(void) {
    if (take_over() == k_started) serve();
    shut_down();
    return 0;
}

int run_in_background(void) {
    if (daemon_retval_init() != 0) {
        daemon_log(LOG_ERR, "Error: cannot talk to the daemon process: %s", strerror(errno));
        return 1;
    }
    pid_t pid = daemon_fork();
    if (pid < 0) {
        daemon_retval_done();
        return 1;
    }
    if (pid > 0) return wait_for_verdict();
    umask(k_background_umask);
    verdict result = take_over();
    daemon_retval_send(result);
    if (result == k_started) serve();
    shut_down();
    return 0;
}

void do_loop(const cnfnode *root) {
    printf("setting up daemon environment... ");
    g_users_list = read_users(root, "users");
    g_groups_list = read_users(root, "groups");
    if (const cnfnode *section = find_node(root->first_child, "listen"))
        listen_setup(section);
    else
        daemon_log(LOG_WARNING,
                   "Warning: the configuration has no listen section: nobody can connect, and "
                   "signals are not acted on");
    printf("done.\n");
    fflush(stdout);
    signal(SIGPIPE, SIG_IGN);
    loop_set_hooks(sweep, listen_resume);
    restore_begin();
    notify_ready();
    loop_set_before_wait(log_flush);
    log_gather(1);
    loop(0);
    log_gather(0);
}

void shut_down(void) {
    login_gate_finish();
    destroy_sessions();
    trns_destroy_ctx(std::exchange(g_trns_ctx, nullptr));
    destroy_cnftree(std::exchange(g_conftree, nullptr));
    destroy_ccdtree(std::exchange(g_ccdtree, nullptr));
    destroy_ccdtree(std::exchange(g_mgmttree, nullptr));
    destroy_ccd_type_list(std::exchange(g_types, nullptr));
    destroy_session_user_list(std::exchange(g_users_list, nullptr));
    destroy_session_user_list(std::exchange(g_groups_list, nullptr));
    destroy_felib_base(std::exchange(g_fel_base, nullptr));
    daemon_log(LOG_INFO, "exiting...");
    daemon_signal_done();
    leave_pid_file();
    std::free(std::exchange(ucfgd_conffilesprefix, nullptr));
    std::free(std::exchange(g_filesprefix, nullptr));
}

void leave_pid_file(void) {
    if (std::exchange(g_pid_file_made, false)) daemon_pid_file_remove();
}
