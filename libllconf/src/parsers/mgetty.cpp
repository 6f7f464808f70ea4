/* mgetty's login.config: whom to log in, and with which program.
 *
 *     cbuser    -  -      /sbin/callback -S 5551234
 *     *AutoPPP* -  a_ppp  /usr/sbin/pppd file /etc/ppp/options
 *     *         -  -      /bin/login @
 *
 * One row a line: pattern, user id, utmp entry, program and its arguments. A lone "@" right behind
 * the program stands for the name that the caller typed; it is no argument of ours and stays with
 * the program.
 */
#include "guarded.h"
#include "table_row.h"

namespace {

const llconf::row_syntax &syntax() {
    static const llconf::row_syntax k_syntax = {
        .columns = {"pattern", "userid", "utmp_entry", "login_program", "args"},
        .key = 0,
        .required = 4,
        .separator = "",
        .comment = "",
        .word_behind = "@",
    };
    return k_syntax;
}

const char *comments(const void *) {
    return "#";
}

int read(const void *, cnf_reader *reader, int, const char *text, size_t length) {
    return llconf::guarded([&] { return llconf::row_read(syntax(), reader, {text, length}); });
}

int format(const void *, const cnf_format *request) {
    return llconf::guarded([&] { return llconf::row_format(syntax(), *request); });
}

int accepts(const void *, int level, const cnfnode *parent, const char *name, const char *value) {
    bool comment = level == 1 && name[0] == '#';
    return !comment && llconf::row_accepts(syntax(), level, parent, name, value) ? 1 : 0;
}

constexpr cnf_parser k_parser = {
    .version = CNF_PARSER_VERSION,
    .name = "mgetty",
    .options = nullptr,
    .keep_blank_lines = 0,
    .indent = 0,
    .prepare = nullptr,
    .release = nullptr,
    .comments = comments,
    .cut = nullptr,
    .read = read,
    .kind_of = nullptr,
    .format = format,
    .accepts = accepts,
    .read_tree = nullptr,
    .format_tree = nullptr,
    .counted_names = 0,
};

}  // namespace

int cnfmodule_register_mgetty() {
    return llconf::guarded([] {
        syntax();
        return cnf_register_parser(&k_parser);
    });
}
