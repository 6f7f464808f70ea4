/*
 * libfe: the expression language in which node methods, types and hooks are written.
 *
 * This header brings the whole interface: nodes.h (what an expression is made of), context.h
 * (variables), functions.h (the functions that expressions may call), parse.h (from text to
 * expression), eval.h (from expression to result), failure.h (why there is none), pattern.h
 * (patterns), membership.h (whether a list holds a text) and purity.h (whether a result may be
 * kept).
 *
 * Rules that hold for every function of the library:
 *
 *  1. Linkage. Everything has C linkage and is readable as C11 and as C++20. No exception leaves
 *     the library.
 *  2. Threads. One thread uses the library; nothing is locked.
 *  3. Null. Functions that release something accept null. A null list is an empty list. Anything
 *     else may be null only where its comment says so.
 *  4. Failure. Functions that return a pointer return null, the others -1, and errno tells why:
 *     EINVAL for texts and arguments that are wrong, ENOMEM for memory, ELOOP for an expression
 *     that ran past a limit, ERANGE and EDOM for arithmetic. Success leaves errno alone.
 *  5. Ownership. What a create_ or copy_ function or an evaluation returns belongs to the caller.
 *     Texts that are passed in are copied; texts that are handed out are borrowed, for as long as
 *     the comment says.
 *  6. Texts. Bytes that end in NUL, UTF-8 by intention. Bytes that are no UTF-8 pass through
 *     unharmed, and each counts as one character where characters are counted.
 *  7. Records. Fields named "private_..." are the library's own; their number may grow.
 *  8. Reports. The library prints nothing. What it has to say beyond a result goes to the handler
 *     set with fe_set_report, as one line without newline.
 */
#ifndef FE_FE_H
#define FE_FE_H

#include "fe/context.h"
#include "fe/eval.h"
#include "fe/failure.h"
#include "fe/functions.h"
#include "fe/membership.h"
#include "fe/nodes.h"
#include "fe/parse.h"
#include "fe/pattern.h"
#include "fe/purity.h"

#endif
