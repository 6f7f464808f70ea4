// libfe: a small language in which everything is a text and every computation is a call.
//
// An expression is parsed once, when a definition file is read, and evaluated many times, by every
// request that touches its node. So whatever can be decided early is: names of functions are
// resolved when the text is parsed, operators are turned into calls of functions, and names of
// variables become symbols that are compared as pointers. What is left is a walk over the tree:
// constants and variables give a node with their text, a call hands its own node to the function of
// its definition, which evaluates as many of its arguments as it wants. Laziness, loops and
// user-defined functions are just functions that do so in their own way.
//
// The result of everything is a chain of constant nodes, or null for failure. There is no empty
// chain: nothing is one node with the empty text, since a get method that finds nothing answers "".
//
// Who changes what: the tree is never changed by its evaluation, so it may be evaluated again
// while it is being evaluated. Variables are changed by fe_set and by the function "set" alone. The
// results belong to whoever asked; the functions of the library itself read constant and variable
// arguments in place (arguments.h) and make nodes for results only.
//
// What may never happen: that an expression takes the daemon with it. The C stack is bounded by the
// 256 nested calls, time by the ten million nodes, both counted from the outermost evaluation on,
// because native functions evaluate methods of other nodes; memory by the allocator of nodes. A run
// that passes a limit is over: all that it still tries fails at once, and so does its result,
// however much of it was forgiving about failures. So is one that found no memory: what it would go
// on with is not what the file or the client said.
#include "fe/eval.h"

#include <cerrno>
#include <exception>
#include <new>
#include <string>

#include "arguments.h"
#include "internal.h"

namespace fe {

run_state g_run;

namespace {

fe_report_handler g_report_handler = nullptr;

fe_node *evaluate_nothing(fe_context *, fe_node *node) {
    return fe_fail(EINVAL, node->text, "an expression that could not be read");
}

constinit fe_def g_def_unparsed = {nullptr,     "unparsed", evaluate_nothing, nullptr, nullptr,
                                   k_kind_call, 0};

bool is_pure(const fe_def *fed) {
    return fed->private_data != nullptr && fed->private_data->pure;
}

// Calls what a call's function, or its membership, is.
template <class function>
fe_node *run_call(const fe_node *call, function call_it) {
    if (!is_pure(call->fed)) ++g_impure_count;
    if (g_run.depth >= k_max_nested_calls) {
        stop_run("an expression was stopped: more than 256 nested calls", ELOOP);
        return nullptr;
    }
    ++g_run.depth;
    fe_node *result = nullptr;
    try {
        result = call_it(const_cast<fe_node *>(call));
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
    } catch (const std::exception &) {
        // A function of a feature module may be written in C++, too.
        errno = EINVAL;
    }
    --g_run.depth;
    // A function that makes do without what it found no memory for has no result either.
    if (errno == ENOMEM) {
        stop_out_of_memory();
        destroy_fe_node_list(result);
        result = nullptr;
    }
    if (result == nullptr) {
        note_failed_call(call->fed);
    } else {
        forgive_failure();
    }
    return result;
}

fe_node *evaluate_call(fe_context *ctx, const fe_node *call) {
    return run_call(call, [ctx, call](fe_node *node) { return call->fed->function(ctx, node); });
}

// Runs an evaluation as part of the running one, or as an outermost one with meters of its own and
// an errno that holds nothing old.
template <class evaluation>
fe_node *run(evaluation evaluate_it) {
    if (g_run.active) return evaluate_it();
    g_run = {true, 0, 0, k_max_evaluated_nodes};
    g_failure_state = failure_state::none;
    int saved = errno;
    errno = 0;
    fe_node *result = evaluate_it();
    g_run.active = false;
    if (g_run.stopped != 0) {
        destroy_fe_node_list(result);
        return fail_with(g_run.stopped);
    }
    // Whoever asks behind a success whether memory ran out is not to hear of an earlier shortage.
    if (result != nullptr && errno == 0 && saved != ENOMEM) errno = saved;
    return result;
}

fe_node *answer(bool truth) {
    return new_const(truth ? "1" : "0");
}

// For those who answer something else when it fails.
fe_node *evaluate_quietly(fe_context *ctx, const fe_node *first) {
    int saved = errno;
    fe_node *result = eval_fe_expr_list(ctx, first);
    if (result == nullptr) {
        errno = saved;
        forgive_failure();
    }
    return result;
}

int set_parameters(fe_context *inner, const fe_def_internal *def, const arguments &args) {
    const size_t count = def->parameters.size();
    for (size_t i = 0; i < count; ++i) {
        const std::string_view value = i < args.size() ? args[i] : k_empty_text;
        if (set_variable(inner, def->parameters[i], value) != 0) return -1;
    }
    if (args.size() <= count) return 0;
    fe_fail(EINVAL, nullptr, "more arguments than the %zu that it takes", count);
    return -1;
}

}  // namespace

constinit fe_def g_def_const = {nullptr,      "const", evaluate_nothing, nullptr, nullptr,
                                k_kind_const, 0};
constinit fe_def g_def_variable = {nullptr,         "variable", evaluate_nothing, nullptr, nullptr,
                                   k_kind_variable, 0};

fe_node *fail_with(int error) {
    errno = error;
    return nullptr;
}

void report(std::string_view line) {
    if (g_report_handler == nullptr) return;
    try {
        g_report_handler(std::string(line).c_str());
    } catch (const std::bad_alloc &) {
        g_report_handler("out of memory");
    }
}

void report_redefinition(std::string_view name) {
    try {
        report("function '" + std::string(name) + "' is defined again: the later definition wins");
    } catch (const std::bad_alloc &) {
        report("a function is defined again: the later definition wins");
    }
}

void stop_run(const char *reason, int error) {
    if (g_run.stopped == 0) {
        g_run.stopped = error;
        report(reason);
        fe_fail(error, nullptr, "%s", reason);
    }
    g_run.nodes_left = 0;
    errno = g_run.stopped;
}

bool charge_too_many() {
    if (!g_run.active) return true;
    stop_run("an expression was stopped: more than 10000000 evaluated nodes", ELOOP);
    return false;
}

void stop_out_of_memory() {
    if (g_run.active) stop_run("an expression was stopped: out of memory", ENOMEM);
    errno = ENOMEM;
}

fe_node *evaluate(fe_context *ctx, const fe_node *node) {
    if (!charge(1)) return nullptr;
    if (node->fed->private_kind == k_kind_call) return evaluate_call(ctx, node);
    if (node->fed->private_kind == k_kind_const) return new_const(view_of(node));
    return new_const(variable_text(ctx, node));
}

fe_node *evaluate_list(fe_context *ctx, const fe_node *first) {
    if (first != nullptr && first->next == nullptr) return evaluate(ctx, first);
    result_list results;
    for (; first != nullptr; first = first->next) {
        fe_node *result = evaluate(ctx, first);
        if (result == nullptr) return nullptr;
        results.append(result);
    }
    return results.release();
}

namespace {

// Evaluates all lines of the body but the last one, which it leaves to the caller.
template <class last_line>
fe_node *run_body(fe_context *ctx, const fe_node *call, last_line finish) {
    const fe_def_internal *def = call->fed->private_data;
    return with_arguments(ctx, call->first_child, [=](const arguments &args) -> fe_node * {
        context_owner inner(create_inner_context(ctx, context_kind::function));
        if (inner == nullptr || set_parameters(inner.get(), def, args) != 0) return nullptr;
        const fe_node *line = def->body;
        for (; line != nullptr && line->next != nullptr; line = line->next) {
            node_list ignored(evaluate(inner.get(), line));
            if (ignored == nullptr) return nullptr;
        }
        return line != nullptr ? finish(inner.get(), line) : nullptr;
    });
}

}  // namespace

fe_node *call_user_function(fe_context *ctx, fe_node *call) {
    return run_body(ctx, call, evaluate);
}

fe_node *ask_user_function(fe_context *ctx, fe_node *call, const char *text) {
    return run_body(ctx, call, [text](fe_context *inner, const fe_node *line) {
        return ask_one(inner, line, text);
    });
}

fe_node *ask_arguments(fe_context *ctx, fe_node *call, const char *text) {
    return ask_list(ctx, call->first_child, text);
}

bool holds_text(const fe_node *results, std::string_view text) {
    while (results != nullptr && view_of(results) != text)
        results = results->next;
    return results != nullptr;
}

fe_node *ask_one(fe_context *ctx, const fe_node *node, std::string_view text) {
    if (fe_membership membership = membership_of(node)) {
        if (!charge(1)) return nullptr;
        return run_call(node, [=](fe_node *call) { return membership(ctx, call, text.data()); });
    }
    node_list results(evaluate(ctx, node));
    return results != nullptr ? answer(holds_text(results.get(), text)) : nullptr;
}

fe_node *ask_list(fe_context *ctx, const fe_node *first, std::string_view text) {
    bool found = false;
    for (; first != nullptr; first = first->next) {
        node_list one(ask_one(ctx, first, text));
        if (one == nullptr) return nullptr;
        if (fe_node_is_const_true(one.get()) != 0) found = true;
    }
    return answer(found);
}

}  // namespace fe

extern "C" {

using namespace fe;

fe_def *const g_fed_const = &g_def_const;
fe_def *const g_fed_unparsed = &g_def_unparsed;

fe_node *eval_fe_expression(fe_context *ctx, const fe_node *node) {
    if (node == nullptr) return nullptr;
    return run([ctx, node] { return evaluate(ctx, node); });
}

fe_node *eval_fe_expr_list(fe_context *ctx, const fe_node *first) {
    if (first == nullptr) return nullptr;
    return run([ctx, first] { return evaluate_list(ctx, first); });
}

int fe_list_holds(fe_context *ctx, const fe_node *first, const char *text) {
    node_list found(run([=] { return ask_list(ctx, first, text); }));
    return found != nullptr ? fe_node_is_const_true(found.get()) : -1;
}

int fe_is_evaluating(void) {
    return g_run.active ? 1 : 0;
}

fe_node *fe_func_sanity1(fe_context *ctx, fe_node *call) {
    auto predicate = reinterpret_cast<fe_predicate1>(call->fed->user_data);
    node_list texts(evaluate_quietly(ctx, call->first_child));
    return answer(fe_argc(texts.get()) == 1 && predicate(texts->text) != 0);
}

fe_node *fe_func_sanity3(fe_context *ctx, fe_node *call) {
    auto predicate = reinterpret_cast<fe_predicate3>(call->fed->user_data);
    node_list texts(evaluate_quietly(ctx, call->first_child));
    if (fe_argc(texts.get()) != 3) return answer(false);
    const fe_node *second = texts->next;
    return answer(predicate(texts->text, second->text, second->next->text) != 0);
}

void fe_set_report(fe_report_handler handler) {
    g_report_handler = handler;
}
}
