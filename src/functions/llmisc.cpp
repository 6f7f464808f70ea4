#include "functions/llmisc.h"

#include <array>
#include <charconv>
#include <cstring>
#include <new>

#include "daemon/trace.h"
#include "functions/functions.h"

/* The option-string, file and event functions. One row a function; the one native function below
 * finds its row through the definition that the call carries. To add one: declare it in llmisc.h,
 * write it in the file of its kind, and give it a row here and an example in docs/expressions.md.
 */

namespace {

constexpr int k_any = -1;

struct function_row {
    const char *name;
    int least;
    int most; /* k_any: no limit */
    fe_node *(*function)(const call_arguments &arguments);
};

constexpr std::array k_functions{
    function_row{"system", 1, 2, llmisc_system},
    function_row{"getopt", 3, 3, llmisc_getopt},
    function_row{"setopt", 4, 4, llmisc_setopt},
    function_row{"delopt", 3, 3, llmisc_delopt},
    function_row{"get_nonoptarg", 3, 3, llmisc_get_nonoptarg},
    function_row{"set_nonoptarg", 4, 4, llmisc_set_nonoptarg},
    function_row{"shoptions", 1, 1, llmisc_shoptions},
    function_row{"makeshoptions", 0, k_any, llmisc_makeshoptions},
    function_row{"slashify", 1, 1, llmisc_slashify},
    function_row{"escapename", 1, 1, llmisc_escapename},
    function_row{"urlencode", 1, 1, llmisc_urlencode},
    function_row{"urldecode", 1, 1, llmisc_urldecode},
    function_row{"hexencode", 1, 1, llmisc_hexencode},
    function_row{"hexdecode", 1, 1, llmisc_hexdecode},
    function_row{"isfile", 1, 1, llmisc_isfile},
    function_row{"issymlink", 1, 1, llmisc_issymlink},
    function_row{"isdir", 1, 1, llmisc_isdir},
    function_row{"iswritable", 1, 1, llmisc_iswritable},
    function_row{"readlink", 1, 1, llmisc_readlink},
    function_row{"unlink", 1, 1, llmisc_unlink},
    function_row{"symlink", 2, 2, llmisc_symlink},
    function_row{"setlink", 2, 2, llmisc_setlink},
    function_row{"fnmatch", 2, 2, llmisc_fnmatch},
    function_row{"readlines", 1, 1, llmisc_readlines},
    function_row{"writelines", 1, k_any, llmisc_writelines},
    function_row{"readlinespipe", 1, 1, llmisc_readlinespipe},
    function_row{"print", 0, k_any, llmisc_print},
    function_row{"writeevt", 2, k_any, llmisc_writeevt},
};

constexpr const char *k_pure[] = {
    "getopt",    "setopt",        "delopt",    "get_nonoptarg", "set_nonoptarg",
    "shoptions", "makeshoptions", "slashify",  "escapename",    "urlencode",
    "urldecode", "hexencode",     "hexdecode", "fnmatch",
};

fe_node *call_llmisc(fe_context *ctx, fe_node *call) {
    const auto *row = static_cast<const function_row *>(call->fed->user_data);
    trace(4, "%s\n", row->name);
    call_arguments arguments{ctx, call};
    if (arguments.failed()) return nullptr;
    if (arguments.count() < row->least || (row->most != k_any && arguments.count() > row->most))
        return fail_count(arguments);
    try {
        return row->function(arguments);
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}

}  // namespace

bool read_whole_number(const char *text, long &number) {
    const char *end = text + strlen(text);
    const auto [behind, error] = std::from_chars(text, end, number);
    return error == std::errc{} && behind == end;
}

fe_def *fe_register_llmiscfuncs(fe_def *list) {
    for (const auto &row : k_functions)
        list = fe_register_counted_func(list, row.name, call_llmisc,
                                        const_cast<function_row *>(&row), row.least, row.most);
    for (const char *name : k_pure)
        fe_mark_pure(list, name);
    return list;
}
