#ifndef UCFGD_DAEMON_DESCRIPTORS_H
#define UCFGD_DAEMON_DESCRIPTORS_H

/* How many descriptors the daemon may have open. Every folder may use this unit, which uses none of
 * them. */

#ifdef __cplusplus
extern "C" {
#endif

/* Descriptors that connections leave to files and to the pipes of child processes. */
enum { k_descriptors_reserved = 32 };

/* Takes as many as the system allows, and more than any limit on connections can use. */
void descriptors_raise(void);

/* As many as the daemon was started with, which is what the programs that it starts get; also
 * between fork or vfork and exec. What is open stays open. */
void descriptors_lower(void);

/* How many there may be now. */
long descriptors_most(void);

#ifdef __cplusplus
}
#endif

#endif
