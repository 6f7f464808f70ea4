#ifndef UCFGD_DAEMON_CONFIG_H
#define UCFGD_DAEMON_CONFIG_H

/* What start-up reads from the main configuration. */

#include <stdint.h>

struct cnfnode;

/* Names of the files that start-up reads; borrowed from the tree, null for none. */
struct config_files {
    const char *param;
    const char *management;
    const char *functions;
    const char *features;
    const char *modules;
    const char *types;
    const char *commits; /* the directory of the commit archive; null for none */
};

/* Complains of entries that nobody reads. Every key of the main configuration is known to it. */
void complain_of_unknown_keys(const cnfnode *root);

/* The file entries, with the defaults for what is not given. This and the next throw std::bad_alloc
 * where memory is missing. */
config_files read_config_files(const cnfnode *root);

/* How many commits the archive keeps, and how many bytes they may take. What cannot be read is
 * logged, and the default holds. */
struct archive_bounds {
    long kept;
    int64_t size;
};
archive_bounds read_archive_bounds(const cnfnode *root);

/* Takes the idle limit, the access override and the log level from the first `config` section, and
 * the limits from the first `limits` section. */
void parse_config(const cnfnode *root);

#endif
