/* Authentication: who may log in on which listener.
 *
 * Every listener of the main configuration names its methods in "authtype:" entries. They are tried
 * in that order, and the first that accepts decides: its name is kept in the session, since some
 * methods (the peer's credentials, the AAA store) stand for a login that happened elsewhere and are
 * treated differently later. A method that refuses does not end the search, so a listener with
 * "usercred" and "pam" lets in the local user without a password and everybody else with one.
 *
 * A method is one row of k_methods. To add one: write a function that takes the session, the user
 * and the password and returns 0 to accept; add its row; describe it in the listener's
 * documentation. Methods with `keeps_result` set take no part in the result of a login that nobody
 * accepts: they say "not me", the others say "no".
 *
 * Four things may never happen here. A text that a method leaves for the client must not tell
 * whether a user exists (PAM's informational messages are the administrator's choice). A password
 * must not survive in memory that is given back. A comparison with a stored secret must not
 * take longer the more of it is right. And a refusal must not take longer for a user who exists.
 */
#include "auth/session_auth.h"

#include <libdaemon/dlog.h>
#include <pwd.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "auth/hlxaaa.h"
#include "auth/level.h"
#include "daemon/trace.h"
#include "llconf/nodes.h"
#include "session/session.h"
#include "ucfgd/owners.h"

char *g_auth_message = nullptr;
int g_auth_quiet = 0;
cnfnode *g_conftree = nullptr;

namespace {

struct auth_method {
    std::string_view name;
    int (*accept)(ccd_session *session, const char *user, const char *pass);
    bool keeps_result;
    void (refusal_leveller::*note)(); /* for those that look at a password; else null */
};

int auth_usercred(ccd_session *session, const char *user, const char *) {
    if (!session->ucred) return 1;
    const passwd *account = getpwnam(user);
    return account && account->pw_uid == session->ucred->uid ? 0 : 1;
}

int auth_debug(ccd_session *, const char *user, const char *pass) {
    return strcmp(user, pass) == 0 ? 0 : 1;
}

constexpr auth_method k_methods[] = {
    {"usercred", auth_usercred, true, nullptr},
    {"hlxaaa", session_auth_hlxaaa, false, nullptr},
    {"pam", session_auth_pam, false, &refusal_leveller::tried_pam},
    {"passwd", session_auth_passwd, false, &refusal_leveller::tried_hash},
    {"shadow", session_auth_shadow, false, &refusal_leveller::tried_hash},
    {"debug", auth_debug, true, nullptr},
};

const auth_method *find_method(std::string_view name) {
    for (const auth_method &method : k_methods) {
        if (method.name == name) return &method;
    }
    return nullptr;
}

/* The node of a listener, by its name as it stands: names of listeners are not paths. */
const cnfnode *listener_node(const char *name) {
    if (!g_conftree || !name) return nullptr;
    const cnfnode *listen = find_node(g_conftree->first_child, "listen");
    return listen ? find_node(listen->first_child, name) : nullptr;
}

}  // namespace

void auth_log(const char *format, ...) {
    if (g_auth_quiet) return;
    va_list arguments;
    va_start(arguments, format);
    daemon_logv(LOG_ERR, format, arguments);
    va_end(arguments);
}

int session_auth_knows(const char *method) {
    return find_method(method) ? 1 : 0;
}

int session_auth(ccd_session *session, const char *user, const char *pass) {
    trace(4, "%s, user=%s, pass=%s\n", __func__, user, pass);
    free(g_auth_message);
    g_auth_message = nullptr;

    const cnfnode *listener = listener_node(session->listenname);
    if (!listener) return -1;
    int result = -1;
    refusal_leveller leveller;
    for (const cnfnode *entry = listener->first_child; entry; entry = entry->next) {
        if (!entry->name || strcmp(entry->name, "authtype:") != 0) continue;
        const char *name = entry->value ? entry->value : "";
        const auth_method *method = find_method(name);
        if (!method) {
            auth_log("unknown authtype %s", name);
            continue;
        }
        if (method->note) (leveller.*method->note)();
        const int verdict = method->accept(session, user, pass);
        if (verdict != 0 && method->keeps_result) continue;
        result = verdict;
        if (verdict != 0) continue;
        char *accepted = strdup(name);
        if (!accepted) return -1;
        free(session->auth_method);
        session->auth_method = accepted;
        return 0;
    }
    leveller.level(pass);
    return result;
}
