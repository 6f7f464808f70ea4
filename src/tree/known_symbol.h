#ifndef UCFGD_TREE_KNOWN_SYMBOL_H
#define UCFGD_TREE_KNOWN_SYMBOL_H

#include <string_view>

#include "fe/context.h"

/* The name of a variable that every request sets, in the form in which a context compares it. When
 * memory is exhausted it is asked for again the next time. */
class known_symbol {
  public:
    constexpr explicit known_symbol(const char *name) : name_(name) {}
    /* False (errno ENOMEM) when the variable could not be set. */
    bool set(fe_context *context, const char *value) {
        return intern() && fe_set_symbol(context, interned_, value) == 0;
    }
    /* The same without a copy, for a text with a NUL behind it that outlives the context. */
    bool lend(fe_context *context, std::string_view value) {
        return intern() && fe_lend_symbol(context, interned_, value.data(), value.size()) == 0;
    }

  private:
    bool intern() {
        if (!interned_) interned_ = fe_intern(name_);
        return interned_ != nullptr;
    }

    const char *name_;
    fe_symbol interned_ = nullptr;
};

#endif
