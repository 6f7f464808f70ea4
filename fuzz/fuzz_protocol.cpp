#include <libdaemon/dlog.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "auth/session_auth.h"
#include "auth/session_users.h"
#include "fe/fe.h"
#include "functions/functions.h"
#include "llconf/nodes.h"
#include "session/bgexec.h"
#include "session/input.h"
#include "session/limits.h"
#include "session/login.h"
#include "session/login_gate.h"
#include "session/protocol.h"
#include "tavevent/tavevent.h"
#include "tree/ccdtree.h"
#include "tree/param_error.h"
#include "ucfgd/owners.h"

/* What a client sends, to a session that has logged in and to one that has not. The bytes arrive in
 * pieces whose size the first byte sets, and replies are taken only now and then. Whatever happens,
 * each reply line ends in a newline, holds no other control character, and nothing is left when the
 * sessions are gone. */

namespace {

void require(bool condition) {
    if (!condition) abort();
}

fe_node *expression(const char *text, fe_def *functions) {
    fe_node *node = parse_fe_expression(text, functions);
    require(node != nullptr);
    return node;
}

/* Every kind of method on one node, a wildcard list, and a closed node. No action that forks can be
 * reached: the management tree has no "admin:". */
void make_trees(fe_def *functions) {
    g_ccdtree = create_ccdtree();
    g_ccdtree->func_access = expression("'1'", functions);
    ccdtree_node *node = find_or_create_ccdtree_path(g_ccdtree, "a");
    node->func_get = expression("list('x', $0 .. ' .')", functions);
    node->func_set = expression("$_ != 'bad' || seterror('refused: ' .. $_, 'e', $_)", functions);
    node->func_sanity = expression("len($_) < 20", functions);
    node->func_choices = expression("split($0, ',')", functions);
    node->func_help = expression("'help'", functions);
    ccdtree_node *list = find_or_create_ccdtree_path(g_ccdtree, "list");
    list->func_list = expression("list('e1', 'e.2')", functions);
    list->func_add = expression("$_ == 'e3'", functions);
    list->func_del = expression("'1'", functions);
    list->func_move = expression("$_ == $-", functions);
    find_or_create_ccdtree_path(g_ccdtree, "list.*.b")->func_get = expression("$1", functions);
    find_or_create_ccdtree_path(g_ccdtree, "closed")->func_access = expression("'0'", functions);
    g_mgmttree = create_ccdtree();
    g_mgmttree->func_access = expression("$perm == 'r'", functions);
    find_or_create_ccdtree_path(g_mgmttree, "info")->func_info = expression("$arg1", functions);
}

void make_configuration() {
    g_conftree = create_cnfnode("(root)");
    cnfnode *parent = g_conftree;
    for (const char *name : {"listen", "local", "authtype:"}) {
        cnfnode *node = create_cnfnode(name);
        append_node(parent, node);
        parent = node;
    }
    cnfnode_setval(parent, "debug");
    g_users_list = create_session_user("%default");
    g_users_list->perms = k_perm_read | k_perm_write | k_perm_exec;
}

void set_up_once() {
    static bool done = false;
    if (done) return;
    done = true;
    daemon_set_verbosity(0);
    tavevent_set_file("/dev/null");
    limit_set(k_limit_login_delay, 0);
    make_trees(fe_register_paramfuncs(fe_register_felib_funcs(nullptr)));
    make_configuration();
    g_trns_ctx = trns_create_ctx();
}

ccd_session *connect() {
    ccd_session *session = create_session();
    session->backend_ctx = g_trns_ctx;
    session->listenname = strdup("local");
    add_session(session);
    return session;
}

void take_replies(ccd_session *session) {
    if (!session->outbuf) return;
    const int pending = databuf_pending(session->outbuf);
    const char *text = session->outbuf->buf + session->outbuf->start;
    require(pending == 0 || text[pending - 1] == '\n');
    for (int i = 0; i < pending; ++i) {
        require(text[i] == '\n' || static_cast<unsigned char>(text[i]) >= 32);
    }
    databuf_remove(session->outbuf, pending);
}

void feed(ccd_session *session, const uint8_t *data, size_t size, size_t piece) {
    for (size_t at = 0; at < size && session->inbuf; at += piece) {
        const size_t length = std::min(piece, size - at);
        databuf_add(session->inbuf, data + at, static_cast<int>(length));
        session_process_input(session);
        login_gate_sweep();
        if (session->stalled) session_take_turn(session);
        if (at % 3 == 0) take_replies(session);
    }
}

/* A session that waits to be resumed, under an identifier that an input can know. */
void leave_suspended() {
    ccd_session *session = connect();
    require(session_login(session, "l", "me", k_perm_read | k_perm_write) == 0);
    free(session->sessionid);
    session->sessionid = strdup("0123456789abcdef");
    close_session(session);
}

/* COMMIT forks; its child ends at once. */
void finish_jobs() {
    while (g_bgexec_ctx_list)
        session_wait_bg();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    set_up_once();
    if (size < 1) return 0;
    const size_t piece = 1 + data[0] * size_t{data[0]} / 8;
    static const char k_login[] = "l LOGIN me me\n";
    leave_suspended();
    ccd_session *fresh = connect();
    ccd_session *logged = connect();
    feed(logged, reinterpret_cast<const uint8_t *>(k_login), strlen(k_login), sizeof(k_login));
    require(logged->state == k_session_logged);
    feed(logged, data + 1, size - 1, piece);
    feed(fresh, data + 1, size - 1, piece);
    take_replies(fresh);
    take_replies(logged);
    finish_jobs();
    for (ccd_session *session : removal_safe(g_session_list))
        session_discard(session);
    session_sweep();
    require(g_session_list == nullptr);
    ccd_clear_error();
    for (fd_callback *cb : removal_safe(g_cb_list)) {
        close(cb->fd);
        loop_del_callback(cb);
    }
    return 0;
}
