#ifndef UCFGD_TREE_ARGUMENTS_H
#define UCFGD_TREE_ARGUMENTS_H

/* What every native expression function does first and last: evaluate its arguments, and make
 * constant nodes of its answer.
 *
 *  1. A call_arguments owns the evaluated list and frees it; its texts live as long as it does.
 *     Arguments that are all constants are not copied: they are read where they stand in the call.
 *  2. Nodes that are handed out belong to the caller; null (errno ENOMEM) when memory is exhausted,
 *     which expressions take as a failure.
 *  3. A shortage of memory is a failure of the function, whatever it answers otherwise when
 *     something goes wrong: an empty text or a shorter list would be taken for the truth.
 */

#ifndef __cplusplus
#    error "arguments.h is for C++ sources"
#endif

#include <cstring>
#include <new>
#include <string_view>

#include "fe/fe.h"
#include "ucfgd/owners.h"

class call_arguments {
  public:
    call_arguments(fe_context *ctx, const fe_node *call)
        : constant_(are_constant(call->first_child)),
          list_(constant_ ? nullptr : eval_fe_expr_list(ctx, call->first_child)),
          first_(constant_ ? call->first_child : list_.get()) {}

    int count() const { return fe_argc(first_); }
    const fe_node *first() const { return first_; }
    /* There were argument expressions, and one of them failed. */
    bool failed() const { return !constant_ && first_ == nullptr; }

    /* The text of an argument, from 0; null behind the last one. */
    const char *text(int index) const {
        const fe_node *node = first_;
        while (node != nullptr && index-- > 0)
            node = node->next;
        return node != nullptr ? node->text : nullptr;
    }
    /* The same, but the empty text behind the last one. */
    const char *operator[](int index) const {
        const char *found = text(index);
        return found != nullptr ? found : "";
    }

  private:
    static bool are_constant(const fe_node *node) {
        while (node != nullptr && node->fed == g_fed_const)
            node = node->next;
        return node == nullptr;
    }

    bool constant_;
    owned<fe_node, destroy_fe_node_list> list_;
    const fe_node *first_;
};

/* A failure for the reason that errno has, about the value. */
inline fe_node *fail_about(const char *value) {
    const int error = errno;
    return fe_fail(error, value, "%s", std::strerror(error));
}

/* A wrong number of arguments: for a failure, or as the reason of an answer that says little. */
inline fe_node *fail_count(const call_arguments &arguments) {
    const int count = arguments.count();
    return fe_fail(EINVAL, nullptr, "%d argument%s", count, count == 1 ? "" : "s");
}

/* A native function whose exceptions are failures. */
template <fe_function function>
fe_node *guarded(fe_context *ctx, fe_node *call) {
    try {
        return function(ctx, call);
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}

inline fe_node *const_node(const char *text) {
    return create_fe_node(g_fed_const, text != nullptr ? text : "");
}

inline fe_node *truth_node(bool truth) {
    return const_node(truth ? "1" : "0");
}

/* For functions that answer the empty text, or "0", when something goes wrong: tells whether memory
 * ran out since it was made, which is before the arguments are evaluated. Leaves errno as it was
 * where nothing has set it. */
class memory_watch {
  public:
    memory_watch() { errno = 0; }
    memory_watch(const memory_watch &) = delete;
    memory_watch &operator=(const memory_watch &) = delete;
    ~memory_watch() {
        if (errno == 0) errno = before_;
    }
    static bool ran_out() { return errno == ENOMEM; }

  private:
    int before_ = errno;
};

/* The answer of such a function. */
inline fe_node *answer_unless_short(const memory_watch &memory, const char *text) {
    return memory.ran_out() ? nullptr : const_node(text);
}

/* The same for a wrong number of arguments, one that failed among them. */
inline fe_node *answer_wrong_count(const memory_watch &memory, const call_arguments &arguments,
                                   const char *text = "") {
    if (memory.ran_out()) return nullptr;
    if (!arguments.failed()) fail_count(arguments);
    return const_node(text);
}

/* Builds a list of constant nodes; the empty list is one node with the empty text. */
class node_list {
  public:
    node_list() = default;
    node_list(const node_list &) = delete;
    node_list &operator=(const node_list &) = delete;
    ~node_list() { destroy_fe_node_list(nodes_.release()); }

    /* False when memory is exhausted; the whole list is a failure then. */
    bool append(const char *text) {
        fe_node *node = const_node(text);
        if (node == nullptr)
            failed_ = true;
        else
            nodes_.append(node);
        return node != nullptr;
    }

    fe_node *release() {
        if (failed_) return nullptr;
        return nodes_.empty() ? const_node("") : nodes_.release();
    }

  private:
    list_builder<fe_node> nodes_;
    bool failed_ = false;
};

#endif
