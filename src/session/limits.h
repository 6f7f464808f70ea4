#ifndef UCFGD_SESSION_LIMITS_H
#define UCFGD_SESSION_LIMITS_H

/* What the daemon allows before it defends itself, in one table: for each limit its key in the
 * `limits` section of the main configuration, its default and range, and how often it was met.
 *
 *  1. This unit stands on the ground floor: every folder may use it, and it uses none of them.
 *  2. Whoever enforces a limit asks for its value each time and calls limit_met when it acts.
 *  3. Times are seconds unless the key says otherwise, sizes are bytes.
 *  4. errno is kept by all functions.
 */

#ifdef __cplusplus
extern "C" {
#endif

struct cnfnode;

/* The rows of the table in limits.cpp, in its order. */
enum limit_id {
    k_limit_connections,
    k_limit_connections_reserved,
    k_limit_connections_per_user,
    k_limit_login_time,
    k_limit_login_refusals,
    k_limit_login_delay,
    k_limit_request_size,
    k_limit_suspended_sessions,
    k_limit_suspended_memory,
    k_limit_jobs,
    k_limit_jobs_per_user,
    k_limit_commit_time,
    k_limit_command_time,
    k_limit_stop_time,
    k_limit_farewell_time,
    k_limit_log_queue,
    k_limit_pattern_memory,
    k_limit_count
};

/* The value in force. */
long limit_value(enum limit_id id);

/* Changes a value within its range. Returns 0; -1 (EINVAL) outside it, and then it stays. */
int limit_set(enum limit_id id, long value);

/* The range of a value, both ends included. */
long limit_minimum(enum limit_id id);
long limit_maximum(enum limit_id id);

/* The key of a limit, and what it bounds in a few words; both constant. */
const char *limit_key(enum limit_id id);
const char *limit_meaning(enum limit_id id);

/* The limit of a key, or k_limit_count when there is none of that name. */
enum limit_id limit_find(const char *key);

/* Counts that the daemon acted on a limit, and logs a warning: the key, its value and the formatted
 * text (no newline). A limit that is met again within ten seconds is only counted; its next line
 * tells how often. */
void limit_met(enum limit_id id, const char *format, ...)
#ifdef __GNUC__
    __attribute__((format(printf, 2, 3)))
#endif
    ;

/* Counts the same without a line, for the log itself, which tells in its own way. */
void limit_count(enum limit_id id, unsigned long times);

/* How often the daemon has acted on a limit since its start. */
unsigned long limit_met_count(enum limit_id id);

/* A whole number that is not negative, with K, M or G behind it or without. 0, or -1 (EINVAL). */
int limit_read_amount(const char *text, long *value);

/* Takes an entry of the `limits` section: a whole number, a size also with K, M or G behind it. An
 * unknown key and a value that is none or out of range are logged, and the default stays. Returns
 * 0, or -1 when anything was logged. */
int limit_read(const struct cnfnode *entry);

/* Every limit is its default again. What was counted stays. */
void limits_reset(void);

#ifdef __cplusplus
}
#endif

#endif
