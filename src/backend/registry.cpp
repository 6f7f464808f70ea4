/* The modules file and the hooks of feature modules.
 *
 * To add a field to the modules file: a member of module_entry that holds it, a handler that reads
 * it, and a row in k_fields. What the item is made of is decided in one place, make_item. */

#include "backend/registry.h"

#include <ctype.h>
#include <errno.h>
#include <grp.h>
#include <libdaemon/dlog.h>
#include <pwd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "backend/command_source.h"
#include "backend/file_io.h"
#include "backend/items.h"
#include "backend/redefine.h"
#include "fe/fe.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "tree/definition.h"
#include "tree/param_failure.h"
#include "ucfgd/owners.h"

namespace {

using owned_tree = owned<cnfnode, destroy_cnftree>;
using owned_nodes = owned<fe_node, destroy_fe_node_list>;

/* What one entry of the modules file says; texts are borrowed from its tree. */
struct module_entry {
    const char *name;
    fe_def *functions;
    const char *module = nullptr;
    const char *file = nullptr;
    const char *pattern = nullptr;
    const char *pipe_in = nullptr;
    const char *pipe_out = nullptr;
    const char *depends = nullptr;
    const char *options = nullptr;
    int mode = -1;
    int create_mode = -1;
    int uid = -1;
    int gid = -1;
    unsigned int flags = 0;
    owned_nodes pre_read = {};
    owned_nodes post_read = {};
    owned_nodes pre_commit = {};
    owned_nodes post_commit = {};
    owned_nodes check = {};
    bool lacks_memory = false;
};

bool is_skipped(const cnfnode *node) {
    const char *name = cnfnode_getname(node);
    return !name || name[0] == '\0' || name[0] == '.';
}

void read_mode_to(int &stored, const module_entry &entry, const char *value) {
    char *end = nullptr;
    long mode = std::strtol(value, &end, 0);
    if (end == value || *end != '\0' || mode > 07777) {
        daemon_log(LOG_ERR, "%s: invalid mode %s\n", entry.name, value);
        return;
    }
    stored = mode < 0 ? -1 : static_cast<int>(mode);
}

void read_mode(module_entry &entry, const char *value) {
    read_mode_to(entry.mode, entry, value);
}

void read_create_mode(module_entry &entry, const char *value) {
    read_mode_to(entry.create_mode, entry, value);
}

void read_uid(module_entry &entry, const char *value) {
    errno = 0;
    const passwd *user = getpwnam(value);
    if (user) {
        entry.uid = static_cast<int>(user->pw_uid);
    } else {
        daemon_log(LOG_ERR, "getpwnam('%s') failed: %s\n", value, std::strerror(errno));
    }
}

void read_gid(module_entry &entry, const char *value) {
    errno = 0;
    const group *found = getgrnam(value);
    if (found) {
        entry.gid = static_cast<int>(found->gr_gid);
    } else {
        daemon_log(LOG_ERR, "getgrnam('%s') failed: %s\n", value, std::strerror(errno));
    }
}

unsigned int flag_named(std::string_view word) {
    constexpr std::array<std::pair<std::string_view, unsigned int>, 3> k_flags = {
        {{"create", LLI_FLAG_CREATE},
         {"always-revert", LLI_FLAG_ALWAYS_REVERT},
         {"readonly", LLI_FLAG_READONLY}}};
    for (const auto &[name, flag] : k_flags) {
        if (word == name) return flag;
    }
    return 0;
}

bool is_separator(char c) {
    return c == ',' || isspace(static_cast<unsigned char>(c));
}

/* The word buffer keeps its contents from one word to the next, so the first word alone can name a
 * flag: existing modules files rely on the others being without effect. Of several lines the last
 * one counts, but always-revert, which says nothing about the source itself, adds to another. */
void read_flags(module_entry &entry, const char *value) {
    char words[32];
    size_t length = 0;
    const unsigned int before = std::exchange(entry.flags, 0U);
    for (const char *at = value; *at;) {
        if (is_separator(*at)) {
            at++;
            continue;
        }
        if (length == sizeof(words) - 1) {
            daemon_log(LOG_ERR, "%s: flags are too long: %s\n", entry.name, value);
            return;
        }
        while (*at && !is_separator(*at) && length < sizeof(words) - 1) {
            words[length++] = *at++;
        }
        entry.flags |= flag_named({words, length});
    }
    if (g_only_checking && length > 0 && entry.flags == 0)
        complain(LOG_WARNING, "Warning: '%s' is none of create, always-revert, readonly", value);
    if (entry.flags == LLI_FLAG_ALWAYS_REVERT) entry.flags |= before;
    entry.flags |= before & LLI_FLAG_ALWAYS_REVERT;
}

void add_hook(owned_nodes &hooks, const module_entry &entry, const char *value) {
    fe_node *hook = parse_fe_expression(value, entry.functions);
    if (!hook && errno == EBADMSG)
        log_expression_failure(entry.name);
    else if (!hook)
        complain_of_silent();
    if (hook) hooks.reset(append_fe_node_list(hooks.release(), hook));
}

/* Nothing passes a check that cannot be read. */
void read_check(module_entry &entry, const char *value) {
    fe_node *check = parse_fe_expression(value, entry.functions);
    if (!check) {
        log_expression_failure(entry.name);
        check = parse_fe_expression("0", entry.functions);
    }
    entry.lacks_memory |= !check;
    entry.check.reset(append_fe_node_list(entry.check.release(), check));
}

using text_slot = const char *module_entry::*;
using hook_slot = owned_nodes module_entry::*;
using field_reader = void (*)(module_entry &, const char *);

/* One of the three says what becomes of the value. */
struct field {
    std::string_view name;
    text_slot text;
    hook_slot hooks;
    field_reader read;
};

constexpr std::array<field, 18> k_fields = {{
    {"module:", &module_entry::module, nullptr, nullptr},
    {"file:", &module_entry::file, nullptr, nullptr},
    {"dir:", &module_entry::file, nullptr, nullptr},
    {"pattern:", &module_entry::pattern, nullptr, nullptr},
    {"pipe-in:", &module_entry::pipe_in, nullptr, nullptr},
    {"pipe-out:", &module_entry::pipe_out, nullptr, nullptr},
    {"depends:", &module_entry::depends, nullptr, nullptr},
    {"options:", &module_entry::options, nullptr, nullptr},
    {"mode:", nullptr, nullptr, read_mode},
    {"create-mode:", nullptr, nullptr, read_create_mode},
    {"uid:", nullptr, nullptr, read_uid},
    {"gid:", nullptr, nullptr, read_gid},
    {"flags:", nullptr, nullptr, read_flags},
    {"pre-read:", nullptr, &module_entry::pre_read, nullptr},
    {"post-read:", nullptr, &module_entry::post_read, nullptr},
    {"pre-commit:", nullptr, &module_entry::pre_commit, nullptr},
    {"post-commit:", nullptr, &module_entry::post_commit, nullptr},
    {"check:", nullptr, nullptr, read_check},
}};

void read_field(module_entry &entry, const cnfnode *node) {
    const reading_entry here{node};
    const char *name = cnfnode_getname(node);
    const char *value = node->value ? node->value : "";
    for (const field &row : k_fields) {
        if (row.name != name) continue;
        if (row.text) entry.*row.text = value;
        if (row.hooks) add_hook(entry.*row.hooks, entry, value);
        if (row.read) row.read(entry, value);
        return;
    }
    daemon_log(LOG_ERR, "%s: unknown field %s\n", entry.name, name);
    std::array<std::string_view, k_fields.size()> known;
    std::ranges::transform(k_fields, known.begin(), &field::name);
    complain_of_unknown(node, known);
}

/* A command that is only read from. */
bool take_depends(module_entry &entry, llconf_item *lli) {
    if (!entry.depends || !lli->pipe_in) return true;
    lli->flags |= LLI_FLAG_READONLY;
    record_of(lli)->source = make_command_source(entry.depends);
    return record_of(lli)->source != nullptr;
}

llconf_item *make_item(module_entry &entry) {
    const char *module = entry.module ? entry.module : entry.name;
    if (entry.depends && !entry.pipe_out) entry.pipe_out = "false";
    llconf_item *lli = create_llconf_item(entry.name, module, entry.options, entry.file,
                                          entry.pipe_in, entry.pipe_out, entry.pattern);
    if (!lli) return nullptr;
    lli->flags = entry.flags;
    llconf_set_file_attributes(lli, entry.mode, entry.uid, entry.gid);
    lli->func_pre_read = entry.pre_read.release();
    lli->func_post_read = entry.post_read.release();
    lli->func_pre_commit = entry.pre_commit.release();
    lli->func_post_commit = entry.post_commit.release();
    record_of(lli)->create_mode = entry.create_mode;
    record_of(lli)->check = entry.check.release();
    if (take_depends(entry, lli)) return lli;
    destroy_llconf_item(lli);
    return nullptr;
}

/* Hooks of an instance that some machines do not have are left out without a word, as ever; who
 * looks wants to know. */
void complain_of_missing_module(const cnfnode *entry) {
    if (g_only_checking && !is_skipped(entry))
        complain(LOG_WARNING, "Warning: hooks of module '%s', which is not defined", entry->name);
}

/* The fields of a feature module's hooks. */
struct hook_field {
    std::string_view name;
    hook_list hooks;
    bool append;
};

constexpr std::array<hook_field, 8> k_hook_fields = {{
    {"pre-read-append:", &llconf_item::func_pre_read, true},
    {"pre-read-prepend:", &llconf_item::func_pre_read, false},
    {"post-read-append:", &llconf_item::func_post_read, true},
    {"post-read-prepend:", &llconf_item::func_post_read, false},
    {"pre-commit-append:", &llconf_item::func_pre_commit, true},
    {"pre-commit-prepend:", &llconf_item::func_pre_commit, false},
    {"post-commit-append:", &llconf_item::func_post_commit, true},
    {"post-commit-prepend:", &llconf_item::func_post_commit, false},
}};

void attach_hook(llconf_item *lli, const cnfnode *node, fe_def *functions) {
    std::string_view name{cnfnode_getname(node)};
    for (const hook_field &row : k_hook_fields) {
        if (row.name != name) continue;
        const char *text = cnfnode_getval(node);
        fe_node *hook = text ? parse_fe_expression(text, functions) : nullptr;
        if (!hook && text && errno == EBADMSG)
            log_expression_failure(lli->name);
        else if (!hook)
            complain_of_silent();
        if (!hook) return;
        fe_node *&list = lli->*row.hooks;
        list = row.append ? append_fe_node_list(list, hook) : append_fe_node_list(hook, list);
        return;
    }
    std::array<std::string_view, k_hook_fields.size()> known;
    std::ranges::transform(k_hook_fields, known.begin(), &hook_field::name);
    complain_of_unknown(node, known);
}

}  // namespace

int register_llconf_all(const char *modulesfile, fe_def *functions) {
    cnfmodule *parser = find_cnfmodule("tavconf");
    if (!parser) return 0;
    const reading_file reading{modulesfile};
    owned_tree root{cnfmodule_parse_file(parser, modulesfile)};
    if (!root) {
        int reason = errno;
        daemon_log(LOG_ERR, "could not parse file %s: %s\n", modulesfile, std::strerror(reason));
        daemon_log(LOG_ERR, "%s", cnf_error_text());
        errno = reason;
        return -1;
    }
    strip_cnftree(root.get());
    for (const cnfnode *entry = root->first_child; entry; entry = entry->next) {
        const reading_entry here{entry};
        if (is_skipped(entry) || register_llconf_cn(entry, functions)) continue;
        if (g_only_checking && errno == ENOENT) continue;
        daemon_log(LOG_ERR, "Unable to register module '%s' specified in file '%s'.\n", entry->name,
                   modulesfile);
    }
    return 0;
}

llconf_item *register_llconf_cn(const cnfnode *entry, fe_def *functions) {
    const reading_entry here{entry};
    module_entry fields{.name = cnfnode_getname(entry), .functions = functions};
    if (!fields.name) return nullptr;
    for (const cnfnode *node = entry->first_child; node; node = node->next) {
        if (!is_skipped(node)) read_field(fields, node);
    }
    if (fields.lacks_memory) errno = ENOMEM;
    llconf_item *lli = fields.lacks_memory ? nullptr : make_item(fields);
    if (!lli) {
        /* Told from a source that is not there. */
        if (errno == ENOENT) errno = EINVAL;
        return nullptr;
    }
    if (llconf_item *standing = llconf_redefined(lli))
        return llconf_revert_cnftree(standing) == 0 ? standing : nullptr;
    if (register_llconf_module(lli) != 0) {
        destroy_llconf_item(lli);
        return nullptr;
    }
    int status = llconf_revert_cnftree(lli);
    if (!g_only_checking) llconf_remove_leftovers(lli);
    return status == 0 ? lli : nullptr;
}

const char *llconf_module_field(size_t number) {
    return number < k_fields.size() ? k_fields[number].name.data() : nullptr;
}

void llconf_remove_leftovers(const llconf_item *lli) {
    owned_str path{lli->file ? prefix_llfilename(lli->file->filename) : nullptr};
    if (!path || (lli->flags & LLI_FLAG_READONLY)) return;
    errno_guard keep;
    if (lli->pattern) {
        remove_member_temporaries(path.get(), lli->pattern, item_directory(lli));
    } else {
        remove_temporary(path.get());
    }
}

int register_llconf_hooks_cn(fe_def *functions, const cnfnode *hooks) {
    if (!trns_find_ctx_byid(g_trns_ctx, k_ll_trns_id)) {
        errno = ENOENT;
        return -1;
    }
    errno_guard keep;
    llconf_item *list = lli_list_from_trns_ctx(g_trns_ctx);
    for (const cnfnode *entry = hooks ? hooks->first_child : nullptr; entry; entry = entry->next) {
        const reading_entry here{entry};
        llconf_item *lli = find_llconf_item(list, cnfnode_getname(entry));
        if (!lli) complain_of_missing_module(entry);
        if (!lli) continue;
        for (const cnfnode *node = entry->first_child; node; node = node->next) {
            if (!is_skipped(node)) attach_hook(lli, node, functions);
        }
    }
    return 0;
}
