#ifndef UCFGD_DAEMON_STARTUP_H
#define UCFGD_DAEMON_STARTUP_H

/* From the command line to the event loop and back. */

#ifdef __cplusplus
extern "C" {
#endif

struct felib_base;

/* The expression functions; made once, before anything is parsed that calls one. */
extern struct felib_base *g_fel_base;

/* The whole program: returns the exit status. In the background it returns in both processes. */
int ucfgd_main(int argc, char **argv);

/* A new base with every native function family; null (errno ENOMEM) when memory is exhausted. */
struct felib_base *init_felib(void);

#ifdef __cplusplus
}
#endif

#endif
