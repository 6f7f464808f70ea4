#ifndef UCFGD_DAEMON_MEMORY_H
#define UCFGD_DAEMON_MEMORY_H

#ifdef __cplusplus
extern "C" {
#endif

/* Gives memory that was freed back to the system in a while, if it has become much since the last
 * time. For whoever has served a request; costs nothing while one is announced already. */
void memory_give_back_later(void);

#ifdef __cplusplus
}
#endif

#endif
