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
#include "tree/kept.h"
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
    path_walk(const ccdtree_node *root, std::string_view path) : above(root), rest(path) {}

    const ccdtree_node *above;
    std::string_view rest;
    ccdtree_node *node = nullptr;
    size_t length = 0; /* of the present component's name */
    bool goes_on = true;

    /* Unescapes the component into name, which has room for it. */
    bool step(char *name) {
        const path_segment segment = first_segment(rest);
        unescape_part(rest.data(), segment.length, name);
        length = std::strlen(name);
        node = length == 0 ? nullptr : match_ccdtree_child(above, name);
        above = node;
        goes_on = segment.goes_on;
        if (goes_on) rest.remove_prefix(segment.length + 1);
        return node != nullptr;
    }
};

/* At least the number of components; 0 for a path of many that does not resolve, so that a long
 * text which is no path costs no memory. */
size_t count_components(std::string_view text, const ccdtree_node *root) {
    constexpr size_t k_many = 64;
    size_t count = 1;
    for (size_t dot = text.find('.'); dot != std::string_view::npos; dot = text.find('.', dot + 1))
        count++;
    if (count <= k_many) return count;
    path_walk walk{root, text};
    std::array<char, k_max_segment + 1> name;
    for (count = 1; walk.step(name.data()); count++) {
        if (!walk.goes_on) return count;
    }
    return 0;
}

/* What stands in front of each path. A path is never changed once it has been resolved, so those
 * that are asked for again and again are one record, which is counted. */
struct path_record {
    path_record *next; /* of the same slot */
    size_t users;
    size_t hash;
    uint64_t changes;
    bool is_kept; /* it is found again for its text */
    kept_slot answers;
    param_path path;
};

path_record *record_of(const param_path *path) {
    return reinterpret_cast<path_record *>(
        reinterpret_cast<char *>(const_cast<param_path *>(path)) - offsetof(path_record, path));
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
    path->length = text.size();
    std::memcpy(path->fullpath, text.data(), text.size());
    path->fullpath[text.size()] = '\0';
    *names_end = path->fullpath + text.size() + 1;
    return owned_path{path};
}

bool resolve(param_path *path, char *names_end) {
    auto *item = reinterpret_cast<param_path_item *>(record_of(path) + 1);
    path_walk walk{path->ccd_tree, {path->fullpath, path->length}};
    path->last = item;
    while (walk.step(names_end)) {
        *item = {path->first, names_end, walk.node, walk.length};
        path->first = item++;
        if (!walk.goes_on) return true;
        names_end += walk.length + 1;
    }
    return false;
}

/* The paths that were resolved last: as many as a long list has entries. One that was resolved
 * before the trees last changed counts no more. */
class recent_paths {
  public:
    param_path *find(std::string_view text, size_t hash, const ccdtree_node *root) {
        path_record *record = slots_[hash % k_most];
        while (record && !is(record, text, hash, root))
            record = record->next;
        if (!record) return nullptr;
        record->users++;
        return &record->path;
    }

    void keep(param_path *path, size_t hash) {
        if (path->length > k_longest) return;
        if (path_record *oldest = kept_[next_]) forget(oldest);
        path_record *record = record_of(path);
        record->users++;
        record->is_kept = true;
        record->hash = hash;
        record->changes = g_ccdtree_changes;
        record->next = std::exchange(slots_[hash % k_most], record);
        kept_[next_] = record;
        next_ = (next_ + 1) % k_most;
    }

  private:
    static constexpr size_t k_most = 1024;
    static constexpr size_t k_longest = 256;

    static bool is(const path_record *record, std::string_view text, size_t hash,
                   const ccdtree_node *root) {
        const param_path &path = record->path;
        return record->hash == hash && record->changes == g_ccdtree_changes &&
               path.ccd_tree == root && text == std::string_view{path.fullpath, path.length};
    }

    void forget(path_record *record) {
        path_record **link = &slots_[record->hash % k_most];
        while (*link != record)
            link = &(*link)->next;
        *link = record->next;
        destroy_param_path(&record->path);
    }

    std::array<path_record *, k_most> slots_{};
    std::array<path_record *, k_most> kept_{}; /* the oldest at next_, once all are taken */
    size_t next_ = 0;
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

/* Runs the method in a context that has what the caller lets it see. */
owned_result run_value_method(fe_context *own, const method_call &call) {
    const value_method &kind = k_value_methods[static_cast<int>(call.action) - 1];
    const ccdtree_node *node = call.path->first->ccd;
    const fe_node *method =
        call.action == value_action::access ? nearest_access(node) : node->*kind.field;
    if (!enter_path(own, call.path, call.arg_list, call.takes_arguments)) return nullptr;
    if (method) return run_method(own, method, kind.key, call.path);
    trace(4, "%s: No implementation found for function \"%s\" at \"%s\".\n", "ccd_param_ppath",
          kind.key, call.path->fullpath);
    return nullptr;
}

char *ccd_param_ppath(const method_call &call) {
    if (!call.path || !call.path->first) return nullptr;
    owned_context own = create_method_context(call.ctx, call.parent);
    return own ? escaped_result(run_value_method(own.get(), call).get()) : nullptr;
}

}  // namespace

param_path *find_ccd_param(const char *path, ccdtree_node *root) {
    if (g_debug_level > 4) trace(4, "%s, full_path=%s\n", __func__, path);
    std::string_view text = path;
    size_t hash = std::hash<std::string_view>{}(text);
    if (param_path *known = g_recent.find(text, hash, root)) return known;
    if (size_t components = root ? count_components(text, root) : 0) {
        char *names_end = nullptr;
        owned_path resolved = allocate_path(text, components, &names_end);
        if (!resolved) return nullptr;
        resolved->ccd_tree = root;
        if (resolve(resolved.get(), names_end)) {
            g_recent.keep(resolved.get(), hash);
            return resolved.release();
        }
    }
    errno = ENOENT;
    return nullptr;
}

kept_slot *kept_slot_of(const param_path *path) {
    path_record *record = record_of(path);
    return record->is_kept ? &record->answers : nullptr;
}

void destroy_param_path(param_path *path) {
    if (!path || --record_of(path)->users != 0) return;
    record_of(path)->answers.clear();
    std::free(record_of(path));
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
        digit.lend(ctx, {first->name, first->length});
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
    if (count == 0) {
        g_argc.lend(ctx, "0");
        return;
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

int ccd_param_ppath_allows(fe_context *own, const param_path *path, const line *arg_list) {
    const owned_result verdict =
        run_value_method(own, {value_action::access, nullptr, path, true, arg_list});
    return verdict ? fe_istrue(fe_last_text(verdict.get())) : -1;
}

char *ccd_param_ppath_access(backend_ctx *ctx, const param_path *path, const line *arg_list,
                             fe_context *parent) {
    return ccd_param_ppath({value_action::access, ctx, path, true, arg_list, parent});
}
