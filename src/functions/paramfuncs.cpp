#include <cstdlib>
#include <cstring>
#include <string>

#include "fe/fe.h"
#include "functions/functions.h"
#include "tree/param_ops.h"
#include "ucfgd/escape.h"
#include "ucfgd/owners.h"

/* Parameters for expressions: the operations of tree/param_ops.h on both trees, in the transaction
 * of the calling expression. None of these functions fails: a wrong number of arguments and an
 * operation that did not work answer the empty text, or "0" where that is said. */

namespace {

using owned_result = owned<fe_node, destroy_fe_node_list>;
using owned_lines = owned<line, destroy_line_list>;

fe_node *answer(const char *text) {
    return create_fe_node(g_fed_const, text);
}

fe_node *empty_answer() {
    return answer("");
}

backend_ctx *transaction_of(const fe_context *ctx) {
    return static_cast<backend_ctx *>(ctx->user_data);
}

/* The evaluated arguments of one call. */
class arguments {
  public:
    arguments(fe_context *ctx, const fe_node *call)
        : list_(eval_fe_expr_list(ctx, call->first_child)), count_(fe_argc(list_.get())) {}
    int count() const { return count_; }
    const fe_node *node(int index) const {
        const fe_node *n = list_.get();
        while (index-- > 0) {
            n = n->next;
        }
        return n;
    }
    const char *text(int index) const { return node(index)->text; }
    /* The texts behind the first argument, as the list that operations take. */
    owned_lines rest() const {
        list_builder<line> lines;
        for (const fe_node *n = list_->next; n; n = n->next) {
            line *l = create_line(n->text);
            if (!l) break;
            lines.append(l);
        }
        return owned_lines{lines.release()};
    }

  private:
    owned_result list_;
    int count_;
};

fe_node *fe_func_paramget(fe_context *ctx, fe_node *call) {
    arguments args{ctx, call};
    if (args.count() != 1) return empty_answer();
    owned_str value{ccd_param_get(g_ccdtree, transaction_of(ctx), args.text(0))};
    return value ? answer(unescape_b(value.get(), value.get())) : empty_answer();
}

using value_operation = int (*)(ccdtree_node *, backend_ctx *, const char *, const char *);

template <value_operation operation>
fe_node *change_parameter(fe_context *ctx, fe_node *call) {
    arguments args{ctx, call};
    if (args.count() != 2) return empty_answer();
    bool done = operation(g_ccdtree, transaction_of(ctx), args.text(0), args.text(1)) == 0;
    return answer(done ? "1" : "");
}

fe_node *fe_func_parammove(fe_context *ctx, fe_node *call) {
    arguments args{ctx, call};
    if (args.count() != 3) return empty_answer();
    bool done = ccd_param_move(g_ccdtree, transaction_of(ctx), args.text(0), args.text(1),
                               args.text(2)) == 0;
    return answer(done ? "1" : "");
}

template <ccdtree_node **tree>
fe_node *list_names(fe_context *ctx, fe_node *call) {
    arguments args{ctx, call};
    if (args.count() != 1) return empty_answer();
    owned_lines names{ccd_param_list(*tree, transaction_of(ctx), args.text(0), nullptr, 0)};
    list_builder<fe_node> result;
    for (const line *name = names.get(); name; name = name->next) {
        fe_node *node = answer(name->line);
        if (!node) break;
        result.append(node);
    }
    return result.empty() ? empty_answer() : result.release();
}

template <ccdtree_node **tree>
fe_node *entry_exists(fe_context *ctx, fe_node *call) {
    arguments args{ctx, call};
    if (args.count() != 1) return empty_answer();
    const char *entry = args.text(0);
    const char *dot = std::strrchr(entry, '.');
    std::string path = dot ? std::string(entry, dot) : std::string();
    int exists = ccd_node_exists(*tree, transaction_of(ctx), path.c_str(), dot ? dot + 1 : entry);
    return answer(exists != 0 ? "1" : "0");
}

fe_node *fe_func_mgmtinfo(fe_context *ctx, fe_node *call) {
    arguments args{ctx, call};
    if (args.count() == 0) return empty_answer();
    owned_lines rest = args.rest();
    owned_str text{ccd_param_info(g_mgmttree, transaction_of(ctx), args.text(0), rest.get(), ctx)};
    return answer(text ? text.get() : "");
}

fe_node *fe_func_mgmtadmin(fe_context *ctx, fe_node *call) {
    arguments args{ctx, call};
    if (args.count() == 0) return empty_answer();
    owned_lines rest = args.rest();
    int code = ccd_param_admin(g_mgmttree, transaction_of(ctx), args.text(0), rest.get(), ctx);
    return answer(code == 0 ? "1" : "0");
}

fe_node *fe_func_seterror(fe_context *ctx, fe_node *call) {
    arguments args{ctx, call};
    if (args.count() >= 1) ccd_set_error(args.text(0), args.count() > 1 ? args.text(1) : nullptr);
    if (args.count() > 2) {
        for (const fe_node *argument = args.node(2); argument; argument = argument->next) {
            ccd_add_error_arg(argument->text);
        }
    }
    return empty_answer();
}

fe_node *fe_func_clearerror(fe_context *ctx, fe_node *call) {
    arguments args{ctx, call};
    if (args.count() == 1) ccd_clear_error();
    return answer("1");
}

struct native_function {
    const char *name;
    fe_function function;
};

constexpr native_function k_functions[] = {
    {"paramget", fe_func_paramget},
    {"paramset", change_parameter<ccd_param_set>},
    {"paramsanity", change_parameter<ccd_param_sanity>},
    {"paramadd", change_parameter<ccd_param_add>},
    {"paramdel", change_parameter<ccd_param_del>},
    {"parammove", fe_func_parammove},
    {"paramlist", list_names<&g_ccdtree>},
    {"paramexists", entry_exists<&g_ccdtree>},
    {"mgmtlist", list_names<&g_mgmttree>},
    {"mgmtexists", entry_exists<&g_mgmttree>},
    {"mgmtinfo", fe_func_mgmtinfo},
    {"mgmtadmin", fe_func_mgmtadmin},
    {"seterror", fe_func_seterror},
    {"clearerror", fe_func_clearerror},
};

}  // namespace

fe_def *fe_register_paramfuncs(fe_def *list) {
    for (const native_function &function : k_functions) {
        list = fe_register_func(list, function.name, function.function, nullptr);
    }
    return list;
}
