#ifndef TREE_FIXTURE_H
#define TREE_FIXTURE_H

#include <gtest/gtest.h>
#include <libdaemon/dlog.h>
#include <sys/stat.h>
#include <syslog.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "daemon/dirs.h"
#include "daemon/trace.h"
#include "fe/fe.h"
#include "functions/functions.h"
#include "llconf/modules.h"
#include "tree/ccdtree.h"
#include "tree/param_failure.h"
#include "tree/param_ops.h"
#include "ucfgd/owners.h"

/* What the expressions of the tests write with store(name, value). */
inline std::map<std::string, std::string> g_store;

/* A scratch root file system with definition files, a tree read from them, and the log. */
class tree_test : public testing::Test {
  protected:
    void SetUp() override {
        std::string pattern = testing::TempDir() + "tree[x]XXXXXX";
        dir = mkdtemp(pattern.data());
        ucfgd_conffilesprefix = dir.data();
        register_all();
        g_store.clear();
        base = create_felib_base();
        base->fed_list =
            fe_register_typefuncs(fe_register_paramfuncs(fe_register_felib_funcs(nullptr)));
        base->fed_list = fe_register_func(base->fed_list, "store", store, nullptr);
        g_ccdtree = create_ccdtree();
        g_mgmttree = create_ccdtree();
        daemon_log_use = DAEMON_LOG_STDERR;
        daemon_set_verbosity(LOG_DEBUG);
        testing::internal::CaptureStderr();
    }

    void TearDown() override {
        testing::internal::GetCapturedStderr();
        ccd_clear_error();
        destroy_ccdtree(std::exchange(g_ccdtree, nullptr));
        destroy_ccdtree(std::exchange(g_mgmttree, nullptr));
        destroy_ccd_type_list(std::exchange(g_types, nullptr));
        destroy_felib_base(base);
        ucfgd_conffilesprefix = nullptr;
        std::filesystem::remove_all(dir);
    }

    void file(const std::string &name, const std::string &text) const {
        std::filesystem::create_directories(std::filesystem::path(dir + name).parent_path());
        std::ofstream(dir + name) << text;
    }

    /* Reads a definition file of that text into the parameter tree. */
    void define(const std::string &text) {
        file("/etc/param.conf", text);
        ccdtree_readconf(g_ccdtree, "/etc/param.conf", base->fed_list);
    }
    void define_types(const std::string &text) {
        file("/etc/types.conf", text);
        g_types = types_readconf("/etc/types.conf", base->fed_list);
    }

    /* The lines logged since the last call. */
    static std::vector<std::string> log() {
        std::istringstream text(testing::internal::GetCapturedStderr());
        testing::internal::CaptureStderr();
        std::vector<std::string> lines;
        for (std::string logged; std::getline(text, logged);) {
            if (!logged.empty()) lines.push_back(logged);
        }
        return lines;
    }

    static std::string text_of(char *text) {
        owned_str own{text};
        return own ? own.get() : "(none)";
    }
    static std::string get(const char *path, ccdtree_node *root = g_ccdtree) {
        return text_of(ccd_param_get(root, nullptr, path));
    }
    /* The lines of a list with a comma between them. */
    static std::string joined(line *list) {
        std::string all;
        for (const line *l = list; l; l = l->next) {
            all += (l == list ? "" : ",") + std::string(l->line);
        }
        destroy_line_list(list);
        return all;
    }
    static std::string list(const char *path, int recurse = 0) {
        return joined(ccd_param_list(g_ccdtree, nullptr, path, nullptr, recurse));
    }
    std::string evaluate(const char *text) const {
        owned<fe_node, destroy_fe_node_tree> expression{parse_fe_expression(text, base->fed_list)};
        owned<fe_context, destroy_fe_context> ctx{create_fe_context(nullptr, nullptr)};
        owned<fe_node, destroy_fe_node_list> result{
            eval_fe_expression(ctx.get(), expression.get())};
        std::string all;
        for (const fe_node *n = result.get(); n; n = n->next) {
            all += (n == result.get() ? "" : ",") + std::string(n->text);
        }
        return result ? all : "(none)";
    }

    std::string dir;
    felib_base *base = nullptr;

  private:
    static fe_node *store(fe_context *ctx, fe_node *call) {
        owned<fe_node, destroy_fe_node_list> pair{eval_fe_expr_list(ctx, call->first_child)};
        g_store[pair->text] = pair->next->text;
        return create_fe_node(g_fed_const, "1");
    }
};

using log_lines = std::vector<std::string>;

#endif
