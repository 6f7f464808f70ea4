#include <cerrno>

#include "llconf/modules.h"
#include "llconf/parser.h"

/* The parsers that are always there. To add one: write parsers/NAME.cpp with its cnf_parser record
 * and cnfmodule_register_NAME, declare that in llconf/parser.h, add it to CMakeLists.txt and here.
 */

namespace {

using register_function = int (*)();

constexpr register_function k_built_in[] = {
    cnfmodule_register_tavconf,   cnfmodule_register_python,  cnfmodule_register_lines,
    cnfmodule_register_shellvars, cnfmodule_register_hosts,   cnfmodule_register_keyvalue,
    cnfmodule_register_ini,       cnfmodule_register_table,   cnfmodule_register_interfaces,
    cnfmodule_register_mgetty,    cnfmodule_register_aliases,
};

}  // namespace

int register_all(void) {
    int before = errno;
    for (register_function add : k_built_in) {
        if (add() < 0 && errno != EEXIST) return -1;
    }
    errno = before;
    return 0;
}
