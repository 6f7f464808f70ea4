#ifndef UCFGD_SESSION_CHANGE_H
#define UCFGD_SESSION_CHANGE_H

#include "session/session.h"
#include "tree/param_error.h"
#include "tree/param_path.h"

/* Commands that change the session's transaction context: one at a time, or as a batch.
 *
 *  1. Handlers take the tag and the unparsed arguments, as protocol.h says, and write their reply.
 *     The session_process_ functions return 0.
 *  2. The sub_session_process_ functions read and judge one line of a batch and append an item to
 *     the session's sanity_list, which is applied when all lines have been judged. They return its
 *     result so far: 0 when it may be applied, and 0 without an item for a line whose arguments are
 *     missing, which they answer at once.
 */

#ifdef __cplusplus
extern "C" {
#endif

/* One change of a batch and what became of it. It owns everything that it points to; id, path and
 * value lie behind it in its block. */
typedef struct ccd_path_value_item {
    struct ccd_path_value_item *next;
    char *id; /* the sub-tag */
    char *path;
    char *value;
    char *moved; /* the first value of a MOVE; null otherwise */
    int (*apply)(trns_ctx *ctx, const struct ccd_path_value_item *item);
    int result;             /* of judging, then of applying it; 0 is success */
    int err;                /* errno after a failed SET */
    param_error *param_err; /* what the failed change said; null for nothing */
    int skip_sanity;
    param_path *ppath; /* the resolved path of a SET; null otherwise */
} ccd_path_value_item;

/* A new item with copies of the texts; null (errno ENOMEM) when memory is exhausted. */
ccd_path_value_item *create_path_value_item(const char *id, const char *path, const char *value);
void destroy_path_value_item(ccd_path_value_item *item);
void destroy_path_value_item_list(ccd_path_value_item *list);

/* The text of a multi-line value: what follows the prefix (letters, digits and dots) in each of the
 * leading lines that have the first one's prefix, joined by newlines. The caller frees it; null
 * (errno ENOMEM) when memory is exhausted. */
char *cmdlines_to_buf(const line *lines);

int session_process_set(ccd_session *session, const char *id, const char *args);
int session_process_add(ccd_session *session, const char *id, const char *args);
int session_process_del(ccd_session *session, const char *id, const char *args);
int session_process_move(ccd_session *session, const char *id, const char *args);

/* Judges the collected lines, applies them to a copy of the session's context, checks the outcome
 * as a whole and merges it only if everything passed. */
int session_process_submit(ccd_session *session, const char *id, const char *args);
int sub_session_process_set(ccd_session *session, const char *id, const char *args);
int sub_session_process_add(ccd_session *session, const char *id, const char *args);
int sub_session_process_del(ccd_session *session, const char *id, const char *args);
int sub_session_process_move(ccd_session *session, const char *id, const char *args);

#ifdef __cplusplus
}
#endif

#endif
