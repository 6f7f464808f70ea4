#include "ucfgsh/options.h"

#include <getopt.h>
#include <pwd.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "ucfg/ucfg.h"

namespace ucfgsh {

namespace {

enum option_id {
    k_socket = 's',
    k_host = 'H',
    k_port = 'p',
    k_user = 'u',
    k_file = 'f',
    k_json = 'j',
    k_quiet = 'q',
    k_help = 'h',
    k_version = 'V',
    k_password_file = 256,
    k_force,
    k_perms,
    k_plain,
    k_color,
    k_session,
    k_keep,
    k_commit,
    k_check,
    k_continue,
    k_timeout,
    k_diff_node,
    k_complete
};

constexpr const char *k_short_options = "+s:H:p:u:f:jqhV";

const std::array k_long_options{
    option{"socket", required_argument, nullptr, k_socket},
    option{"host", required_argument, nullptr, k_host},
    option{"port", required_argument, nullptr, k_port},
    option{"user", required_argument, nullptr, k_user},
    option{"password-file", required_argument, nullptr, k_password_file},
    option{"force", no_argument, nullptr, k_force},
    option{"perms", required_argument, nullptr, k_perms},
    option{"session", required_argument, nullptr, k_session},
    option{"keep", no_argument, nullptr, k_keep},
    option{"commit", no_argument, nullptr, k_commit},
    option{"check", no_argument, nullptr, k_check},
    option{"file", required_argument, nullptr, k_file},
    option{"continue", no_argument, nullptr, k_continue},
    option{"json", no_argument, nullptr, k_json},
    option{"quiet", no_argument, nullptr, k_quiet},
    option{"plain", no_argument, nullptr, k_plain},
    option{"color", no_argument, nullptr, k_color},
    option{"timeout", required_argument, nullptr, k_timeout},
    option{"diff-node", required_argument, nullptr, k_diff_node},
    option{"complete", required_argument, nullptr, k_complete},
    option{"help", no_argument, nullptr, k_help},
    option{"version", no_argument, nullptr, k_version},
    option{nullptr, 0, nullptr, 0},
};

constexpr const char *k_usage =
    "usage: ucfgsh [OPTION]... [COMMAND [ARGUMENT]...]\n"
    "\n"
    "Read and change the configuration that ucfgd manages. Without a command, ucfgsh asks for\n"
    "commands on a terminal and reads them from standard input otherwise.\n"
    "\n"
    "Connection:\n"
    "  -s, --socket PATH         local socket (default $UCFGD_SOCKET or /dev/ucfgd)\n"
    "  -H, --host HOST           TCP instead (default port 222)\n"
    "  -p, --port PORT\n"
    "      --timeout SECONDS     longest wait for an answer (default 60, 0 for ever)\n"
    "Log-in:\n"
    "  -u, --user NAME           user (default: the calling account)\n"
    "      --password-file FILE  the password is the first line of FILE; otherwise it is asked "
    "for\n"
    "                            on the terminal when one is needed\n"
    "      --perms LIST          ask for these rights only: read, write, exec\n"
    "      --force               log every other writer out\n"
    "      --keep                keep the session, with its changes, for --session\n"
    "      --session ID          take up a session that was kept, and keep it on; the command "
    "quit\n"
    "                            ends it\n"
    "Work:\n"
    "  -f, --file SCRIPT         read commands from SCRIPT (- is standard input)\n"
    "      --continue            go on after a failing line of a script\n"
    "      --commit              commit at the end of a script when all went well; a change that "
    "is\n"
    "                            given as COMMAND is committed anyway\n"
    "      --check               try a change that is given as COMMAND, and drop it\n"
    "      --diff-node PATH      management node whose text is the diff of the files (changes -f)\n"
    "Output:\n"
    "  -j, --json                every answer as a JSON object: ucfgsh-json(5)\n"
    "  -q, --quiet               do not say what was done\n"
    "      --plain, --color      without and with colours (default: colours on a terminal)\n"
    "\n"
    "\"ucfgsh help\" lists the commands. Exit status: 0 done, 1 refused or failed, 2 wrong usage,\n"
    "3 no connection, 4 log-in refused, 5 commit conflict, 6 changes left uncommitted.\n";

int usage_error(const char *format, const char *detail) {
    fputs("ucfgsh: ", stderr);
    fprintf(stderr, format, detail);
    fputs("\nucfgsh: \"ucfgsh --help\" explains the options\n", stderr);
    return k_exit_usage;
}

bool parse_number(std::string_view text, int low, int high, int &value) {
    auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), value);
    return problem == std::errc{} && end == text.data() + text.size() && value >= low &&
           value <= high;
}

bool parse_perms(std::string_view text, int &perms) {
    struct row {
        std::string_view word;
        int bit;
    };
    constexpr std::array k_rows{row{"read", k_ucfg_perm_read}, row{"write", k_ucfg_perm_write},
                                row{"exec", k_ucfg_perm_exec}};
    perms = 0;
    while (!text.empty()) {
        std::string_view word = text.substr(0, text.find(','));
        int bit = 0;
        for (const row &r : k_rows)
            if (r.word == word) bit = r.bit;
        if (bit == 0) return false;
        perms |= bit;
        text.remove_prefix(std::min(word.size() + 1, text.size()));
    }
    return perms != 0;
}

/* Options with a text as their value, and where it goes. */
std::optional<std::string> *text_option(int id, options &opts) {
    switch (id) {
        case k_socket:
            return &opts.socket_path;
        case k_host:
            return &opts.host;
        case k_port:
            return &opts.port;
        case k_password_file:
            return &opts.password_file;
        case k_session:
            return &opts.session_id;
        case k_file:
            return &opts.script;
        case k_diff_node:
            return &opts.diff_node;
        case k_complete:
            return &opts.complete_line;
        default:
            return nullptr;
    }
}

bool *flag_option(int id, options &opts) {
    switch (id) {
        case k_force:
            return &opts.force;
        case k_keep:
            return &opts.keep;
        case k_commit:
            return &opts.commit;
        case k_check:
            return &opts.check;
        case k_continue:
            return &opts.go_on;
        case k_json:
            return &opts.json;
        case k_quiet:
            return &opts.quiet;
        default:
            return nullptr;
    }
}

std::optional<int> take_option(int id, options &opts) {
    if (auto *text = text_option(id, opts)) {
        *text = optarg;
        return std::nullopt;
    }
    if (bool *flag = flag_option(id, opts)) {
        *flag = true;
        return std::nullopt;
    }
    switch (id) {
        case k_user:
            opts.user = optarg;
            opts.user_given = true;
            return std::nullopt;
        case k_perms:
            if (parse_perms(optarg, opts.perms)) return std::nullopt;
            return usage_error("--perms takes read, write and exec, with commas, not \"%s\"",
                               optarg);
        case k_timeout:
            if (parse_number(optarg, 0, 1000000, opts.timeout)) return std::nullopt;
            return usage_error("--timeout takes a number of seconds, not \"%s\"", optarg);
        case k_plain:
            opts.color = when::never;
            return std::nullopt;
        case k_color:
            opts.color = when::always;
            return std::nullopt;
        case k_version:
            puts("ucfgsh " UCFG_VERSION);
            return k_exit_done;
        case k_help:
            fputs(k_usage, stdout);
            return k_exit_done;
        default:
            return usage_error("%s", "the options make no sense");
    }
}

std::optional<int> check_options(options &opts) {
    if (opts.socket_path && (opts.host || opts.port))
        return usage_error("%s", "--socket and --host exclude each other");
    if (opts.script && !opts.command.empty())
        return usage_error("--file and a command (\"%s\") exclude each other",
                           opts.command.front().c_str());
    if (opts.check && (opts.commit || opts.keep || opts.session_id))
        return usage_error("%s",
                           "--check drops the change; it excludes --commit, --keep and --session");
    bool ends = !opts.command.empty() && (opts.command[0] == "quit" || opts.command[0] == "exit");
    opts.keep = (opts.keep || opts.session_id) && !ends;
    if (!opts.user_given) {
        const passwd *account = getpwuid(geteuid());
        opts.user = account ? account->pw_name : std::to_string(geteuid());
    }
    return std::nullopt;
}

}  // namespace

std::optional<int> parse_options(int argc, char **argv, options &opts) {
    for (;;) {
        int id = getopt_long(argc, argv, k_short_options, k_long_options.data(), nullptr);
        if (id == -1) break;
        if (auto status = take_option(id, opts)) return status;
    }
    for (int i = optind; i < argc; i++)
        opts.command.emplace_back(argv[i]);
    return check_options(opts);
}

}  // namespace ucfgsh
