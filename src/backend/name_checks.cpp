#include "backend/name_checks.h"

#include <libdaemon/dlog.h>
#include <syslog.h>

#include <new>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "backend/contexts.h"
#include "backend/llfuncs.h"
#include "fe/fe.h"
#include "tree/definition.h"
#include "tree/types.h"

namespace {

/* A name that is not defined yet, and where it stands. Definitions may come behind their use. */
struct named {
    std::string name;
    std::string place;
};

struct {
    std::vector<named> modules;
    std::vector<named> types;
    std::set<std::string, std::less<>> made; /* modules that an expression makes */
} g_names;

bool is_module(const char *name) {
    llconf_item *items = g_trns_ctx ? lli_list_from_trns_ctx(g_trns_ctx) : nullptr;
    return items && find_llconf_item(items, name);
}

const char *constant(const fe_node *argument) {
    return argument && argument->fed == g_fed_const ? argument->text : nullptr;
}

void look_at_call(const fe_node *call) {
    const int fits = fe_count_fits(call);
    if (fits != 0)
        complain(LOG_WARNING, "Warning: function '%s' takes %s arguments than are given here",
                 call->fed->name, fits > 0 ? "fewer" : "more");
    const fe_node *first = call->first_child;
    if (is_ll_function(call->fed)) {
        const char *module = constant(first);
        if (module && call->fed->function == fe_func_llmodcreate) g_names.made.insert(module);
        if (module && !is_module(module)) g_names.modules.push_back({module, reading_place(0)});
    } else if (call->fed->function == fe_func_istype) {
        const char *type = constant(first ? first->next : nullptr);
        if (type && !find_ccd_type(g_types, type))
            g_names.types.push_back({type, reading_place(0)});
    }
}

/* Goes no deeper than the parser allows. */
void look_at(const fe_node *node) {
    for (; node; node = node->next) {
        if (!node->text) look_at_call(node);
        look_at(node->first_child);
    }
}

void observe(const fe_node *expression) {
    errno_guard keep;
    const reading_entry here{fe_reported_entry() ? fe_reported_entry() : reading_now()};
    try {
        look_at(expression);
    } catch (const std::bad_alloc &) {
        complain(LOG_WARNING, "Warning: not looked at: out of memory");
    }
}

template <class predicate>
void complain_of(const std::vector<named> &names, const char *what, predicate is_defined) {
    for (const named &one : names)
        if (!is_defined(one.name))
            daemon_log(LOG_WARNING, "%sWarning: there is no %s '%s'", one.place.c_str(), what,
                       one.name.c_str());
}

}  // namespace

void name_checks_begin(void) {
    fe_set_parse_observer(observe);
}

void name_checks_finish(void) {
    fe_set_parse_observer(nullptr);
    complain_of(g_names.modules, "module", [](const std::string &name) {
        return is_module(name.c_str()) || g_names.made.contains(name);
    });
    complain_of(g_names.types, "type",
                [](const std::string &name) { return find_ccd_type(g_types, name.c_str()); });
    g_names = {};
}
