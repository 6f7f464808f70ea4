/* Tables: one row a line, columns parted by a separator or by runs of blanks.
 *
 * passwd, group, fstab, services and inittab differ in their options only:
 *
 *     columns=name/password/uid/gid/gecos/home/shell
 *     columns=device/mountpoint/type/options/dump/pass key=mountpoint separator=blank
 *
 * A node is named after the key column and has the other columns as its children. Where blanks part
 * the columns, a comment may stand behind a row; elsewhere a "#" may be part of any column but the
 * first, as in the full name of a user.
 */
#include <cerrno>
#include <memory>
#include <new>

#include "guarded.h"
#include "table_row.h"

namespace {

using llconf::row_syntax;

constexpr const char *k_options[] = {"columns", "key", "separator", "comment", nullptr};
constexpr std::string_view k_blank = "blank";

const row_syntax &syntax_of(const void *data) {
    return *static_cast<const row_syntax *>(data);
}

/* "a/b/c" into interned names; false for an empty name, one of a kind, or no memory. */
bool read_columns(std::string_view list, row_syntax &syntax) {
    for (std::size_t begin = 0; begin <= list.size();) {
        std::size_t end = std::min(list.find('/', begin), list.size());
        std::string name(list.substr(begin, end - begin));
        if (name.empty() || name.front() == '.') return false;
        for (std::string_view known : syntax.columns) {
            if (known == name) return false;
        }
        const char *interned = cnf_intern(name.c_str());
        if (interned == nullptr) throw std::bad_alloc();
        syntax.columns.push_back(interned);
        begin = end + 1;
    }
    return true;
}

bool read_options(const cnfnode *options, row_syntax &syntax) {
    if (!read_columns(cnf_option(options, "columns", "key/value"), syntax)) return false;
    std::string_view key = cnf_option(options, "key", syntax.columns.front());
    while (syntax.key < syntax.columns.size() && syntax.columns[syntax.key] != key)
        ++syntax.key;
    if (syntax.key == syntax.columns.size()) return false;
    syntax.separator = cnf_option(options, "separator", ":");
    if (syntax.separator.empty() || syntax.separator.find_first_of("\r\n") != std::string::npos) {
        return false;
    }
    bool blank = syntax.separator == k_blank || syntax.separator == " " || syntax.separator == "\t";
    if (blank) syntax.separator.clear();
    syntax.comment = cnf_option(options, "comment", "#");
    bool lone_key = blank || syntax.columns.size() == 1;
    syntax.required = std::max(syntax.key + 1, lone_key ? std::size_t{1} : std::size_t{2});
    return true;
}

int prepare(const cnfnode *options, void **data) {
    return llconf::guarded([&] {
        auto syntax = std::make_unique<row_syntax>();
        if (!read_options(options, *syntax)) {
            errno = EINVAL;
            return -1;
        }
        *data = syntax.release();
        return 0;
    });
}

void release(void *data) {
    std::unique_ptr<row_syntax>(static_cast<row_syntax *>(data)).reset();
}

const char *comments(const void *data) {
    return syntax_of(data).comment.c_str();
}

int read(const void *data, cnf_reader *reader, int, const char *text, size_t length) {
    return llconf::guarded([&] {
        return llconf::row_read(syntax_of(data), reader, {text, length});
    });
}

int format(const void *data, const cnf_format *request) {
    return llconf::guarded([&] { return llconf::row_format(syntax_of(data), *request); });
}

int accepts(const void *data, int level, const cnfnode *parent, const char *name,
            const char *value) {
    return llconf::row_accepts(syntax_of(data), level, parent, name, value) ? 1 : 0;
}

constexpr cnf_parser k_parser = {
    .version = CNF_PARSER_VERSION,
    .name = "table",
    .options = k_options,
    .keep_blank_lines = 0,
    .indent = 0,
    .prepare = prepare,
    .release = release,
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

int cnfmodule_register_table() {
    return cnf_register_parser(&k_parser);
}
