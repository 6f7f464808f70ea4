#ifndef UCFGD_BACKEND_DISCARDED_H
#define UCFGD_BACKEND_DISCARDED_H

#ifndef __cplusplus
#    error "discarded.h is for the backend's own sources"
#endif

/* Trees that nobody needs any more. To free that of a long file takes as long as to take over what
 * a commit has written, and others would wait for both. So it is freed a piece at a time, in the
 * sweeps of the loop. */

struct cnfnode;

/* Frees a tree, which the caller has given up: at once, or when it is large, soon. Null is
 * accepted.
 */
void discard_tree(cnfnode *tree);

/* Frees a piece of what is left; a part of the loop's sweep. */
void discard_go_on(void);

#endif
