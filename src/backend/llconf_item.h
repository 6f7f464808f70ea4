#ifndef UCFGD_BACKEND_LLCONF_ITEM_H
#define UCFGD_BACKEND_LLCONF_ITEM_H

#include <stddef.h>
#include <stdint.h>

/* Backend module instances: one record per configuration file, directory of files or pair of
 * commands, and the shadows through which transactions edit them.
 *
 *  1. A primary item has a source and lives in the root context's list, in registration order. A
 *     shadow has a name and item_orig only, and a tree from its first write access on.
 *  2. A list is a pointer to its first item; the empty list is null. Lists own their items; shadows
 *     do not own the item that they shadow, and are dropped before it.
 *  3. Strings go in as copies. Trees that are handed out stay the item's: they are valid until the
 *     item is edited, submitted, reverted, written or destroyed.
 *  4. Null items and lists are accepted by every function and mean "nothing there".
 *  5. errno: null or -1 comes with the cause; success leaves errno as it was.
 *  6. Names, values and paths are bytes; no encoding is assumed.
 *  7. Everything here belongs to the daemon's one thread.
 */

#ifdef __cplusplus
extern "C" {
#endif

struct cnfmodule;
struct cnfnode;
struct fe_node;

/* The bits of llconf_item.flags. */
enum {
    LLI_FLAG_CREATE = 1,        /* a missing source is an empty tree */
    LLI_FLAG_ALWAYS_REVERT = 2, /* parse again at every revert */
    LLI_FLAG_READONLY = 4       /* commit never writes */
};

/* Attributes of a file-backed instance. */
typedef struct llconf_file {
    char *filename;  /* as in the modules file, before the prefix; the directory of a pattern */
    int mode;        /* permission bits for a written file; negative: those of the old one */
    int uid;         /* owner for a written file; negative: that of the old one */
    int gid;         /* the same for the group */
    long last_write; /* uptime in seconds at the last write */
    /* The same in every module, whichever widths of time_t and ino_t it is built with. */
    int64_t mtime;   /* modification time at the last parse or write */
    uint64_t st_ino; /* inode at the last parse */
} llconf_file;

#ifdef __cplusplus
}

/* The tree of an item: a pointer that everybody may read and llconf_exchange_tree alone sets, since
 * answers are kept for as long as all trees are what they were (tree/kept.h). */
class item_tree {
  public:
    item_tree() = default;
    item_tree(const item_tree &) = delete;
    item_tree &operator=(const item_tree &) = delete;
    operator cnfnode *() const { return tree_; }
    cnfnode *operator->() const { return tree_; }

  private:
    friend cnfnode *llconf_exchange_tree(struct llconf_item *lli, cnfnode *tree);
    cnfnode *tree_ = nullptr;
};

extern "C" {
#else
typedef struct cnfnode *item_tree;
#endif

/* One backend module instance, or the shadow of one in a transaction copy. The record goes on
 * behind these fields: only the functions below make one. */
typedef struct llconf_item {
    struct llconf_item *next;
    char *name;               /* the key by which expressions and hook files find it */
    struct cnfmodule *module; /* the parser's clone; null for a virtual instance and a shadow */
    llconf_file *file;        /* null for a command or virtual instance */
    char *pattern;            /* glob pattern of the files in the directory file->filename */
    char *pipe_in;            /* command whose output is parsed, when there is no file */
    char *pipe_out;           /* command that receives the unparsed text */
    unsigned int flags;       /* LLI_FLAG_ bits */
    item_tree cn_root;        /* the tree, its top named "(root)" */
    int is_dirty;             /* the tree differs from the source */
    int delete_me;            /* commit removes the file and releases the item */
    struct llconf_item *item_orig;  /* the item that this one shadows; null for a primary */
    struct fe_node *func_pre_read;  /* hooks, expression node lists; a shadow's commit hooks */
    struct fe_node *func_post_read; /* replace those of its original when it is submitted */
    struct fe_node *func_pre_commit;
    struct fe_node *func_post_commit;
} llconf_item;

/* A list cell that refers to an item without owning it. */
typedef struct llconf_ptr_item {
    struct llconf_ptr_item *next;
    llconf_item *lli;
} llconf_ptr_item;

/* A new item with an empty tree, dirty, in no list; the caller owns it. modname names the parser;
 * "virtual" gives an item without source and tree. With a filename the commands are ignored,
 * without one both are needed. options, pattern and what is not needed may be null. Null after one
 * line in the log when the parser is unknown (errno ENOENT), the options do not parse or the source
 * is incomplete (EINVAL); null and ENOMEM when memory is exhausted. */
llconf_item *create_llconf_item(const char *name, const char *modname, const char *options,
                                const char *filename, const char *pipe_in, const char *pipe_out,
                                const char *pattern);

/* Stores mode, uid and gid in the item's file record; an item without a file stays as it is. */
void llconf_set_file_attributes(llconf_item *lli, int mode, int uid, int gid);

/* Releases everything that the item owns, and the item. What a shadow changed in a borrowed tree is
 * taken back first. Unlinks nothing: the caller takes the item out of its list before. */
void destroy_llconf_item(llconf_item *lli);
void destroy_llconf_item_list(llconf_item *list);

/* A new cell for lli, its next null; freed with free(). Null (ENOMEM) when memory is exhausted. */
llconf_ptr_item *create_llconf_ptr_item(llconf_item *lli);

/* The first item whose name is exactly name; null and errno ENOENT without one. In a list of
 * shadows, an item that exists in the list shadowed but came after this list was made gets its
 * shadow now, at the end of list. */
llconf_item *find_llconf_item(llconf_item *list, const char *name);

/* Must be called when an item leaves a list otherwise than through this header: look-ups remember
 * what they found. */
void llconf_forget_lookups(void);

/* A shadow of orig, which is marked for deletion where orig is a shadow with that mark; a list with
 * one shadow per item of list, in the same order. The caller owns what it gets; null (ENOMEM) when
 * memory is exhausted, and for an empty list. */
llconf_item *create_llconf_shadow_item(llconf_item *orig);
llconf_item *create_llconf_shadow_list(llconf_item *list);

/* Moves the tree of every dirty shadow into the item that it shadows, which becomes dirty and takes
 * over delete_me; the shadow has no tree afterwards and keeps its own dirty mark. Shadows that are
 * clean stay as they are, and so do those without a tree, whose marks move up where the item that
 * they shadow is a shadow itself. Commit hooks that were set through a shadow move up in any case.
 * Returns 0. */
int llconf_submit_shadow_list(llconf_item *shadows);

/* Drops the tree, the dirty mark, the deletion mark and the hooks of every shadow. Returns 0. */
int llconf_revert_shadow_list(llconf_item *shadows);

/* Takes back what shadows changed in borrowed trees, and returns those trees. Own trees stay. */
void llconf_return_borrowed_trees(llconf_item *shadows);

/* About how many bytes shadows and the trees of their own take. */
size_t llconf_shadow_list_size(const llconf_item *shadows);

/* Installs tree, which the item owns from now on, in the place of the one that it had; null leaves
 * it without one. */
void llconf_install_cnftree(llconf_item *lli, struct cnfnode *tree);

/* The tree for reading: that of lli or, while an item has none, of the item that it shadows. Null
 * when none on the way has a tree. */
struct cnfnode *llconf_get_cnftree_read(llconf_item *lli);

/* The tree for writing: lli's own. A shadow without one gets a copy of the tree that it reads; or,
 * when that is the private tree of a shadow itself, borrows it, and every change is noted, so that
 * it can be taken back. Marks nothing dirty: who edits does. Null when there is no tree at all, or
 * memory is exhausted (ENOMEM). */
struct cnfnode *llconf_get_cnftree_write(llconf_item *lli);

#ifdef __cplusplus
}

/* Sets the tree and nothing else, for whoever keeps the item's records true to it. The one that
 * stood there, which is the caller's. */
cnfnode *llconf_exchange_tree(llconf_item *lli, cnfnode *tree);

extern "C" {
#endif

/* The primary item at the end of the item_orig links: the one that has a source. */
llconf_item *llconf_primary_item(llconf_item *lli);

#ifdef __cplusplus
}
#endif

#endif
