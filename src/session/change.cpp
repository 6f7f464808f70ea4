/* SET, ADD, DEL and MOVE: one change in the session's own context, made in a throw-away copy first.
 */

#include "session/change.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "session/chars.h"
#include "session/protocol.h"
#include "session/query.h"
#include "session/sub_context.h"
#include "tree/param_failure.h"
#include "tree/param_ops.h"
#include "ucfgd/owners.h"
#include "ucfgd/words.h"

namespace {

constexpr size_t k_prefix_max = 255;

/* The tag of a collected line with its dot and what is attached to that. */
std::string_view prefix_of(const char *text) {
    return {text, run_length(
                      text, [](char c) { return is_tag_char(c) || c == '.'; }, k_prefix_max)};
}

int reply_result(ccd_session *session, const char *id, int result) {
    if (result == 0) {
        session_writef(session, "%s OK\n", id);
    } else {
        session_writef(session, "%s ERR result=%d %s\n", id, result, ccd_failure_text(errno));
    }
    return 0;
}

/* The replies of SET and MOVE, and of ADD and DEL. */
int finish_change(ccd_session *session, const char *id, sub_context &edits, int result) {
    if (result == 0) edits.merge();
    return reply_result(session, id, result);
}

int finish_entry(ccd_session *session, const char *id, sub_context &edits, int result) {
    if (result != 0) return session_write_error(session, id, nullptr);
    return finish_change(session, id, edits, 0);
}

}  // namespace

char *cmdlines_to_buf(const line *lines) {
    size_t size = 1;
    for (const line *l = lines; l; l = l->next)
        size += strlen(l->line) + 1;
    owned_str buffer{static_cast<char *>(malloc(size))};
    if (!buffer) return nullptr;
    char *end = buffer.get();
    const std::string_view prefix = lines ? prefix_of(lines->line) : "";
    for (const line *l = lines; l && prefix_of(l->line) == prefix; l = l->next) {
        const char *text = skip_blanks(l->line + prefix.size());
        const size_t length = strlen(text);
        if (length == 0) continue;
        memcpy(end, text, length);
        end += length;
        *end++ = '\n';
    }
    if (end > buffer.get() && end[-1] == '\n') --end;
    if (end > buffer.get() && end[-1] == '\r') --end;
    *end = '\0';
    return buffer.release();
}

int session_process_set(ccd_session *session, const char *id, const char *args) {
    char path[k_word_size];
    char word[k_word_size];
    if (dup_next_word_b(&args, path, sizeof(path)) == 0) {
        session_writef(session, "%s BAD at least one argument required\n", id);
        return 0;
    }
    dup_next_word_b(&args, word, sizeof(word));
    const owned<param_path, destroy_param_path> ppath{find_ccd_param(path, g_ccdtree)};
    if (!ppath) {
        session_writef(session, "%s ERR parameter not found\n", id);
        return 0;
    }
    if (session_check_and_barf_perms_access_ppath(session, id, k_perm_write, ppath.get(),
                                                  nullptr)) {
        return 0;
    }
    const bool multi_line = session->curr_cmd && session->curr_cmd->next;
    const owned_str text{multi_line ? cmdlines_to_buf(session->curr_cmd) : nullptr};
    if (multi_line && !text) return reply_result(session, id, 1);
    const char *value = multi_line ? text.get() : word;
    sub_context edits{session};
    if (!edits.get()) return reply_result(session, id, 1);
    if (ccd_param_sanity_ppath(edits.get(), ppath.get(), value) != 0) {
        return session_write_error_sanity(session, id);
    }
    errno = 0;
    const int result = ccd_param_set_ppath(edits.get(), ppath.get(), value);
    return finish_change(session, id, edits, result);
}

int session_process_add(ccd_session *session, const char *id, const char *args) {
    char path[k_word_size];
    char name[k_word_size];
    dup_next_word_b(&args, path, sizeof(path));
    if (dup_next_word_b(&args, name, sizeof(name)) == 0) {
        session_writef(session, "%s BAD two arguments required\n", id);
        return 0;
    }
    if (session_check_and_barf_perms_access(session, g_ccdtree, id, k_perm_write, path, nullptr)) {
        return 0;
    }
    sub_context edits{session};
    if (!edits.get()) return reply_result(session, id, 1);
    if (ccd_param_sanity(g_ccdtree, edits.get(), path, name) != 0) {
        return session_write_error_sanity(session, id);
    }
    const int result = ccd_param_add(g_ccdtree, edits.get(), path, name);
    return finish_entry(session, id, edits, result);
}

int session_process_del(ccd_session *session, const char *id, const char *args) {
    char path[k_word_size];
    char name[k_word_size];
    dup_next_word_b(&args, path, sizeof(path));
    if (dup_next_word_b(&args, name, sizeof(name)) == 0) {
        session_writef(session, "%s BAD two arguments required\n", id);
        return 0;
    }
    if (session_check_and_barf_perms_access(session, g_ccdtree, id, k_perm_write, path, nullptr)) {
        return 0;
    }
    sub_context edits{session};
    if (!edits.get()) return reply_result(session, id, 1);
    const int result = ccd_param_del(g_ccdtree, edits.get(), path, name);
    return finish_entry(session, id, edits, result);
}

int session_process_move(ccd_session *session, const char *id, const char *args) {
    char path[k_word_size];
    char value0[k_word_size];
    char value1[k_word_size];
    dup_next_word_b(&args, path, sizeof(path));
    dup_next_word_b(&args, value0, sizeof(value0));
    if (dup_next_word_b(&args, value1, sizeof(value1)) == 0) {
        session_writef(session, "%s BAD three arguments required\n", id);
        return 0;
    }
    if (session_check_and_barf_perms_access(session, g_ccdtree, id, k_perm_write, path, nullptr)) {
        return 0;
    }
    sub_context edits{session};
    if (!edits.get()) return reply_result(session, id, 1);
    if (ccd_param_sanity(g_ccdtree, edits.get(), path, value1) != 0) {
        return session_write_error_sanity(session, id);
    }
    errno = 0;
    const int result = ccd_param_move(g_ccdtree, edits.get(), path, value0, value1);
    return finish_change(session, id, edits, result);
}
