#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "engine.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "ucfgd/owners.h"

/* A tree that has been written becomes the one that reading its file would make. Where no line
 * depends on another, nearly all of it is that already: only its place in the text is new. */

namespace {

using owned_tree = owned<cnfnode, destroy_cnftree>;

/* Beyond it reading the whole file is quicker. */
constexpr int k_most_read = 1000;

bool was_read_by(const cnfmodule *module, const node_record *root) {
    const uint32_t needed = k_file_root | k_has_text;
    if ((root->flags & needed) != needed || root->parent != nullptr) return false;
    const cnf_source *source = root->text()->source;
    return source != nullptr && source->parser == module->parser &&
           compare_cnftree_children(source->options, module->options) == 0;
}

class tree_adopter {
  public:
    tree_adopter(const cnfmodule *module, node_record *root, cnf_source *source)
        : module_(module), root_(root), old_(root->text()->source), source_(source) {}

    bool adopt();

  private:
    bool is_read(const node_record *node, std::string_view line) const;
    void move_to(source_text *text, size_t offset, size_t length);
    node_record *read_line(std::string_view line, node_record *position);

    const cnfmodule *module_;
    node_record *root_;
    const cnf_source *old_; /* the root holds it to the end */
    cnf_source *source_;
    int read_ = 0;
};

/* Whether the node is what reading the line makes. */
bool tree_adopter::is_read(const node_record *node, std::string_view line) const {
    const source_text *text = node->text();
    if (node->has(k_changed) || text == nullptr || text->source != old_) return false;
    return node->text_level == 1 && text->length == line.size() &&
           std::memcmp(old_->text + text->offset, line.data(), line.size()) == 0;
}

void tree_adopter::move_to(source_text *text, size_t offset, size_t length) {
    source_->references++;
    source_release(text->source);
    const auto bytes = static_cast<uint32_t>(length);
    *text = {source_, static_cast<uint32_t>(offset), bytes, bytes, 0};
}

/* The node of a line, in front of position. Null with errno. */
node_record *tree_adopter::read_line(std::string_view line, node_record *position) {
    errno = ERANGE;
    if (++read_ > k_most_read) return nullptr;
    const owned_tree read{cnfmodule_parse_text(module_, nullptr, line.data(), line.size())};
    if (!read) return nullptr;
    node_record *node = record(read.get())->first();
    errno = EINVAL;
    if (node == nullptr || node->next != nullptr) return nullptr;
    take_out(node);
    link_node(root_, node, position);
    return node;
}

bool tree_adopter::adopt() {
    const std::string_view text{source_->text, source_->length};
    node_record *node = root_->first();
    for (size_t at = 0; at < text.size();) {
        const size_t length = cnf_line_length(text.data() + at, text.size() - at, nullptr);
        const std::string_view line = text.substr(at, length);
        node_record *old = node;
        node = old != nullptr ? old->next_node() : nullptr;
        if (old == nullptr || !is_read(old, line)) {
            node_record *made = read_line(line, old);
            if (made == nullptr) return false;
            destroy_cnftree(old);
            old = made;
        }
        move_to(old->text(), at, length);
        at += length;
    }
    if (node != nullptr) return false;
    move_to(root_->text(), 0, text.size());
    root_->flags &= ~uint32_t{k_changed | k_own_changed};
    return true;
}

}  // namespace

int cnfmodule_adopt(const cnfmodule *module, cnfnode *tree, const char *text, size_t length) {
    const syntax how{module};
    errno = EINVAL;
    if (!how.by_lines() || how.shares_lines() || length > k_max_file) return -1;
    if (!was_read_by(module, record(tree))) return -1;
    char *copy = static_cast<char *>(std::malloc(length + 1));
    if (copy == nullptr) return -1;
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    const owned<cnf_source, source_release> source{
        create_source(module->parser, module->options, copy, length)};
    return source && tree_adopter{module, record(tree), source.get()}.adopt() ? 0 : -1;
}

int cnfmodule_is_by_lines(const cnfmodule *module) {
    return syntax{module}.by_lines() ? 1 : 0;
}
