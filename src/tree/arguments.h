#ifndef UCFGD_TREE_ARGUMENTS_H
#define UCFGD_TREE_ARGUMENTS_H

/* What every native expression function does first and last: evaluate its arguments, and make
 * constant nodes of its answer.
 *
 *  1. A call_arguments owns the evaluated list and frees it; its texts live as long as it does.
 *     Arguments that are all constants are not copied: they are read where they stand in the call.
 *  2. Nodes that are handed out belong to the caller; null (errno ENOMEM) when memory is exhausted,
 *     which expressions take as a failure.
 */

#ifndef __cplusplus
#    error "arguments.h is for C++ sources"
#endif

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

inline fe_node *const_node(const char *text) {
    return create_fe_node(g_fed_const, text != nullptr ? text : "");
}

inline fe_node *truth_node(bool truth) {
    return const_node(truth ? "1" : "0");
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
