#ifndef UCFGD_BACKEND_EXCHANGE_H
#define UCFGD_BACKEND_EXCHANGE_H

#ifndef __cplusplus
#    error "exchange.h is for the backend's own sources"
#endif

#include <string>

#include "backend/seen_file.h"
#include "daemon/place.h"

/* Gives a temporary file in the folder of at the name of at. expected (null: whatever it is) tells
 * which file, or none, has that name until then. Where others have put another one there in the
 * instant, or write to the old one while it loses its name, all is as they left it, and the answer
 * is ESTALE. 0 or an error number; the temporary file is still there after a failure. */
int exchange_file(const place &at, const std::string &temporary, const file_identity *expected);

/* Removes the file at at, which goes by the name temporary until it is certain. Else as above. */
int withdraw_file(const place &at, const std::string &temporary, const file_identity *expected);

#endif
