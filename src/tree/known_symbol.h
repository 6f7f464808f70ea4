#ifndef UCFGD_TREE_KNOWN_SYMBOL_H
#define UCFGD_TREE_KNOWN_SYMBOL_H

#include <string_view>

#include "fe/context.h"
#include "fe/purity.h"

/* The name of a variable that every request sets, in the form in which a context compares it. When
 * memory is exhausted it is asked for again the next time. */
class known_symbol {
  public:
    constexpr explicit known_symbol(const char *name, bool is_impure = false)
        : name_(name), is_impure_(is_impure) {}
    /* False (errno ENOMEM) when the variable could not be set. */
    bool set(fe_context *context, const char *value) {
        return intern() && fe_set_symbol(context, interned_, value) == 0;
    }
    /* The same without a copy, for a text with a NUL behind it that outlives the context. */
    bool lend(fe_context *context, std::string_view value) {
        return intern() && fe_lend_symbol(context, interned_, value.data(), value.size()) == 0;
    }

    /* For one that is not pure (fe/purity.h) and not always set: not being so tells something, too.
     */
    bool intern() {
        if (interned_) return true;
        interned_ = fe_intern(name_);
        if (is_impure_) fe_mark_impure(interned_);
        return interned_ != nullptr;
    }

  private:
    const char *name_;
    bool is_impure_;
    fe_symbol interned_ = nullptr;
};

#endif
