#include <array>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "daemon/trace.h"
#include "tree/param_context.h"
#include "tree/param_listing.h"
#include "tree/param_path.h"
#include "tree/path_segment.h"
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

/* Below a component that is too long a path leads elsewhere than its names say. */
bool is_cut(std::string_view path) {
    path_segment segment = first_segment(path);
    while (segment.goes_on) {
        path.remove_prefix(segment.length + 1);
        segment = first_segment(path);
    }
    return segment.length < path.size();
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

/* What a node lists, and the context for its "list:" where it has one. */
enum class content { failed, nothing, children, method };

content content_of(const listed_tree &tree, const param_path *path, owned_context &own) {
    const ccdtree_node *node = path->first->ccd;
    /* Most nodes of a recursive listing have no method for which "common:" had to run. */
    if (!node->func_list && !node->func_flags) return content::children;
    own = create_method_context(tree.ctx, tree.parent);
    if (!own || !enter_path(own.get(), path)) return content::failed;
    owned_result flags;
    if (!run_optional(own.get(), node->func_flags, "flags:", path, flags)) return content::failed;
    if (is_hidden(flags.get())) return content::nothing;
    return node->func_list ? content::method : content::children;
}

/* Walks through a listing, and in a recursive one through all those below it, and gives each line
 * away. The nodes that the names lead to are handed on from level to level. */
class list_walk {
  public:
    list_walk(const listed_tree &tree, const char *path, bool recurse, ccd_line_taker take,
              void *data)
        : tree_(tree), recurse_(recurse), take_(take), data_(data), text_(path) {
        base_ = text_.empty() ? 0 : text_.size() + 1;
        cut_ = is_cut(text_);
    }

    listing run() {
        if (text_.empty()) return tree_.root ? list_children(nullptr) : listing::unresolved;
        owned_path resolved{find_ccd_param(text_.c_str(), tree_.root)};
        if (!resolved) return errno == ENOMEM ? listing::failed : listing::unresolved;
        return list(resolved.get());
    }
    /* What was given away is all there is. */
    bool complete() const { return complete_; }

  private:
    listing list(const param_path *path) {
        owned_context own;
        switch (content_of(tree_, path, own)) {
            case content::failed:
                return listing::failed;
            case content::nothing:
                return listing::done;
            case content::children:
                return list_children(path);
            case content::method:
                break;
        }
        owned_result names = run_method(own.get(), path->first->ccd->func_list, "list:", path);
        if (!names) return listing::failed;
        for (const fe_node *name = names.get(); name && complete_; name = name->next) {
            if (name->text[0] != '\0') add(path, name->text);
        }
        return listing::done;
    }

    /* Of the root for a null path. */
    listing list_children(const param_path *path) {
        const ccdtree_node *node = path ? path->first->ccd : tree_.root;
        for (const ccdtree_node *child = node->first_child; child && complete_; child = child->next)
            add(path, child->name);
        return listing::done;
    }

    /* text_ is the path of what is listed at present; lines are relative to the first one. */
    void add(const param_path *above, const char *name) {
        const size_t before = text_.size();
        const owned_str escaped{escape(name)};
        if (!escaped) {
            complete_ = false;
            return;
        }
        if (before != 0) text_ += '.';
        const size_t begin = text_.size();
        text_ += escaped.get();
        if (take_(data_, text_.c_str() + base_, text_.size() - base_) != 0) complete_ = false;
        if (recurse_ && complete_ && text_.size() > begin)
            descend(above, name, text_.size() - begin);
        text_.resize(before);
    }

    /* A path that does not fit is not the one that was meant, so it is not followed. */
    void descend(const param_path *above, const char *name, size_t length) {
        if (text_.size() >= k_longest_path) return;
        errno = 0;
        const bool was_cut = std::exchange(cut_, cut_ || length > k_max_segment);
        if (cut_) {
            descend_by_text();
        } else {
            descend_by_node(above, name);
        }
        cut_ = was_cut;
        if (errno == ENOMEM) complete_ = false;
    }

    void descend_by_node(const param_path *above, const char *name) {
        ccdtree_node *node = match_ccdtree_child(above ? above->first->ccd : tree_.root, name);
        /* Whatever flags a leaf has, there is nothing below it. */
        if (!node || (!node->first_child && !node->func_list)) return;
        param_path_item item{above ? above->first : nullptr, const_cast<char *>(name), node,
                             std::strlen(name)};
        const param_path path{&item, above ? above->last : &item, text_.data(), tree_.root,
                              text_.size()};
        list(&path);
    }

    void descend_by_text() {
        owned_path resolved{find_ccd_param(text_.c_str(), tree_.root)};
        if (resolved) list(resolved.get());
    }

    static constexpr size_t k_longest_path = 1024;

    const listed_tree &tree_;
    bool recurse_;
    ccd_line_taker take_;
    void *data_;
    std::string text_;
    size_t base_; /* where lines begin in text_ */
    bool cut_;    /* whether it has a component that is too long */
    bool complete_ = true;
};

/* Whether the "list:" of the path's node shows the name; below 0 when it failed. */
int method_shows(fe_context *ctx, const param_path *path, const char *name) {
    const fe_node *method = path->first->ccd->func_list;
    if (name[0] != '\0') return ask_method(ctx, method, "list:", path, name);
    return run_method(ctx, method, "list:", path) ? 0 : -1;
}

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

int ccd_param_list_each(ccdtree_node *root, backend_ctx *ctx, const char *path, fe_context *parent,
                        int recurse, ccd_line_taker take, void *data) {
    trace(4, "%s, full_path=%s\n", __func__, path);
    const int before = std::exchange(errno, 0);
    try {
        const listed_tree tree{root, ctx, parent};
        list_walk walk{tree, path, recurse != 0, take, data};
        switch (walk.run()) {
            case listing::unresolved:
                errno = ENOENT;
                return -1;
            case listing::failed:
                return -1;
            case listing::done:
                break;
        }
        if (walk.complete()) {
            errno = before;
            return 0;
        }
    } catch (const std::bad_alloc &) {}
    errno = ENOMEM;
    return -1;
}

line *ccd_param_list(ccdtree_node *root, backend_ctx *ctx, const char *path, fe_context *parent,
                     int recurse) {
    list_builder<line> lines;
    const auto take = [](void *data, const char *text, size_t) {
        line *l = create_line(text);
        if (l) static_cast<list_builder<line> *>(data)->append(l);
        return l ? 0 : -1;
    };
    const bool complete = ccd_param_list_each(root, ctx, path, parent, recurse, take, &lines) == 0;
    owned_lines made{lines.release()};
    return complete ? made.release() : nullptr;
}

int listing_shows(const listed_tree &tree, const char *path, const char *name) {
    if (path[0] == '\0') return tree.root && find_ccdtree_child(tree.root, name) ? 1 : 0;
    owned_path resolved{find_ccd_param(path, tree.root)};
    if (!resolved) return errno == ENOMEM ? -1 : 0;
    owned_context own;
    int shown = 0;
    switch (content_of(tree, resolved.get(), own)) {
        case content::failed:
            shown = -1;
            break;
        case content::nothing:
            break;
        case content::children:
            return find_ccdtree_child(resolved->first->ccd, name) ? 1 : 0;
        case content::method:
            shown = method_shows(own.get(), resolved.get(), name);
    }
    return shown >= 0 || errno == ENOMEM ? shown : 0;
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
