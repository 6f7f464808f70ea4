#include "daemon/definitions.h"

#include <libdaemon/daemon.h>
#include <syslog.h>

#include <utility>

#include "backend/ll_trns.h"
#include "backend/registry.h"
#include "backend/whole_commit.h"
#include "daemon/dirs.h"
#include "daemon/startup.h"
#include "fe/fe.h"
#include "functions/functions.h"
#include "session/commit_orders.h"
#include "session/commit_preview.h"
#include "session/daemonfuncs.h"
#include "session/history_functions.h"
#include "session/trial_functions.h"
#include "tree/ccdtree.h"
#include "tree/features.h"
#include "tree/trns.h"
#include "tree/types.h"
#include "ucfgd/owners.h"

felib_base *g_fel_base = nullptr;

namespace {

using function_family = fe_def *(*)(fe_def *list);

/* A later family wins where two have the same name. */
constexpr function_family k_families[] = {
    fe_register_felib_funcs,   fe_register_network_sanity_funcs, fe_register_llfuncs,
    fe_register_llmiscfuncs,   fe_register_llmgettyfuncs,        fe_register_lltavfuncs,
    fe_register_paramfuncs,    fe_register_adm_network_funcs,    fe_register_adm_misc_funcs,
    fe_register_typefuncs,     fe_register_daemonfuncs,          fe_register_history_functions,
    fe_register_commit_orders, fe_register_commit_preview,       fe_register_trialfuncs,
};

void read_modules(const config_files &files) {
    owned_str name{needed(prefix_ucfgdconffilename(files.modules))};
    register_llconf_all(name.get(), g_fel_base->fed_list);
}

/* What the daemon works with, apart from modules: for as long as one of these lives, the globals
 * are free for others. */
class definitions_aside {
  public:
    definitions_aside() {
        std::swap(base_, g_fel_base);
        std::swap(types_, g_types);
        std::swap(parameters_, g_ccdtree);
        std::swap(management_, g_mgmttree);
    }
    definitions_aside(const definitions_aside &) = delete;
    definitions_aside &operator=(const definitions_aside &) = delete;
    ~definitions_aside() {
        if (!replaced_) {
            std::swap(base_, g_fel_base);
            std::swap(types_, g_types);
            std::swap(parameters_, g_ccdtree);
            std::swap(management_, g_mgmttree);
        }
        destroy_ccdtree(parameters_);
        destroy_ccdtree(management_);
        destroy_ccd_type_list(types_);
        destroy_felib_base(base_);
    }
    /* The others stay. */
    void replaced() { replaced_ = true; }

  private:
    felib_base *base_ = nullptr;
    ccd_type *types_ = nullptr;
    ccdtree_node *parameters_ = nullptr;
    ccdtree_node *management_ = nullptr;
    bool replaced_ = false;
};

}  // namespace

felib_base *init_felib(void) {
    felib_base *base = create_felib_base();
    if (!base) return nullptr;
    for (function_family add : k_families)
        base->fed_list = add(base->fed_list);
    return base;
}

void definitions_step_done() {
    daemon_log(LOG_INFO, "\tdone.");
}

void definitions_read_functions(const config_files &files, bool dumping) {
    daemon_log(LOG_INFO, "initializing felib...");
    g_fel_base = needed(init_felib());
    definitions_step_done();
    if (files.features && !dumping) config_feature_modules_lib(g_fel_base, files.features);
    daemon_log(LOG_INFO, "parsing functions...");
    ccdtree_readconf_functions(files.functions, g_fel_base->fed_list);
    definitions_step_done();
}

void definitions_read_modules(const config_files &files, bool dumping) {
    ll_register_tctx_interface();
    g_trns_ctx = needed(trns_create_ctx());
    if (!dumping) {
        daemon_log(LOG_INFO, "parsing modules configuration...");
        read_modules(files);
        put_back_set_commands(put_back_commands);
        definitions_step_done();
    }
    daemon_log(LOG_INFO, "initializing backend transaction management...");
    definitions_step_done();
}

void definitions_read_trees(const config_files &files, bool dumping) {
    daemon_log(LOG_INFO, "loading types...");
    g_types = types_readconf(files.types, g_fel_base->fed_list);
    definitions_step_done();
    daemon_log(LOG_INFO, "parsing parameter tree...");
    g_ccdtree = needed(create_ccdtree());
    ccdtree_readconf(g_ccdtree, files.param, g_fel_base->fed_list);
    definitions_step_done();
    daemon_log(LOG_INFO, "parsing management tree from '%s'...", files.management);
    g_mgmttree = needed(create_ccdtree());
    ccdtree_readconf(g_mgmttree, files.management, g_fel_base->fed_list);
    definitions_step_done();
    if (files.features)
        config_feature_modules(g_ccdtree, g_mgmttree, g_fel_base, files.features, !dumping);
    ccdtree_postprocess(g_ccdtree, 0, 0);
    ccdtree_postprocess(g_mgmttree, 1, 0);
}

void definitions_read_anew(const config_files &files, module_goes tell) {
    definitions_aside old;
    definitions_read_functions(files, false);
    llconf_redefine_begin(tell);
    read_modules(files);
    definitions_read_trees(files, false);
    llconf_redefine_end();
    old.replaced();
}
