#ifndef UCFGD_BACKEND_NAME_CHECKS_H
#define UCFGD_BACKEND_NAME_CHECKS_H

/* What can be told about expressions without evaluating them: how many arguments their calls have,
 * and whether the modules and types that they name are defined. A name that is not written as a
 * constant is nobody's business here. */

/* From now on looks at each expression that is parsed, and complains of its calls. */
void name_checks_begin(void);

/* When everything has been read: complains of the names that nothing has defined. */
void name_checks_finish(void);

#endif
