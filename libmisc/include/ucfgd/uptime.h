#ifndef UCFGD_UPTIME_H
#define UCFGD_UPTIME_H

#ifdef __cplusplus
extern "C" {
#endif

/* The clock of sessions and of written files: whole seconds since the system started, so that
 * nothing moves with the wall clock. A started second counts as a whole one, as in sysinfo. */
long get_uptime(void);

/* Where get_uptime asks. A test that moves the time points it at a function of its own; null is the
 * system's clock again. */
extern long (*g_uptime_source)(void);

#ifdef __cplusplus
}
#endif

#endif
