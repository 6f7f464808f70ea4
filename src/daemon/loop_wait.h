#ifndef UCFGD_DAEMON_LOOP_WAIT_H
#define UCFGD_DAEMON_LOOP_WAIT_H

#ifndef __cplusplus
#    error "loop_wait.h is for C++ sources"
#endif

#include <cstdint>

#include "daemon/loop.h"

/* What the loop waits with: the kernel's list of watched descriptors (epoll), and one descriptor
 * for the time of the next timer. Of several records for one descriptor the kernel sees the sum.
 * For the loop alone. */

/* Begins to wait: nothing is watched yet. False with errno. */
bool wait_open();
void wait_close();

/* A record comes, parked or not, and goes; its descriptor is not negative and still open. False
 * (ENOMEM) when there is no memory for it. */
bool wait_add(fd_callback *cb);
void wait_remove(const fd_callback *cb);

/* Whether there is a record of this descriptor. */
bool wait_knows(int fd);

/* Tells the kernel what the records of this descriptor watch now. False with errno:
 * ENOMEM and ENOSPC may pass, others not. */
bool wait_tell(int fd);

/* Waits until something is ready, or loop_now is due (0: for ever), at most so many milliseconds
 * (-1: for ever), and hands each record of a ready descriptor to found. Returns how many
 * descriptors are ready, -1 when the wait was interrupted, and k_wait_astray when the kernel tells
 * of something that nobody watches, or nothing at all: then wait_open, and tell everything again.
 */
constexpr int k_wait_astray = -2;
int wait_for(int64_t due, int milliseconds, void (*found)(fd_callback *cb));

/* Whether the last wait found the record's descriptor readable, writable, where that was asked. */
bool wait_found_readable(const fd_callback *cb);
bool wait_found_writable(const fd_callback *cb);

#endif
