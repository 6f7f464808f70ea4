#ifndef SESSION_FIXTURE_H
#define SESSION_FIXTURE_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <libdaemon/dlog.h>
#include <poll.h>
#include <sys/socket.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "auth/session_auth.h"
#include "auth/session_users.h"
#include "daemon/dirs.h"
#include "fe/fe.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "session/bgexec.h"
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

struct test_state {
    values current;
    bool dirty = false;
};

inline test_state &state_of(const trns_ctx_item *item) {
    return *static_cast<test_state *>(item->data);
}

inline int load_values(trns_ctx_item *item) {
    test_state loaded;
    std::ifstream file(g_values_file);
    for (std::string name, value; file >> name >> value;)
        loaded.current[name] = value;
    state_of(item) = loaded;
    return 0;
}

inline int revert_values(trns_ctx_item *item) {
    if (!item->parent) return load_values(item);
    revert_values(item->parent);
    state_of(item) = state_of(item->parent);
    return 0;
}

/* "errno" holds the error that a commit ends with, "crash" makes it die. */
inline int commit_values(trns_ctx_item *item) {
    const values &all = state_of(item).current;
    if (all.contains("crash")) abort();
    if (all.contains("errno")) return errno = std::stoi(all.at("errno"));
    std::ofstream file(g_values_file);
    for (const auto &[name, value] : all)
        file << name << ' ' << value << '\n';
    std::cout << "noise that no client sees" << std::endl;
    return 0;
}

inline void register_backend() {
    register_trns_interface(
        7, [](trns_ctx_item *item) { return item->data = new test_state, 0; },
        [](trns_ctx_item *item) { return delete &state_of(item), 0; },
        [](trns_ctx_item *item, trns_ctx_item *parent) {
            return item->data = new test_state{state_of(parent).current}, 0;
        },
        [](trns_ctx_item *item) {
            if (!item->parent || !state_of(item).dirty) return 0;
            state_of(item->parent) = {state_of(item).current, true};
            return 0;
        },
        [](trns_ctx_item *) { return 0; }, commit_values, revert_values,
        [](trns_ctx_item *item) { return state_of(item).dirty ? 1 : 0; });
}

/* fetch(name) fails for a name without a value; store(name, value); print comes with the library.
 */
inline fe_node *fetch(fe_context *ctx, fe_node *call) {
    const owned<fe_node, destroy_fe_node_list> name{eval_fe_expr_list(ctx, call->first_child)};
    const auto *item = trns_find_ctx_byid(static_cast<trns_ctx *>(ctx->user_data), 7);
    const values &all = state_of(item).current;
    const auto found = all.find(name->text);
    if (found == all.end()) return nullptr;
    return create_fe_node(g_fed_const, found->second.c_str());
}

inline fe_node *store(fe_context *ctx, fe_node *call) {
    const owned<fe_node, destroy_fe_node_list> pair{eval_fe_expr_list(ctx, call->first_child)};
    const auto *item = trns_find_ctx_byid(static_cast<trns_ctx *>(ctx->user_data), 7);
    state_of(item).current[pair->text] = pair->next->text;
    state_of(item).dirty = true;
    return create_fe_node(g_fed_const, "1");
}

inline fe_node *complain(fe_context *, fe_node *) {
    ccd_set_error("no such\nthing", "error.thing");
    ccd_add_error_arg("a1");
    return create_fe_node(g_fed_const, "0");
}

/* act(command): a management action. */
inline fe_node *act(fe_context *ctx, fe_node *call) {
    const owned<fe_node, destroy_fe_node_list> words{eval_fe_expr_list(ctx, call->first_child)};
    return system(words->text) == 0 ? create_fe_node(g_fed_const, "1") : nullptr;
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
        g_session_timeout = 1800;
        g_access_override = 0;
        register_all();
        if (!g_trns_iface_list) register_backend();
        g_trns_ctx = trns_create_ctx();
        base = create_felib_base();
        base->fed_list = fe_register_felib_funcs(nullptr);
        const std::pair<const char *, fe_function> functions[] = {
            {"fetch", fetch}, {"store", store}, {"complain", complain}, {"act", act}};
        for (const auto &[name, function] : functions) {
            base->fed_list = fe_register_func(base->fed_list, name, function, nullptr);
        }
        g_ccdtree = create_ccdtree();
        g_mgmttree = create_ccdtree();
        g_conftree = create_cnfnode("(root)");
        const std::pair<const char *, int> users[] = {{"admin", 7}, {"reader", 4}, {".other", 6}};
        for (const auto &[name, perms] : users) {
            session_user *user = create_session_user(name);
            user->perms = perms;
            g_users_list = append_session_user(g_users_list, user);
        }
        cnfnode *method = create_cnfnode("authtype:");
        cnfnode_setval(method, "debug");
        cnfnode *listen = create_cnfnode("listen");
        cnfnode *local = create_cnfnode("local");
        append_node(g_conftree, listen);
        append_node(listen, local);
        append_node(local, method);
    }

    void TearDown() override {
        while (g_bgexec_ctx_list)
            pump();
        for (ccd_session *session : removal_safe(g_session_list))
            session_discard(session);
        pump();
        EXPECT_EQ(g_session_list, nullptr);
        EXPECT_EQ(g_cb_list, nullptr);
        ccd_clear_error();
        destroy_ccdtree(std::exchange(g_ccdtree, nullptr));
        destroy_ccdtree(std::exchange(g_mgmttree, nullptr));
        destroy_cnftree(std::exchange(g_conftree, nullptr));
        destroy_session_user_list(std::exchange(g_users_list, nullptr));
        destroy_felib_base(base);
        trns_destroy_ctx(std::exchange(g_trns_ctx, nullptr));
        ucfgd_conffilesprefix = nullptr;
        tavevent_set_file(nullptr);
        g_uptime_source = nullptr;
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
        EXPECT_EQ(session->state, k_session_logged);
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
    static std::string send(ccd_session *session, const std::string &bytes) {
        databuf_add(session->inbuf, bytes.data(), static_cast<int>(bytes.size()));
        session_process_input(session);
        return replies(session);
    }
    /* One request a line; the last newline is added. */
    static std::string ask(ccd_session *session, const std::string &lines) {
        return send(session, lines + "\n");
    }
    /* The replies until the session's jobs have ended. */
    static std::string wait(ccd_session *session) {
        while ((session->flags & k_session_locked) != 0)
            pump();
        return replies(session);
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
