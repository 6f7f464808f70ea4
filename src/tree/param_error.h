#ifndef UCFGD_TREE_PARAM_ERROR_H
#define UCFGD_TREE_PARAM_ERROR_H

#include "ucfgd/lines.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct param_error {
    char *msg;
    char *id;
    line *args;
} param_error;

extern param_error *ccd_param_error;

void ccd_clear_error(void);
void ccd_set_error(const char *msg, const char *id);
int ccd_add_error_arg(const char *text);
int ccd_add_error_argi(int number);
param_error *ccd_get_error(void);
param_error *ccd_copy_and_clear_error(void);
void destroy_param_error(param_error *error);

#ifdef __cplusplus
}
#endif

#endif
