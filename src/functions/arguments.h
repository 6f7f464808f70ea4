#ifndef UCFGD_FUNCTIONS_ARGUMENTS_H
#define UCFGD_FUNCTIONS_ARGUMENTS_H

/* What every native expression function does first and last: evaluate its arguments, and make
 * constant nodes of its answer.
 *
 *  1. A call_arguments owns the evaluated list and frees it; its texts live as long as it does.
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
    call_arguments(fe_context *ctx, fe_node *call)
        : list_(eval_fe_expr_list(ctx, call->first_child)),
          count_(fe_argc(list_.get())),
          failed_(list_ == nullptr && call->first_child != nullptr) {}

    int count() const { return count_; }
    const fe_node *first() const { return list_.get(); }
    /* There were argument expressions, and one of them failed. */
    bool failed() const { return failed_; }

    /* The text of an argument, from 0; the empty text behind the last one. */
    const char *operator[](int i) const {
        const fe_node *node = list_.get();
        for (; node != nullptr && i > 0; i--)
            node = node->next;
        return node != nullptr && node->text != nullptr ? node->text : "";
    }

  private:
    owned<fe_node, destroy_fe_node_list> list_;
    int count_;
    bool failed_;
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
    ~node_list() { destroy_fe_node_list(nodes_.release()); }

    void append(const char *text) {
        fe_node *node = const_node(text);
        if (node == nullptr)
            failed_ = true;
        else
            nodes_.append(node);
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
