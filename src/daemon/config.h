#ifndef UCFGD_DAEMON_CONFIG_H
#define UCFGD_DAEMON_CONFIG_H

/* What start-up reads from the main configuration. */

struct cnfnode;

/* Names of the files that start-up reads; borrowed from the tree, null for none. */
struct config_files {
    const char *param;
    const char *management;
    const char *functions;
    const char *features;
    const char *modules;
    const char *types;
};

/* The file entries, with the defaults for what is not given. */
config_files read_config_files(const cnfnode *root);

/* Takes the idle limit and the access override from the first `config` section, and the limits from
 * the first `limits` section. */
void parse_config(const cnfnode *root);

#endif
