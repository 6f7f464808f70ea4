#include "tree/param_failure.h"

#include <libdaemon/dlog.h>
#include <syslog.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "daemon/log.h"
#include "tree/definition.h"
#include "tree/param_context.h"
#include "ucfgd/uptime.h"

namespace {

constexpr long k_quiet_seconds = 10;

using text_buffer = std::array<char, 512>;

text_buffer g_reason; /* for the client; empty for none */

/* The line that was logged last. A client that asks again and again, or a "common:" method that
 * fails at every request, is told of once in a while. */
struct {
    std::array<char, 1024> text;
    long time;
    unsigned long unsaid;
} g_last;

void log_once(int priority, const std::array<char, 1024> &line) {
    long now = get_uptime();
    if (std::strcmp(line.data(), g_last.text.data()) == 0 && now - g_last.time < k_quiet_seconds) {
        g_last.unsaid++;
        return;
    }
    if (g_last.unsaid > 0) {
        daemon_log(priority, "The last failure of a method came up %lu times more", g_last.unsaid);
    }
    daemon_log(priority, "%s", line.data());
    g_last = {line, now, 0};
}

void log_failure(const char *method, const param_path *path, const fe_failure &failure) {
    const int priority = failure.forgiven ? LOG_INFO : LOG_WARNING;
    if (log_takes(priority) == 0) return;
    bool has_value = failure.value != nullptr;
    bool is_inner = failure.within[0] != '\0';
    std::array<char, 1024> line;
    std::snprintf(line.data(), line.size(), "'%s' of %snode '%.255s' %s: %s%s%s%s%s%s%s%s%s",
                  method, path->ccd_tree == g_mgmttree ? "management " : "", path->fullpath,
                  failure.forgiven ? "answered no, and a part of it failed" : "failed",
                  failure.function, failure.function[0] != '\0' ? ": " : "",
                  failure.reason[0] != '\0' ? failure.reason : std::strerror(failure.error),
                  has_value ? ": '" : "", has_value ? failure.value : "", has_value ? "'" : "",
                  is_inner ? " (in " : "", is_inner ? failure.within : "", is_inner ? ")" : "");
    for (char &c : line) {
        if (c == '\0') break;
        if (static_cast<unsigned char>(c) < ' ' || c == '\x7f') c = '?';
    }
    log_once(priority, line);
}

void keep_reason(const fe_failure &failure) {
    if (failure.reason[0] == '\0') return;
    std::snprintf(g_reason.data(), g_reason.size(), "%s%s%s", failure.function,
                  failure.function[0] != '\0' ? ": " : "", failure.reason);
}

void forget_failures() {
    ccd_forget_failure();
    fe_forget_failure();
}

void tell_failure(const char *key, const param_path *path) {
    const fe_failure *failure = fe_last_failure();
    if (!failure) return;
    errno_guard keep;
    fe_note_impure(); /* the next one is to be told of as well */
    log_failure(key, path, *failure);
    keep_reason(*failure);
    fe_forget_failure();
}

}  // namespace

owned_result run_method(fe_context *ctx, const fe_node *method, const char *key,
                        const param_path *path) {
    if (!method) return nullptr;
    forget_failures();
    owned_result result{eval_fe_expr_list(ctx, method)};
    if (!result) tell_failure(key, path);
    return result;
}

int ask_method(fe_context *ctx, const fe_node *method, const char *key, const param_path *path,
               const char *text) {
    forget_failures();
    const int held = fe_list_holds(ctx, method, text);
    if (held < 0) tell_failure(key, path);
    return held;
}

void report_forgiven(const char *key, const param_path *path) {
    const fe_failure *failure = fe_last_failure();
    if (!failure) return;
    errno_guard keep;
    log_failure(key, path, *failure);
    fe_forget_failure();
}

void log_expression_failure(const char *place) {
    errno_guard keep;
    text_buffer reason;
    std::snprintf(reason.data(), reason.size(), "%s",
                  errno == ENOMEM ? std::strerror(ENOMEM) : fe_error_text());
    daemon_log(LOG_ERR, "Error: Parsing tree failed at '%s'.", place);
    complain_of_expression(reason.data());
}

const char *ccd_failure_text(int error) {
    const char *reason = error == EINVAL || error == 0 ? ccd_failure_reason() : nullptr;
    return reason ? reason : std::strerror(error);
}

const char *ccd_failure_reason(void) {
    return g_reason[0] != '\0' ? g_reason.data() : nullptr;
}

void ccd_set_failure_reason(const char *reason) {
    std::snprintf(g_reason.data(), g_reason.size(), "%s", reason);
    errno = EINVAL;
}

void ccd_forget_failure(void) {
    g_reason[0] = '\0';
}
