/* Commands that read the trees. */

#include "session/query.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "session/arguments.h"
#include "session/method_context.h"
#include "session/protocol.h"
#include "tree/kept.h"
#include "tree/param_error.h"
#include "tree/param_failure.h"
#include "tree/param_ops.h"
#include "ucfgd/escape.h"
#include "ucfgd/owners.h"
#include "ucfgd/words.h"

namespace {

constexpr size_t k_arg_size = 256;

using owned_path = owned<param_path, destroy_param_path>;

/* Where errno says nothing the method's own words (seterror) come first: why there is no value. */
int reply_errno(ccd_session *session, const char *id) {
    const param_error *error = errno == EINVAL ? ccd_get_error() : nullptr;
    const char *text = error && error->msg ? error->msg : ccd_failure_text(errno);
    session_writef(session, "%s ERR %s\n", id, text);
    return 0;
}

int reply_ok(ccd_session *session, const char *id) {
    session_write_reply(session, id, " OK", "");
    return 0;
}

int reply_value(ccd_session *session, const char *id, const char *text) {
    if (!text) return reply_errno(session, id);
    session_write_value(session, id, text);
    return 0;
}

/* A text as one data line; an empty one has none; no text is a failure. */
int reply_optional(ccd_session *session, const char *id, const char *text) {
    if (!text) return reply_errno(session, id);
    return text[0] != '\0' ? reply_value(session, id, text) : reply_ok(session, id);
}

/* The format takes the tag, a number from 1 on, and the text. */
void write_numbered(ccd_session *session, const char *id, const char *format, const line *list) {
    int number = 0;
    for (; list; list = list->next) {
        session_writef(session, format, id, ++number, list->line ? list->line : "");
    }
}

/* A listing goes into the output line by line. None of it has left while the command runs, so that
 * it can be taken back when it does not come to its end. */
class listing_reply {
  public:
    listing_reply(ccd_session *session, const char *id)
        : session_(session),
          id_(id),
          before_(session->outbuf ? databuf_pending(session->outbuf) : 0) {}

    static int take(void *self, const char *text, size_t length) {
        const auto *reply = static_cast<listing_reply *>(self);
        if (length == 0) return 0;
        return session_write_reply(reply->session_, reply->id_, ".1 ", text);
    }
    void take_back() {
        if (databuf *out = session_->outbuf) out->end = out->start + before_;
    }

  private:
    ccd_session *session_;
    const char *id_;
    int before_;
};

}  // namespace

bool session_arg_list(const char *args, size_t size, owned_lines &arguments) {
    char word[2048];
    if (size > sizeof(word)) size = sizeof(word);
    list_builder<line> list;
    while (dup_next_word_b(&args, word, size) > 0) {
        line *argument = create_line(unescape_b(word, word));
        if (!argument) {
            destroy_line_list(list.release());
            errno = ENOMEM;
            return false;
        }
        list.append(argument);
    }
    arguments.reset(list.release());
    return true;
}

int session_process_get(ccd_session *session, const char *id, const char *args) {
    char path[k_word_size];
    if (dup_next_word_b(&args, path, sizeof(path)) == 0) {
        session_writef(session, "%s BAD one argument required\n", id);
        return 0;
    }
    const owned_path ppath{find_ccd_param(path, g_ccdtree)};
    if (!ppath) {
        session_writef(session, "%s ERR parameter not found\n", id);
        return 0;
    }
    if (session_check_and_barf_perms_access_ppath(session, id, k_perm_read, ppath.get(), nullptr)) {
        return 0;
    }
    errno = 0;
    owned_str own;
    return reply_value(session, id,
                       ccd_param_ppath_kept_get(session->backend_ctx, ppath.get(), own));
}

int session_process_list(ccd_session *session, const char *id, const char *args, int recurse) {
    return session_process_list_tree(session, id, g_ccdtree, args, recurse);
}

int session_process_mlist(ccd_session *session, const char *id, const char *args, int recurse) {
    return session_process_list_tree(session, id, g_mgmttree, args, recurse);
}

int session_process_list_tree(ccd_session *session, const char *id, ccdtree_node *ccd_root,
                              const char *args, int recurse) {
    if (session_check_and_barf_perms(session, id, k_perm_read)) return 0;
    char path[k_word_size];
    dup_next_word_b(&args, path, sizeof(path));
    const owned_context context = make_session_context(session);
    if (!context) return reply_errno(session, id);
    errno = 0;
    listing_reply reply{session, id};
    if (ccd_param_list_each(ccd_root, session->backend_ctx, path, context.get(), recurse,
                            listing_reply::take, &reply) != 0 &&
        errno != 0) {
        reply.take_back();
        return reply_errno(session, id);
    }
    return reply_ok(session, id);
}

int session_process_help(ccd_session *session, const char *id, const char *args) {
    if (session_check_and_barf_perms(session, id, k_perm_read)) return 0;
    char path[k_word_size];
    dup_next_word_b(&args, path, sizeof(path));
    errno = 0;
    const owned_str help{ccd_param_help(g_ccdtree, session->backend_ctx, path)};
    return reply_optional(session, id, help.get());
}

int session_process_attr(ccd_session *session, const char *id, const char *args) {
    return session_process_attr_tree(session, id, g_ccdtree, args);
}

int session_process_mattr(ccd_session *session, const char *id, const char *args) {
    return session_process_attr_tree(session, id, g_mgmttree, args);
}

int session_process_attr_tree(ccd_session *session, const char *id, ccdtree_node *ccd_root,
                              const char *args) {
    if (session_check_and_barf_perms(session, id, k_perm_read)) return 0;
    char path[k_word_size];
    dup_next_word_b(&args, path, sizeof(path));
    errno = 0;
    const owned<param_attr, destroy_param_attr> attr{
        ccd_param_attr(ccd_root, session->backend_ctx, path)};
    if (!attr) return reply_errno(session, id);
    if (attr->ops) session_writef(session, "%s.ops %s\n", id, attr->ops);
    if (attr->len > 0) session_writef(session, "%s.len %d\n", id, attr->len);
    write_numbered(session, id, "%s.choices.%d %s\n", attr->choices);
    write_numbered(session, id, "%s.flags.%d %s\n", attr->flags);
    if (attr->type_name) session_writef(session, "%s.type %s\n", id, attr->type_name);
    return reply_ok(session, id);
}

int session_process_access(ccd_session *session, const char *id, const char *args) {
    return session_process_access_tree(session, id, g_ccdtree, args);
}

int session_process_maccess(ccd_session *session, const char *id, const char *args) {
    return session_process_access_tree(session, id, g_mgmttree, args);
}

int session_process_access_tree(ccd_session *session, const char *id, ccdtree_node *ccd_root,
                                const char *args) {
    if (session_check_and_barf_perms(session, id, k_perm_read)) return 0;
    char path[k_word_size];
    char perm[k_word_size];
    dup_next_word_b(&args, path, sizeof(path));
    dup_next_word_b(&args, perm, sizeof(perm));
    if (path[0] == '\0' || perm[0] == '\0') {
        session_writef(session, "%s BAD two arguments required\n", id);
        return 0;
    }
    if (g_access_override >= 2) return reply_optional(session, id, "1");
    owned_lines arguments;
    if (!session_arg_list(args, k_arg_size, arguments)) return reply_errno(session, id);
    const owned_context context = make_access_context(session, perm, path, ccd_root);
    if (!context) return reply_errno(session, id);
    errno = 0;
    const owned_str result{
        ccd_param_access(ccd_root, session->backend_ctx, path, arguments.get(), context.get())};
    return reply_optional(session, id, result.get());
}

int session_process_info(ccd_session *session, const char *id, const char *args) {
    if (session_check_and_barf_perms(session, id, k_perm_exec)) return 0;
    char path[k_word_size];
    if (dup_next_word_b(&args, path, sizeof(path)) == 0) {
        session_writef(session, "%s BAD at least one argument required\n", id);
        return 0;
    }
    owned_lines arguments;
    if (!session_arg_list(args, k_arg_size, arguments)) return reply_errno(session, id);
    const owned_path ppath{find_ccd_param(path, g_mgmttree)};
    if (!ppath) {
        session_writef(session, "%s ERR parameter not found\n", id);
        return 0;
    }
    /* Whoever may look at the node may have its text: the read bit, although the command as such
     * took exec. */
    if (session_check_and_barf_perms_access_ppath(session, id, k_perm_read, ppath.get(), nullptr)) {
        return 0;
    }
    const owned_context context = make_sid_context(session);
    if (!context) return reply_errno(session, id);
    errno = 0;
    const owned_str text{
        ccd_param_ppath_info(session->backend_ctx, ppath.get(), arguments.get(), context.get())};
    return reply_value(session, id, text.get());
}
