#ifndef UCFGD_BACKEND_RESTART_H
#define UCFGD_BACKEND_RESTART_H

#ifndef __cplusplus
#    error "restart.h is for the backend's own sources and its tests"
#endif

/* Where the restart pass looks for services and how it runs commands: what the system has, unless a
 * test puts something of its own here. */
extern const char *g_restart_rc_directory;
extern void (*g_restart_run)(const char *command);

/* Runs a command to its end; its failure is logged and changes nothing else. */
void run_restart_command(const char *command);

#endif
