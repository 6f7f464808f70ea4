/* Commits on trial, for the methods of both trees. */

#include "session/trial_functions.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>

#include "archive/archive.h"
#include "archive/trials.h"
#include "backend/trial_end.h"
#include "session/commit_watch.h"
#include "session/restore.h"
#include "session/session.h"
#include "session/trial.h"
#include "tree/arguments.h"
#include "tree/param_error.h"
#include "tree/param_failure.h"

namespace {

constexpr int64_t k_milliseconds = 1000;
constexpr long k_longest_trial = 7L * 24 * 60 * 60;

bool read_seconds(const char *text, long &seconds) {
    const char *end = text + strlen(text);
    auto [stop, error] = std::from_chars(text, end, seconds);
    return error == std::errc{} && stop == end && stop != text && seconds >= 0 &&
           seconds <= k_longest_trial;
}

/* Without an argument: what the session has ordered, 0 for nothing. */
fe_node *fe_func_trialorder(fe_context *ctx, fe_node *call) {
    call_arguments args{ctx, call};
    if (args.failed()) return nullptr;
    ccd_session *session = g_current_session;
    if (args.count() == 0)
        return const_node(std::to_string(session ? session->commit_trial : 0).c_str());
    if (!session || !archive_is_on()) {
        ccd_set_error("no archive of commits is kept: 'commits:' is not set", "error.commit.none");
        ccd_set_failure_reason("no archive of commits is kept");
        return truth_node(false);
    }
    long seconds = 0;
    if (!read_seconds(args[0], seconds)) {
        ccd_set_error("a trial takes 0 to 604800 seconds", "error.commit.trial");
        ccd_set_failure_reason("a trial takes 0 to 604800 seconds");
        return truth_node(false);
    }
    session->commit_trial = seconds;
    return truth_node(true);
}

fe_node *fe_func_trialstatus(fe_context * /*ctx*/, fe_node * /*call*/) {
    trial_view view;
    if (!trial_running(&view)) return const_node("");
    const int64_t seconds = (view.left + k_milliseconds - 1) / k_milliseconds;
    std::string text = "commit " + std::to_string(view.number) + ", user " + view.user + ", ";
    if (seconds > 0)
        text += std::to_string(seconds) + " seconds left";
    else
        text += std::string{"being undone"} + restore_trouble();
    return const_node(text.c_str());
}

const char *reason_text(int reason) {
    switch (reason) {
        case ENOENT:
            return "no commit is on trial";
        case EALREADY:
            return "the trial is being undone";
        case EAGAIN:
            return "another commit is being written";
        default:
            return strerror(reason);
    }
}

/* An action in its child: what fails is told the client. */
template <int (*act)()>
fe_node *action(fe_context * /*ctx*/, fe_node * /*call*/) {
    errno = ENOENT;
    if (archive_is_on() && act() == 0) return truth_node(true);
    fprintf(stderr, "%s\n", reason_text(errno));
    return truth_node(false);
}

/* From a number on, or without one those that are still to come. */
fe_node *fe_func_commitwatch(fe_context *ctx, fe_node *call) {
    call_arguments args{ctx, call};
    if (args.failed()) return nullptr;
    long from = 0;
    const char *text = args[0];
    const char *end = text + strlen(text);
    if (text != end && (std::from_chars(text, end, from).ptr != end || from < 1)) {
        fprintf(stderr, "'%s' is no number of a commit\n", text);
        return truth_node(false);
    }
    if (archive_is_on() && watch_commits(from) == 0) return truth_node(true);
    fprintf(stderr, "%s\n", archive_is_on() ? strerror(errno) : "no archive of commits is kept");
    return truth_node(false);
}

struct native_function {
    const char *name;
    fe_function function;
};

constexpr native_function k_functions[] = {
    {"trialorder", guarded<fe_func_trialorder>},      {"trialstatus", guarded<fe_func_trialstatus>},
    {"trialconfirm", guarded<action<trial_confirm>>}, {"commitwatch", guarded<fe_func_commitwatch>},
    {"trialcancel", guarded<action<end_trial>>},
};

}  // namespace

fe_def *fe_register_trialfuncs(fe_def *list) {
    for (const native_function &function : k_functions)
        list = fe_register_func(list, function.name, function.function, nullptr);
    return list;
}
