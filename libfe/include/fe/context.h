/*
 * Contexts: the variables that an evaluation sees, and what it works on.
 *
 * A variable is looked up in the context and then in its parents; setting one sets it in the
 * context itself. Names are any non-empty texts; values are texts. Making, filling and releasing a
 * context of a few variables allocates nothing: contexts are recycled, names are compared as
 * symbols, and short values are kept in the context itself.
 */
#ifndef FE_CONTEXT_H
#define FE_CONTEXT_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Contexts are made by create_fe_context only; behind these fields are others. */
typedef struct fe_context {
    struct fe_context *parent; /* not owned; must outlive the context */
    void *user_data;           /* what native functions work on; not owned, not inherited */
} fe_context;

/* The name of a variable in the form in which it is compared. Two names are the same exactly when
 * their symbols are. */
typedef const struct fe_symbol_record *fe_symbol;

/* Returns null with errno ENOMEM. `parent` and `user_data` may be null. */
fe_context *create_fe_context(fe_context *parent, void *user_data);

/* Releases a context with its variables; contexts that have it as parent must be gone. */
void destroy_fe_context(fe_context *ctx);

/* Sets a variable in the context itself. A null value counts as the empty text. Returns 0, or -1
 * with errno ENOMEM, or EINVAL for an empty name. */
int fe_set(fe_context *ctx, const char *name, const char *value);

/* The value of a variable in the context or the nearest parent that has it, or null when it is
 * not set. Lives until that variable is set again or its context is released. */
const char *fe_get(const fe_context *ctx, const char *name);

/* The symbol of a name. Symbols made here live to the end of the program: intern names that the
 * code knows, never names that come from outside. Null with errno ENOMEM or EINVAL (empty name). */
fe_symbol fe_intern(const char *name);

/* fe_set and fe_get for a name that was interned once. */
int fe_set_symbol(fe_context *ctx, fe_symbol name, const char *value);
const char *fe_get_symbol(const fe_context *ctx, fe_symbol name);

/* fe_set_symbol without a copy, the fastest way to pass variables: the `length` bytes at `value`,
 * which hold no NUL, and the NUL behind them stay as they are until the variable is set again or
 * the context is released. */
int fe_lend_symbol(fe_context *ctx, fe_symbol name, const char *value, size_t length);

#ifdef __cplusplus
}
#endif

#endif
