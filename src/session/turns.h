#ifndef UCFGD_SESSION_TURNS_H
#define UCFGD_SESSION_TURNS_H

#ifndef __cplusplus
#    error "turns.h is for C++ sources"
#endif

#include <chrono>

#include "session/session.h"

/* Whose turn it is.
 *
 * One thread serves all sessions, and nothing interrupts a request. So a session's lines may take a
 * turn's time before others come, and all sessions together a round's time before the loop looks
 * again who is there. A session whose last turn was long is heavy: it waits for the sweep, where it
 * stands in line with its like, so that a short request never has more before it than one of
 * theirs. */

/* One session's turn, for as long as its lines are executed. */
class session_turn {
  public:
    explicit session_turn(ccd_session *session);
    session_turn(const session_turn &) = delete;
    session_turn &operator=(const session_turn &) = delete;
    ~session_turn();

    bool is_over() const;

  private:
    ccd_session *session_;
    std::chrono::nanoseconds begin_; /* by the clock of turns */
};

/* Whether the session's input has to wait for the sweep. */
bool turn_must_wait(const ccd_session *session);

/* A line that finds a file changed may have started a command that runs ahead (a log-in, mostly).
 * The lines behind it are likely to ask what that prints, and whoever asks too early makes
 * everybody wait. So they stay until it has ended, but not for long. Tells whether they have to. */
bool turn_awaits_commands(const ccd_session *session);
void turn_await_commands(ccd_session *session);

/* Gives the stalled sessions that can go on their turns, as long as a round may last, and tells the
 * loop when some are left. For the sweep. */
void turn_round(void);

/* Executes the session's lines, and sends the reply. For the sweep. */
void turn_give(ccd_session *session);

/* The next round's time is whole again. */
void turn_end_round(void);

#endif
