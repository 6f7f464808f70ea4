#ifndef UCFGD_SESSION_COMMIT_PREVIEW_H
#define UCFGD_SESSION_COMMIT_PREVIEW_H

/* Expression functions that show what a commit would change, or has changed. */

#ifdef __cplusplus
extern "C" {
#endif

struct fe_def;

/* Adds the functions behind the definitions built so far; returns the longer list. */
struct fe_def *fe_register_commit_preview(struct fe_def *list);

#ifdef __cplusplus
}
#endif

#endif
