#ifndef UCFGD_DAEMON_LOOP_H
#define UCFGD_DAEMON_LOOP_H

/* The event loop: one thread, one wait, one list of registrations.
 *
 *  1. A record that was added belongs to the loop. Its owner may change `type`, `state` and `data`
 *     at any time; nobody but the loop unlinks or frees it. Where a quiet one is changed the loop
 *     must be told: loop_watch and loop_finish do both, for every record.
 *  2. An owner who is done sets `state` to FD_CALLBACK_FINISHED and forgets the record: after the
 *     dispatch pass the loop frees the record, and closes the descriptor with the last of its
 *     records.
 *  3. A callback may find its data null: its owner is gone and the record is finished, or will be.
 *  4. The whole value of `type` counts. A record is made a reader (1) or a writer (2) for good, and
 *     only its own bit is cleared and set again.
 *  5. A timer belongs to whoever set it, and must be cleared before its memory goes. Timers run
 *     between the passes, like the sweep, never inside a callback.
 *  6. The loop has three states: it runs; work is left, so that the next wait only looks; and it
 *     stops, when nothing is registered any more.
 *  7. Nothing here is safe in a signal handler; signals arrive as data on a pipe.
 */

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { FD_CALLBACK_PARKED = 0, FD_CALLBACK_READ = 1, FD_CALLBACK_WRITE = 2 };

enum {
    FD_CALLBACK_ACTIVE = 0,
    FD_CALLBACK_FINISHED = 1, /* the loop frees the record and closes the descriptor */
    FD_CALLBACK_STOP = 2      /* the loop returns when its removal pass comes to this record */
};

typedef struct fd_callback {
    struct fd_callback *next;
    int type;
    int state;
    int fd;
    int (*cb)(int fd, void *data); /* the result is ignored */
    void *data;                    /* borrowed */
    /* Private from here on. */
    struct fd_callback **link; /* what points at it in the list */
    struct fd_callback *next_marked;
    struct fd_callback *next_alike; /* another one of the same descriptor */
    uint64_t place;                 /* its place in the list; 0 while it is in none */
    int watched; /* the type that the kernel knows of; -1: it knows nothing yet */
    short quiet;
    short marked;
} fd_callback;

/* Registrations in the order in which they were added. For looking at; add with the functions
 * below. */
extern struct fd_callback *g_cb_list;
extern struct fd_callback *g_timecb_list;

/* Those of them that the loop looks at in each round, linked by `next_marked` in the same order:
 * all but the quiet ones. */
extern struct fd_callback *g_cb_plain;

/* A new record that is in no list yet; null (errno ENOMEM) when memory is exhausted. */
struct fd_callback *create_fd_callback(int fd, int type, int (*callback)(int fd, void *data),
                                       void *data);

/* Appends a record, which belongs to the loop from then on. Returns 0; -1 for a null record (errno
 * EINVAL), for a negative descriptor (EBADF), while the loop stops (ECANCELED), and without memory
 * (ENOMEM): then the record, freed with free(), and the descriptor are still the caller's. */
int loop_add_callback(struct fd_callback *cb);

/* The same for a quiet record, of which there may be thousands: rounds in which nothing happens to
 * it do not touch it. It is changed with the next two functions alone. */
int loop_add_quiet_callback(struct fd_callback *cb);

/* Set what is watched and mark a record finished, whether it is quiet or not, and in the loop or
 * not yet. Null is accepted. */
void loop_watch(struct fd_callback *cb, int type);
void loop_finish(struct fd_callback *cb);

/* Unlinks and frees a record without closing its descriptor. For the loop itself. */
void loop_del_callback(struct fd_callback *cb);

/* The same for records that are called when a wait ends without anything ready, as it does at a
 * timer's time and while work is left. Whoever waits for a time sets a timer. A time record's
 * descriptor may be -1. */
int loop_add_time_callback(struct fd_callback *cb);
void loop_del_time_callback(struct fd_callback *cb);

/* A function that the loop calls once when its time has come. Zero-initialised, it is not set. */
typedef struct loop_timer {
    struct loop_timer *next;
    int64_t due;             /* milliseconds of loop_now; 0 while it is not set */
    void (*act)(void *data); /* may set the timer again, and set and clear others */
    void *data;              /* borrowed */
} loop_timer;

/* Sets a timer, or moves one that is set: `act` is called with `data` as soon as the given number
 * of milliseconds has passed and no callback runs. It is not set any more when `act` is called. */
void loop_set_timer(loop_timer *timer, long milliseconds, void (*act)(void *data), void *data);

/* A timer that is not set is accepted. */
void loop_clear_timer(loop_timer *timer);

/* The clock of the timers: milliseconds since the system started, time asleep included. */
int64_t loop_now(void);

/* Where loop_now asks. A test that moves the time points it at a function of its own; null is the
 * system's clock again. */
extern int64_t (*g_loop_clock)(void);

/* Tells that work is left which no descriptor announces: the next wait only looks, and the sweep
 * hook runs behind it. Holds for one round. */
void loop_work_left(void);

/* Functions that the loop calls between its passes, null for none: sweep after each dispatch pass,
 * when no callback runs and what callbacks marked may be destroyed; closed after a removal pass
 * that closed a descriptor. */
void loop_set_hooks(void (*sweep)(void), void (*closed)(void));

/* The same for one that the loop calls before each wait. It may set timers, and nothing else. */
void loop_set_before_wait(void (*before_wait)(void));

/* From now on until the loop returns it stops: nothing is registered, and whoever would start
 * something asks loop_stopping first. What is registered goes on until its owner finishes it. */
void loop_stop(void);
int loop_stopping(void);

/* Stops, and marks every registration finished: the loop closes them all and returns. */
void loop_finish_all(void);

/* Runs until no registration is left or a stop mark is met. The time-out is accepted and not used.
 */
void loop(int timeout);

#ifdef __cplusplus
}
#endif

#endif
