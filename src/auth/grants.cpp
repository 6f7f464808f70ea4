#include "auth/grants.h"

#include <grp.h>
#include <libdaemon/dlog.h>
#include <pwd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "auth/session_auth.h"
#include "auth/session_users.h"
#include "daemon/trace.h"
#include "session/session.h"

namespace {

const char *or_none(const char *text) {
    return text ? text : "";
}

void add_row(const session_user *row, grant &granted) {
    granted.perms |= row->perms;
    if (!granted.exec_user) granted.exec_user = row->exec_user;
}

void grant_to_group_of(const char *user, grant &granted) {
    const passwd *account = getpwnam(user);
    if (!account) {
        auth_log("no passwd entry for user %s", user);
        return;
    }
    const gid_t gid = account->pw_gid;
    const group *primary = getgrgid(gid);
    if (!primary) {
        auth_log("group with gid=%d not found", static_cast<int>(gid));
        return;
    }
    const session_user *row = find_session_user(g_groups_list, primary->gr_name);
    if (!row) {
        trace(4, "no special settings for group %s\n", primary->gr_name);
        return;
    }
    trace(4, "found group %s, perms=%o, exec_user=%s\n", primary->gr_name,
          static_cast<unsigned>(row->perms), or_none(row->exec_user));
    add_row(row, granted);
}

using group_ids = std::vector<gid_t>;

/* The groups of the account as the database has them, the primary one among them. */
group_ids groups_of_account(const char *user) {
    const passwd *account = getpwnam(user);
    if (!account) return {};
    const gid_t primary = account->pw_gid;
    group_ids ids(64);
    for (;;) {
        int count = static_cast<int>(ids.size());
        const int result = getgrouplist(user, primary, ids.data(), &count);
        if (result < 0 && static_cast<size_t>(count) <= ids.size()) return {};
        const bool done = result >= 0;
        ids.resize(static_cast<size_t>(count));
        if (done) return ids;
    }
}

/* The supplementary groups that the peer's process had when it connected. A kernel that does not
 * tell leaves the account's, which the peer has proved to be its own. */
group_ids groups_of_peer(const ccd_session *session, const char *user) {
#ifdef SO_PEERGROUPS
    if (!session->fdcb_in) return {};
    group_ids ids(64);
    for (;;) {
        const size_t room = ids.size() * sizeof(gid_t);
        auto size = static_cast<socklen_t>(room);
        const int result =
            getsockopt(session->fdcb_in->fd, SOL_SOCKET, SO_PEERGROUPS, ids.data(), &size);
        if (result != 0 && errno == ENOPROTOOPT) break;
        if (result != 0 && (errno != ERANGE || size <= room)) return {};
        ids.resize(size / sizeof(gid_t));
        if (result == 0) return ids;
    }
#endif
    return groups_of_account(user);
}

bool is_among(const group_ids &ids, const char *name) {
    const group *entry = getgrnam(name);
    return entry && std::find(ids.begin(), ids.end(), entry->gr_gid) != ids.end();
}

bool counts_members() {
    for (const session_user *row = g_groups_list; row; row = row->next)
        if (row->all_members) return true;
    return false;
}

}  // namespace

grant granted_to(const char *user) {
    grant granted;
    if (const session_user *row = find_session_user_or_default(g_users_list, user)) {
        trace(4, "found user %s, perms=%o, exec_user=%s\n", user, static_cast<unsigned>(row->perms),
              or_none(row->exec_user));
        granted = {row->perms, row->exec_user};
    }
    /* Names with a dot are the daemon's own and have no account. */
    if (user[0] != '.') grant_to_group_of(user, granted);
    return granted;
}

void grant_to_members(const ccd_session *session, const char *user, const char *method,
                      grant &granted) {
    /* Names with a dot are the daemon's own and have no account. */
    if (user[0] == '.' || !counts_members()) return;
    group_ids ids;
    if (!method || strcmp(method, "usercred") != 0) ids = groups_of_account(user);
    if (!method || strcmp(method, "usercred") == 0) {
        const group_ids peer = groups_of_peer(session, user);
        ids.insert(ids.end(), peer.begin(), peer.end());
    }
    for (const session_user *row = g_groups_list; row; row = row->next) {
        if (!row->all_members || !row->name || !is_among(ids, row->name)) continue;
        trace(4, "member of group %s, perms=%o, exec_user=%s\n", row->name,
              static_cast<unsigned>(row->perms), or_none(row->exec_user));
        add_row(row, granted);
    }
}
