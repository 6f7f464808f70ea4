#ifndef UCFGD_DAEMON_OPTIONS_H
#define UCFGD_DAEMON_OPTIONS_H

/* The command line. */

struct options {
    /* Borrowed from the command line; null where nothing was given. */
    const char *config_file = "/etc/ucfgd/ucfgd.conf";
    const char *functions_file = nullptr;
    const char *param_file = nullptr;
    const char *modules_file = nullptr;
    const char *types_file = nullptr;
    const char *prefix = nullptr;
    const char *root = nullptr;
    const char *debug_level = nullptr;
    const char *dump_path = nullptr;
    const char *protocol_log = nullptr;
    bool check = false;
    bool kill = false;
    bool use_syslog = false;
    bool foreground = false;
    bool help = false;
};

/* Reads the command line, whose words getopt_long may reorder. False when the help text was asked
 * for, or when a word or an option does not belong there: it has been printed then, and the program
 * ends with status 1. */
bool read_options(int argc, char **argv, options &result);

/* Prints the help text on standard error. */
void usage(const char *program);

#endif
