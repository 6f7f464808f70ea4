#ifndef UCFGD_SESSION_PARAM_CHANGES_H
#define UCFGD_SESSION_PARAM_CHANGES_H

#ifndef __cplusplus
#    error "param_changes.h is for C++ sources"
#endif

#include <string>

#include "session/session.h"

/* What differs between the parameters of two transactions, one a line, found by asking both for all
 * of them:
 *
 *      - PATH: VALUE         what it was; alone where the line goes and a default takes its place
 *      + PATH: VALUE         what it is; alone where a default becomes a line of the file
 *      - PATH                an entry of a list that goes, and the same with "+" for one that comes
 *      + PATH: NAME NAME     with a "-" line before it: entries in another order
 *
 * A value that the session may not read is left out, with the colon. At most so many values are
 * asked for; false when that was not enough. May throw std::bad_alloc. */
bool param_changes(ccd_session *session, trns_ctx *before, trns_ctx *after, long most,
                   std::string &text);

#endif
