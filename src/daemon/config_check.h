#ifndef UCFGD_DAEMON_CONFIG_CHECK_H
#define UCFGD_DAEMON_CONFIG_CHECK_H

struct cnfnode;

/* For a check: complains of values of the main configuration that nobody looks at before somebody
 * connects. A reading_file must stand for its file. */
void config_check_values(const cnfnode *root);

#endif
