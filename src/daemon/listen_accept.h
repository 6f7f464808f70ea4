#ifndef UCFGD_DAEMON_LISTEN_ACCEPT_H
#define UCFGD_DAEMON_LISTEN_ACCEPT_H

/* What opening listeners and accepting connections share. Failures are logged and borne. */

#ifdef __cplusplus
extern "C" {
#endif

void set_close_on_exec(int fd);
void set_reuse_address(int fd);

#ifdef __cplusplus
}
#endif

#endif
