#ifndef UCFGD_DAEMON_TRACE_H
#define UCFGD_DAEMON_TRACE_H

/* Trace lines on standard output, for whoever runs the daemon in the foreground with -d, or turns
 * tracing on with SIGUSR1 and off with SIGUSR2. */

#ifdef __cplusplus
extern "C" {
#endif

/* 0 (nothing) to 5 (everything). */
extern volatile int g_debug_level;

/* Prints when g_debug_level is above level. The format brings its own newline; errno is kept. */
void trace(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

#ifdef __cplusplus
}
#endif

#endif
