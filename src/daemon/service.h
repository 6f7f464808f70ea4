#ifndef UCFGD_DAEMON_SERVICE_H
#define UCFGD_DAEMON_SERVICE_H

/* The daemon from the moment everything is built: its process, its loop, its end. */

#ifdef __cplusplus
extern "C" {
#endif

struct cnfnode;

/* Takes the locale from the environment, or the first UTF-8 one that the machine has, so that
 * lengths count characters; programs that the daemon starts inherit it. */
void choose_locale(void);

/* Run the loop and shut down; return the exit status. In the background that happens in a child,
 * and the parent's status is the child's verdict on its start. */
int run_in_foreground(void);
int run_in_background(void);

/* Reads users and groups, opens the listeners and runs the event loop until it ends. */
void do_loop(const struct cnfnode *root);

/* Releases everything that start-up made, the sessions before the contexts that they share, and
 * removes the PID file. */
void shut_down(void);

/* Removes the PID file only, for an end in the middle of the start. */
void leave_pid_file(void);

#ifdef __cplusplus
}
#endif

#endif
