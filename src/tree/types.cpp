#include "tree/types.h"

#include <libdaemon/dlog.h>
#include <strings.h>
#include <syslog.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <unordered_map>

#include "daemon/dirs.h"
#include "daemon/trace.h"
#include "fe/fe.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "tree/arguments.h"
#include "tree/definition.h"
#include "tree/param_failure.h"
#include "ucfgd/owners.h"
#include "ucfgd/slist.h"

ccd_type *g_types = nullptr;

static_assert(offsetof(ccd_type, next) == 0);

namespace {

using owned_expression = owned<fe_node, destroy_fe_node_tree>;

/* What is no expression is left out, and the type has none. One whose pattern is none was meant to
 * refuse something, so it fails, and the type accepts nothing. */
void replace_expression(ccd_type *type, fe_node **field, const char *text, fe_def *fed_list) {
    owned_expression old{*field};
    *field = parse_fe_expression(text, fed_list);
    if (*field) return;
    if (errno != EBADMSG) {
        complain_of_silent();
        return;
    }
    log_expression_failure(type->name);
    *field = create_fe_node(g_fed_unparsed, text);
}

void read_parent(ccd_type *type, const char *value, fe_def *) {
    type->parent_type_name = value;
}

void read_validation(ccd_type *type, const char *value, fe_def *fed_list) {
    replace_expression(type, &type->func_validation, value, fed_list);
}

void read_choices(ccd_type *type, const char *value, fe_def *fed_list) {
    replace_expression(type, &type->func_choices, value, fed_list);
}

void read_help(ccd_type *type, const char *value, fe_def *fed_list) {
    replace_expression(type, &type->func_help, value, fed_list);
}

void read_len(ccd_type *type, const char *value, fe_def *) {
    complain_of_no_number(value);
    type->len = std::atoi(value);
}

void read_flags(ccd_type *type, const char *value, fe_def *) {
    type->flags = strcasecmp(value, "case-insensitive") == 0 ? k_type_case_insensitive : 0;
}

struct type_key {
    std::string_view name;
    void (*read)(ccd_type *type, const char *value, fe_def *fed_list);
};

constexpr type_key k_keys[] = {{"parent-type:", read_parent},
                               {"validation:", read_validation},
                               {"choices:", read_choices},
                               {"help:", read_help},
                               {"len:", read_len},
                               {"flags:", read_flags}};

void read_entry(ccd_type *type, const cnfnode *entry, fe_def *fed_list) {
    const reading_entry here{entry};
    for (const type_key &key : k_keys) {
        if (key.name == entry->name) {
            key.read(type, entry->value ? entry->value : "", fed_list);
            return;
        }
    }
    if (entry->name[0] == '.') return;
    std::array<std::string_view, std::size(k_keys)> known;
    std::ranges::transform(k_keys, known.begin(), &type_key::name);
    complain_of_unknown(entry, known);
    trace(2, "Warning: Unknown node \"%s\" in type \"%s\".\n", entry->name, type->name);
}

ccd_type *read_types(const cnfnode *tree, fe_def *fed_list) {
    list_builder<ccd_type> types;
    for (const cnfnode *cn = tree->first_child; cn; cn = cn->next) {
        if (cn->name[0] == '%') continue;
        ccd_type *type = create_ccd_type(cn->name);
        if (!type) break;
        if (find_node(tree->first_child, cn->name) != cn) {
            const reading_entry here{cn};
            complain(LOG_WARNING, "Warning: type '%s' is defined again: the first definition holds",
                     cn->name);
        }
        types.append(type);
        for (const cnfnode *entry = cn->first_child; entry; entry = entry->next) {
            read_entry(type, entry, fed_list);
        }
    }
    return types.release();
}

/* When all are known, so that a parent may stand behind its children. */
void resolve_parents(ccd_type *list, const cnfnode *tree) {
    std::unordered_map<std::string_view, ccd_type *> by_name;
    for (ccd_type *type = list; type; type = type->next) {
        by_name.emplace(type->name, type);
    }
    for (ccd_type *type = list; type; type = type->next) {
        const char *name = std::exchange(type->parent_type_name, nullptr);
        type->len = get_type_len(type);
        if (!name) continue;
        auto parent = by_name.find(name);
        if (parent != by_name.end()) {
            type->parent_type = parent->second;
        } else {
            const reading_entry here{find_node(tree->first_child, type->name)};
            complain(LOG_WARNING, "Warning: type '%s' has parent '%s', which is not defined",
                     type->name, name);
            trace(2, "read_ccd_types: type \"%s\" has undefined parent \"%s\". Ignoring.",
                  type->name, name);
        }
    }
}

/* The nearest expression up the chain. The mark moves half as fast as the walk: where the chain
 * runs in a circle the two meet. */
fe_node *inherited(const ccd_type *type, fe_node *ccd_type::*field) {
    const ccd_type *mark = type;
    bool move_mark = false;
    while (type) {
        if (type->*field) return type->*field;
        type = type->parent_type;
        if (move_mark) mark = mark->parent_type;
        move_mark = !move_mark;
        if (type == mark) return nullptr;
    }
    return nullptr;
}

}  // namespace

ccd_type *create_ccd_type(const char *name) {
    owned_str copy = dup_str(name);
    auto *type = copy ? new (std::nothrow) ccd_type{} : nullptr;
    if (!type) {
        errno = ENOMEM;
        return nullptr;
    }
    type->name = copy.release();
    return type;
}

void destroy_ccd_type(ccd_type *type) {
    if (!type) return;
    destroy_fe_node_tree(type->func_validation);
    destroy_fe_node_tree(type->func_choices);
    destroy_fe_node_tree(type->func_help);
    std::free(type->name);
    delete type;
}

void destroy_ccd_type_list(ccd_type *list) {
    for (ccd_type *type : removal_safe(list)) {
        destroy_ccd_type(type);
    }
}

ccd_type *append_ccd_type(ccd_type *list, ccd_type *type) {
    return slist_append(list, type);
}

ccd_type *types_readconf(const char *filename, fe_def *fed_list) {
    cnfmodule *module = find_cnfmodule("tavconf");
    if (!module) {
        trace(0, "error finding module tavconf\n");
        return nullptr;
    }
    owned_str full{prefix_ucfgdconffilename(filename)};
    if (!full) return nullptr;
    const reading_file reading{full.get()};
    owned<cnfnode, destroy_cnftree> tree{cnfmodule_parse_file(module, full.get())};
    if (!tree) {
        /* A system without types is no error, a file that cannot be read is one. */
        if (errno != ENOENT) daemon_log(LOG_ERR, "%s", cnf_error_text());
        return nullptr;
    }
    strip_cnftree(tree.get());
    owned<ccd_type, destroy_ccd_type_list> types{read_types(tree.get(), fed_list)};
    try {
        resolve_parents(types.get(), tree.get());
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
    return types.release();
}

ccd_type *find_ccd_type(ccd_type *list, const char *name) {
    while (list && std::strcmp(list->name, name) != 0) {
        list = list->next;
    }
    return list;
}

fe_node *get_type_validation_func(const ccd_type *type) {
    return inherited(type, &ccd_type::func_validation);
}

fe_node *get_type_choices_func(const ccd_type *type) {
    return inherited(type, &ccd_type::func_choices);
}

fe_node *get_type_help_func(const ccd_type *type) {
    return inherited(type, &ccd_type::func_help);
}

int get_type_len(const ccd_type *type) {
    return type ? type->len : 0;
}

int is_type(fe_context *ctx, const ccd_type *type, const char *value) {
    if (!type) return 0;
    if (type->len != 0 && std::strlen(value) > static_cast<size_t>(type->len)) return 0;
    fe_node *validation = get_type_validation_func(type);
    if (!validation) return 1;
    owned<fe_context, destroy_fe_context> own{
        create_fe_context(ctx, ctx ? ctx->user_data : nullptr)};
    if (!own || fe_set(own.get(), "_", value) != 0) return 0;
    owned<fe_node, destroy_fe_node_list> result{eval_fe_expression(own.get(), validation)};
    return fe_istrue(fe_last_text(result.get()));
}

fe_node *fe_func_istype(fe_context *ctx, fe_node *call) {
    call_arguments arguments{ctx, call};
    bool answer = arguments.count() == 2 &&
                  is_type(ctx, find_ccd_type(g_types, arguments[1]), arguments[0]) != 0;
    return truth_node(answer);
}

fe_node *fe_func_typehelp(fe_context *ctx, fe_node *call) {
    memory_watch memory;
    call_arguments args{ctx, call};
    if (args.count() != 1) return answer_wrong_count(memory, args);
    fe_node *help = get_type_help_func(find_ccd_type(g_types, args[0]));
    owned<fe_node, destroy_fe_node_list> text{help ? eval_fe_expression(ctx, help) : nullptr};
    return text ? const_node(fe_last_text(text.get())) : answer_unless_short(memory, "");
}

fe_def *fe_register_typefuncs(fe_def *list) {
    list = fe_register_func(list, "istype", fe_func_istype, nullptr);
    fe_mark_pure(list, "istype");
    return fe_register_func(list, "typehelp", guarded<fe_func_typehelp>, nullptr);
}
