#include "fe/purity.h"

#include "internal.h"

namespace fe {

unsigned long g_impure_count = 0;

}  // namespace fe

extern "C" {

using namespace fe;

void fe_mark_pure(fe_def *list, const char *name) {
    fe_def *fed = find_fe_def(list, name);
    if (fed != nullptr) fed->private_data->pure = true;
}

void fe_mark_impure(fe_symbol name) {
    if (name != nullptr) const_cast<symbol_ptr>(name)->impure = true;
}

unsigned long fe_impure_count(void) {
    return g_impure_count;
}

void fe_note_impure(void) {
    ++g_impure_count;
}
}
