#include "daemon/dirs.h"

#include <errno.h>
#include <libdaemon/daemon.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "llconf/modules.h"
#include "ucfgd/owners.h"

char *ucfgd_conffilesprefix = nullptr;
char *g_filesprefix = nullptr;

char *prefix_ucfgdconffilename(const char *filename) {
    if (!ucfgd_conffilesprefix || filename[0] != '/') return strdup(filename);
    char *name = nullptr;
    if (asprintf(&name, "%s%s", ucfgd_conffilesprefix, filename) < 0) {
        errno = ENOMEM;
        return nullptr;
    }
    return name;
}

cnfnode *ucfgd_cnfmodule_parse_file(cnfmodule *module, const char *filename) {
    owned_str name{prefix_ucfgdconffilename(filename)};
    return name ? cnfmodule_parse_file(module, name.get()) : nullptr;
}

/* Not left to libdaemon for root: where memory is missing, it takes what it has freed for a name.
 */
const char *daemon_pid_file_proc_ucfgd(void) {
    static char name[4096];
    const char *ident = daemon_pid_file_ident ? daemon_pid_file_ident : "unknown";
    const uid_t uid = getuid();
    if (uid == 0)
        snprintf(name, sizeof name, "/var/run/%s.pid", ident);
    else
        snprintf(name, sizeof name, "/tmp/%s-%d.pid", ident, static_cast<int>(uid));
    return name;
}
