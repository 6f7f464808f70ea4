#include <array>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "daemon/trace.h"
#include "tree/param_context.h"
#include "tree/param_listing.h"
#include "tree/param_path.h"
#include "ucfgd/escape.h"

namespace {

/* One letter an operation, in the order in which clients get them. */
struct operation_letter {
    char letter;
    fe_node *ccdtree_node::*field;
};

constexpr operation_letter k_letters[] = {
    {'g', &ccdtree_node::func_get},   {'s', &ccdtree_node::func_set},
    {'a', &ccdtree_node::func_add},   {'d', &ccdtree_node::func_del},
    {'m', &ccdtree_node::func_move},  {'h', &ccdtree_node::func_help},
    {'A', &ccdtree_node::func_admin}, {'I', &ccdtree_node::func_info}};

using operation_letters = std::array<char, std::size(k_letters) + 2>;

operation_letters letters_of(const ccdtree_node *node) {
    operation_letters letters{};
    size_t count = 0;
    for (const operation_letter &operation : k_letters) {
        if (node->*operation.field) letters[count++] = operation.letter;
    }
    if (node->first_child) letters[count] = 'l';
    return letters;
}

enum class wording { escaped, as_it_is };

/* The texts of a result as lines; empty ones count only where they are escaped. False (ENOMEM) when
 * they could not all be made. */
bool lines_of(const fe_node *result, wording how, owned_lines &made) {
    list_builder<line> lines;
    for (; result; result = result->next) {
        bool escaping = how == wording::escaped;
        if (!escaping && result->text[0] == '\0') continue;
        owned_str escaped{escaping ? escape(result->text) : nullptr};
        if (escaping && !escaped) break;
        line *l = create_line(escaping ? escaped.get() : result->text);
        if (!l) break;
        lines.append(l);
    }
    made.reset(lines.release());
    if (result) errno = ENOMEM;
    return result == nullptr;
}

bool is_hidden(const fe_node *flags) {
    for (const fe_node *flag = flags; flag; flag = flag->next) {
        if (std::strcmp(flag->text, "hidden") == 0) return true;
    }
    return false;
}

/* Runs a method whose failure counts as no answer; false when it failed for want of memory. */
bool run_optional(fe_context *ctx, const fe_node *method, const char *key, const param_path *path,
                  owned_result &result) {
    result = run_method(ctx, method, key, path);
    return result || !method || errno != ENOMEM;
}

/* Gives the names of the node's children to visit, until it returns false. */
template <class visitor>
listing give_children(const ccdtree_node *node, visitor visit) {
    for (const ccdtree_node *child = node->first_child; child; child = child->next) {
        if (!visit(child->name)) break;
    }
    return listing::done;
}

/* The same for what the node's "list:" answers. */
template <class visitor>
listing give_names(fe_context *ctx, const param_path *path, visitor visit) {
    owned_result result = run_method(ctx, path->first->ccd->func_list, "list:", path);
    if (!result) return listing::failed;
    for (const fe_node *name = result.get(); name; name = name->next) {
        if (name->text[0] != '\0' && !visit(name->text)) break;
    }
    return listing::done;
}

/* The names below a path, unescaped. */
template <class visitor>
listing list_names(const listed_tree &tree, const char *path, visitor visit) {
    if (path[0] == '\0') {
        return tree.root ? give_children(tree.root, visit) : listing::unresolved;
    }
    owned_path resolved{find_ccd_param(path, tree.root)};
    if (!resolved) return errno == ENOMEM ? listing::failed : listing::unresolved;
    const ccdtree_node *node = resolved->first->ccd;
    /* Most nodes of a recursive listing have no method for which "common:" had to run. */
    if (!node->func_list && !node->func_flags) return give_children(node, visit);
    owned_context own = create_method_context(tree.ctx, tree.parent);
    if (!own || !enter_path(own.get(), resolved.get())) return listing::failed;
    owned_result flags;
    if (!run_optional(own.get(), node->func_flags, "flags:", resolved.get(), flags)) {
        return listing::failed;
    }
    if (is_hidden(flags.get())) return listing::done;
    if (!node->func_list) return give_children(node, visit);
    return give_names(own.get(), resolved.get(), visit);
}

/* The lines of one listing, and in a recursive one of all those below it. */
class list_writer {
  public:
    list_writer(const listed_tree &tree, const char *path, bool recurse)
        : tree_(tree), base_(std::strlen(path)), recurse_(recurse) {}
    list_writer(const list_writer &) = delete;
    list_writer &operator=(const list_writer &) = delete;
    ~list_writer() { destroy_line_list(lines_.release()); }

    /* Adds what is below the path, which is the listed one or begins with it. */
    listing add(const char *path) {
        errno = 0;
        listing result =
            list_names(tree_, path, [&](const char *name) { return add_name(path, name); });
        if (errno == ENOMEM) complete_ = false;
        return result;
    }
    line *release() { return lines_.release(); }
    bool complete() const { return complete_; }

  private:
    bool add_name(const char *path, const char *name) {
        owned_str escaped{escape(name)};
        if (!escaped) return complete_ = false;
        /* Lines are relative to the listed path. */
        const char *above = path + base_;
        if (base_ != 0 && *above == '.') above++;
        line *l = *above == '\0' ? create_line(escaped.get())
                                 : create_line((std::string(above) + "." + escaped.get()).c_str());
        if (!l) return complete_ = false;
        lines_.append(l);
        if (recurse_ && *escaped.get() != '\0') descend(path, escaped.get());
        return complete_;
    }

    /* A path that does not fit is not the one that was meant, so it is not followed. */
    void descend(const char *path, const char *name) {
        std::array<char, 1024> below;
        int length = path[0] == '\0'
                         ? std::snprintf(below.data(), below.size(), "%s", name)
                         : std::snprintf(below.data(), below.size(), "%s.%s", path, name);
        if (length < 0 || static_cast<size_t>(length) >= below.size()) return;
        add(below.data());
    }

    const listed_tree &tree_;
    list_builder<line> lines_;
    size_t base_;
    bool recurse_;
    bool complete_ = true;
};

fe_node *choices_of(const ccdtree_node *node) {
    if (node->func_choices || !node->type) return node->func_choices;
    return get_type_choices_func(node->type);
}

}  // namespace

int param_limit(const ccdtree_node *node) {
    return node->len != 0 ? node->len : get_type_len(node->type);
}

param_attr *create_param_attr(const char *ops, int len, line *choices, line *flags,
                              const char *type_name) {
    owned_lines own_choices{choices};
    owned_lines own_flags{flags};
    owned_str copy = ops ? dup_str(ops) : nullptr;
    auto *attr = ops && !copy ? nullptr : new (std::nothrow) param_attr{};
    if (!attr) {
        errno = ENOMEM;
        return nullptr;
    }
    *attr = {copy.release(), len, own_choices.release(), own_flags.release(), type_name};
    return attr;
}

void destroy_param_attr(param_attr *attr) {
    if (!attr) return;
    std::free(attr->ops);
    destroy_line_list(attr->choices);
    destroy_line_list(attr->flags);
    delete attr;
}

param_attr *ccd_param_attr(ccdtree_node *root, backend_ctx *ctx, const char *path) {
    owned_path resolved{find_ccd_param(path, root)};
    if (!resolved) return nullptr;
    const ccdtree_node *node = resolved->first->ccd;
    owned_lines choices;
    owned_lines flags;
    fe_node *choices_method = choices_of(node);
    if (choices_method || node->func_flags) {
        owned_context own = create_method_context(ctx, nullptr);
        if (!own || !enter_path(own.get(), resolved.get())) return nullptr;
        owned_result chosen;
        owned_result flagged;
        if (!run_optional(own.get(), choices_method, "choices:", resolved.get(), chosen) ||
            !run_optional(own.get(), node->func_flags, "flags:", resolved.get(), flagged) ||
            !lines_of(chosen.get(), wording::escaped, choices) ||
            !lines_of(flagged.get(), wording::as_it_is, flags)) {
            return nullptr;
        }
    }
    return create_param_attr(letters_of(node).data(), param_limit(node), choices.release(),
                             flags.release(), node->type ? node->type->name : nullptr);
}

line *ccd_param_list(ccdtree_node *root, backend_ctx *ctx, const char *path, fe_context *parent,
                     int recurse) {
    trace(4, "%s, full_path=%s\n", __func__, path);
    int before = errno;
    try {
        listed_tree tree{root, ctx, parent};
        list_writer writer{tree, path, recurse != 0};
        switch (writer.add(path)) {
            case listing::unresolved:
                errno = ENOENT;
                return nullptr;
            case listing::failed:
                return nullptr;
            case listing::done:
                break;
        }
        if (writer.complete()) {
            errno = before;
            return writer.release();
        }
    } catch (const std::bad_alloc &) {}
    errno = ENOMEM;
    return nullptr;
}

int listing_shows(const listed_tree &tree, const char *path, const char *name) {
    bool found = false;
    listing result = list_names(tree, path, [&](const char *listed) {
        found = std::strcmp(listed, name) == 0;
        return !found;
    });
    if (found) return 1;
    return result == listing::failed && errno == ENOMEM ? -1 : 0;
}

int path_is_there(const listed_tree &tree, const param_path_item *item) {
    for (; item; item = item->next) {
        if (item->ccd->name[0] != '*' || std::strcmp(item->ccd->name, item->name) == 0) continue;
        std::string above;
        for (const param_path_item *i = item->next; i; i = i->next) {
            owned_str name{escape(i->name)};
            if (!name) return -1;
            above.insert(0, std::string(name.get()) + (i == item->next ? "" : "."));
        }
        int shown = listing_shows(tree, above.c_str(), item->name);
        if (shown <= 0) return shown;
    }
    return 1;
}
