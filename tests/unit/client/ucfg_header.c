/* The header serves C programs: this one only has to compile and link. */
#include "ucfg/ucfg.h"

const char *name_of_code_in_c(int code) {
    return ucfg_code_name(code);
}
