#include "lens_tree.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "llconf/nodes.h"

namespace lens_plugin {
namespace {

constexpr std::size_t k_window = 64;  // siblings that are looked through for one that is the same
constexpr const char *k_comment_label = "#comment";
constexpr const char *k_comment_name = ".comment";

struct xml_release {
    void operator()(xmlNode *node) const { xmlFreeNode(node); }
};

struct memory_release {
    void operator()(void *memory) const { std::free(memory); }
};

struct xml_text_release {
    void operator()(xmlChar *text) const { xmlFree(text); }
};

using xml_text = std::unique_ptr<xmlChar, xml_text_release>;

bool is_element(const xmlNode *node, const char *name) {
    return node->type == XML_ELEMENT_NODE &&
           std::strcmp(reinterpret_cast<const char *>(node->name), name) == 0;
}

std::string take(xml_text text) {
    return text ? std::string(reinterpret_cast<const char *>(text.get())) : std::string();
}

bool read_xml(xmlNode *from, int depth, lens_node &to) {
    if (depth > k_max_depth) return false;
    to.label = take(xml_text(xmlGetProp(from, reinterpret_cast<const xmlChar *>("label"))));
    for (xmlNode *child = from->children; child != nullptr; child = child->next) {
        if (is_element(child, "value")) {
            to.value = take(xml_text(xmlNodeGetContent(child)));
        } else if (is_element(child, "node")) {
            to.children.emplace_back();
            if (!read_xml(child, depth + 1, to.children.back())) return false;
        }
    }
    return true;
}

bool same_value(const lens_node &now, const cnfnode *wanted) {
    if (!now.value) return wanted->value == nullptr;
    return wanted->value != nullptr && *now.value == wanted->value;
}

bool same_name(const lens_node &now, const cnfnode *wanted) {
    return now.label == label_of_name(wanted->name);
}

bool same_tree(const lens_node &now, const cnfnode *wanted);

bool same_children(const lens_node &now, const cnfnode *wanted) {
    const cnfnode *child = wanted->first_child;
    for (const lens_node &there : now.children) {
        if (child == nullptr || !same_tree(there, child)) return false;
        child = child->next;
    }
    return child == nullptr;
}

bool same_tree(const lens_node &now, const cnfnode *wanted) {
    return same_value(now, wanted) && same_name(now, wanted) && same_children(now, wanted);
}

std::string child_path(const std::string &parent, std::size_t position) {
    return parent + "/*[" + std::to_string(position) + "]";
}

class matcher {
  public:
    matcher(augeas *lenses, int depth) : lenses_(lenses), depth_(depth) {}

    bool change(const std::string &path, const lens_node &now, const cnfnode *wanted) {
        if (depth_ > k_max_depth) return false;
        bool set = same_value(now, wanted) || aug_set(lenses_, path.c_str(), wanted->value) == 0;
        return set && children(path, now, wanted);
    }

  private:
    struct siblings {
        const std::string &path;
        const std::vector<lens_node> &now;
        std::vector<const cnfnode *> wanted;
        std::size_t i = 0;         // in now
        std::size_t j = 0;         // in wanted
        std::size_t position = 1;  // in the lens's tree as it is by then
    };

    bool children(const std::string &path, const lens_node &now, const cnfnode *wanted) {
        siblings s{path, now.children, {}};
        for (const cnfnode *child = wanted->first_child; child != nullptr; child = child->next) {
            s.wanted.push_back(child);
        }
        while (s.j < s.wanted.size()) {
            if (!next(s)) return false;
        }
        while (s.i < s.now.size()) {
            if (!remove(s)) return false;
        }
        return true;
    }

    /* Deals with one child of either side. */
    bool next(siblings &s) {
        if (s.i == s.now.size()) return insert(s);
        const lens_node &now = s.now[s.i];
        const cnfnode *wanted = s.wanted[s.j];
        if (same_tree(now, wanted)) return step(s);
        std::size_t gone = 1;
        std::size_t added = 1;
        std::size_t last_now = std::min(s.now.size() - s.i, k_window);
        std::size_t last_wanted = std::min(s.wanted.size() - s.j, k_window);
        while (gone < last_now && !same_tree(s.now[s.i + gone], wanted))
            ++gone;
        while (added < last_wanted && !same_tree(now, s.wanted[s.j + added]))
            ++added;
        if (gone < last_now && (added >= last_wanted || gone <= added)) return remove(s);
        if (added < last_wanted) return insert(s);
        std::string path = child_path(s.path, s.position);
        if (same_name(now, wanted)) {
            return matcher(lenses_, depth_ + 1).change(path, now, wanted) && step(s);
        }
        if (same_value(now, wanted) && same_children(now, wanted)) {
            std::string label = label_of_name(wanted->name);
            return aug_rename(lenses_, path.c_str(), label.c_str()) >= 0 && step(s);
        }
        return remove(s);
    }

    static bool step(siblings &s) {
        ++s.i;
        ++s.j;
        ++s.position;
        return true;
    }

    bool remove(siblings &s) {
        ++s.i;
        return aug_rm(lenses_, child_path(s.path, s.position).c_str()) > 0;
    }

    bool insert(siblings &s) {
        const cnfnode *wanted = s.wanted[s.j++];
        std::string label = label_of_name(wanted->name);
        if (label.empty() || label.front() == '.') return false;
        bool first = s.position == 1 && s.i == s.now.size();
        bool before = s.i < s.now.size();
        if (first) {
            char *escaped = nullptr;
            if (aug_escape_name(lenses_, label.c_str(), &escaped) < 0) return false;
            std::unique_ptr<char, memory_release> owner(escaped);
            std::string path = s.path + "/" + (escaped != nullptr ? escaped : label.c_str());
            if (aug_set(lenses_, path.c_str(), nullptr) < 0) return false;
        } else {
            std::string beside = child_path(s.path, before ? s.position : s.position - 1);
            if (aug_insert(lenses_, beside.c_str(), label.c_str(), before ? 1 : 0) < 0)
                return false;
        }
        lens_node made{label, std::nullopt, {}};
        std::string path = child_path(s.path, s.position++);
        return matcher(lenses_, depth_ + 1).change(path, made, wanted);
    }

    augeas *lenses_;
    int depth_;
};

}  // namespace

std::optional<lens_node> read_lens_tree(const augeas *lenses, const char *path) {
    xmlNode *made = nullptr;
    if (aug_to_xml(lenses, path, &made, 0) < 0 || made == nullptr) return std::nullopt;
    std::unique_ptr<xmlNode, xml_release> document(made);
    for (xmlNode *child = made->children; child != nullptr; child = child->next) {
        lens_node top;
        if (is_element(child, "node") && read_xml(child, 0, top)) return top;
    }
    return std::nullopt;
}

std::string name_of_label(const std::string &label) {
    return label == k_comment_label ? k_comment_name : label;
}

std::string label_of_name(const std::string &name) {
    return name == k_comment_name ? k_comment_label : name;
}

bool make_same(augeas *lenses, const std::string &path, const lens_node &now,
               const cnfnode *wanted) {
    return matcher(lenses, 0).change(path, now, wanted);
}

}  // namespace lens_plugin
