/* A parser plug-in for every file that a lens of the Augeas library understands.
 *
 *     hosts {
 *         module: augeas
 *         options: lens=Hosts
 *         file: /etc/hosts
 *     }
 *
 * The tree is the lens's tree: labels are names, values are values; comments ("#comment") are
 * layout nodes (".comment") here. What a lens does not show (blanks, blank lines, the order of
 * unimportant things) it finds again in the old text, which is why a changed tree is never built
 * from nothing: the old text is read once more, the lens's tree is brought in line with ours by the
 * few operations in which they differ, and the lens puts the two together again.
 *
 * A lens wants lines that end with a line feed, the last one too. A last line without an end gets
 * one on the way in and loses it on the way out; so do the carriage returns of a file whose lines
 * all end in CRLF.
 *
 * Each module has a handle of its own, which knows one lens and no file. Which trees a lens can
 * write is known only by trying: so the module accepts any name that a lens's tree can have, and a
 * tree that does not fit is refused when it is written.
 */
#include <augeas.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "lens_tree.h"
#include "llconf/nodes.h"
#include "llconf/parser.h"

namespace {

using lens_plugin::lens_node;

constexpr const char *k_options[] = {"lens", nullptr};
constexpr const char *k_input = "/input";
constexpr const char *k_output = "/output";
constexpr const char *k_tree = "/tree";
constexpr const char *k_error = "/augeas/text/tree/error";

struct handle_release {
    void operator()(augeas *lenses) const { aug_close(lenses); }
};

struct lens_module {
    std::string lens;
    std::unique_ptr<augeas, handle_release> lenses;
};

const lens_module &module_of(const void *data) {
    return *static_cast<const lens_module *>(data);
}

/* What was done to a file's text to suit a lens. */
struct text_shape {
    bool crlf = false;
    bool unended = false;
};

std::string suit_lens(std::string_view text, text_shape &shape) {
    std::string out(text);
    shape.unended = !out.empty() && out.back() != '\n';
    if (shape.unended) out += '\n';
    auto feeds = std::count(text.begin(), text.end(), '\n');
    auto returns = std::count(text.begin(), text.end(), '\r');
    std::size_t pairs = 0;
    for (std::size_t at = text.find("\r\n"); at != std::string_view::npos;
         at = text.find("\r\n", at + 2)) {
        ++pairs;
    }
    shape.crlf = pairs > 0 && feeds == returns && static_cast<std::size_t>(feeds) == pairs;
    if (shape.crlf) std::erase(out, '\r');
    return out;
}

std::string suit_file(std::string_view text, const text_shape &shape) {
    std::string out;
    if (shape.unended && text.ends_with('\n')) text.remove_suffix(1);
    for (char c : text) {
        if (c == '\n' && shape.crlf) out += '\r';
        out += c;
    }
    return out;
}

void clear(augeas *lenses) {
    for (const char *path : {k_input, k_output, k_tree, "/augeas/text"})
        aug_rm(lenses, path);
}

int fail_unless_memory(augeas *lenses) {
    errno = aug_error(lenses) == AUG_ENOMEM ? ENOMEM : EINVAL;
    return -1;
}

/* Reads a text into the lens's tree at k_tree. */
bool store(const lens_module &module, const std::string &text) {
    augeas *lenses = module.lenses.get();
    clear(lenses);
    return aug_set(lenses, k_input, text.c_str()) == 0 &&
           aug_text_store(lenses, module.lens.c_str(), k_input, k_tree) == 0;
}

/* --- reading --------------------------------------------------------------------------------- */

std::string error_entry(augeas *lenses, const char *name) {
    const char *value = nullptr;
    std::string path = std::string(k_error) + "/" + name;
    aug_get(lenses, path.c_str(), &value);
    return value != nullptr ? value : "";
}

int read_failed(const lens_module &module, cnf_reader *reader, std::string_view text,
                const text_shape &shape) {
    augeas *lenses = module.lenses.get();
    if (aug_error(lenses) == AUG_ENOMEM) return fail_unless_memory(lenses);
    std::string message = error_entry(lenses, "message");
    std::size_t offset = std::strtoul(error_entry(lenses, "pos").c_str(), nullptr, 10);
    if (message.empty()) message = aug_error_message(lenses);
    if (shape.crlf) {
        std::size_t line = std::strtoul(error_entry(lenses, "line").c_str(), nullptr, 10);
        offset += line > 0 ? line - 1 : 0;
    }
    message = "the lens " + module.lens + " says: " + message;
    return cnf_read_error(reader, std::min(offset, text.size()), message.c_str());
}

bool make_nodes(cnf_reader *reader, cnfnode *parent, const lens_node &from) {
    for (const lens_node &child : from.children) {
        std::string name = lens_plugin::name_of_label(child.label);
        cnfnode *made = cnf_read_node(reader, parent, name.data(), name.size(),
                                      child.value ? child.value->data() : nullptr,
                                      child.value ? child.value->size() : 0);
        if (made == nullptr || !make_nodes(reader, made, child)) return false;
    }
    return true;
}

int read_text(const lens_module &module, cnf_reader *reader, std::string_view text) {
    constexpr std::string_view k_root = "(root)";
    if (module.lens.empty()) return cnf_read_error(reader, 0, "the option lens is missing");
    text_shape shape;
    std::string suited = suit_lens(text, shape);
    if (!store(module, suited)) return read_failed(module, reader, text, shape);
    std::optional<lens_node> top = lens_plugin::read_lens_tree(module.lenses.get(), k_tree);
    clear(module.lenses.get());
    if (!top) return cnf_read_error(reader, 0, "the lens's tree has more than 200 levels");
    cnfnode *root = cnf_read_node(reader, nullptr, k_root.data(), k_root.size(), nullptr, 0);
    return root != nullptr && make_nodes(reader, root, *top) ? 0 : -1;
}

/* --- writing --------------------------------------------------------------------------------- */

int write_text(const lens_module &module, const cnfnode *tree, cnf_out *out) {
    augeas *lenses = module.lenses.get();
    std::size_t length = 0;
    const char *source = cnf_out_source(out, &length);
    text_shape shape;
    std::string old = suit_lens(source != nullptr ? std::string_view(source, length) : "", shape);
    const char *written = nullptr;
    if (module.lens.empty() || !store(module, old)) return fail_unless_memory(lenses);
    lens_node empty{"", std::nullopt, {}};
    std::optional<lens_node> now = lens_plugin::read_lens_tree(lenses, k_tree);
    bool done = lens_plugin::make_same(lenses, k_tree, now ? *now : empty, tree) &&
                aug_text_retrieve(lenses, module.lens.c_str(), k_input, k_tree, k_output) == 0 &&
                aug_get(lenses, k_output, &written) == 1 && written != nullptr;
    if (!done) {
        fail_unless_memory(lenses);
        int error = errno;
        clear(lenses);
        errno = error;
        return -1;
    }
    std::string text = suit_file(written, shape);
    clear(lenses);
    return cnf_out_add(out, text.data(), text.size());
}

/* --- the parser's functions ------------------------------------------------------------------ */

template <class function>
int guarded(function f) {
    try {
        return f();
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
}

/* A lens that cannot be loaded is a fault of the options, not of any file. */
int open_module(const cnfnode *options, void **data) {
    auto module = std::make_unique<lens_module>();
    module->lens = cnf_option(options, "lens", "");
    if (!module->lens.empty() && module->lens.find('.') == std::string::npos)
        module->lens += ".lns";
    constexpr unsigned k_flags = AUG_NO_LOAD | AUG_NO_MODL_AUTOLOAD | AUG_NO_ERR_CLOSE;
    module->lenses.reset(aug_init(nullptr, nullptr, k_flags));
    if (module->lenses == nullptr) throw std::bad_alloc();
    if (aug_error(module->lenses.get()) != AUG_NOERROR) {
        return fail_unless_memory(module->lenses.get());
    }
    if (!module->lens.empty() && !store(*module, "") &&
        aug_error(module->lenses.get()) != AUG_NOERROR) {
        return fail_unless_memory(module->lenses.get());
    }
    clear(module->lenses.get());
    *data = module.release();
    return 0;
}

int prepare(const cnfnode *options, void **data) {
    return guarded([&] { return open_module(options, data); });
}

void release(void *data) {
    std::unique_ptr<lens_module>(static_cast<lens_module *>(data)).reset();
}

int read_tree(const void *data, cnf_reader *reader, const char *text, size_t length) {
    return guarded([&] { return read_text(module_of(data), reader, {text, length}); });
}

int format_tree(const void *data, const cnfnode *tree, cnf_out *out) {
    return guarded([&] { return write_text(module_of(data), tree, out); });
}

int accepts(const void *, int level, const cnfnode *, const char *name, const char *) {
    std::string_view label(name);
    bool writable = label == ".comment" || (!label.empty() && label.front() != '.');
    return level <= lens_plugin::k_max_depth && writable ? 1 : 0;
}

constexpr cnf_parser k_parser = {
    .version = CNF_PARSER_VERSION,
    .name = "augeas",
    .options = k_options,
    .keep_blank_lines = 0,
    .indent = 0,
    .prepare = prepare,
    .release = release,
    .comments = nullptr,
    .cut = nullptr,
    .read = nullptr,
    .kind_of = nullptr,
    .format = nullptr,
    .accepts = accepts,
    .read_tree = read_tree,
    .format_tree = format_tree,
    .counted_names = 1,
};

}  // namespace

extern "C" int cnfmodule_register_augeas(void);

int cnfmodule_register_augeas(void) {
    return cnf_register_parser(&k_parser);
}
