#include "daemon/startup.h"

#include <fcntl.h>
#include <libdaemon/daemon.h>
#include <signal.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "archive/archive.h"
#include "archive/put_back.h"
#include "archive/trials.h"
#include "auth/session_auth.h"
#include "backend/name_checks.h"
#include "backend/whole_commit.h"
#include "daemon/config.h"
#include "daemon/config_check.h"
#include "daemon/definitions.h"
#include "daemon/descriptors.h"
#include "daemon/dirs.h"
#include "daemon/dump.h"
#include "daemon/log.h"
#include "daemon/notify.h"
#include "daemon/options.h"
#include "daemon/pid_file.h"
#include "daemon/reload.h"
#include "daemon/service.h"
#include "daemon/trace.h"
#include "fe/fe.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "session/session.h"
#include "tavevent/tavevent.h"
#include "tree/ccdtree.h"
#include "tree/definition.h"
#include "tree/trns.h"
#include "ucfgd/owners.h"

namespace {

constexpr char k_event_file[] = "/var/log/tavevent.jsonl";
constexpr int k_kill_wait_seconds = 5;

/* The child of a commit may have outlived the daemon that started it. */
constexpr long k_longest_commit_ms = 30'000;

void report_configuration(int priority, const char *text, void * /*data*/) {
    daemon_log(priority, "%s", text);
}

void report_expression(const char *text) {
    if (!fe_reported_entry()) {
        daemon_log(LOG_ERR, "%s", text);
        return;
    }
    const reading_entry here{fe_reported_entry()};
    complain(LOG_ERR, "%s", text);
}

/* A relative prefix would lead elsewhere once the daemon has left its directory. */
char *absolute_prefix(const char *prefix) {
    owned_str directory{prefix[0] == '/' || prefix[0] == '\0' ? nullptr : getcwd(nullptr, 0)};
    if (!directory) return needed(strdup(prefix));
    char *absolute = nullptr;
    if (asprintf(&absolute, "%s/%s", directory.get(), prefix) < 0) throw std::bad_alloc{};
    return absolute;
}

void set_prefixes(const options &given) {
    if (given.root) ucfgd_conffilesprefix = absolute_prefix(given.root);
    if (given.prefix) g_filesprefix = absolute_prefix(given.prefix);
    if (ucfgd_conffilesprefix && !g_filesprefix)
        g_filesprefix = needed(strdup(ucfgd_conffilesprefix));
    if (g_filesprefix)
        setenv("UCFGD_ROOT", g_filesprefix, 1);
    else
        unsetenv("UCFGD_ROOT");
    owned_str event_file{needed(prefix_ucfgdconffilename(k_event_file))};
    tavevent_set_file(event_file.get());
}

bool read_main_configuration(const char *filename) {
    daemon_log(LOG_INFO, "parsing configuration...");
    cnfmodule *tavconf = find_cnfmodule("tavconf");
    if (!tavconf) {
        daemon_log(LOG_ERR, "Unable to find tavconf parser.  Broken libllconf?  Terminating.");
        return false;
    }
    owned_str full{needed(prefix_ucfgdconffilename(filename))};
    const reading_file reading{full.get()};
    g_conftree = cnfmodule_parse_file(tavconf, full.get());
    if (g_conftree) {
        definitions_step_done();
        complain_of_unknown_keys(g_conftree);
        parse_config(g_conftree); /* before the first pattern, whose memory it bounds */
        return true;
    }
    daemon_log(LOG_ERR, "Unable to read configuration from '%s'.  Terminating.", filename);
    daemon_log(LOG_ERR, "%s", cnf_error_text());
    return false;
}

/* Before the modules are read the files of an interrupted commit and of a trial that is over are
 * put back. What needs modules, commands and hooks, comes once the loop runs. */
void open_archive(const config_files &files, bool dumping) {
    if (!files.commits || dumping || g_only_checking) return;
    owned_str directory{needed(prefix_ucfgdconffilename(files.commits))};
    const archive_bounds bounds = read_archive_bounds(g_conftree);
    if (archive_configure(directory.get(), bounds.kept, bounds.size) != 0) return;
    archive_recover(k_longest_commit_ms);
    if (trial_left() == 0) trial_put_back_files(k_longest_commit_ms);
}

/* Everything that lives as long as the daemon. False when it cannot be made. */
bool build(const options &given) {
    bool dumping = given.dump_path != nullptr;
    if (register_all() != 0) {
        daemon_log(LOG_ERR, "Unable to register the parsers: %s.  Terminating.", strerror(errno));
        return false;
    }
    if (!read_main_configuration(given.config_file)) return false;
    config_files files = read_config_files(g_conftree);
    definitions_read_functions(files, dumping);
    open_archive(files, dumping);
    definitions_read_modules(files, dumping);
    definitions_read_trees(files, dumping);
    return true;
}

int kill_running() {
    if (pid_file_owner() >= 0 && daemon_pid_file_kill_wait(SIGINT, k_kill_wait_seconds) >= 0)
        return 0;
    fprintf(stderr, "Failed to kill daemon.\n");
    return 1;
}

/* Whoever starts the daemon with these closed must not find a socket or a file in their place,
 * where messages go. */
void fill_standard_descriptors() {
    int fd = 0;
    do {
        fd = open("/dev/null", O_RDWR);
        if (fd < 0) fd = open("/", O_RDONLY);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd >= 0) close(fd);
}

void set_up_process(const options &given) {
    llconf_set_report(report_configuration, nullptr);
    fe_set_report(report_expression);
    if (given.debug_level) g_debug_level = std::atoi(given.debug_level);
    if ((given.use_syslog || !given.foreground) && !given.check) daemon_log_use = DAEMON_LOG_SYSLOG;
    if (given.protocol_log && !given.check) log_open_protocol(given.protocol_log);
    set_prefixes(given);
    descriptors_raise();
}

/* As at the start, but for what leaves traces: nothing of the machine is changed. */
int check(const options &given) {
    check_begin();
    name_checks_begin();
    const bool built = build(given);
    name_checks_finish();
    owned_str name{needed(prefix_ucfgdconffilename(given.config_file))};
    const reading_file reading{name.get()};
    if (built) config_check_values(g_conftree);
    shut_down();
    return built && check_complaints() == 0 ? 0 : 1;
}

int run(int argc, char **argv) {
    daemon_log_ident = "ucfgd";
    daemon_pid_file_ident = "ucfgd";
    daemon_pid_file_proc = daemon_pid_file_proc_ucfgd;
    options given;
    if (!read_options(argc, argv, given)) return 1;
    if (given.kill) return kill_running();
    const pid_t running = given.check ? -1 : pid_file_owner();
    if (running >= 0) {
        daemon_log(LOG_ERR, "daemon already running on pid file %u",
                   static_cast<unsigned int>(running));
        return 1;
    }
    set_up_process(given);
    reload_keep_options(given);
    if (given.check) return check(given);
    notify_begin();
    if (!build(given)) return 1;
    if (given.dump_path) {
        int result = dump_trees(given.dump_path);
        shut_down();
        return result == 0 ? 0 : 1;
    }
    choose_locale();
    return given.foreground ? run_in_foreground() : run_in_background();
}

}  // namespace

int ucfgd_main(int argc, char **argv) {
    fill_standard_descriptors();
    int status = 1;
    try {
        status = run(argc, argv);
    } catch (const std::bad_alloc &) {
        daemon_log(LOG_ERR, "out of memory.  Terminating.");
        leave_pid_file();
    }
    log_finish();
    return status;
}
