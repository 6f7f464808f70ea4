#include <errno.h>
#include <llconf/nodes.h>

#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "hlxauth/hlxauth.h"
#include "hlxauth/session.h"
#include "store.h"
#include "ucfgd/owners.h"

/* A session's access-control list, from the trees of the appliance's authorization files. */

namespace {

constexpr std::string_view k_root_name = "(root)";
constexpr std::string_view k_default_group = "user";
constexpr std::string_view k_rule_words[] = {"allow", "deny"};

std::string_view name_of(const cnfnode *node) {
    return node->name != nullptr ? node->name : "";
}

bool is_formatting(const cnfnode *node) {
    return name_of(node).substr(0, 1) == ".";
}

/* "allow" or "deny", with or without the colon of the daemon's own syntax; empty for another. */
std::string_view rule_word(const cnfnode *rule) {
    std::string_view name = name_of(rule);
    if (!name.empty() && name.back() == ':') name.remove_suffix(1);
    for (std::string_view word : k_rule_words)
        if (name == word) return word;
    return {};
}

bool has_named_entries(const cnfnode *tree) {
    if (tree == nullptr || name_of(tree) != k_root_name) return false;
    for (const cnfnode *entry = tree->first_child; entry != nullptr; entry = entry->next)
        if (name_of(entry).empty()) return false;
    return true;
}

bool is_rule(const cnfnode *node) {
    return !rule_word(node).empty() && node->value != nullptr && *node->value != '\0' &&
           strpbrk(node->value, "\r\n") == nullptr;
}

bool is_authorization(const cnfnode *tree) {
    if (!has_named_entries(tree)) return false;
    for (const cnfnode *group = tree->first_child; group != nullptr; group = group->next) {
        if (is_formatting(group)) continue;
        for (const cnfnode *rule = group->first_child; rule != nullptr; rule = rule->next)
            if (!is_formatting(rule) && !is_rule(rule)) return false;
    }
    return true;
}

std::string rules_of(const cnfnode *tree, const std::vector<std::string> &groups) {
    std::string list;
    for (const std::string &wanted : groups)
        for (const cnfnode *group = tree->first_child; group != nullptr; group = group->next) {
            if (name_of(group) != wanted) continue;
            for (const cnfnode *rule = group->first_child; rule != nullptr; rule = rule->next)
                if (!is_formatting(rule))
                    list.append(rule_word(rule)).append(" ").append(rule->value).append("\n");
        }
    return list;
}

std::vector<std::string> groups_of(const hlx_auth::session_place &place) {
    hlx_auth_session copy = hlx_auth::copy_of(place);
    if (copy.group_count == 0) return {std::string{k_default_group}};
    return {copy.groups, copy.groups + copy.group_count};
}

int store_acl(const sid_data *data, const cnfnode *tree) {
    hlx_auth::locked_store store;
    hlx_auth::session_place *place = store.find({data->sid, sizeof data->sid});
    if (place == nullptr) {
        errno = ENOENT;
        return -1;
    }
    std::string list = rules_of(tree, groups_of(*place));
    if (list.size() >= sizeof place->acl) {
        errno = ENOSPC;
        return -1;
    }
    place->acl_valid = 0;
    memcpy(place->acl, list.c_str(), list.size() + 1);
    place->acl_valid = 1;
    return 0;
}

}  // namespace

int lib_hlxaaa_acl_init(const sid_data *data, const cnfnode *acl, const cnfnode *radius,
                        const cnfnode *tacacs, const cnfnode *appliance) {
    bool sound = data != nullptr && data->sid_sz == HLX_AUTH_SID_SIZE && is_authorization(acl) &&
                 has_named_entries(radius) && has_named_entries(tacacs) &&
                 has_named_entries(appliance);
    if (!sound) {
        errno = EINVAL;
        return -1;
    }
    try {
        return store_acl(data, acl);
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
    } catch (const std::exception &) {
        if (errno == 0) errno = EIO;
    }
    return -1;
}
