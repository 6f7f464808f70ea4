#include "tree/param_ops.h"

#include <libdaemon/dlog.h>
#include <syslog.h>

#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <new>

#include "daemon/trace.h"
#include "tree/param_context.h"
#include "tree/param_listing.h"
#include "ucfgd/escape.h"

namespace {

enum result_code {
    k_done = 0,
    k_no_result = 1,
    k_refused = 2,
    k_not_resolved = 3,
    k_no_node = 4,
    k_no_method = 5,
    k_wrong_existence = 6
};

enum class value_action { set = 2, add = 3, del = 4, sanity = 6 };

/* errno of one operation: 0 at its start, the caller's again when it succeeds. */
class operation_errno {
  public:
    operation_errno() : before_(errno) { errno = 0; }
    operation_errno(const operation_errno &) = delete;
    operation_errno &operator=(const operation_errno &) = delete;
    int finish(int code) const {
        if (code == k_done) errno = before_;
        return code;
    }

  private:
    int before_;
};

/* Evaluates a method that answers with yes or no. */
int run_verdict(fe_context *ctx, const fe_node *method, const char *key, const param_path *path) {
    owned_result result = run_method(ctx, method, key, path);
    if (!result) return k_no_result;
    if (fe_istrue(fe_last_text(result.get()))) return k_done;
    report_forgiven(key, path);
    if (errno == 0) errno = EINVAL;
    return k_refused;
}

/* -1 for a text that is none in the present locale. ASCII is the same in all of them. */
size_t count_characters(const char *text) {
    const char *rest = text;
    while (static_cast<signed char>(*rest) > 0)
        rest++;
    if (*rest == '\0') return static_cast<size_t>(rest - text);
    const size_t count = std::mbstowcs(nullptr, rest, 0);
    return count == static_cast<size_t>(-1) ? count : count + static_cast<size_t>(rest - text);
}

/* Counts characters. A value that is no text in the present locale cannot be counted and fits. */
bool fits_limit(const ccdtree_node *node, const char *value) {
    int limit = param_limit(node);
    if (limit <= 0) return true;
    errno_guard keep;
    daemon_log(LOG_INFO, "Locale is: %s\n", setlocale(LC_ALL, nullptr));
    size_t count = count_characters(value);
    if (count == static_cast<size_t>(-1)) {
        daemon_log(LOG_INFO, "Value has no characters of this locale\n");
        return true;
    }
    daemon_log(LOG_INFO, "Value has %d characters\n", static_cast<int>(count));
    return count <= static_cast<size_t>(limit);
}

const fe_node *method_of(const ccdtree_node *node, value_action action) {
    switch (action) {
        case value_action::set:
            return node->func_set;
        case value_action::add:
            return node->func_add;
        case value_action::del:
            return node->func_del;
        case value_action::sanity:
            break;
    }
    return node->func_sanity ? node->func_sanity : get_type_validation_func(node->type);
}

/* The definition meant to check, and nobody knows what. */
int refuse_without_type() {
    ccd_set_error("The type of this parameter is not defined", "error.type.undefined");
    errno = EINVAL;
    return k_refused;
}

const char *key_of(value_action action) {
    switch (action) {
        case value_action::set:
            return "set:";
        case value_action::add:
            return "add:";
        case value_action::del:
            return "del:";
        case value_action::sanity:
            break;
    }
    return "sanity:";
}

int ccd_param_ppath_value(backend_ctx *ctx, const param_path *path, const char *value,
                          value_action action) {
    const ccdtree_node *node = path->first ? path->first->ccd : nullptr;
    if (!node) {
        daemon_log(LOG_ERR, "%s: ccdtree_node not found for path \"%s\".\n", __func__,
                   path->fullpath);
        return k_no_node;
    }
    owned_str text{unescape(value)};
    if (!text) return k_no_result;
    if (!fits_limit(node, text.get())) {
        ccd_set_error("Exceeded maximum size for this field", "error.exceeded.max-size");
        errno = EOVERFLOW;
        return k_no_result;
    }
    owned_context own = create_method_context(ctx, nullptr);
    if (!own || fe_set(own.get(), "_", text.get()) != 0) return k_no_result;
    if (!enter_path(own.get(), path)) return k_no_result;
    if (action == value_action::sanity) {
        ccd_clear_error();
        if (node->lacks_type) return refuse_without_type();
    }
    const fe_node *method = method_of(node, action);
    if (method) return run_verdict(own.get(), method, key_of(action), path);
    if (action != value_action::sanity) {
        daemon_log(LOG_WARNING, "%s: No implementation found for function \"%s\" at \"%s\".\n",
                   __func__, key_of(action), path->fullpath);
    }
    return k_no_method;
}

owned_path resolve_or_log(ccdtree_node *root, const char *path) {
    owned_path resolved{find_ccd_param(path, root)};
    if (!resolved) {
        errno_guard keep;
        daemon_log(LOG_ERR, "find_ccd_param(%s) failed\n", path);
    }
    return resolved;
}

int ccd_param_path_value(ccdtree_node *root, backend_ctx *ctx, const char *path, const char *value,
                         value_action action) {
    owned_path resolved = resolve_or_log(root, path);
    return resolved ? ccd_param_ppath_value(ctx, resolved.get(), value, action) : k_not_resolved;
}

void log_change(const char *operation, const char *path, const char *value, int code) {
    errno_guard keep;
    if (code == k_done) {
        daemon_log(LOG_INFO, "%s %s %s", operation, path, value);
    } else {
        daemon_log(LOG_INFO, "%s %s %s failed: %d", operation, path, value, code);
    }
}

/* Adds or deletes an entry, unless the listing shows that it is (or is not) there already. */
int change_entry(ccdtree_node *root, backend_ctx *ctx, const char *path, const char *name,
                 value_action action) {
    bool adding = action == value_action::add;
    int before = errno;
    bool exists = ccd_node_exists(root, ctx, path, name) != 0;
    if (!exists && errno == ENOMEM) return k_no_result;
    errno = before;
    if (exists != adding) return ccd_param_path_value(root, ctx, path, name, action);
    if (adding) {
        ccd_set_error("Entry already exists", "error.exists");
    } else {
        ccd_set_error("Entry does not exist", "error.not_exists");
    }
    errno = adding ? EEXIST : ENOENT;
    return k_wrong_existence;
}

/* A move whose second value is too long is the one attempt that leaves no line in the log. */
constexpr int k_not_logged = -1;

int ccd_param_ppath_move(backend_ctx *ctx, const param_path *path, const char *value0,
                         const char *value1) {
    const ccdtree_node *node = path->first ? path->first->ccd : nullptr;
    if (!node) {
        daemon_log(LOG_ERR, "ccd == NULL\n");
        return k_no_node;
    }
    owned_str first{unescape(value0)};
    owned_str second{unescape(value1)};
    if (!first || !second) return k_no_result;
    int limit = param_limit(node);
    if (limit > 0 && std::strlen(second.get()) > static_cast<size_t>(limit)) {
        errno = EOVERFLOW;
        return k_not_logged;
    }
    owned_context own = create_method_context(ctx, nullptr);
    if (!own || fe_set(own.get(), "-", first.get()) != 0 ||
        fe_set(own.get(), "_", second.get()) != 0) {
        return k_no_result;
    }
    if (!enter_path(own.get(), path)) return k_no_result;
    return node->func_move ? run_verdict(own.get(), node->func_move, "move:", path) : k_no_method;
}

void log_move(const char *path, const char *value0, const char *value1, int code) {
    errno_guard keep;
    if (code == k_done) {
        daemon_log(LOG_INFO, "move %s %s %s", path, value0, value1);
    } else {
        daemon_log(LOG_INFO, "move %s %s %s failed: %d", path, value0, value1, code);
    }
}

void log_admin(const char *path, int code) {
    errno_guard keep;
    if (code == k_done) {
        daemon_log(LOG_INFO, "admin %s", path);
    } else {
        daemon_log(LOG_INFO, "admin %s: %d", path, code);
    }
}

int ccd_param_ppath_admin(backend_ctx *ctx, const param_path *path, const line *arg_list,
                          fe_context *parent) {
    const ccdtree_node *node = path->first ? path->first->ccd : nullptr;
    if (!node) {
        daemon_log(LOG_ERR, "ccd == NULL\n");
        return k_no_node;
    }
    owned_context own = create_method_context(ctx, parent);
    if (!own) return k_no_result;
    if (!enter_path(own.get(), path, arg_list, true)) return k_no_result;
    return node->func_admin ? run_verdict(own.get(), node->func_admin, "admin:", path)
                            : k_no_method;
}

int ccd_param_path_admin(ccdtree_node *root, backend_ctx *ctx, const char *path,
                         const line *arg_list, fe_context *parent) {
    owned_path resolved = resolve_or_log(root, path);
    int code = k_not_resolved;
    if (resolved) code = ccd_param_ppath_admin(ctx, resolved.get(), arg_list, parent);
    log_admin(path, code);
    return code;
}

void log_result(const char *operation, int result) {
    errno_guard keep;
    if (result == 0) {
        daemon_log(LOG_INFO, "%s", operation);
    } else {
        daemon_log(LOG_INFO, "%s failed: %d", operation, result);
    }
}

}  // namespace

char *ccd_param_get(ccdtree_node *root, backend_ctx *ctx, const char *path) {
    owned_path resolved{find_ccd_param(path, root)};
    return resolved ? ccd_param_ppath_get(ctx, resolved.get()) : nullptr;
}

char *ccd_param_help(ccdtree_node *root, backend_ctx *ctx, const char *path) {
    owned_path resolved{find_ccd_param(path, root)};
    if (!resolved) return nullptr;
    char *help = ccd_param_ppath_help(ctx, resolved.get());
    return help || resolved->first->ccd->func_help ? help : dup_str("").release();
}

char *ccd_param_args(ccdtree_node *root, backend_ctx *ctx, const char *path) {
    owned_path resolved{find_ccd_param(path, root)};
    if (!resolved) return nullptr;
    char *usage = ccd_param_ppath_args(ctx, resolved.get());
    return usage || resolved->first->ccd->func_args ? usage : dup_str("").release();
}

char *ccd_param_info(ccdtree_node *root, backend_ctx *ctx, const char *path, const line *arg_list,
                     fe_context *parent) {
    owned_path resolved{find_ccd_param(path, root)};
    return resolved ? ccd_param_ppath_info(ctx, resolved.get(), arg_list, parent) : nullptr;
}

char *ccd_param_access(ccdtree_node *root, backend_ctx *ctx, const char *path, const line *arg_list,
                       fe_context *parent) {
    owned_path resolved{find_ccd_param(path, root)};
    return resolved ? ccd_param_ppath_access(ctx, resolved.get(), arg_list, parent) : nullptr;
}

int ccd_param_set(ccdtree_node *root, backend_ctx *ctx, const char *path, const char *value) {
    operation_errno own;
    int code = ccd_param_path_value(root, ctx, path, value, value_action::set);
    log_change("set", path, value, code);
    return own.finish(code);
}

int ccd_param_set_ppath(backend_ctx *ctx, const param_path *path, const char *value) {
    operation_errno own;
    int code = ccd_param_ppath_value(ctx, path, value, value_action::set);
    log_change("set", path->fullpath, value, code);
    return own.finish(code);
}

int ccd_param_add(ccdtree_node *root, backend_ctx *ctx, const char *path, const char *name) {
    operation_errno own;
    int code = change_entry(root, ctx, path, name, value_action::add);
    log_change("add", path, name, code);
    return own.finish(code);
}

int ccd_param_del(ccdtree_node *root, backend_ctx *ctx, const char *path, const char *name) {
    operation_errno own;
    int code = change_entry(root, ctx, path, name, value_action::del);
    log_change("del", path, name, code);
    return own.finish(code);
}

int ccd_param_move(ccdtree_node *root, backend_ctx *ctx, const char *path, const char *value0,
                   const char *value1) {
    operation_errno own;
    owned_path resolved = resolve_or_log(root, path);
    int code = k_not_resolved;
    if (resolved) code = ccd_param_ppath_move(ctx, resolved.get(), value0, value1);
    if (code == k_not_logged) return k_no_result;
    log_move(path, value0, value1, code);
    return own.finish(code);
}

int ccd_param_sanity(ccdtree_node *root, backend_ctx *ctx, const char *path, const char *value) {
    operation_errno own;
    int code = ccd_param_path_value(root, ctx, path, value, value_action::sanity);
    return own.finish(code == k_no_method ? k_done : code);
}

int ccd_param_sanity_ppath(backend_ctx *ctx, const param_path *path, const char *value) {
    operation_errno own;
    int code = ccd_param_ppath_value(ctx, path, value, value_action::sanity);
    return own.finish(code == k_no_method ? k_done : code);
}

int ccd_node_exists(ccdtree_node *root, backend_ctx *ctx, const char *path, const char *name) {
    int before = errno;
    owned_str text{unescape(name)};
    int shown = text ? listing_shows({root, ctx, nullptr}, path, text.get()) : -1;
    errno = shown < 0 ? ENOMEM : before;
    return shown > 0 ? 1 : 0;
}

int ccd_param_is_there(ccdtree_node *root, backend_ctx *ctx, const char *path) {
    int before = errno;
    owned_path resolved{find_ccd_param(path, root)};
    int there = resolved || errno == ENOMEM ? -1 : 0;
    try {
        if (resolved) there = path_is_there({root, ctx, nullptr}, resolved->first);
    } catch (const std::bad_alloc &) {}
    errno = there < 0 ? ENOMEM : before;
    return there > 0 ? 1 : 0;
}

int ccd_param_admin(ccdtree_node *root, backend_ctx *ctx, const char *path, const line *arg_list,
                    fe_context *parent) {
    operation_errno own;
    int code = ccd_param_path_admin(root, ctx, path, arg_list, parent);
    log_admin(path, code); /* the caller's line behind the operation's own: both are kept */
    return own.finish(code);
}

int ccd_commit(backend_ctx *ctx) {
    int result = trns_commit_ctx(ctx);
    log_result("commit", result);
    return result;
}

int ccd_revert(backend_ctx *ctx) {
    int result = trns_revert_ctx(ctx);
    log_result("revert", result);
    return result;
}
