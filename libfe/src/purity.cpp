// A walk over an expression and all that it calls. Every body is looked at once a walk, whoever
// calls it, since one that is not pure decides for all; so a function that calls itself is no
// matter.
#include "fe/purity.h"

#include "internal.h"

namespace fe {

namespace {

class purity_walk {
  public:
    purity_walk(fe_purity_judge judge, void *data) : judge_(judge), data_(data) {}

    bool all_pure(const fe_node *first) {
        bool pure = ++depth_ <= k_deepest;
        for (; pure && first != nullptr; first = first->next)
            pure = is_pure(first);
        --depth_;
        return pure;
    }

  private:
    // A call is two levels, its arguments and its body.
    static constexpr unsigned int k_deepest = 2 * k_max_nested_calls;

    bool is_pure(const fe_node *node) {
        const fe_def *fed = node->fed;
        if (fed->private_kind == k_kind_const) return true;
        if (fed->private_kind == k_kind_variable) {
            return judge_ == nullptr || judge_(node, data_) != 0;
        }
        return function_is_pure(node) && all_pure(node->first_child);
    }

    bool function_is_pure(const fe_node *call) {
        fe_def_internal *def = call->fed->private_data;
        if (def != nullptr && call->fed->function == call_user_function) {
            if (def->seen_by_walk == number_) return true;
            def->seen_by_walk = number_;
            return all_pure(def->body);
        }
        if (def != nullptr && def->pure) return true;
        return judge_ != nullptr && judge_(call, data_) != 0;
    }

    static inline uint64_t g_walks = 0;
    const uint64_t number_ = ++g_walks;
    fe_purity_judge judge_;
    void *data_;
    unsigned int depth_ = 0;
};

}  // namespace

}  // namespace fe

extern "C" {

void fe_mark_pure(fe_def *list, const char *name) {
    fe_def *fed = find_fe_def(list, name);
    if (fed != nullptr) fed->private_data->pure = true;
}

int fe_is_pure(const fe_node *first, fe_purity_judge judge, void *data) {
    return fe::purity_walk(judge, data).all_pure(first) ? 1 : 0;
}
}
