#ifndef UCFGD_SESSION_COMMIT_ORDERS_H
#define UCFGD_SESSION_COMMIT_ORDERS_H

/* Expression functions by which a session says something about its next commit. */

#ifdef __cplusplus
extern "C" {
#endif

struct fe_def;

/* Adds the functions behind the definitions built so far; returns the longer list. */
struct fe_def *fe_register_commit_orders(struct fe_def *list);

#ifdef __cplusplus
}
#endif

#endif
