#ifndef UCFGD_FUNCTIONS_FUNCTIONS_H
#define UCFGD_FUNCTIONS_FUNCTIONS_H

/* Registration of the native expression function families.
 *
 * Each takes the list of definitions built so far, adds its own behind them and returns the longer
 * list. */

#ifdef __cplusplus
extern "C" {
#endif

struct fe_def;

struct fe_def *fe_register_network_sanity_funcs(struct fe_def *list);
struct fe_def *fe_register_llmiscfuncs(struct fe_def *list);
struct fe_def *fe_register_llmgettyfuncs(struct fe_def *list);
struct fe_def *fe_register_lltavfuncs(struct fe_def *list);
struct fe_def *fe_register_paramfuncs(struct fe_def *list);
struct fe_def *fe_register_adm_network_funcs(struct fe_def *list);
struct fe_def *fe_register_adm_misc_funcs(struct fe_def *list);

#ifdef __cplusplus
}
#endif

#endif
