#include "daemon/signals.h"

#include <libdaemon/daemon.h>
#include <signal.h>
#include <syslog.h>

#include "daemon/reload.h"
#include "daemon/stop.h"
#include "daemon/trace.h"
#include "session/session.h"

namespace {

void trace_everything() {
    g_debug_level = 5;
}

void trace_nothing() {
    g_debug_level = 0;
}

void reap() {
    session_wait_bg();
}

struct signal_action {
    int number;
    void (*act)();
};

constexpr signal_action k_actions[] = {
    {SIGINT, stop_begin},        {SIGQUIT, stop_begin},    {SIGTERM, stop_begin},
    {SIGUSR1, trace_everything}, {SIGUSR2, trace_nothing}, {SIGCHLD, reap},
    {SIGHUP, reload_begin},
};

}  // namespace

int signals_install(void) {
    for (int number = 1; number < NSIG; ++number)
        signal(number, number == SIGPIPE ? SIG_IGN : SIG_DFL);
    return daemon_signal_init(SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGUSR2, SIGCHLD, SIGHUP, 0);
}

void signals_reset(void) {
    signal(SIGPIPE, SIG_DFL);
    for (const signal_action &action : k_actions)
        signal(action.number, SIG_DFL);
}

int signal_callback(int /*fd*/, void * /*data*/) {
    for (int number = daemon_signal_next(); number > 0; number = daemon_signal_next()) {
        daemon_log(LOG_INFO, "received signal %d", number);
        for (const signal_action &action : k_actions)
            if (action.number == number) action.act();
    }
    return 0;
}
