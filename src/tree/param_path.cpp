/* Paths and methods: from the text that a client sends to the value that it gets.
 *
 * A path is resolved into the chain of nodes that it leads through, together with the names that
 * the client gave: below a wildcard node the two differ, and the methods need the names. One block
 * of memory holds the whole param_path, since every request makes one; the names are a copy of the
 * path, cut at its dots and unescaped in place.
 *
 * There is no backtracking. A component takes the sibling of exactly that name, otherwise the first
 * wildcard, and when the rest of the path does not fit below it, the path does not resolve.
 *
 * To run a method (run_method below, and the same steps in param_ops.cpp): make a context whose
 * user data is the transaction, set what the operation passes ("_", arg1, ...), run the "common:"
 * methods of the path's nodes from the top down, each seeing the names from its own node upwards,
 * set the names as the addressed node sees them, evaluate. The order matters: "common:" may look at
 * "_" and may set variables for the method, but never the method's "0".
 *
 * What may never happen: an unescaped name that leaves through a listing or a value (a dot in it
 * would become another component), and a path that is kept longer than the tree. */

#include "tree/param_path.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "daemon/trace.h"
#include "tree/known_symbol.h"
#include "tree/param_context.h"
#include "tree/path_segment.h"
#include "ucfgd/escape.h"

static_assert(offsetof(param_path_item, next) == 0);

namespace {

/* The variables that nearly every request sets. */
constinit std::array g_digits{
    known_symbol{"0"}, known_symbol{"1"}, known_symbol{"2"}, known_symbol{"3"}, known_symbol{"4"},
    known_symbol{"5"}, known_symbol{"6"}, known_symbol{"7"}, known_symbol{"8"}, known_symbol{"9"}};
constinit known_symbol g_argc{"argc"};

/* Follows a path through the tree, a component a step. */
struct path_walk {
    path_walk(const ccdtree_node *root, const char *path) : above(root), rest(path) {}

    const ccdtree_node *above;
    const char *rest;
    ccdtree_node *node = nullptr;
    std::array<char, k_max_segment + 1> name; /* of the present component, unescaped */
    bool goes_on = true;

    bool step() {
        path_segment segment = first_segment(rest);
        std::memcpy(name.data(), rest, segment.length);
        name[segment.length] = '\0';
        unescape_b(name.data(), name.data());
        node = name[0] == '\0' ? nullptr : match_ccdtree_child(above, name.data());
        above = node;
        goes_on = segment.goes_on;
        rest += segment.length + 1;
        return node != nullptr;
    }
};

/* At least the number of components; 0 for a path of many that does not resolve, so that a long
 * text which is no path costs no memory. */
size_t count_components(std::string_view text, const ccdtree_node *root) {
    constexpr size_t k_many = 64;
    size_t count = 1;
    for (char c : text) {
        count += c == '.' ? 1 : 0;
    }
    if (count <= k_many) return count;
    path_walk walk{root, text.data()};
    for (count = 1; walk.step(); count++) {
        if (!walk.goes_on) return count;
    }
    return 0;
}

/* What stands in front of each path. A path is never changed once it has been resolved, so those
 * that are asked for again and again are one record, which is counted. */
struct path_record {
    size_t users;
    size_t hash;
    size_t length; /* of the path as given */
    unsigned int changes;
    param_path path;
};

path_record *record_of(param_path *path) {
    return reinterpret_cast<path_record *>(reinterpret_cast<char *>(path) -
                                           offsetof(path_record, path));
}

/* Record, items, names and the path as given, in one block. */
owned_path allocate_path(std::string_view text, size_t components, char **names_end) {
    size_t head = sizeof(path_record) + components * sizeof(param_path_item);
    auto *block = static_cast<char *>(std::malloc(head + 2 * (text.size() + 1)));
    if (!block) return nullptr;
    auto *record = reinterpret_cast<path_record *>(block);
    *record = {};
    record->users = 1;
    param_path *path = &record->path;
    path->fullpath = block + head;
    std::memcpy(path->fullpath, text.data(), text.size());
    path->fullpath[text.size()] = '\0';
    *names_end = path->fullpath + text.size() + 1;
    return owned_path{path};
}

bool resolve(param_path *path, char *names_end) {
    auto *item = reinterpret_cast<param_path_item *>(record_of(path) + 1);
    path_walk walk{path->ccd_tree, path->fullpath};
    path->last = item;
    while (walk.step()) {
        size_t size = std::strlen(walk.name.data()) + 1;
        std::memcpy(names_end, walk.name.data(), size);
        *item = {path->first, names_end, walk.node};
        path->first = item++;
        if (!walk.goes_on) return true;
        names_end += size;
    }
    return false;
}

/* The paths that were resolved last, each in the slot of its hash. One that was resolved before the
 * trees last changed counts no more. */
class recent_paths {
  public:
    param_path *find(std::string_view text, size_t hash, const ccdtree_node *root) {
        path_record *record = slots_[hash % k_slots];
        if (!record || record->hash != hash || record->changes != g_ccdtree_changes ||
            record->path.ccd_tree != root || record->length != text.size() ||
            std::memcmp(record->path.fullpath, text.data(), text.size()) != 0) {
            return nullptr;
        }
        record->users++;
        return &record->path;
    }

    void keep(param_path *path, std::string_view text, size_t hash) {
        if (text.size() > k_longest) return;
        path_record *&slot = slots_[hash % k_slots];
        if (slot) destroy_param_path(&slot->path);
        slot = record_of(path);
        slot->users++;
        slot->hash = hash;
        slot->length = text.size();
        slot->changes = g_ccdtree_changes;
    }

  private:
    static constexpr size_t k_slots = 64;
    static constexpr size_t k_longest = 256;
    std::array<path_record *, k_slots> slots_{};
};

recent_paths g_recent;

enum class value_action { get = 1, help = 2, info = 3, access = 4, args = 5 };

struct value_method {
    const char *key;
    fe_node *ccdtree_node::*field;
};

/* In the order of value_action. */
constexpr value_method k_value_methods[] = {{"get:", &ccdtree_node::func_get},
                                            {"help:", &ccdtree_node::func_help},
                                            {"info:", &ccdtree_node::func_info},
                                            {"access:", &ccdtree_node::func_access},
                                            {"args:", &ccdtree_node::func_args}};

const fe_node *nearest_access(const ccdtree_node *node) {
    while (node && !node->func_access) {
        node = node->parent;
    }
    return node ? node->func_access : nullptr;
}

struct method_call {
    value_action action;
    backend_ctx *ctx;
    const param_path *path;
    bool takes_arguments = false;
    const line *arg_list = nullptr;
    fe_context *parent = nullptr;
};

char *ccd_param_ppath(const method_call &call) {
    if (!call.path || !call.path->first) return nullptr;
    const value_method &kind = k_value_methods[static_cast<int>(call.action) - 1];
    const ccdtree_node *node = call.path->first->ccd;
    const fe_node *method =
        call.action == value_action::access ? nearest_access(node) : node->*kind.field;
    owned_context own = create_method_context(call.ctx, call.parent);
    if (!own) return nullptr;
    if (!enter_path(own.get(), call.path, call.arg_list, call.takes_arguments)) return nullptr;
    if (!method) {
        trace(4, "%s: No implementation found for function \"%s\" at \"%s\".\n", __func__, kind.key,
              call.path->fullpath);
        return nullptr;
    }
    owned_result result = run_method(own.get(), method, kind.key, call.path);
    return escaped_result(result.get());
}

}  // namespace

param_path *find_ccd_param(const char *path, ccdtree_node *root) {
    trace(4, "%s, full_path=%s\n", __func__, path);
    std::string_view text = path;
    size_t hash = std::hash<std::string_view>{}(text);
    if (param_path *known = g_recent.find(text, hash, root)) return known;
    if (size_t components = root ? count_components(text, root) : 0) {
        char *names_end = nullptr;
        owned_path resolved = allocate_path(text, components, &names_end);
        if (!resolved) return nullptr;
        resolved->ccd_tree = root;
        if (resolve(resolved.get(), names_end)) {
            g_recent.keep(resolved.get(), text, hash);
            return resolved.release();
        }
    }
    errno = ENOENT;
    return nullptr;
}

void destroy_param_path(param_path *path) {
    if (path && --record_of(path)->users == 0) std::free(record_of(path));
}

void ccd_param_common(fe_context *ctx, const param_path *path) {
    size_t count = 0;
    for (const param_path_item *item = path->first; item; item = item->next) {
        count += item->ccd->func_common ? 1 : 0;
    }
    if (count == 0) return;
    std::unique_ptr<const param_path_item *[]> items {
        new (std::nothrow) const param_path_item *[count]
    };
    if (!items) {
        errno = ENOMEM;
        return;
    }
    size_t end = 0;
    for (const param_path_item *item = path->first; item; item = item->next) {
        if (item->ccd->func_common) items[end++] = item;
    }
    while (end-- > 0) {
        set_path_vars(ctx, items[end]);
        owned_result ignored = run_method(ctx, items[end]->ccd->func_common, "common:", path);
    }
}

void set_path_vars(fe_context *ctx, const param_path_item *first) {
    for (known_symbol &digit : g_digits) {
        if (!first) return;
        digit.set(ctx, first->name);
        first = first->next;
    }
}

static void set_arg_vars(fe_context *ctx, const line *arg_list) {
    int count = 0;
    for (; arg_list; arg_list = arg_list->next) {
        std::array<char, 16> name;
        std::snprintf(name.data(), name.size(), "arg%d", ++count);
        /* Names have at most five characters: the hundredth argument takes the tenth's place. */
        name[5] = '\0';
        fe_set(ctx, name.data(), arg_list->line);
    }
    std::array<char, 16> number;
    *std::to_chars(number.begin(), number.end() - 1, count).ptr = '\0';
    g_argc.set(ctx, number.data());
}

bool enter_path(fe_context *ctx, const param_path *path, const line *arg_list,
                bool takes_arguments) {
    int before = std::exchange(errno, 0);
    if (takes_arguments) set_arg_vars(ctx, arg_list);
    ccd_param_common(ctx, path);
    set_path_vars(ctx, path->first);
    const bool complete = errno != ENOMEM;
    if (errno == 0) errno = before;
    return complete;
}

char *escaped_result(const fe_node *result) {
    const char *text = fe_last_text(result);
    return text ? escape(text) : nullptr;
}

char *ccd_param_ppath_get(backend_ctx *ctx, const param_path *path) {
    return ccd_param_ppath({value_action::get, ctx, path});
}

char *ccd_param_ppath_help(backend_ctx *ctx, const param_path *path) {
    return ccd_param_ppath({value_action::help, ctx, path});
}

char *ccd_param_ppath_args(backend_ctx *ctx, const param_path *path) {
    return ccd_param_ppath({value_action::args, ctx, path});
}

char *ccd_param_ppath_info(backend_ctx *ctx, const param_path *path, const line *arg_list,
                           fe_context *parent) {
    return ccd_param_ppath({value_action::info, ctx, path, true, arg_list, parent});
}

char *ccd_param_ppath_access(backend_ctx *ctx, const param_path *path, const line *arg_list,
                             fe_context *parent) {
    return ccd_param_ppath({value_action::access, ctx, path, true, arg_list, parent});
}
