// Function lists. A definition is found through the symbol of its name, which knows its definitions
// newest first; a list is told apart by the state that its members share. Definitions are counted:
// one use by the list, one by every node, so that neither has to outlive the other.
#include <cerrno>
#include <new>

#include "internal.h"

namespace fe {

namespace {

fe_def_internal *new_definition(std::string_view name) {
    symbol_ptr symbol = acquire_symbol(name);
    if (symbol == nullptr) return nullptr;
    auto *made = new (std::nothrow) fe_def_internal{};
    if (made == nullptr) {
        release_symbol(symbol);
        errno = ENOMEM;
        return nullptr;
    }
    made->name = symbol;
    made->def.name = symbol->name;
    made->def.private_data = made;
    made->def.private_kind = k_kind_call;
    made->def.private_uses = 1;
    return made;
}

fe_list_state *state_for(fe_def *list) {
    if (list != nullptr) return list->private_data->list;
    auto *state = new (std::nothrow) fe_list_state{};
    if (state == nullptr) errno = ENOMEM;
    return state;
}

void enter(fe_def_internal *made, fe_list_state *state) {
    made->list = state;
    ++state->members;
    made->older = made->name->newest_definition;
    made->name->newest_definition = made;
}

// Out of the symbol's chain and the list's count; links between definitions are the caller's.
void leave(fe_def_internal *gone) {
    fe_def_internal **link = &gone->name->newest_definition;
    while (*link != gone)
        link = &(*link)->older;
    *link = gone->older;
    if (--gone->list->members == 0) delete gone->list;
    gone->list = nullptr;
    gone->def.next = nullptr;
    release_definition(&gone->def);
}

// A new definition at one end of a list, or null.
fe_def_internal *add(fe_def *&list, std::string_view name, bool in_front) {
    fe_def_internal *made = new_definition(name);
    if (made == nullptr) return nullptr;
    fe_list_state *state = state_for(list);
    if (state == nullptr) {
        release_definition(&made->def);
        return nullptr;
    }
    enter(made, state);
    if (in_front || list == nullptr) {
        made->def.next = list;
        if (list == nullptr) state->last = &made->def;
        list = &made->def;
    } else {
        state->last->next = &made->def;
        state->last = &made->def;
    }
    return made;
}

// What in it is not pure, its calls tell one by one.
void become_user_function(fe_def_internal *made) {
    made->def.function = call_user_function;
    made->pure = true;
    made->membership = ask_user_function;
}

void destroy_definition(fe_def_internal *dead) {
    destroy_fe_node_list(dead->body);
    for (symbol_ptr parameter : dead->parameters)
        release_symbol(parameter);
    release_symbol(dead->name);
    delete dead;
}

}  // namespace

// A body may hold the last use of another definition, and so on through as many as there were
// overridden methods, so the dead wait in line instead of being destroyed inside each other.
void bury_definition(fe_def *fed) {
    static fe_def_internal *dead = nullptr;
    static bool burying = false;
    fed->private_data->older = dead;
    dead = fed->private_data;
    if (burying) return;
    burying = true;
    while (dead != nullptr) {
        fe_def_internal *next = dead;
        dead = next->older;
        destroy_definition(next);
    }
    burying = false;
}

fe_def *find_definition(fe_def *list, std::string_view name) {
    symbol_ptr symbol = list == nullptr ? nullptr : find_symbol(name);
    if (symbol == nullptr) return nullptr;
    for (fe_def_internal *d = symbol->newest_definition; d != nullptr; d = d->older) {
        if (d->list == list->private_data->list) return &d->def;
    }
    return nullptr;
}

fe_def *append_user_function(fe_def *&list, std::string_view name,
                             const std::vector<std::string_view> &parameters) {
    std::vector<symbol_ptr> symbols;
    symbols.reserve(parameters.size());
    for (std::string_view parameter : parameters) {
        symbol_ptr symbol = acquire_symbol(parameter);
        if (symbol == nullptr) break;
        symbols.push_back(symbol);
    }
    fe_def_internal *made = nullptr;
    if (symbols.size() == parameters.size()) made = add(list, name, false);
    if (made == nullptr) {
        for (symbol_ptr symbol : symbols)
            release_symbol(symbol);
        return nullptr;
    }
    become_user_function(made);
    made->parameters = std::move(symbols);
    return &made->def;
}

// The walk goes down through children first, so it needs the way back: bodies that the parser made
// are at most k_max_nesting deep.
static void mark_own_calls(fe_def *fed, fe_node *first) {
    for (; first != nullptr; first = first->next) {
        if (first->fed == fed && (first->private_flags & k_flag_own_body) == 0) {
            first->private_flags |= k_flag_own_body;
            --fed->private_uses;
        }
        mark_own_calls(fed, first->first_child);
    }
}

void set_user_function_body(fe_def *fed, fe_node *body) {
    mark_own_calls(fed, body);
    fed->private_data->body = body;
}

void take_out_of_list(fe_def *&list, fe_def *fed) {
    fe_def *before = nullptr;
    if (list == fed) {
        list = fed->next;
    } else {
        before = list;
        while (before->next != fed)
            before = before->next;
        before->next = fed->next;
    }
    if (fed->next == nullptr) fed->private_data->list->last = before;
    leave(fed->private_data);
}

}  // namespace fe

extern "C" {

using namespace fe;

felib_base *create_felib_base(void) {
    auto *base = new (std::nothrow) felib_base{};
    if (base == nullptr) errno = ENOMEM;
    return base;
}

void destroy_felib_base(felib_base *base) {
    if (base == nullptr) return;
    destroy_fe_def_list(base->fed_list);
    delete base;
}

void destroy_fe_def_list(fe_def *list) {
    while (list != nullptr)
        list = fe_unregister_first(list);
}

fe_def *fe_register_func(fe_def *list, const char *name, fe_function function, void *user_data) {
    return fe_register_counted_func(list, name, function, user_data, 0, -1);
}

fe_def *fe_register_counted_func(fe_def *list, const char *name, fe_function function,
                                 void *user_data, int least, int most) {
    if (find_definition(list, name) != nullptr) report_redefinition(name);
    fe_def_internal *made = add(list, name, false);
    if (made == nullptr) return list;
    made->def.function = function;
    made->def.user_data = user_data;
    made->least = least;
    made->most = most;
    return list;
}

fe_def *fe_register_function(fe_def *list, const char *name, fe_node *expression) {
    fe_def_internal *made = add(list, name, true);
    if (made == nullptr) {
        destroy_fe_node_list(expression);
        return list;
    }
    become_user_function(made);
    made->body = expression;
    return list;
}

void fe_set_membership(fe_def *list, const char *name, fe_membership membership) {
    fe_def *fed = find_definition(list, name);
    if (fed != nullptr) fed->private_data->membership = membership;
}

fe_def *fe_unregister_first(fe_def *list) {
    if (list != nullptr) {
        fe_def *first = list;
        take_out_of_list(list, first);
    }
    return list;
}

fe_def *find_fe_def(fe_def *list, const char *name) {
    return find_definition(list, name);
}
}
