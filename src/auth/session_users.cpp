#include "auth/session_users.h"

#include <libdaemon/dlog.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "llconf/nodes.h"
#include "session/session.h"
#include "ucfgd/owners.h"
#include "ucfgd/slist.h"

session_user *g_users_list = nullptr;
session_user *g_groups_list = nullptr;

static_assert(offsetof(session_user, next) == 0);

namespace {

constexpr const char *k_default_name = "%default";

using owned_user = owned<session_user, destroy_session_user>;

std::string_view name_of(const cnfnode *node) {
    return node->name ? node->name : "";
}

int perms_of_letters(std::string_view letters) {
    int perms = 0;
    for (char letter : letters) {
        if (letter == 'r') perms |= k_perm_read;
        if (letter == 'w') perms |= k_perm_write;
        if (letter == 'x') perms |= k_perm_exec;
    }
    return perms;
}

bool counts_all_members(const cnfnode *row, std::string_view value) {
    if (value != "all" && value != "primary")
        daemon_log(LOG_WARNING,
                   "Warning: group '%s': members: is 'all' or 'primary'; 'primary' is used",
                   row->name);
    return value == "all";
}

}  // namespace

session_user *create_session_user(const char *name) {
    owned_user user{static_cast<session_user *>(calloc(1, sizeof(session_user)))};
    if (!user) return nullptr;
    if (name) {
        user->name = strdup(name);
        if (!user->name) return nullptr;
    }
    return user.release();
}

void destroy_session_user(session_user *user) {
    if (!user) return;
    free(user->name);
    free(user->exec_user);
    free(user);
}

void destroy_session_user_list(session_user *list) {
    for (session_user *user : removal_safe(list))
        destroy_session_user(user);
}

session_user *append_session_user(session_user *list, session_user *user) {
    return slist_append(list, user);
}

session_user *create_session_user_from_conf(const cnfnode *node, const session_user *default_user) {
    owned_user user{create_session_user(node->name)};
    if (!user) return nullptr;
    if (default_user) user->perms = default_user->perms;
    for (const cnfnode *entry = node->first_child; entry; entry = entry->next) {
        const std::string_view key = name_of(entry);
        if (!entry->value) continue;
        if (key == "access:") user->perms |= perms_of_letters(entry->value);
        if (key == "members:") user->all_members = counts_all_members(node, entry->value);
        if (key == "exec-user:") {
            char *account = strdup(entry->value);
            if (!account) return nullptr;
            free(user->exec_user);
            user->exec_user = account;
        }
    }
    return user.release();
}

session_user *read_session_users(const cnfnode *node) {
    if (!node) return nullptr;
    const cnfnode *first = node->first_child;
    while (first && cnfnode_is_formatting(first))
        first = first->next;
    const bool has_default = first && name_of(first) == k_default_name;
    session_user *default_user = has_default ? create_session_user_from_conf(first, nullptr)
                                             : create_session_user(k_default_name);
    if (!default_user) return nullptr;

    list_builder<session_user> users;
    users.append(default_user);
    for (const cnfnode *row = first; row; row = row->next) {
        if (name_of(row).starts_with('%') || cnfnode_is_formatting(row)) continue;
        session_user *user = create_session_user_from_conf(row, default_user);
        if (!user) break;
        users.append(user);
    }
    return users.release();
}

session_user *find_session_user(session_user *list, const char *name) {
    if (!name) return nullptr;
    for (session_user *user = list; user; user = user->next) {
        if (user->name && strcmp(user->name, name) == 0) return user;
    }
    return nullptr;
}

session_user *find_session_user_or_default(session_user *list, const char *name) {
    session_user *user = find_session_user(list, name);
    return user ? user : find_session_user(list, k_default_name);
}
