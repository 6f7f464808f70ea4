#ifndef UCFGD_TREE_PARAM_ERROR_H
#define UCFGD_TREE_PARAM_ERROR_H

#include "ucfgd/lines.h"

/* The error record: why the last operation failed, in words for the client.
 *
 *  1. There is one for the whole daemon, and it belongs to the request that runs: the session code
 *     clears it before each request and behind it. Whoever reports a failure takes it before it
 *     runs another operation.
 *  2. Texts are copied in, so they may come from the present record.
 *  3. What cannot be allocated is left out, errno ENOMEM.
 */

#ifdef __cplusplus
extern "C" {
#endif

typedef struct param_error {
    char *msg;  /* for people; may be null */
    char *id;   /* for programs, such as "error.exists"; may be null */
    line *args; /* what the message is about, in order */
    /* private */
    line *last_arg;
} param_error;

extern param_error *ccd_param_error;

/* Forgets the record. */
void ccd_clear_error(void);

/* Replaces the record by one with this message and id, either of which may be null. */
void ccd_set_error(const char *msg, const char *id);

/* Append an argument to the record. 0; -1 when there is no record or no memory. */
int ccd_add_error_arg(const char *text);
int ccd_add_error_argi(int number);

/* The record, borrowed until the next call that clears or replaces it, or null. */
param_error *ccd_get_error(void);

/* The record, which belongs to the caller now (destroy_param_error), or null; none is left. */
param_error *ccd_copy_and_clear_error(void);

/* Null is accepted. */
void destroy_param_error(param_error *error);

#ifdef __cplusplus
}
#endif

#endif
