#ifndef UCFGD_BACKEND_TRIAL_END_H
#define UCFGD_BACKEND_TRIAL_END_H

#ifdef __cplusplus
extern "C" {
#endif

/* Undoes the commits of the running trial, reads the trees again and runs the post-commit hooks of
 * the modules whose files were put back, in module order, for services to follow. For a child. 0;
 * -1 with errno as trial_undo has it: the hooks of what was undone have run all the same. */
int end_trial(void);

/* Removes the temporary files of a commit that was killed, whichever module it was writing. */
void remove_all_leftovers(void);

/* Another process has given commands their old texts: the next revert reads them again, which it
 * does for files by themselves. */
void doubt_commands(void);

#ifdef __cplusplus
}
#endif

#endif
