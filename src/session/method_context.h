#ifndef UCFGD_SESSION_METHOD_CONTEXT_H
#define UCFGD_SESSION_METHOD_CONTEXT_H

#ifndef __cplusplus
#    error "method_context.h is for C++ sources"
#endif

#include "fe/context.h"
#include "session/session.h"
#include "tree/ccdtree.h"
#include "ucfgd/owners.h"

/* The variables that node methods see of the session that asks. */

using owned_context = owned<fe_context, destroy_fe_context>;

/* A fresh context with "hlxaaa_sid", when the session has one. Null (errno ENOMEM) when memory is
 * exhausted. What these contexts are told of is not copied: the session's texts and perm and path
 * must outlive them. */
owned_context make_session_context(const ccd_session *session);

/* The same with "sid". */
owned_context make_sid_context(const ccd_session *session);

/* The same with "sid", and for access methods "perm", "parampath" and, according to the tree,
 * "paramtree". */
owned_context make_access_context(const ccd_session *session, const char *perm, const char *path,
                                  const ccdtree_node *ccd_root);

#endif
