/* What stands before every command, permission, and behind every failure, the error reply. */

#include <libdaemon/dlog.h>

#include <cstdlib>
#include <utility>

#include "fe/eval.h"
#include "session/method_context.h"
#include "session/protocol.h"
#include "session/query.h"
#include "tree/kept.h"
#include "tree/known_symbol.h"
#include "tree/param_error.h"
#include "ucfgd/owners.h"

namespace {

/* What tells sessions apart is not pure; the others go by the request and the path. */
constinit known_symbol g_sid{"sid", true};
constinit known_symbol g_perm{"perm"};
constinit known_symbol g_parampath{"parampath"};
constinit known_symbol g_paramtree{"paramtree"};
constinit known_symbol g_hlxaaa_sid{"hlxaaa_sid", true};

/* Permission bits as letters, as access methods see them. */
const char *perm_letters(int perms) {
    static constexpr const char *k_letters[] = {"", "x", "w", "wx", "r", "rx", "rw", "rwx"};
    return k_letters[perms & (k_perm_read | k_perm_write | k_perm_exec)];
}

const char *bit_text(int perms, int bit, const char *letter) {
    return perms & bit ? letter : "";
}

const char *user_of(const ccd_session *session) {
    return session->username ? session->username : "";
}

int deny(ccd_session *session, const char *id) {
    session_writef(session, "%s NO permission denied\n", id);
    return -1;
}

int deny_path(ccd_session *session, const char *id, int perm, const char *path) {
    const int granted = session->perms;
    daemon_log(LOG_WARNING,
               "Request denied: User '%s' accessing node '%s'. Session perms required: '%s%s%s', "
               "granted: '%s%s%s'",
               user_of(session), path, bit_text(perm, k_perm_read, "r"),
               bit_text(perm, k_perm_write, "w"), bit_text(perm, k_perm_exec, "x"),
               bit_text(granted, k_perm_read, "r"), bit_text(granted, k_perm_write, "w"),
               bit_text(granted, k_perm_exec, "x"));
    return deny(session, id);
}

/* Most trees grant access by the constant '1' at their root: nothing to evaluate. */
bool access_is_open(const param_path *ppath) {
    const ccdtree_node *node = ppath->first->ccd;
    while (node && !node->func_access)
        node = node->parent;
    return node && !node->func_access->next && fe_node_is_const_true(node->func_access);
}

bool access_method_passes(ccd_session *session, int perm, const param_path *ppath,
                          const line *arg_list) {
    auto evaluate = [=] {
        if (access_is_open(ppath)) return 1;
        const owned_context context =
            make_access_context(session, perm_letters(perm), ppath->fullpath, ppath->ccd_tree);
        return context ? ccd_param_ppath_allows(context.get(), ppath, arg_list) : -1;
    };
    if (arg_list) return evaluate() > 0;
    return kept_access(session->backend_ctx, ppath, static_cast<unsigned int>(perm), evaluate);
}

}  // namespace

owned_context make_session_context(const ccd_session *session) {
    owned_context context{create_fe_context(nullptr, session->backend_ctx)};
    if (!g_hlxaaa_sid.intern()) context.reset();
    if (context && session->hlxaaa_sid && !g_hlxaaa_sid.lend(context.get(), session->hlxaaa_sid)) {
        context.reset();
    }
    return context;
}

owned_context make_sid_context(const ccd_session *session) {
    owned_context context = make_session_context(session);
    const char *sid = session->sessionid ? session->sessionid : "";
    if (context && !g_sid.lend(context.get(), sid)) {
        context.reset();
    }
    return context;
}

owned_context make_access_context(const ccd_session *session, const char *perm, const char *path,
                                  const ccdtree_node *ccd_root) {
    owned_context context = make_sid_context(session);
    if (!context) return context;
    const char *tree = ccd_root == g_ccdtree    ? "configuration"
                       : ccd_root == g_mgmttree ? "management"
                                                : nullptr;
    if (!g_perm.lend(context.get(), perm) || !g_parampath.lend(context.get(), path) ||
        (tree && !g_paramtree.lend(context.get(), tree))) {
        context.reset();
    }
    return context;
}

int session_check_and_barf_perms(ccd_session *session, const char *id, int perm) {
    const int granted = session->perms;
    if (granted & perm) return 0;
    daemon_log(LOG_WARNING,
               "Request denied: User '%s'. Session perms required: '%s%s%s', granted: '%s%s%s'",
               user_of(session), bit_text(perm, k_perm_read, "r"),
               bit_text(perm, k_perm_write, "w"), bit_text(perm, k_perm_exec, "x"),
               bit_text(granted, k_perm_read, "r"), bit_text(granted, k_perm_write, "w"),
               bit_text(granted, k_perm_exec, "x"));
    return deny(session, id);
}

int session_may_read(ccd_session *session, const param_path *ppath) {
    if (g_access_override) return 1;
    return (session->perms & k_perm_read) &&
           access_method_passes(session, k_perm_read, ppath, nullptr);
}

int session_check_and_barf_perms_access_ppath(ccd_session *session, const char *id, int perm,
                                              const param_path *ppath, const line *arg_list) {
    if (g_access_override) return 0;
    if ((session->perms & perm) && access_method_passes(session, perm, ppath, arg_list)) return 0;
    daemon_log(LOG_WARNING,
               "Request denied: User '%s' accessing node '%s'. 'access:' returned false.",
               user_of(session), ppath->fullpath);
    return deny(session, id);
}

int session_check_and_barf_perms_access(ccd_session *session, ccdtree_node *ccd_root,
                                        const char *id, int perm, const char *path,
                                        const line *arg_list) {
    if (g_access_override) return 0;
    if (session->perms & perm) {
        const owned<param_path, destroy_param_path> ppath{find_ccd_param(path, ccd_root)};
        if (ppath) {
            return session_check_and_barf_perms_access_ppath(session, id, perm, ppath.get(),
                                                             arg_list);
        }
    }
    return deny_path(session, id, perm, path);
}

int session_write_error(ccd_session *session, const char *id, const char *dflt_msg) {
    const param_error *error = ccd_get_error();
    if (error) {
        if (error->id) session_writef(session, "%s.error %s\n", id, error->id);
        for (const line *arg = error->args; arg; arg = arg->next) {
            session_writef(session, "%s.error.arg %s\n", id, arg->line ? arg->line : "");
        }
    }
    const char *msg = error ? error->msg : dflt_msg;
    if (msg) {
        session_writef(session, "%s ERR %s\n", id, msg);
    } else {
        session_writef(session, "%s ERR\n", id);
    }
    ccd_clear_error();
    return 0;
}

int session_write_error_sanity(ccd_session *session, const char *id) {
    return session_write_error(session, id, "sanity check failed");
}
