#include "llconf/path.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include "child_index.h"
#include "path_search.h"
#include "ucfgd/owners.h"

static_assert(offsetof(cnfresult, next) == 0);

namespace {

/* Writes the paths of matches. The text up to each level is kept, and so is how often a name has
 * been seen at it, so that all matches together cost one walk over their siblings. */
class path_writer {
  public:
    explicit path_writer(path_search &search) : search_(search) {}

    const std::string &path_of(node_record *match) {
        size_t levels = search_.level() + 1;
        if (steps_.size() < levels) steps_.resize(levels);
        node_record *node = match;
        size_t from = levels;
        while (from > 0 && steps_[from - 1].node != node) {
            steps_[from - 1].reached = node;
            node = node->up();
            from--;
        }
        text_.resize(from > 0 ? steps_[from - 1].end : 0);
        for (size_t level = from; level < levels; level++)
            add(level);
        return text_;
    }

  private:
    struct step {
        node_record *node = nullptr;
        node_record *reached = nullptr;
        size_t end = 0;
        size_t before = 0; /* siblings of the name before node, when the name is no pattern */
        /* When it is one: for every name that occurs again up to node, where it did so last and how
         * many stand before that. */
        std::unordered_map<const node_record *, size_t> repeated;
    };

    void add(size_t level) {
        step &here = steps_[level];
        node_record *node = here.reached;
        size_t before =
            search_.part(level).wildcard ? seen_before(here, node) : counted_before(here, node);
        here.node = node;
        here.before = before;
        if (level > 0) text_.push_back('/');
        append_escaped(text_, node->name);
        if (before > 0 || *node->name == '\0') text_ += "[" + std::to_string(before) + "]";
        here.end = text_.size();
    }

    static size_t counted_before(const step &here, const node_record *node) {
        if (here.node == nullptr || here.node->parent != node->parent) {
            return count_same_before(node);
        }
        size_t before = here.before;
        for (const node_record *other = here.node; other != node; other = next_named(other)) {
            before++;
        }
        return before;
    }

    static size_t seen_before(step &here, const node_record *node) {
        if (!index_children(node->up())) return count_same_before(node);
        const node_record *other = nullptr;
        if (here.node == nullptr || here.node->parent != node->parent) {
            here.repeated.clear();
            other = node->up()->first();
        } else {
            other = here.node->next_node();
        }
        for (; other != node; other = other->next_node())
            count_repeated(here, other);
        return count_repeated(here, node);
    }

    /* To be called for one sibling after the other. */
    static size_t count_repeated(step &here, const node_record *node) {
        const node_record *earlier = earlier_named(node);
        if (earlier == nullptr) return 0;
        auto entry = here.repeated.extract(earlier);
        if (entry.empty()) return here.repeated[node] = 1;
        entry.key() = node;
        return here.repeated.insert(std::move(entry)).position->second += 1;
    }

    path_search &search_;
    std::vector<step> steps_;
    std::string text_;
};

cnfresult *new_result(std::string_view path, node_record *node) {
    owned_str copy = dup_str(path);
    if (!copy) throw std::bad_alloc{};
    auto *result = static_cast<cnfresult *>(std::calloc(1, sizeof(cnfresult)));
    if (result == nullptr) throw std::bad_alloc{};
    result->path = copy.release();
    result->cnfnode = node;
    return result;
}

using owned_results = owned<cnfresult, destroy_cnfresult_list>;

cnfresult *find_all(node_record *node, const char *path) {
    if (path_reader::is_self(path)) return new_result(".", node);
    if (!path_reader::is_path(path)) return nullptr;
    path_search search{node, path, true};
    path_writer writer{search};
    owned_results list;
    cnfresult *last = nullptr;
    for (node_record *match = search.first(); match != nullptr; match = search.next(match)) {
        cnfresult *result = new_result(writer.path_of(match), match);
        if (last == nullptr) {
            list.reset(result);
        } else {
            last->next = result;
        }
        last = result;
    }
    return list.release();
}

/* Names without selectors and escapes: most paths are no more than that. */
bool is_plain(std::string_view path) {
    return path.data()[strcspn(path.data(), "[]\\")] == '\0';
}

/* The end of a plain path, when the first node of each name leads there. */
node_record *follow_first(node_record *node, std::string_view path) {
    for (size_t slash = 0; node != nullptr && slash != std::string_view::npos;) {
        slash = path.find('/');
        const std::string_view name = path.substr(0, slash);
        if (name.empty()) return nullptr;
        node = first_named(node, name);
        path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
    }
    return node;
}

node_record *find_one(node_record *node, const char *path) {
    if (path_reader::is_self(path)) return node;
    if (is_plain(path)) {
        node_record *found = follow_first(node, path);
        if (found != nullptr || strchr(path, '/') == nullptr) return found;
    }
    if (!path_reader::is_path(path)) return nullptr;
    return path_search{node, path, false}.first();
}

}  // namespace

cnfnode *cnf_get_node(const cnfnode *node, const char *path) {
    cnfnode *found = nullptr;
    if (node != nullptr && path != nullptr) {
        try {
            found = find_one(mutable_record(node), path);
        } catch (const std::bad_alloc &) {
            errno = ENOMEM;
            return nullptr;
        }
    }
    if (found == nullptr) errno = ENOENT;
    return found;
}

const char *cnf_get_entry(const cnfnode *node, const char *path) {
    const cnfnode *found = cnf_get_node(node, path);
    return found != nullptr ? found->value : nullptr;
}

cnfresult *cnf_find_entry(const cnfnode *node, const char *path) {
    if (node == nullptr || path == nullptr) return nullptr;
    try {
        return find_all(mutable_record(node), path);
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}

void destroy_cnfresult_list(cnfresult *list) {
    for (cnfresult *result : removal_safe(list)) {
        std::free(result->path);
        std::free(result);
    }
}

cnfnode *cnf_add_branch(cnfnode *node, const char *path) {
    if (node == nullptr || path == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    branch made;
    try {
        if (!make_branch(record(node), path, made)) return nullptr;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
    if (append_node(made.parent, made.top) == 0) return made.last;
    free_tree(made.top);
    return nullptr;
}

int cnf_del_branch(cnfnode *node, const char *path) {
    cnfnode *found = cnf_get_node(node, path);
    if (found == nullptr || found == node) {
        errno = found != nullptr ? ENOENT : errno;
        return -1;
    }
    if (unlink_node(found) < 0) return -1;
    destroy_cnftree(found);
    return 0;
}

char *cnf_escape_name(const char *name) {
    if (name == nullptr) return nullptr;
    try {
        std::string text;
        append_escaped(text, name);
        return dup_str(text).release();
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}
