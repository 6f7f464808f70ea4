/*
 * Function lists: what expressions may call.
 *
 *  1. A list is known by its first definition; null is the empty list. Registering returns the list
 *     with the new definition in it; go on with what is returned.
 *  2. fe_register_func and felib_parse_functions_cn add at the end, so the first definition of a
 *     list that is not empty stays the first. fe_register_function puts in front.
 *  3. Where a name is defined more than once the later definition wins. Expressions parsed before
 *     keep the earlier one.
 *  4. A definition lives until it has been taken out of its list and the last node that uses it is
 *     gone. Lists and expressions may so be released in any order.
 *  5. When memory runs out a registration returns the list as it was, with errno ENOMEM.
 */
#ifndef FE_FUNCTIONS_H
#define FE_FUNCTIONS_H

#include "fe/nodes.h"

#ifdef __cplusplus
extern "C" {
#endif

struct cnfnode;

/* What a program keeps its list in, and what a feature module's library is handed to add to. */
typedef struct felib_base {
    fe_def *fed_list;
} felib_base;

/* A base with an empty list; null with errno ENOMEM. */
felib_base *create_felib_base(void);

/* Releases a base and takes every definition out of its list. */
void destroy_felib_base(felib_base *base);

/* Takes every definition out of a list. */
void destroy_fe_def_list(fe_def *list);

/* Adds the functions of the language itself. */
fe_def *fe_register_felib_funcs(fe_def *list);

/* Adds a native function. The name is copied, the data is not. A name that is taken draws a
 * report. */
fe_def *fe_register_func(fe_def *list, const char *name, fe_function function, void *user_data);

/* The same for one that takes from least to most arguments (most -1: any number), which
 * fe_count_fits goes by; the function itself is called with whatever there is. */
fe_def *fe_register_counted_func(fe_def *list, const char *name, fe_function function,
                                 void *user_data, int least, int most);

/*
 * Puts a function without parameters in front of a list, hiding one of that name. Its body is
 * `expression` (a chain runs in order and the last result counts), which belongs to the definition
 * from now on, also when the registration fails: it lives as long as a node that calls the
 * function.
 */
fe_def *fe_register_function(fe_def *list, const char *name, fe_node *expression);

/* Takes the first definition out of its list and returns the rest. Calls parsed before go on
 * working. Together with fe_register_function this gives a name for the parsing of one text. */
fe_def *fe_unregister_first(fe_def *list);

/* The definition that a call of `name` would use, or null. Borrowed. */
fe_def *find_fe_def(fe_def *list, const char *name);

/*
 * Defines the functions of a parsed functions file:
 *
 *     inrange {
 *         args: value low high
 *         expr: $value >= $low && $value <= $high
 *     }
 *
 * `tree` is the top node of the file. A function sees those defined before it, and itself. What
 * cannot be defined draws a report with its name, and the others are defined all the same.
 */
fe_def *felib_parse_functions_cn(const struct cnfnode *tree, fe_def *list);

/* For handlers of reports and observers of the parser, while they run: the entry or the field of
 * the functions file that they hear about; null for something else. */
const struct cnfnode *fe_reported_entry(void);

#ifdef __cplusplus
}
#endif

#endif
