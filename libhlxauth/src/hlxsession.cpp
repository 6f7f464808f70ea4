#include <errno.h>
#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>

#include <array>
#include <cstring>
#include <string_view>

#include "hlxauth/hlxauth.h"
#include "ucfgd/owners.h"
#include "ucfgd/strlcpy.h"

/* hlxsession: makes, shows and ends sessions of the store by hand. */

namespace {

enum exit_status { k_done = 0, k_failed = 1, k_usage = 2 };

constexpr char k_help[] =
    "Usage: hlxsession [--store NAME] COMMAND\n"
    "\n"
    "  create [--user NAME] [--group NAME]... [--flags N] [--expires SECONDS]\n"
    "                 make a session and print its identifier\n"
    "  list           one line a session: identifier, user, groups, flags, seconds left\n"
    "  show ID        everything about a session\n"
    "  revoke ID      end a session\n"
    "\n"
    "Flags are a number (4: not valid for a login, 0x100: no access list). A session without\n"
    "--expires lives until it is revoked. Exit status: 0, 1 when there is no such session or\n"
    "the store fails, 2 for wrong usage.\n";

int usage(const char *what, const char *word) {
    fprintf(stderr, "hlxsession: %s%s%s\n%s", what, *word != '\0' ? ": " : "", word, k_help);
    return k_usage;
}

int failed(const char *what) {
    if (errno == ENOENT)
        fprintf(stderr, "hlxsession: %s: there is no such session\n", what);
    else
        fprintf(stderr, "hlxsession: %s: %s\n", what, strerror(errno));
    return k_failed;
}

/* A whole number from 0 to most; -1 for anything else. */
long number(const char *text, long most) {
    char *end = nullptr;
    errno = 0;
    long n = strtol(text, &end, 0);
    return end == text || *end != '\0' || errno != 0 || n < 0 || n > most ? -1 : n;
}

bool copy_name(char *to, const char *name) {
    for (const char *c = name; *c != '\0'; c++)
        if (static_cast<unsigned char>(*c) < ' ' || *c == '\x7f') return false;
    return *name != '\0' && strlcpy(to, name, HLX_AUTH_USER_SIZE) < HLX_AUTH_USER_SIZE;
}

/* Takes one option of create; false when its value does not fit. */
bool take_option(hlx_auth_session &wanted, int option, const char *value) {
    switch (option) {
        case 'u':
            return copy_name(wanted.user, value);
        case 'g':
            return wanted.group_count < HLX_AUTH_GROUPS_MAX &&
                   copy_name(wanted.groups[wanted.group_count++], value);
        case 'f':
            wanted.flags = static_cast<int>(number(value, INT32_MAX));
            return wanted.flags >= 0;
        default:
            wanted.lifetime = number(value, INT32_MAX);
            return wanted.lifetime >= 0;
    }
}

int command_create(int argc, char **argv) {
    static constexpr option k_options[] = {{"user", required_argument, nullptr, 'u'},
                                           {"group", required_argument, nullptr, 'g'},
                                           {"flags", required_argument, nullptr, 'f'},
                                           {"expires", required_argument, nullptr, 'e'},
                                           {nullptr, 0, nullptr, 0}};
    hlx_auth_session wanted{};
    wanted.lifetime = -1;
    optind = 0;
    opterr = 0;
    for (int c; (c = getopt_long(argc, argv, "+", k_options, nullptr)) != -1;) {
        if (c == '?') return usage("create: not an option", argv[optind - 1]);
        if (!take_option(wanted, c, optarg))
            return usage("create: this value does not fit", optarg);
    }
    if (optind < argc) return usage("create: not an option", argv[optind]);
    std::array<char, HLX_AUTH_SID_SIZE + 1> sid;
    if (hlx_auth_session_create(&wanted, sid.data()) < 0) return failed("create");
    puts(sid.data());
    return k_done;
}

void print_groups(const hlx_auth_session &session) {
    for (int i = 0; i < session.group_count; i++)
        printf("%s%s", i > 0 ? "," : "", session.groups[i]);
    if (session.group_count == 0) putchar('-');
}

void print_lifetime(const hlx_auth_session &session) {
    if (session.lifetime < 0)
        fputs("unlimited", stdout);
    else
        printf("%lld", static_cast<long long>(session.lifetime));
}

int command_list(int argc, char **argv) {
    if (argc > 1) return usage("list takes no argument", argv[1]);
    size_t count = 0;
    std::unique_ptr<hlx_auth_session, free_memory> list{hlx_auth_session_list(&count)};
    if (!list && errno != 0) return failed("list");
    for (size_t i = 0; i < count; i++) {
        const hlx_auth_session &session = list.get()[i];
        printf("%s %s ", session.sid, *session.user != '\0' ? session.user : "-");
        print_groups(session);
        printf(" 0x%x ", static_cast<unsigned int>(session.flags));
        print_lifetime(session);
        putchar('\n');
    }
    return k_done;
}

int command_show(int argc, char **argv) {
    if (argc != 2) return usage("show takes one identifier", "");
    hlx_auth_session session;
    if (hlx_auth_session_get(argv[1], &session) < 0) return failed(argv[1]);
    printf("identifier: %s\nuser: %s\ngroups: ", session.sid, session.user);
    print_groups(session);
    printf("\nflags: 0x%x\ncreated: %lld\nseconds left: ", static_cast<unsigned int>(session.flags),
           static_cast<long long>(session.created));
    print_lifetime(session);
    printf("\naccess list:\n%s", session.acl);
    return k_done;
}

int command_revoke(int argc, char **argv) {
    if (argc != 2) return usage("revoke takes one identifier", "");
    return hlx_auth_session_revoke(argv[1]) < 0 ? failed(argv[1]) : k_done;
}

struct command_row {
    std::string_view word;
    int (*run)(int argc, char **argv);
};

constexpr command_row k_commands[] = {
    {"create", command_create},
    {"list", command_list},
    {"show", command_show},
    {"revoke", command_revoke},
};

}  // namespace

int main(int argc, char **argv) {
    int at = 1;
    if (argc > 2 && std::string_view{argv[1]} == "--store") {
        if (hlx_auth_set_store(argv[2]) < 0) return usage("not the name of a store", argv[2]);
        at = 3;
    }
    if (at >= argc) return usage("a command is missing", "");
    std::string_view word = argv[at];
    if (word == "--help" || word == "-h") {
        fputs(k_help, stdout);
        return k_done;
    }
    for (const auto &row : k_commands)
        if (row.word == word) {
            int status = row.run(argc - at, argv + at);
            if (fflush(stdout) == 0) return status;
            perror("hlxsession: standard output");
            return k_failed;
        }
    return usage("not a command", argv[at]);
}
