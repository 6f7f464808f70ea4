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
constexpr size_t k_texts_size = 65536;

/* Memory that the daemon and the child share: the child's own is gone with it. */
struct shared_report {
    size_t used;              /* 0: nothing was left */
    char texts[k_texts_size]; /* the id, the message and the arguments, each with its NUL */
};

shared_report *g_report = nullptr;

std::string text_of(const char *text) {
    return text ? text : "";
}

/* One that does not fit is cut, and those behind it are left out. */
void leave_text(const char *text) {
    const size_t room = sizeof g_report->texts - g_report->used;
    if (room == 0) return;
    const size_t length = strlcpy(g_report->texts + g_report->used, text ? text : "", room);
    g_report->used += std::min(length + 1, room);
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
    g_report->used = 0;
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
    g_report->used = 0;
    leave_text(error->id);
    leave_text(error->msg);
    for (const line *arg = error->args; arg; arg = arg->next)
        leave_text(arg->line);
}

int commit_report_take(void) {
    if (!g_report || g_report->used == 0) return 0;
    const char *end = g_report->texts + g_report->used;
    const auto next_of = [end](const char *text) {
        return text < end ? text + strlen(text) + 1 : text;
    };
    const char *id = g_report->texts;
    const char *msg = next_of(id);
    ccd_set_error(msg < end && msg[0] ? msg : nullptr, id[0] ? id : nullptr);
    for (const char *arg = next_of(msg); arg < end; arg = next_of(arg))
        ccd_add_error_arg(arg);
    g_report->used = 0;
    return 1;
}
