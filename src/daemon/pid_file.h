#ifndef UCFGD_DAEMON_PID_FILE_H
#define UCFGD_DAEMON_PID_FILE_H

#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The daemon that the PID file names: a living process other than this one that runs the same
 * program. After a crash or a power cut the number may be anybody's, so that the program's name
 * decides, as /proc tells it; where /proc is missing, the number is believed. Returns its process
 * id; -1 when there is none, and then a file that names none has been removed. */
pid_t pid_file_owner(void);

#ifdef __cplusplus
}
#endif

#endif
