#include "session/commit_report.h"

#include <sys/mman.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "archive/archive.h"
#include "archive/journal.h"
#include "archive/trials.h"
#include "tree/param_error.h"
#include "ucfgd/strlcpy.h"

namespace {

constexpr size_t k_session_mark_length = 12;
constexpr size_t k_most_args = 4;

/* Memory that the daemon and the child share: the child's own is gone with it. */
struct shared_report {
    int count; /* 0: nothing was left; else one more than the arguments */
    char id[64];
    char msg[2048];
    char args[k_most_args][512];
};

shared_report *g_report = nullptr;

std::string text_of(const char *text) {
    return text ? text : "";
}

std::string peer_of(const ccd_session *session) {
    if (!session->ucred) return {};
    return "uid=" + std::to_string(session->ucred->uid) +
           " gid=" + std::to_string(session->ucred->gid) +
           " pid=" + std::to_string(session->ucred->pid);
}

}  // namespace

void commit_report_begin(void) {
    if (!g_report) {
        void *memory = mmap(nullptr, sizeof(shared_report), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) return;
        g_report = static_cast<shared_report *>(memory);
    }
    g_report->count = 0;
}

void commit_report_author(const ccd_session *session) {
    if (!archive_is_on()) return;
    commit_record &author = commit_author();
    author = {};
    author.user = text_of(session->username);
    author.listener = text_of(session->listenname);
    author.peer = peer_of(session);
    /* Who knows the identifier itself can resume the session. */
    author.session = digest_of(text_of(session->sessionid)).substr(0, k_session_mark_length);
    author.comment = text_of(session->commit_comment);
    if (session->commit_trial > 0) trial_begin(author, session->commit_trial);
}

void commit_report_leave(void) {
    const param_error *error = ccd_get_error();
    if (!g_report || !error) return;
    strlcpy(g_report->id, error->id ? error->id : "", sizeof g_report->id);
    strlcpy(g_report->msg, error->msg ? error->msg : "", sizeof g_report->msg);
    size_t count = 0;
    for (const line *arg = error->args; arg && count < k_most_args; arg = arg->next)
        strlcpy(g_report->args[count++], arg->line ? arg->line : "", sizeof g_report->args[0]);
    g_report->count = static_cast<int>(count) + 1;
}

int commit_report_take(void) {
    if (!g_report || g_report->count == 0) return 0;
    const size_t args = std::min(static_cast<size_t>(g_report->count - 1), k_most_args);
    g_report->count = 0;
    ccd_set_error(g_report->msg[0] ? g_report->msg : nullptr,
                  g_report->id[0] ? g_report->id : nullptr);
    for (size_t i = 0; i < args; i++)
        ccd_add_error_arg(g_report->args[i]);
    return 1;
}
