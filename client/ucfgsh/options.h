/* The command line. */
#ifndef UCFGSH_OPTIONS_H
#define UCFGSH_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

namespace ucfgsh {

/* How the program ends; scripts rely on the numbers. */
enum exit_status {
    k_exit_done = 0,
    k_exit_failed = 1,      /* the daemon refused the request, or it failed there */
    k_exit_usage = 2,       /* a command or option that makes no sense; nothing was asked */
    k_exit_unreachable = 3, /* no connection, or it or the session was lost for good */
    k_exit_login = 4,       /* the log-in was refused */
    k_exit_conflict = 5,    /* somebody else has committed in between */
    k_exit_uncommitted = 6, /* the script is through, but left changes that are gone now */
    k_exit_interrupted = 130
};

enum class when { automatic, always, never };

struct options {
    std::optional<std::string> socket_path;
    std::optional<std::string> host, port;
    std::string user; /* the caller's own name unless given */
    bool user_given = false;
    std::optional<std::string> password_file;
    std::optional<std::string> session_id;
    std::optional<std::string> script;
    std::optional<std::string> diff_node;
    std::optional<std::string> complete_line;
    bool force = false;
    bool keep = false;
    bool json = false;
    bool quiet = false;
    bool go_on = false;
    bool commit = false;
    bool check = false;
    when color = when::automatic;
    int perms = 0; /* 0: what the work needs */
    int timeout = 60;
    std::vector<std::string> command;
};

/* Reads argv. A result is the status to exit with: after --help, --version or a mistake, which it
 * has explained. */
std::optional<int> parse_options(int argc, char **argv, options &opts);

}  // namespace ucfgsh

#endif
