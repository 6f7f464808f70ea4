/* SUBMIT: a batch of changes, all or none.
 *
 * All lines are read and judged before the first is applied: what access methods see is the session
 * as it was, and never what the batch itself does. Then the batch is applied to a throw-away copy
 * of the session's context, line by line, and what became of each line is kept. Only then is
 * everything checked and reported: a check sees the outcome of the whole batch, so two changes that
 * are wrong alone and right together pass. The copy is merged into the session's context when
 * nothing failed, and dropped otherwise.
 */

#include <strings.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <string_view>

#include "session/change.h"
#include "session/chars.h"
#include "session/protocol.h"
#include "session/query.h"
#include "session/sub_context.h"
#include "tree/param_ops.h"
#include "ucfgd/owners.h"
#include "ucfgd/words.h"

static_assert(offsetof(ccd_path_value_item, next) == 0);

namespace {

constexpr size_t k_run_max = 255;
constexpr int k_unresolved = 3; /* as param_ops.h says of a path without a node */

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

/* Reads and judges one collected line, if it belongs to the batch. False when it makes the batch
 * fail at once. */
bool judge_line(ccd_session *session, std::string_view id, const char *text) {
    const size_t tag_length = run_length(text, is_tag_char, k_run_max);
    if (text[tag_length] != '.' || std::string_view{text, tag_length} != id) return true;
    const size_t suffix_length = run_length(text + tag_length + 1, is_tag_char, k_run_max);
    const size_t sub_id_length = tag_length + 1 + suffix_length;
    char sub_id[2 * k_run_max + 2];
    memcpy(sub_id, text, sub_id_length);
    sub_id[sub_id_length] = '\0';

    const char *rest = skip_blanks(text + sub_id_length);
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

/* Applies one change, unless it has been refused already. What it says is its own: nothing of what
 * others have said is left. */
void apply_item(trns_ctx *ctx, ccd_path_value_item &item) {
    if (item.result != 0) return;
    ccd_clear_error();
    errno = 0;
    item.result = item.apply(ctx, &item);
    if (item.result == 0) return;
    if (item.ppath) item.err = errno;
    item.param_err = ccd_copy_and_clear_error();
}

bool run_batch(ccd_session *session, const char *id) {
    bool passed = true;
    for (const line *l = session->curr_cmd; l; l = l->next) {
        if (!judge_line(session, id, l->line)) passed = false;
    }
    if (!passed) return false;
    for (ccd_path_value_item *item = session->sanity_list; item; item = item->next)
        apply_item(session->backend_ctx_sub, *item);
    for (const ccd_path_value_item *item = session->sanity_list; item; item = item->next) {
        ccd_clear_error();
        if (!report_item(session, *item)) passed = false;
    }
    return passed;
}

/* The access check of a change whose path stands in its item. */
int judge_path(ccd_session *session, const ccd_path_value_item *item) {
    return session_check_and_barf_perms_access(session, g_ccdtree, item->id, k_perm_write,
                                               item->path, nullptr)
               ? 1
               : 0;
}

int apply_set(trns_ctx *ctx, const ccd_path_value_item *item) {
    return ccd_param_set_ppath(ctx, item->ppath, item->value);
}

int apply_add(trns_ctx *ctx, const ccd_path_value_item *item) {
    return ccd_param_add(g_ccdtree, ctx, item->path, item->value);
}

int apply_del(trns_ctx *ctx, const ccd_path_value_item *item) {
    return ccd_param_del(g_ccdtree, ctx, item->path, item->value);
}

int apply_move(trns_ctx *ctx, const ccd_path_value_item *item) {
    return ccd_param_move(g_ccdtree, ctx, item->path, item->moved, item->value);
}

/* The handlers of ADD and DEL, which differ in one operation and one text. */
int sub_process_entry(ccd_session *session, const char *id, const char *args, const char *usage,
                      int (*apply)(trns_ctx *, const ccd_path_value_item *), int skip_sanity) {
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
    item->apply = apply;
    return item->result = judge_path(session, item);
}

}  // namespace

ccd_path_value_item *create_path_value_item(const char *id, const char *path, const char *value) {
    const size_t id_size = strlen(id) + 1;
    const size_t path_size = strlen(path) + 1;
    const size_t value_size = strlen(value) + 1;
    void *block = malloc(sizeof(ccd_path_value_item) + id_size + path_size + value_size);
    if (!block) return nullptr;
    auto *item = new (block) ccd_path_value_item{};
    char *texts = static_cast<char *>(block) + sizeof(ccd_path_value_item);
    item->id = static_cast<char *>(memcpy(texts, id, id_size));
    item->path = static_cast<char *>(memcpy(texts + id_size, path, path_size));
    item->value = static_cast<char *>(memcpy(texts + id_size + path_size, value, value_size));
    return item;
}

void destroy_path_value_item(ccd_path_value_item *item) {
    if (!item) return;
    free(item->moved);
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
    sub_context edits{session};
    clear_items(session);
    if (!edits.get()) {
        session_writef(session, "%s ERR %s\n", id, strerror(ENOMEM));
        return 0;
    }
    const bool passed = run_batch(session, id);
    clear_items(session);
    if (passed) edits.merge();
    session_writef(session, passed ? "%s OK\n" : "%s ERR\n", id);
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
    item->apply = apply_set;
    errno = 0;
    item->ppath = find_ccd_param(path, g_ccdtree);
    if (!item->ppath) {
        item->err = errno;
        return item->result = k_unresolved;
    }
    const int refused =
        session_check_and_barf_perms_access_ppath(session, id, k_perm_write, item->ppath, nullptr);
    return item->result = refused ? 1 : 0;
}

int sub_session_process_add(ccd_session *session, const char *id, const char *args) {
    return sub_process_entry(session, id, args, "%s BAD at least one arguments required\n",
                             apply_add, 0);
}

int sub_session_process_del(ccd_session *session, const char *id, const char *args) {
    return sub_process_entry(session, id, args, "%s BAD two arguments required\n", apply_del, 1);
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
    item->apply = apply_move;
    item->moved = strdup(value0);
    if (!item->moved) {
        session_writef(session, "%s ERR %s\n", id, strerror(errno));
        return -ENOMEM;
    }
    return item->result = judge_path(session, item);
}
