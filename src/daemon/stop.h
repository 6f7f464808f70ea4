#ifndef UCFGD_DAEMON_STOP_H
#define UCFGD_DAEMON_STOP_H

/* The way from a stop signal to the end of the loop.
 *
 * Nothing new starts from then on: listeners and connections are closed, what waits in line is not
 * begun. A commit that runs is waited for, as long as the limit allows, and its client gets its
 * answer; then the loop ends. A second stop signal ends it at once.
 */

#ifdef __cplusplus
extern "C" {
#endif

/* Begins the stop. For a callback of the loop. */
void stop_begin(void);

/* Ends the loop of a stopping daemon when there is nothing to wait for any more. For the sweep. */
void stop_go_on(void);

#ifdef __cplusplus
}
#endif

#endif
