#ifndef UCFGD_SESSION_CHILD_H
#define UCFGD_SESSION_CHILD_H

#ifndef __cplusplus
#    error "child.h is for C++ sources"
#endif

#include <csignal>

#include "ucfgd/owners.h"

/* What bgfork and the synchronous runner share: three pipes, and a child that keeps nothing else of
 * the daemon's descriptors and signals. The functions for the child's side are safe after vfork. */

/* The ends for standard input, output and error. All descriptors are above 2 and closed on exec. */
struct child_pipes {
    unique_fd parent[3];
    unique_fd child[3];
};

/* False with errno, and nothing open, when a pipe could not be made. */
bool open_child_pipes(child_pipes &pipes);

/* Keeps signals away from the moment between the fork and the child's own handlers. */
class all_signals_blocked {
  public:
    all_signals_blocked();
    all_signals_blocked(const all_signals_blocked &) = delete;
    all_signals_blocked &operator=(const all_signals_blocked &) = delete;
    ~all_signals_blocked();

    /* For the child: lets all signals through, now and afterwards. */
    void unblock_all();

  private:
    sigset_t saved_;
};

/* In the child: moves its ends to 0, 1 and 2 and closes everything else. */
void wire_child(child_pipes &pipes);

#endif
