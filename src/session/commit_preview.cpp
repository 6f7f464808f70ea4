#include "session/commit_preview.h"

#include <libdaemon/dlog.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "archive/merge.h"
#include "backend/archived_edits.h"
#include "backend/command.h"
#include "backend/ll_trns.h"
#include "backend/whole_commit.h"
#include "session/chars.h"
#include "session/commit_number.h"
#include "session/param_changes.h"
#include "session/session.h"
#include "tree/arguments.h"
#include "tree/param_error.h"
#include "ucfgd/owners.h"

namespace {

using owned_ctx = owned<trns_ctx, trns_destroy_ctx>;

/* Parameters that are asked for while others wait, and the files of all modules, any of which may
 * be a long list. */
constexpr long k_quick_values = 500;
constexpr size_t k_quick_files = 128 * 1024;

/* What a line of a reply has room for, its tag left out of account. */
constexpr size_t k_printed_line = 16000;

/* Replies lose control characters, which files are made of: the tab stands as "%09" in what an
 * action prints, and "%" itself as "%25". They lose bytes of long lines, too: where such a line is
 * broken, a "%" stands before the newline; no character is. */
std::string printable(std::string_view text) {
    constexpr char k_digits[] = "0123456789abcdef";
    constexpr size_t k_character = 4;
    std::string result;
    size_t begin = 0; /* of the line */
    for (char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const size_t length = result.size() - begin;
        const bool inside = (byte & 0xC0U) == 0x80U && length < k_printed_line + k_character;
        if (length >= k_printed_line && c != '\n' && !inside) {
            result += "%\n";
            begin = result.size();
        }
        if (c == '%' || (c != '\n' && is_control(c)))
            result += {'%', k_digits[byte >> 4U], k_digits[byte & 15U]};
        else
            result += c;
        if (c == '\n') begin = result.size();
    }
    return result;
}

fe_node *fe_func_printable(fe_context *ctx, fe_node *call) {
    const call_arguments args{ctx, call};
    return args.failed() ? nullptr : const_node(printable(args[0]).c_str());
}

/* For the client of an action; false when nobody takes it any more. */
bool print_text(const std::string &text) {
    fputs(printable(text).c_str(), stdout);
    return fflush(stdout) == 0;
}

fe_node *fail_outside_action() {
    return fe_fail(EINVAL, nullptr, "only for \"admin:\"");
}

fe_node *refuse_aloud() {
    const param_error *error = ccd_get_error();
    const char *why = error && error->msg ? error->msg : std::strerror(errno);
    print_text(std::string{why} + "\n");
    return truth_node(false);
}

/* What the texts do not tell. */
std::string told_besides(const planned_change &change, const file_state &now) {
    if (change.path.empty()) return {};
    const auto &[uid, gid, mode] = change.attributes;
    file_state then{change.removed ? file_kind::absent : file_kind::regular, mode, uid, gid, ""};
    return attribute_changes(name_in_module(change.path), now, then);
}

int append_difference(const planned_change &change, std::string &all) {
    file_state state;
    std::string before = change.before;
    const bool is_command = change.path.empty();
    if (!is_command && read_state(change.path, state, before) != 0) return -1;
    const bool is_new = !is_command && state.kind == file_kind::absent;
    if (state.kind == file_kind::link) before.clear();
    const std::string name = is_command ? "/" + change.module : name_in_module(change.path);
    std::string one;
    if (unified_diff(before, change.text, is_new ? "/dev/null" : "a" + name,
                     change.removed ? "/dev/null" : "b" + name, one) != 0)
        return -1;
    all += one;
    if (one.empty() || (!is_new && !change.removed)) all += told_besides(change, state);
    return 0;
}

/* As plan_commit. What is only looked at is not for the log. */
int plan_quietly(llconf_item *list, commit_plan &plan) {
    struct silence {
        decltype(daemon_log_use) before = std::exchange(daemon_log_use, {});
        ~silence() { daemon_log_use = before; }
    } quiet;
    return plan_commit(list, plan);
}

/* The child of the action is not needed afterwards: its trees may become those of the commit. 0 or
 * an error number, with the error record set. */
int plan_of(fe_context *ctx, commit_plan &plan) {
    ccd_clear_error();
    auto *transaction = static_cast<trns_ctx *>(ctx->user_data);
    if (trns_check_ctx_serial(transaction) != 0) {
        ccd_set_error("commit conflict", "error.commit.conflict");
        return ESTALE;
    }
    trns_submit_ctx(transaction);
    trns_ctx_item *backend = trns_find_ctx_byid(g_trns_ctx, k_ll_trns_id);
    return backend ? plan_quietly(static_cast<llconf_item *>(backend->data), plan) : 0;
}

fe_node *fe_func_commitdiff(fe_context *ctx, fe_node * /*call*/) {
    if (!command_may_wait()) return fail_outside_action();
    commit_plan plan;
    errno = plan_of(ctx, plan);
    if (errno != 0) return refuse_aloud();
    std::string all;
    for (const planned_change &change : plan.changes)
        if (append_difference(change, all) != 0) return refuse_aloud();
    for (const std::string &hook : plan.hooks)
        all += "# runs: " + hook + "\n";
    return truth_node(print_text(all));
}

fe_node *fe_func_sessionchanges(fe_context *ctx, fe_node * /*call*/) {
    if (!command_may_wait() || !g_current_session) return fail_outside_action();
    auto *transaction = static_cast<trns_ctx *>(ctx->user_data);
    /* Clients ask again and again, and a large tree takes its time. */
    if (trns_isdirty_ctx(transaction) == 0) return truth_node(true);
    std::string text;
    param_changes(g_current_session, g_trns_ctx, transaction, LONG_MAX, text);
    /* A commit that would be refused is told of by commitdiff. */
    commit_plan plan;
    if (plan_of(ctx, plan) == 0) {
        for (const planned_change &change : plan.changes) {
            file_state now;
            std::string contents;
            if (read_state(change.path, now, contents) == 0) text += told_besides(change, now);
        }
    }
    return truth_node(print_text(text));
}

fe_node *fail_too_much() {
    return fe_fail(EINVAL, nullptr, "too much for INFO: ADMIN on the same node shows it");
}

/* Two transactions that see the files as a commit found and as it left them. */
fe_node *fe_func_commitchanges(fe_context *ctx, fe_node *call) {
    const call_arguments args{ctx, call};
    commit_record record;
    if (args.count() == 0) return fe_func_sessionchanges(ctx, call);
    if (!find_commit(args[0], record) || !g_current_session)
        return fe_fail(EINVAL, nullptr, "%s",
                       ccd_get_error() ? ccd_get_error()->msg : "no session");
    if (!command_may_wait() && llconf_files_size() > k_quick_files) return fail_too_much();
    const owned_ctx before{trns_copy_ctx(g_trns_ctx)};
    const owned_ctx after{trns_copy_ctx(g_trns_ctx)};
    if (!before || !after) return nullptr;
    if (show_commit(before.get(), record, false) != 0 ||
        show_commit(after.get(), record, true) != 0)
        return fe_fail(EINVAL, nullptr, "%s", ccd_get_error()->msg);
    std::string text;
    if (!param_changes(g_current_session, before.get(), after.get(),
                       command_may_wait() ? LONG_MAX : k_quick_values, text))
        return fail_too_much();
    for (const archived_file &file : record.files)
        text += attribute_changes(file.path, file.before, file.after);
    if (text.ends_with('\n')) text.pop_back();
    return const_node(text.c_str());
}

struct native_function {
    const char *name;
    fe_function function;
};

constexpr native_function k_functions[] = {
    {"commitdiff", guarded<fe_func_commitdiff>},
    {"printable", guarded<fe_func_printable>},
    {"commitchanges", guarded<fe_func_commitchanges>},
};

}  // namespace

fe_def *fe_register_commit_preview(fe_def *list) {
    for (const native_function &function : k_functions)
        list = fe_register_func(list, function.name, function.function, nullptr);
    return list;
}
