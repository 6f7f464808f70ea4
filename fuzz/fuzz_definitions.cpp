#include <fcntl.h>
#include <libdaemon/dlog.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "auth/session_users.h"
#include "backend/ll_trns.h"
#include "backend/registry.h"
#include "daemon/config.h"
#include "daemon/dirs.h"
#include "fe/fe.h"
#include "functions/functions.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "session/limits.h"
#include "tree/features.h"
#include "tree/param_path.h"
#include "tree/trns.h"
#include "ucfgd/owners.h"

/* The daemon's own files. The first byte chooses the kind, the rest is the file. Whatever stands in
 * it, it is read, what it made can be used, and goes again without a rest. No command that it names
 * is run, and no file outside of an empty directory is read. */

namespace {

using node_list = owned<fe_node, destroy_fe_node_list>;
using base_ptr = owned<felib_base, destroy_felib_base>;

void require(bool condition) {
    if (!condition) std::abort();
}

/* Neither this process nor its children can become another program. */
void forbid_commands() {
    sock_filter rules[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_execve, 1, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_execveat, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    sock_fprog program{sizeof rules / sizeof rules[0], rules};
    require(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0);
    require(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0);
}

base_ptr functions() {
    base_ptr base{create_felib_base()};
    base->fed_list = fe_register_paramfuncs(fe_register_llfuncs(fe_register_felib_funcs(nullptr)));
    return base;
}

void read_main(const char *file) {
    owned<cnfnode, destroy_cnftree> root{cnfmodule_parse_file(find_cnfmodule("tavconf"), file)};
    if (!root) return;
    strip_cnftree(root.get());
    require(read_config_files(root.get()).param != nullptr);
    parse_config(root.get());
    for (int id = 0; id < k_limit_count; id++)
        require(limit_value(static_cast<limit_id>(id)) >= 0);
    const owned<session_user, destroy_session_user_list> users{
        read_session_users(find_node(root->first_child, "users"))};
    require(!users || find_session_user_or_default(users.get(), "root"));
}

/* The tree can be dumped, and every path that its nodes give leads down from the root. */
void check_tree(ccdtree_node *root) {
    ccdtree_postprocess(root, 0, 0);
    owned<cnfnode, destroy_cnftree> dumped{create_cnfnode("(root)")};
    dump_ccdtree(dumped.get(), root);
    for (ccdtree_node *node = root->first_child; node; node = node->next) {
        const owned_str name{get_ccdtree_path(node)};
        const owned<param_path, destroy_param_path> path{find_ccd_param(name.get(), root)};
        require(!path || path->last->ccd->parent == root);
    }
}

void read_tree(const char *file) {
    const base_ptr base = functions();
    const owned<ccdtree_node, destroy_ccdtree> root{create_ccdtree()};
    ccdtree_readconf(root.get(), file, base->fed_list);
    check_tree(root.get());
}

void read_types(const char *file) {
    const base_ptr base = functions();
    const owned<ccd_type, destroy_ccd_type_list> types{types_readconf(file, base->fed_list)};
    for (const ccd_type *type = types.get(); type; type = type->next) {
        for (const char *value : {"", "a", "42", "a,b\nc"})
            require((is_type(nullptr, type, value) & ~1) == 0);
        node_list choices{eval_fe_expression(nullptr, get_type_choices_func(type))};
        require(get_type_len(type) >= 0);
    }
}

void read_functions(const char *file) {
    const base_ptr base = functions();
    ccdtree_readconf_functions(file, base->fed_list);
    const node_list call{parse_fe_expression("f('a', 'b')", base->fed_list)};
    if (call) node_list{eval_fe_expression(nullptr, call.get())};
}

void read_modules(const char *file) {
    const base_ptr base = functions();
    g_trns_ctx = trns_create_ctx();
    register_llconf_all(file, base->fed_list);
    trns_ctx *session = trns_copy_ctx(g_trns_ctx);
    const node_list list{
        parse_fe_expression("lllist('m', '.') .. llget('m', 'a/b')", base->fed_list)};
    fe_context *ctx = create_fe_context(nullptr, nullptr);
    node_list{eval_fe_expression(ctx, list.get())};
    destroy_fe_context(ctx);
    trns_destroy_ctx(session);
    trns_destroy_ctx(std::exchange(g_trns_ctx, nullptr));
}

void read_feature(const char *file) {
    const base_ptr base = functions();
    const owned<ccdtree_node, destroy_ccdtree> param{create_ccdtree()};
    const owned<ccdtree_node, destroy_ccdtree> management{create_ccdtree()};
    config_feature_module(param.get(), management.get(), base.get(), file, 0);
    check_tree(param.get());
    check_tree(management.get());
}

constexpr void (*k_kinds[])(const char *file) = {
    read_main, read_tree, read_types, read_functions, read_modules, read_feature,
};

/* The prefix of all other files that a definition names. */
void set_up_once() {
    static const bool done = [] {
        static char directory[] = "/tmp/fuzz-root-XXXXXX";
        require(mkdtemp(directory) != nullptr);
        g_filesprefix = directory;
        std::atexit([] { rmdir(directory); });
        daemon_set_verbosity(0);
        register_all();
        ll_register_tctx_interface();
        forbid_commands();
        return true;
    }();
    (void)done;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    set_up_once();
    if (size < 1) return 0;
    const unique_fd fd{memfd_create("definitions", MFD_CLOEXEC)};
    require(write(fd.get(), data + 1, size - 1) == static_cast<ssize_t>(size - 1));
    const std::string name = "/proc/self/fd/" + std::to_string(fd.get());
    k_kinds[data[0] % (sizeof k_kinds / sizeof k_kinds[0])](name.c_str());
    return 0;
}
