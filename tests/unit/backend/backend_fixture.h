#ifndef BACKEND_FIXTURE_H
#define BACKEND_FIXTURE_H

#include <gtest/gtest.h>
#include <libdaemon/dlog.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "backend/file_io.h"
#include "backend/ll_trns.h"
#include "backend/registry.h"
#include "daemon/dirs.h"
#include "fe/fe.h"
#include "functions/functions.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "llconf/path.h"
#include "tree/param_error.h"
#include "ucfgd/owners.h"

using owned_ctx = owned<trns_ctx, trns_destroy_ctx>;

/* A scratch root with a master context over it. */
class backend_test : public testing::Test {
  protected:
    backend_test() {
        char name[] = "/tmp/backend-test-XXXXXX";
        root = mkdtemp(name);
        g_filesprefix = root.data();
        register_all();
        if (!g_trns_iface_list) ll_register_tctx_interface();
        g_trns_ctx = trns_create_ctx();
        functions = fe_register_llfuncs(fe_register_felib_funcs(nullptr));
        functions = fe_register_lltavfuncs(fe_register_llmgettyfuncs(functions));
        functions = fe_register_llmiscfuncs(functions);
        daemon_log_use = DAEMON_LOG_STDERR;
        testing::internal::CaptureStderr();
    }
    ~backend_test() override {
        trns_destroy_ctx(std::exchange(g_trns_ctx, nullptr));
        destroy_fe_def_list(functions);
        g_filesprefix = nullptr;
        ccd_clear_error();
        testing::internal::GetCapturedStderr();
        std::filesystem::remove_all(root);
    }

    /* What of these has not been logged since the last call, and the log when there is such a text;
     * empty when all have. */
    static std::string unlogged(std::initializer_list<std::string> texts) {
        std::string log = testing::internal::GetCapturedStderr();
        testing::internal::CaptureStderr();
        std::string missing;
        for (const std::string &text : texts)
            if (log.find(text) == std::string::npos) missing += text + "\nin\n" + log;
        return missing;
    }
    std::string path(const std::string &name) const { return root + "/" + name; }
    void put(const std::string &name, const std::string &text) const {
        std::ofstream(path(name)) << text;
    }
    std::string get(const std::string &name) const {
        std::ifstream file(path(name));
        return {std::istreambuf_iterator<char>(file), {}};
    }
    int modules(const std::string &text) const {
        put("modules.conf", text);
        return register_llconf_all(path("modules.conf").c_str(), functions);
    }
    static llconf_item *item(const char *name, trns_ctx *ctx = g_trns_ctx) {
        return find_llconf_item(lli_list_from_trns_ctx(ctx), name);
    }
    /* The results of an expression, joined by blanks; "(failed)" when there is none. */
    std::string eval(const std::string &text, trns_ctx *ctx = g_trns_ctx) const {
        owned<fe_node, destroy_fe_node_tree> parsed{parse_fe_expression(text.c_str(), functions)};
        owned<fe_context, destroy_fe_context> context{create_fe_context(nullptr, ctx)};
        owned<fe_node, destroy_fe_node_list> result{
            eval_fe_expression(context.get(), parsed.get())};
        std::string joined = result ? result->text : "(failed)";
        for (const fe_node *node = result ? result->next : nullptr; node; node = node->next)
            joined += " " + std::string(node->text);
        return joined;
    }

    std::string root;
    fe_def *functions = nullptr;
};

#endif
