#include <cstring>
#include <new>
#include <string>

#include "fe/fe.h"
#include "functions/functions.h"
#include "tree/arguments.h"
#include "tree/param_ops.h"
#include "ucfgd/escape.h"
#include "ucfgd/owners.h"

/* Parameters for expressions: the operations of tree/param_ops.h on both trees, in the transaction
 * of the calling expression. A wrong number of arguments and an operation that did not work answer
 * the empty text, or "0" where that is said; only a shortage of memory is a failure. */

namespace {

using owned_lines = owned<line, destroy_line_list>;

/* "1", or the empty text. */
fe_node *done_answer(bool done, const memory_watch &memory) {
    return done ? const_node("1") : answer_unless_short(memory, "");
}

backend_ctx *transaction_of(const fe_context *ctx) {
    return static_cast<backend_ctx *>(ctx->user_data);
}

/* The texts behind the first argument, as the list that operations take. */
owned_lines rest_of(const call_arguments &args) {
    list_builder<line> lines;
    for (const fe_node *argument = args.first()->next; argument; argument = argument->next) {
        line *l = create_line(argument->text);
        if (!l) {
            destroy_line_list(lines.release());
            throw std::bad_alloc{};
        }
        lines.append(l);
    }
    return owned_lines{lines.release()};
}

fe_node *fe_func_paramget(fe_context *ctx, fe_node *call) {
    memory_watch memory;
    call_arguments args{ctx, call};
    if (args.count() != 1) return answer_wrong_count(memory, args);
    owned_str value{ccd_param_get(g_ccdtree, transaction_of(ctx), args[0])};
    if (!value) return answer_unless_short(memory, "");
    return const_node(unescape_b(value.get(), value.get()));
}

using value_operation = int (*)(ccdtree_node *, backend_ctx *, const char *, const char *);

template <value_operation operation>
fe_node *change_parameter(fe_context *ctx, fe_node *call) {
    memory_watch memory;
    call_arguments args{ctx, call};
    if (args.count() != 2) return answer_wrong_count(memory, args);
    bool done = operation(g_ccdtree, transaction_of(ctx), args[0], args[1]) == 0;
    return done_answer(done, memory);
}

fe_node *fe_func_parammove(fe_context *ctx, fe_node *call) {
    memory_watch memory;
    call_arguments args{ctx, call};
    if (args.count() != 3) return answer_wrong_count(memory, args);
    bool done = ccd_param_move(g_ccdtree, transaction_of(ctx), args[0], args[1], args[2]) == 0;
    return done_answer(done, memory);
}

template <ccdtree_node **tree>
fe_node *list_names(fe_context *ctx, fe_node *call) {
    memory_watch memory;
    call_arguments args{ctx, call};
    if (args.count() != 1) return answer_wrong_count(memory, args);
    owned_lines names{ccd_param_list(*tree, transaction_of(ctx), args[0], nullptr, 0)};
    if (!names) return answer_unless_short(memory, "");
    node_list result;
    for (const line *name = names.get(); name; name = name->next) {
        result.append(name->line);
    }
    return result.release();
}

template <ccdtree_node **tree>
fe_node *entry_exists(fe_context *ctx, fe_node *call) {
    memory_watch memory;
    call_arguments args{ctx, call};
    if (args.count() != 1) return answer_wrong_count(memory, args);
    const char *entry = args[0];
    const char *dot = std::strrchr(entry, '.');
    std::string path = dot ? std::string(entry, dot) : std::string();
    int exists = ccd_node_exists(*tree, transaction_of(ctx), path.c_str(), dot ? dot + 1 : entry);
    return exists ? const_node("1") : answer_unless_short(memory, "0");
}

fe_node *fe_func_paramfound(fe_context *ctx, fe_node *call) {
    memory_watch memory;
    call_arguments args{ctx, call};
    if (args.count() != 1) return answer_wrong_count(memory, args, "0");
    bool found = ccd_param_is_there(g_ccdtree, transaction_of(ctx), args[0]) != 0;
    return found ? const_node("1") : answer_unless_short(memory, "0");
}

using node_text = char *(*)(ccdtree_node *, backend_ctx *, const char *);

/* What a management node says about itself, which no command of the protocol asks for. */
template <node_text text_of>
fe_node *describe_node(fe_context *ctx, fe_node *call) {
    memory_watch memory;
    call_arguments args{ctx, call};
    if (args.count() != 1) return answer_wrong_count(memory, args);
    owned_str text{text_of(g_mgmttree, transaction_of(ctx), args[0])};
    if (!text) return answer_unless_short(memory, "");
    return const_node(unescape_b(text.get(), text.get()));
}

fe_node *fe_func_mgmtinfo(fe_context *ctx, fe_node *call) {
    memory_watch memory;
    call_arguments args{ctx, call};
    if (args.count() == 0) return answer_wrong_count(memory, args);
    owned_lines rest = rest_of(args);
    owned_str text{ccd_param_info(g_mgmttree, transaction_of(ctx), args[0], rest.get(), ctx)};
    return text ? const_node(text.get()) : answer_unless_short(memory, "");
}

fe_node *fe_func_mgmtadmin(fe_context *ctx, fe_node *call) {
    memory_watch memory;
    call_arguments args{ctx, call};
    if (args.count() == 0) return answer_wrong_count(memory, args);
    owned_lines rest = rest_of(args);
    int code = ccd_param_admin(g_mgmttree, transaction_of(ctx), args[0], rest.get(), ctx);
    return code == 0 ? const_node("1") : answer_unless_short(memory, "0");
}

/* Evaluates its argument where no session has changed anything yet. */
fe_node *fe_func_committed(fe_context *ctx, fe_node *call) {
    const owned<fe_context, destroy_fe_context> inner{create_fe_context(ctx, g_trns_ctx)};
    return inner ? eval_fe_expr_list(inner.get(), call->first_child) : nullptr;
}

fe_node *fe_func_seterror(fe_context *ctx, fe_node *call) {
    memory_watch memory;
    call_arguments args{ctx, call};
    if (args.count() >= 1) ccd_set_error(args[0], args.count() > 1 ? args[1] : nullptr);
    if (args.count() > 2) {
        for (const fe_node *more = args.first()->next->next; more; more = more->next) {
            ccd_add_error_arg(more->text);
        }
    }
    return answer_unless_short(memory, "");
}

fe_node *fe_func_clearerror(fe_context *ctx, fe_node *call) {
    memory_watch memory;
    call_arguments args{ctx, call};
    if (args.count() == 1) ccd_clear_error();
    return const_node("1");
}

constexpr fe_function fe_func_paramset = change_parameter<ccd_param_set>;
constexpr fe_function fe_func_paramsanity = change_parameter<ccd_param_sanity>;
constexpr fe_function fe_func_paramadd = change_parameter<ccd_param_add>;
constexpr fe_function fe_func_paramdel = change_parameter<ccd_param_del>;
constexpr fe_function fe_func_paramlist = list_names<&g_ccdtree>;
constexpr fe_function fe_func_mgmtlist = list_names<&g_mgmttree>;
constexpr fe_function fe_func_mgmthelp = describe_node<ccd_param_help>;
constexpr fe_function fe_func_mgmtargs = describe_node<ccd_param_args>;
constexpr fe_function fe_func_paramexists = entry_exists<&g_ccdtree>;
constexpr fe_function fe_func_mgmtexists = entry_exists<&g_mgmttree>;

struct native_function {
    const char *name;
    fe_function function;
};

/* In the order in which they are registered. */
constexpr native_function k_functions[] = {
    {"paramget", guarded<fe_func_paramget>},       {"paramset", guarded<fe_func_paramset>},
    {"paramsanity", guarded<fe_func_paramsanity>}, {"paramadd", guarded<fe_func_paramadd>},
    {"paramdel", guarded<fe_func_paramdel>},       {"parammove", guarded<fe_func_parammove>},
    {"paramlist", guarded<fe_func_paramlist>},     {"paramexists", guarded<fe_func_paramexists>},
    {"mgmtlist", guarded<fe_func_mgmtlist>},       {"mgmtexists", guarded<fe_func_mgmtexists>},
    {"mgmtinfo", guarded<fe_func_mgmtinfo>},       {"mgmtadmin", guarded<fe_func_mgmtadmin>},
    {"seterror", guarded<fe_func_seterror>},       {"clearerror", guarded<fe_func_clearerror>},
    {"mgmthelp", guarded<fe_func_mgmthelp>},       {"mgmtargs", guarded<fe_func_mgmtargs>},
    {"paramfound", guarded<fe_func_paramfound>},   {"committed", guarded<fe_func_committed>},
};

/* As pure as the methods that they evaluate, whose steps count one by one. */
constexpr const char *k_pure[] = {"paramget", "paramlist", "paramexists", "paramfound",
                                  "committed"};

}  // namespace

fe_def *fe_register_paramfuncs(fe_def *list) {
    for (const native_function &function : k_functions) {
        list = fe_register_func(list, function.name, function.function, nullptr);
    }
    for (const char *name : k_pure)
        fe_mark_pure(list, name);
    return list;
}
