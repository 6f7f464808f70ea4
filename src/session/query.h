#ifndef UCFGD_SESSION_QUERY_H
#define UCFGD_SESSION_QUERY_H

#include "session/session.h"
#include "tree/param_path.h"

/* Commands that read the trees, the checks that stand before every command, and error replies.
 *
 *  1. Handlers take the tag and the unparsed arguments, as protocol.h says, write their reply and
 *     return 0.
 *  2. The checks return 0 to let a request pass. A refusal, -1, has been logged and answered.
 */

#ifdef __cplusplus
extern "C" {
#endif

struct fe_context;

/* Passes when the session has one of the bits. */
int session_check_and_barf_perms(ccd_session *session, const char *id, int perm);

/* Passes when the session has the bit and the node's access method, evaluated with the arguments
 * (null for none), is true. */
int session_check_and_barf_perms_access_ppath(ccd_session *session, const char *id, int perm,
                                              const param_path *ppath, const line *arg_list);

/* Whether the session may have the value of a node: the same as a question, neither logged nor
 * answered. */
int session_may_read(ccd_session *session, const param_path *ppath);

/* As session_check_and_barf_perms_access_ppath, by path; one that does not resolve is refused. */
int session_check_and_barf_perms_access(ccd_session *session, ccdtree_node *ccd_root,
                                        const char *id, int perm, const char *path,
                                        const line *arg_list);

/* Writes the pending error record and clears it, or without one the default message, which may be
 * null. Returns 0. */
int session_write_error(ccd_session *session, const char *id, const char *dflt_msg);

/* The same for a refused sanity check. */
int session_write_error_sanity(ccd_session *session, const char *id);

int session_process_get(ccd_session *session, const char *id, const char *args);
int session_process_list(ccd_session *session, const char *id, const char *args, int recurse);
int session_process_mlist(ccd_session *session, const char *id, const char *args, int recurse);
int session_process_list_tree(ccd_session *session, const char *id, ccdtree_node *ccd_root,
                              const char *args, int recurse);
int session_process_help(ccd_session *session, const char *id, const char *args);
int session_process_attr(ccd_session *session, const char *id, const char *args);
int session_process_mattr(ccd_session *session, const char *id, const char *args);
int session_process_attr_tree(ccd_session *session, const char *id, ccdtree_node *ccd_root,
                              const char *args);
int session_process_access(ccd_session *session, const char *id, const char *args);
int session_process_maccess(ccd_session *session, const char *id, const char *args);
int session_process_access_tree(ccd_session *session, const char *id, ccdtree_node *ccd_root,
                                const char *args);
int session_process_info(ccd_session *session, const char *id, const char *args);

/* Runs in a child; the session is locked until it has ended. */
int session_process_admin(ccd_session *session, const char *id, const char *args);

#ifdef __cplusplus
}
#endif

#endif
