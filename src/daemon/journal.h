#ifndef UCFGD_DAEMON_JOURNAL_H
#define UCFGD_DAEMON_JOURNAL_H

#ifndef __cplusplus
#    error "journal.h is for C++ sources"
#endif

#include <string>
#include <vector>

/* A log line with fields of its own for the systemd journal, to search for. */
struct log_field {
    const char *name; /* capital letters, digits and "_" */
    std::string value;
};

/* Logs a line as daemon_log does. Where the daemon logs to syslog and a journal is there, the
 * journal gets it with its fields, in place of syslog. Control characters become blanks. Nobody
 * waits; errno is kept. May throw std::bad_alloc. */
void log_with_fields(int priority, const std::string &text, const std::vector<log_field> &fields);

#endif
