/* Backend module instances.
 *
 * The daemon stores nothing of its own: every value that it serves is a node in the tree of some
 * file, and an llconf_item is what stands between the two. A primary item owns the source (file,
 * directory or pair of commands), the parser and the tree that was read last. Everything that a
 * client changes happens in shadows: a session's list has one for each primary item, a SUBMIT's
 * list one for each of the session's, and a shadow is empty until something is written through it.
 *
 *      master:   hosts [tree]   sysctl [tree]      files are read into and written from these
 *                  ^              ^
 *      session:  hosts          sysctl [tree]      copied at the first edit
 *                  ^              ^
 *      batch:    hosts          sysctl [borrowed]  the session's own tree, under a journal
 *
 * Readers follow item_orig to the nearest tree. A writer's first access copies that tree, which is
 * what a transaction pays once for each module that it touches. A batch must not pay it again for
 * each single line, so below a session's own tree it borrows: it edits that very tree while a
 * journal notes what to take back. Submit keeps the journal's changes, everything else that ends
 * the batch rolls them back (shadow.cpp; item_state.cpp has the states of it all). Only one batch
 * can borrow at a time, and nobody else edits meanwhile, since one thread runs all of it; a second
 * one copies.
 *
 * What may never happen: an item released while a shadow still points at it (contexts.cpp sees to
 * that), a borrowed tree released by its borrower, and a file written from anything but a primary
 * item. */

#include "backend/llconf_item.h"

#include <errno.h>
#include <libdaemon/dlog.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include "backend/items.h"
#include "daemon/trace.h"
#include "fe/fe.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "tree/trns.h"
#include "ucfgd/owners.h"

static_assert(offsetof(llconf_item, next) == 0);
static_assert(offsetof(llconf_ptr_item, next) == 0);

namespace {

using owned_item = owned<llconf_item, destroy_llconf_item>;

/* What find_llconf_item found, by list and name. A slot counts as long as its generation is the
 * current one; an item that is destroyed or unlinked starts the next generation. */
struct lookup_slot {
    const llconf_item *list;
    llconf_item *item;
    unsigned int generation;
};

std::array<lookup_slot, 64> g_lookups{};
unsigned int g_generation = 1;

lookup_slot &slot_for(const llconf_item *list, std::string_view name) {
    size_t key = reinterpret_cast<uintptr_t>(list) >> 5;
    if (!name.empty()) {
        key += name.size() * 31 + static_cast<unsigned char>(name.front()) * 7U +
               static_cast<unsigned char>(name.back()) +
               static_cast<unsigned char>(name[name.size() / 2]) * 3U;
    }
    return g_lookups[key % g_lookups.size()];
}

/* A zeroed record with its name behind it: an idle session holds a shadow of every instance, so one
 * block for each has to do. */
llconf_item *allocate_item(const char *name, tree_state state) {
    size_t length = std::strlen(name);
    void *block = std::malloc(sizeof(item_record) + length + 1);
    if (!block) return nullptr;
    auto *lli = new (block) item_record{};
    lli->state = state;
    lli->name = static_cast<char *>(block) + sizeof(item_record);
    std::memcpy(lli->name, name, length + 1);
    return lli;
}

llconf_file *create_llconf_file(const char *filename) {
    owned_str name = dup_str(filename);
    if (!name) return nullptr;
    auto *file = static_cast<llconf_file *>(std::calloc(1, sizeof(llconf_file)));
    if (file) file->filename = name.release();
    return file;
}

void destroy_llconf_file(llconf_file *file) {
    if (!file) return;
    std::free(file->filename);
    std::free(file);
}

/* Copies text, when there is one, into *slot. */
bool copy_text(char **slot, const char *text) {
    if (!text) return true;
    *slot = dup_str(text).release();
    return *slot != nullptr;
}

/* Gives the item a clone of the parser with these options. */
bool attach_parser(llconf_item *lli, const char *modname, const char *options,
                   const char *filename) {
    cnfmodule *parser = find_cnfmodule(modname);
    if (!parser) {
        daemon_log(LOG_ERR, "module '%s': no parser '%s' found.", lli->name, modname);
        errno = ENOENT;
        return false;
    }
    owned<cnfnode, destroy_cnftree> option_tree;
    if (options) {
        option_tree.reset(parse_options(options));
        if (!option_tree) {
            daemon_log(LOG_ERR, "module '%s': parsing options '%s' failed.", lli->name, options);
            errno = EINVAL;
            return false;
        }
    }
    lli->module = clone_cnfmodule(parser, lli->name, filename, option_tree.get());
    return lli->module != nullptr;
}

bool attach_source(llconf_item *lli, const char *filename, const char *pipe_in,
                   const char *pipe_out, const char *pattern) {
    if (filename) {
        lli->file = create_llconf_file(filename);
        if (!lli->file) return false;
    } else if (!pipe_in || !pipe_out) {
        daemon_log(LOG_ERR, "module '%s': need either pipe-in and pipe-out or file.", lli->name);
        errno = EINVAL;
        return false;
    } else if (!copy_text(&lli->pipe_in, pipe_in) || !copy_text(&lli->pipe_out, pipe_out)) {
        return false;
    }
    return copy_text(&lli->pattern, pattern);
}

/* An item that came to the shadowed list after the list of shadows was made. */
llconf_item *add_late_shadow(llconf_item *shadows, const char *name) {
    llconf_item *orig = find_llconf_item(shadows->item_orig, name);
    if (!orig) return nullptr;
    llconf_item *shadow = create_llconf_shadow_item(orig);
    if (!shadow) return nullptr;
    llconf_item *last = shadows;
    while (last->next)
        last = last->next;
    last->next = shadow;
    return shadow;
}

}  // namespace

llconf_item *create_llconf_item(const char *name, const char *modname, const char *options,
                                const char *filename, const char *pipe_in, const char *pipe_out,
                                const char *pattern) {
    if (!name || !modname) {
        errno = EINVAL;
        return nullptr;
    }
    trace(3, "creating module instance '%s' (%s)\n", name, modname);
    owned_item lli{allocate_item(name, tree_state::unseen)};
    if (!lli) return nullptr;
    if (std::strcmp(modname, "virtual") == 0) return lli.release();
    if (!attach_parser(lli.get(), modname, options, filename) ||
        !attach_source(lli.get(), filename, pipe_in, pipe_out, pattern)) {
        return nullptr;
    }
    llconf_exchange_tree(lli.get(), create_cnfnode("(root)"));
    if (!lli->cn_root) return nullptr;
    lli->is_dirty = 1;
    return lli.release();
}

void llconf_set_file_attributes(llconf_item *lli, int mode, int uid, int gid) {
    if (!lli || !lli->file) return;
    lli->file->mode = mode;
    lli->file->uid = uid;
    lli->file->gid = gid;
}

void destroy_llconf_item(llconf_item *lli) {
    if (!lli) return;
    errno_guard keep;
    llconf_forget_lookups();
    llconf_install_cnftree(lli, nullptr);
    destroy_llconf_file(lli->file);
    std::free(lli->pattern);
    std::free(lli->pipe_in);
    std::free(lli->pipe_out);
    destroy_fe_node_list(lli->func_pre_read);
    destroy_fe_node_list(lli->func_post_read);
    destroy_fe_node_list(lli->func_pre_commit);
    destroy_fe_node_list(lli->func_post_commit);
    destroy_fe_node_list(record_of(lli)->check);
    destroy_cnfmodule(lli->module);
    record_of(lli)->~item_record();
    std::free(lli);
}

void destroy_llconf_item_list(llconf_item *list) {
    for (llconf_item *lli : removal_safe(list))
        destroy_llconf_item(lli);
}

llconf_ptr_item *create_llconf_ptr_item(llconf_item *lli) {
    auto *cell = static_cast<llconf_ptr_item *>(std::calloc(1, sizeof(llconf_ptr_item)));
    if (cell) cell->lli = lli;
    return cell;
}

llconf_item *find_llconf_item(llconf_item *list, const char *name) {
    if (!list || !name) {
        errno = ENOENT;
        return nullptr;
    }
    lookup_slot &slot = slot_for(list, name);
    if (slot.list == list && slot.generation == g_generation &&
        std::strcmp(slot.item->name, name) == 0) {
        return slot.item;
    }
    llconf_item *found = list;
    while (found && std::strcmp(found->name, name) != 0)
        found = found->next;
    if (!found && list->item_orig) found = add_late_shadow(list, name);
    if (!found) {
        errno = ENOENT;
        return nullptr;
    }
    slot = {list, found, g_generation};
    return found;
}

void llconf_forget_lookups(void) {
    g_generation++;
}

llconf_item *create_llconf_shadow_item(llconf_item *orig) {
    if (!orig) return nullptr;
    llconf_item *shadow = allocate_item(orig->name, tree_state::none);
    if (!shadow) return nullptr;
    shadow->item_orig = orig;
    if (orig->item_orig) shadow->delete_me = orig->delete_me;
    return shadow;
}

llconf_item *create_llconf_shadow_list(llconf_item *list) {
    list_builder<llconf_item> shadows;
    for (llconf_item *lli = list; lli; lli = lli->next) {
        llconf_item *shadow = create_llconf_shadow_item(lli);
        if (!shadow) {
            destroy_llconf_item_list(shadows.release());
            errno = ENOMEM;
            return nullptr;
        }
        shadows.append(shadow);
    }
    return shadows.release();
}

cnfnode *llconf_exchange_tree(llconf_item *lli, cnfnode *tree) {
    if (tree != lli->cn_root) trns_note_change();
    return std::exchange(lli->cn_root.tree_, tree);
}

llconf_item *llconf_primary_item(llconf_item *lli) {
    while (lli && lli->item_orig)
        lli = lli->item_orig;
    return lli;
}
