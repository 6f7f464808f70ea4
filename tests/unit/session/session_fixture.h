#ifndef SESSION_FIXTURE_H
#define SESSION_FIXTURE_H

#include <gtest/gtest.h>
#include <libdaemon/dlog.h>
#include <poll.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "auth/session_auth.h"
#include "auth/session_users.h"
#include "conf_text.h"
#include "daemon/dirs.h"
#include "fe/fe.h"
#include "functions/functions.h"
#include "session/bgexec.h"
#include "session/limits.h"
#include "session/login_gate.h"
#include "session/protocol.h"
#include "tavevent/tavevent.h"
#include "tree/ccdtree.h"
#include "tree/param_error.h"
#include "ucfgd/owners.h"
#include "ucfgd/uptime.h"

/* Sessions without a network: requests go into the input buffer, replies are taken out of the
 * output buffer. The trees are read from texts; behind them stands a backend that keeps a map in
 * each transaction context, commits it to one file and reads that file again on revert. */

using values = std::map<std::string, std::string>;

inline long g_now = 100;
inline std::string g_values_file;

inline values &values_of(const trns_ctx_item *item) {
    return *static_cast<values *>(item->data);
}

inline int revert_values(trns_ctx_item *item) {
    values reverted;
    std::ifstream file(g_values_file);
    for (std::string name, value; file >> name >> value;)
        reverted[name] = value;
    for (; item; item = item->parent)
        values_of(item) = reverted;
    return 0;
}

inline int commit_values(trns_ctx_item *item) {
    values &all = values_of(item);
    std::ofstream file(g_values_file);
    all.erase("dirty");
    for (const auto &[name, value] : all)
        file << name << ' ' << value << '\n';
    return 0;
}

inline void register_backend() {
    register_trns_interface(
        7, [](trns_ctx_item *item) { return item->data = new values, 0; },
        [](trns_ctx_item *item) { return delete &values_of(item), 0; },
        [](trns_ctx_item *item, trns_ctx_item *parent) {
            auto *copy = new values(values_of(parent));
            copy->erase("dirty");
            return item->data = copy, 0;
        },
        [](trns_ctx_item *item) { return values_of(item->parent) = values_of(item), 0; },
        [](trns_ctx_item *) { return 0; }, commit_values, revert_values,
        [](trns_ctx_item *item) { return values_of(item).contains("dirty") ? 1 : 0; });
}

/* fetch(name) fails for a name without a value; store(name, value). */
inline fe_node *fetch_or_store(fe_context *ctx, fe_node *call) {
    const owned<fe_node, destroy_fe_node_list> args{eval_fe_expr_list(ctx, call->first_child)};
    values &all = values_of(trns_find_ctx_byid(static_cast<trns_ctx *>(ctx->user_data), 7));
    if (args->next) all[args->text] = all["dirty"] = args->next->text;
    if (!all.contains(args->text)) return nullptr;
    return create_fe_node(g_fed_const, args->next ? "1" : all[args->text].c_str());
}

class session_test : public testing::Test {
  protected:
    void SetUp() override {
        std::string pattern = testing::TempDir() + "sessionXXXXXX";
        dir = mkdtemp(pattern.data());
        ucfgd_conffilesprefix = dir.data();
        g_values_file = dir + "/values";
        tavevent_set_file((dir + "/events").c_str());
        daemon_log_use = DAEMON_LOG_STDERR;
        g_uptime_source = [] { return g_now; };
        request_time = g_now;
        g_access_override = 0;
        if (!g_trns_iface_list) register_backend();
        g_trns_ctx = trns_create_ctx();
        limit_set(k_limit_login_delay, 0);
        base = create_felib_base();
        base->fed_list =
            fe_register_paramfuncs(fe_register_llmiscfuncs(fe_register_felib_funcs(nullptr)));
        base->fed_list = fe_register_func(base->fed_list, "fetch", fetch_or_store, nullptr);
        base->fed_list = fe_register_func(base->fed_list, "store", fetch_or_store, nullptr);
        g_ccdtree = create_ccdtree();
        g_mgmttree = create_ccdtree();
        g_conftree = conf_text(
            "listen {\n local {\n authtype: debug\n }\n}\n"
            "users {\n admin {\n access: rwx\n }\n reader {\n access: r\n }\n"
            " .other {\n access: rw\n }\n}\n");
        g_users_list = read_session_users(find_node(g_conftree->first_child, "users"));
    }

    void TearDown() override {
        for (ccd_session *session : removal_safe(g_session_list))
            session_discard(session);
        pump();
        EXPECT_EQ(g_session_list, nullptr);
        ccd_clear_error();
        destroy_ccdtree(std::exchange(g_ccdtree, nullptr));
        destroy_ccdtree(std::exchange(g_mgmttree, nullptr));
        destroy_cnftree(std::exchange(g_conftree, nullptr));
        destroy_session_user_list(std::exchange(g_users_list, nullptr));
        destroy_felib_base(base);
        trns_destroy_ctx(std::exchange(g_trns_ctx, nullptr));
        ucfgd_conffilesprefix = nullptr;
        std::filesystem::remove_all(dir);
    }

    void define(ccdtree_node *root, const std::string &text) const {
        std::ofstream(dir + "/tree.conf") << text;
        ccdtree_readconf(root, "/tree.conf", base->fed_list);
    }

    static ccd_session *connect() {
        ccd_session *session = create_session();
        session->backend_ctx = g_trns_ctx;
        session->listenname = strdup("local");
        add_session(session);
        return session;
    }
    static ccd_session *logged_in(const std::string &user) {
        ccd_session *session = connect();
        ask(session, "l LOGIN " + user + " " + user);
        return session;
    }

    static std::string replies(ccd_session *session) {
        if (!session->outbuf) return "(closed)";
        const int pending = databuf_pending(session->outbuf);
        std::string text(session->outbuf->buf + session->outbuf->start,
                         static_cast<size_t>(pending));
        databuf_remove(session->outbuf, pending);
        return text;
    }
    /* As many turns as it takes. */
    static void process(ccd_session *session) {
        session_process_input(session);
        while (session->login_ticket != 0 ||
               (session->stalled && databuf_pending(session->outbuf) < k_session_output_limit))
            session_sweep();
    }
    static std::string send(ccd_session *session, const std::string &bytes) {
        databuf_add(session->inbuf, bytes.data(), static_cast<int>(bytes.size()));
        process(session);
        return replies(session);
    }
    /* One request a line; the last newline is added. */
    static std::string ask(ccd_session *session, const std::string &lines) {
        return send(session, lines + "\n");
    }
    /* The replies until the session's jobs have ended. */
    static std::string wait(ccd_session *session) {
        std::string all = replies(session);
        for (; (session->flags & k_session_locked) != 0; all += replies(session))
            pump();
        return all;
    }

    /* One turn of the loop, for the pipes of jobs. */
    static void pump() {
        for (fd_callback *cb = g_cb_list; cb; cb = cb->next) {
            pollfd ready{cb->fd, POLLIN, 0};
            if (cb->state == FD_CALLBACK_ACTIVE && cb->type == FD_CALLBACK_READ &&
                poll(&ready, 1, 1) > 0) {
                cb->cb(cb->fd, cb->data);
            }
        }
        session_wait_bg();
        session_sweep();
        for (fd_callback *cb : removal_safe(g_cb_list)) {
            if (cb->state != FD_CALLBACK_FINISHED) continue;
            close(cb->fd);
            loop_del_callback(cb);
        }
    }

    std::string read_file(const std::string &name) const {
        std::ifstream file(dir + "/" + name);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::string dir;
    felib_base *base = nullptr;
};

#endif
