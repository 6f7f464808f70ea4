#ifndef UCFGD_DAEMON_DUMP_H
#define UCFGD_DAEMON_DUMP_H

/* Writes both trees into directory as files that Python can import, "parameter_tree.py" and
 * "management_tree.py". 0; -1 after an error line when one of them could not be written. */
int dump_trees(const char *directory);

#endif
