#include "daemon/options.h"

#include <getopt.h>

#include <array>
#include <cstdio>

/* Three oddities that scripts rely on or that the manual explains, so they stay:
 * --root has no short form that works, although the help text names one; -D takes no argument and
 * does nothing in its short form; and the names given with -f, -p, -m and -t give way to those of
 * the main configuration file. */

namespace {

constexpr char k_short_options[] = "c:f:p:m:t:C:d:klnDP:h?";

/* How to add one: a row here, a field in options.h, a line in the help text, and the letter in
 * k_short_options. A row fills either the text with the option's argument or the flag. */
struct option_row {
    const char *name;
    int argument;
    char letter;
    const char *options::*text;
    bool options::*flag;
};

constexpr option_row k_rows[] = {
    {"config-file", required_argument, 'c', &options::config_file, nullptr},
    {"functions-file", required_argument, 'f', &options::functions_file, nullptr},
    {"param-file", required_argument, 'p', &options::param_file, nullptr},
    {"modules-file", required_argument, 'm', &options::modules_file, nullptr},
    {"types-file", required_argument, 't', &options::types_file, nullptr},
    {"prefix", required_argument, 'C', &options::prefix, nullptr},
    {"root", required_argument, 'r', &options::root, nullptr},
    {"debug-level", required_argument, 'd', &options::debug_level, nullptr},
    {"kill", no_argument, 'k', nullptr, &options::kill},
    {"use-syslog", no_argument, 'l', nullptr, &options::use_syslog},
    {"foreground", no_argument, 'n', nullptr, &options::foreground},
    {"check", no_argument, 'K', nullptr, &options::check},
    {"dump-tree-to-path-and-exit", required_argument, 'D', &options::dump_path, nullptr},
    {"protocol-log", required_argument, 'P', &options::protocol_log, nullptr},
    {"help", no_argument, 'h', nullptr, &options::help},
};

constexpr bool rows_fill_one_field() {
    for (const option_row &row : k_rows)
        if ((row.argument == required_argument) != (row.text != nullptr) ||
            (row.text == nullptr) == (row.flag == nullptr))
            return false;
    return true;
}
static_assert(rows_fill_one_field());

constexpr auto k_long_options = [] {
    std::array<option, std::size(k_rows) + 1> table{};
    for (size_t i = 0; i < std::size(k_rows); i++)
        table[i] = {k_rows[i].name, k_rows[i].argument, nullptr, k_rows[i].letter};
    return table;
}();

constexpr char k_help[] =
    R"(Usage: %s [OPTIONS...]

The Unified Configuration Daemon.

Configuration Options:
 -c file, --config-file=file    Sets the main UCFGD configuration file.
 -f file, --functions-file=file Read felib functions from given file.
 -p file, --param-file=file     Read configuration tree from given file.
 -m file, --modules-file=file   Read backend module list from given file.
 -t file, --types-file=file     Read type definitions from given file.
 -r prefix, --root=prefix       Prepend the given prefix to ALL filenames.
 -C prefix, --prefix=prefix
            Prepend the given prefix to filenames read or written by modules.

Debugging Options:
 -d level, --debug=level        Sets the debug level (1-5).
 -n, --foreground               Don't fork, stay in foreground.
 -l, --use-syslog               Used with -n, sends messages to syslog.
 -k, --kill                     Kill the running instance of UCFGD.
 -P file, --protocol-log=file   Dump all communication to the given file.

Miscellaneous Options:
 -h, --help                     This help message.

)";

const option_row *find_row(int letter) {
    for (const option_row &row : k_rows)
        if (row.letter == letter) return &row;
    return nullptr;
}

void apply(const option_row &row, options &result) {
    if (row.flag) result.*row.flag = true;
    if (row.text && optarg) result.*row.text = optarg;
}

}  // namespace

void usage(const char *program) {
    fprintf(stderr, k_help, program);
}

bool read_options(int argc, char **argv, options &result) {
    optind = 0;
    for (;;) {
        int letter = getopt_long(argc, argv, k_short_options, k_long_options.data(), nullptr);
        if (letter == -1) break;
        const option_row *row = find_row(letter);
        if (row) apply(*row, result);
        if (!row || result.help) {
            usage(argv[0]);
            return false;
        }
    }
    if (optind >= argc) return true;
    fprintf(stderr, "Unrecognized option: \"%s\".\n", argv[optind]);
    usage(argv[0]);
    return false;
}
