#include "session/commit_orders.h"

#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "archive/archive.h"
#include "backend/archived_edits.h"
#include "session/commit_number.h"
#include "session/session.h"
#include "tree/arguments.h"
#include "tree/param_error.h"
#include "tree/param_failure.h"
#include "ucfgd/owners.h"

namespace {

constexpr std::pair<char, int> k_rights[] = {
    {'r', k_perm_read}, {'w', k_perm_write}, {'x', k_perm_exec}};

/* For access methods: whether the session that asks has each of the rights. */
fe_node *fe_func_sessionmay(fe_context *ctx, fe_node *call) {
    const call_arguments args{ctx, call};
    if (!g_current_session || args.count() == 0) return truth_node(false);
    for (const fe_node *arg = args.first(); arg; arg = arg->next) {
        bool granted = false;
        for (const auto &[letter, bit] : k_rights)
            if (std::string_view{arg->text} == std::string_view{&letter, 1})
                granted = (g_current_session->perms & bit) != 0;
        if (!granted) return truth_node(false);
    }
    return truth_node(true);
}

fe_node *fe_func_commitcomment(fe_context *ctx, fe_node *call) {
    const call_arguments args{ctx, call};
    if (args.failed()) return nullptr;
    ccd_session *session = g_current_session;
    if (args.count() == 0)
        return const_node(session && session->commit_comment ? session->commit_comment : "");
    if (!session || !archive_is_on()) {
        ccd_set_error("no archive of commits is kept: 'commits:' is not set", "error.commit.none");
        ccd_set_failure_reason("no archive of commits is kept");
        return truth_node(false);
    }
    owned_str text = dup_str(args[0]);
    if (!text) return nullptr;
    std::free(std::exchange(session->commit_comment, text.release()));
    return truth_node(true);
}

/* The functions that make edits of what the archive holds, and what they do. */
template <int (*order)(trns_ctx *, const commit_record &)>
fe_node *edit_from_archive(fe_context *ctx, fe_node *call) {
    const call_arguments args{ctx, call};
    if (args.count() != 1) return fail_count(args);
    commit_record record;
    if (find_commit(args[0], record) && order(static_cast<trns_ctx *>(ctx->user_data), record) == 0)
        return truth_node(true);
    const param_error *error = ccd_get_error();
    if (error && error->msg) ccd_set_failure_reason(error->msg);
    return truth_node(false);
}

struct native_function {
    const char *name;
    fe_function function;
};

constexpr native_function k_functions[] = {
    {"sessionmay", guarded<fe_func_sessionmay>},
    {"commitcomment", guarded<fe_func_commitcomment>},
    {"commitload", guarded<edit_from_archive<load_after_commit>>},
    {"commitundo", guarded<edit_from_archive<undo_commit>>},
};

}  // namespace

fe_def *fe_register_commit_orders(fe_def *list) {
    for (const native_function &function : k_functions)
        list = fe_register_func(list, function.name, function.function, nullptr);
    return list;
}
