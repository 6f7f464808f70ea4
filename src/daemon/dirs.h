#ifndef UCFGD_DAEMON_DIRS_H
#define UCFGD_DAEMON_DIRS_H

/* Where files are: the prefixes that move the daemon's own files and those of the modules, and the
 * PID file. Names that are handed out are new; the caller frees them. */

#ifdef __cplusplus
extern "C" {
#endif

struct cnfmodule;
struct cnfnode;

/* The root prefix (--root), put before every absolute name that the daemon itself opens; null
 * without one. Owned by the start-up code. */
extern char *ucfgd_conffilesprefix;

/* The module prefix (-C, otherwise the root prefix), put before the names of the files that backend
 * modules read and write; null without one. Owned by the start-up code. */
extern char *g_filesprefix;

/* The name with the root prefix directly before it when it begins with "/", otherwise a copy. Null
 * (errno ENOMEM) when memory is exhausted. */
char *prefix_ucfgdconffilename(const char *filename);

/* Parses a file of the daemon's own with the given parser, under the root prefix. The tree belongs
 * to the caller; null when the file cannot be read or parsed. */
struct cnfnode *ucfgd_cnfmodule_parse_file(struct cnfmodule *module, const char *filename);

/* The PID file's name, for libdaemon: its own default for root, "/tmp/IDENT-UID.pid" for others.
 * The text is static. */
const char *daemon_pid_file_proc_ucfgd(void);

#ifdef __cplusplus
}
#endif

#endif
