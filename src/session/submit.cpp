/* SUBMIT: a batch of changes, all or none.
 *
 * The batch is applied to a throw-away copy of the session's context, line by line, and what became
 * of each line is kept. Only then is everything checked and reported: a check sees the outcome of
 * the whole batch, so two changes that are wrong alone and right together pass. The copy is merged
 * into the session's context when nothing failed, and dropped otherwise.
 */

#include <strings.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

#include "session/change.h"
#include "session/chars.h"
#include "session/protocol.h"
#include "session/query.h"
#include "tree/param_ops.h"
#include "ucfgd/owners.h"
#include "ucfgd/words.h"

static_assert(offsetof(ccd_path_value_item, next) == 0);

namespace {

constexpr size_t k_run_max = 255;

struct sub_command {
    const char *word;
    session_handler *handler;
};

constexpr sub_command k_sub_commands[] = {
    {"SET", sub_session_process_set},
    {"ADD", sub_session_process_add},
    {"DEL", sub_session_process_del},
    {"MOVE", sub_session_process_move},
};

session_handler *find_sub_command(const char *word) {
    for (const sub_command &command : k_sub_commands) {
        if (strcasecmp(word, command.word) == 0) return command.handler;
    }
    return nullptr;
}

/* A new item at the end of the session's list; null when memory is exhausted, which is answered. */
ccd_path_value_item *add_item(ccd_session *session, const char *id, const char *path,
                              const char *value) {
    ccd_path_value_item *item = create_path_value_item(id, path, value);
    if (!item) {
        session_writef(session, "%s ERR %s\n", id, strerror(errno));
        return nullptr;
    }
    if (session->sanity_last) {
        session->sanity_last->next = item;
    } else {
        session->sanity_list = item;
    }
    session->sanity_last = item;
    return item;
}

void clear_items(ccd_session *session) {
    destroy_path_value_item_list(session->sanity_list);
    session->sanity_list = nullptr;
    session->sanity_last = nullptr;
}

/* Keeps what a failed change said. Returns the result. */
int note_result(ccd_path_value_item *item, int result) {
    item->result = result;
    if (result != 0) item->param_err = ccd_copy_and_clear_error();
    return result;
}

/* Applies one collected line, if it belongs to the batch. False when it makes the batch fail at
 * once. */
bool apply_line(ccd_session *session, std::string_view id, const char *text) {
    const size_t tag_length = run_length(text, is_tag_char, k_run_max);
    if (text[tag_length] != '.' || std::string_view{text, tag_length} != id) return true;
    const size_t suffix_length = run_length(text + tag_length + 1, is_tag_char, k_run_max);
    char sub_id[2 * k_tag_size];
    snprintf(sub_id, sizeof(sub_id), "%.*s", static_cast<int>(tag_length + 1 + suffix_length),
             text);

    const char *rest = skip_blanks(text + tag_length + 1 + suffix_length);
    char word[k_run_max + 1];
    const size_t word_length = run_length(rest, is_letter, k_run_max);
    memcpy(word, rest, word_length);
    word[word_length] = '\0';
    session_handler *handler = find_sub_command(word);
    if (!handler) {
        session_writef(session, "%s BAD unknown sub command: %s\n", sub_id, word);
        return false;
    }
    return handler(session, sub_id, skip_blanks(rest + word_length)) != -ENOMEM;
}

void report_error(ccd_session *session, const char *id, const param_error &error) {
    if (error.id) session_writef(session, "%s.error %s\n", id, error.id);
    for (const line *arg = error.args; arg; arg = arg->next) {
        session_writef(session, "%s.error.arg %s\n", id, arg->line ? arg->line : "");
    }
    if (error.msg) {
        session_writef(session, "%s ERR %s\n", id, error.msg);
    } else {
        session_writef(session, "%s ERR\n", id);
    }
}

bool passes_sanity(ccd_session *session, const ccd_path_value_item &item) {
    if (item.skip_sanity) return true;
    trns_ctx *ctx = session->backend_ctx_sub;
    return item.ppath ? ccd_param_sanity_ppath(ctx, item.ppath, item.value) == 0
                      : ccd_param_sanity(g_ccdtree, ctx, item.path, item.value) == 0;
}

/* Reports one item. False when it makes the batch fail; a negative result without an error record
 * is passed over. */
bool report_item(ccd_session *session, const ccd_path_value_item &item) {
    if (item.result != 0 && item.param_err) {
        report_error(session, item.id, *item.param_err);
        return false;
    }
    if (item.result > 0) {
        session_writef(session, "%s ERR result=%d %s\n", item.id, item.result, strerror(item.err));
        return false;
    }
    if (item.result < 0) return true;
    if (!passes_sanity(session, item)) {
        session_write_error_sanity(session, item.id);
        return false;
    }
    session_write_reply(session, item.id, " OK", "");
    return true;
}

bool run_batch(ccd_session *session, const char *id) {
    bool passed = true;
    for (const line *l = session->curr_cmd; l; l = l->next) {
        if (!apply_line(session, id, l->line)) passed = false;
    }
    if (!passed) return false;
    for (const ccd_path_value_item *item = session->sanity_list; item; item = item->next) {
        if (!report_item(session, *item)) passed = false;
    }
    return passed;
}

/* The handlers of ADD and DEL, which differ in one operation and one text. */
int sub_process_entry(ccd_session *session, const char *id, const char *args, const char *usage,
                      int (*change)(ccdtree_node *, backend_ctx *, const char *, const char *),
                      int skip_sanity) {
    char path[k_word_size];
    char name[k_word_size];
    dup_next_word_b(&args, path, sizeof(path));
    if (dup_next_word_b(&args, name, sizeof(name)) == 0) {
        session_writef(session, usage, id);
        return 0;
    }
    ccd_path_value_item *item = add_item(session, id, path, name);
    if (!item) return -ENOMEM;
    item->skip_sanity = skip_sanity;
    if (session_check_and_barf_perms_access(session, g_ccdtree, id, k_perm_write, path, nullptr)) {
        return item->result = 1;
    }
    return note_result(item, change(g_ccdtree, session->backend_ctx_sub, path, name));
}

}  // namespace

ccd_path_value_item *create_path_value_item(const char *id, const char *path, const char *value) {
    owned<ccd_path_value_item, destroy_path_value_item> item{
        static_cast<ccd_path_value_item *>(calloc(1, sizeof(ccd_path_value_item)))};
    if (!item) return nullptr;
    item->id = strdup(id);
    item->path = strdup(path);
    item->value = strdup(value);
    return item->id && item->path && item->value ? item.release() : nullptr;
}

void destroy_path_value_item(ccd_path_value_item *item) {
    if (!item) return;
    free(item->id);
    free(item->path);
    free(item->value);
    destroy_param_error(item->param_err);
    destroy_param_path(item->ppath);
    free(item);
}

void destroy_path_value_item_list(ccd_path_value_item *list) {
    for (ccd_path_value_item *item : removal_safe(list))
        destroy_path_value_item(item);
}

int session_process_submit(ccd_session *session, const char *id, const char *) {
    if (session_check_and_barf_perms(session, id, k_perm_write)) return 0;
    trns_destroy_ctx(session->backend_ctx_sub);
    session->backend_ctx_sub = trns_copy_ctx(session->backend_ctx);
    clear_items(session);
    if (!session->backend_ctx_sub) {
        session_writef(session, "%s ERR %s\n", id, strerror(ENOMEM));
        return 0;
    }
    const bool passed = run_batch(session, id);
    clear_items(session);
    if (passed) {
        trns_submit_ctx(session->backend_ctx_sub);
        session_writef(session, "%s OK\n", id);
    } else {
        trns_cancel_ctx(session->backend_ctx_sub);
        session_writef(session, "%s ERR\n", id);
    }
    trns_destroy_ctx(session->backend_ctx_sub);
    session->backend_ctx_sub = nullptr;
    return 0;
}

int sub_session_process_set(ccd_session *session, const char *id, const char *args) {
    char path[k_word_size];
    char value[k_word_size];
    if (dup_next_word_b(&args, path, sizeof(path)) == 0) {
        session_writef(session, "%s BAD two arguments required\n", id);
        return 0;
    }
    dup_next_word_b(&args, value, sizeof(value));
    ccd_path_value_item *item = add_item(session, id, path, value);
    if (!item) return -ENOMEM;
    errno = 0;
    int result = 3;
    item->ppath = find_ccd_param(path, g_ccdtree);
    if (item->ppath) {
        if (session_check_and_barf_perms_access_ppath(session, id, k_perm_write, item->ppath,
                                                      nullptr)) {
            return item->result = 1;
        }
        errno = 0;
        result = ccd_param_set_ppath(session->backend_ctx_sub, item->ppath, value);
    }
    if (result != 0) item->err = errno;
    return note_result(item, result);
}

int sub_session_process_add(ccd_session *session, const char *id, const char *args) {
    return sub_process_entry(session, id, args, "%s BAD at least one arguments required\n",
                             ccd_param_add, 0);
}

int sub_session_process_del(ccd_session *session, const char *id, const char *args) {
    return sub_process_entry(session, id, args, "%s BAD two arguments required\n", ccd_param_del,
                             1);
}

int sub_session_process_move(ccd_session *session, const char *id, const char *args) {
    char path[k_word_size];
    char value0[k_word_size];
    char value1[k_word_size];
    dup_next_word_b(&args, path, sizeof(path));
    dup_next_word_b(&args, value0, sizeof(value0));
    if (dup_next_word_b(&args, value1, sizeof(value1)) == 0) {
        session_writef(session, "%s BAD three arguments required\n", id);
        return 0;
    }
    ccd_path_value_item *item = add_item(session, id, path, value1);
    if (!item) return -ENOMEM;
    if (session_check_and_barf_perms_access(session, g_ccdtree, id, k_perm_write, path, nullptr)) {
        return item->result = 1;
    }
    return note_result(item,
                       ccd_param_move(g_ccdtree, session->backend_ctx_sub, path, value0, value1));
}
