#ifndef UCFGD_BACKEND_LLCONF_ITEM_H
#define UCFGD_BACKEND_LLCONF_ITEM_H

#include <sys/types.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

struct cnfmodule;
struct cnfnode;
struct fe_def;
struct fe_node;

enum { LLI_FLAG_CREATE = 1, LLI_FLAG_ALWAYS_REVERT = 2, LLI_FLAG_READONLY = 4 };

/* Attributes of a file-backed instance. */
typedef struct llconf_file {
    char *filename;
    int mode;
    int uid;
    int gid;
    long last_write;
    time_t mtime;
    ino_t st_ino;
} llconf_file;

/* One backend module instance, or the shadow of one in a transaction copy. */
typedef struct llconf_item {
    struct llconf_item *next;
    char *name;
    struct cnfmodule *module;
    llconf_file *file;
    char *pattern;
    char *pipe_in;
    char *pipe_out;
    unsigned int flags;
    struct cnfnode *cn_root;
    int is_dirty;
    int delete_me;
    struct llconf_item *item_orig;
    struct fe_node *func_pre_read;
    struct fe_node *func_post_read;
    struct fe_node *func_pre_commit;
    struct fe_node *func_post_commit;
    /* private fields of the implementation may follow */
} llconf_item;

typedef struct llconf_ptr_item {
    struct llconf_ptr_item *next;
    llconf_item *lli;
} llconf_ptr_item;

llconf_item *create_llconf_item(const char *name, const char *modname, const char *options,
                                const char *filename, const char *pipe_in, const char *pipe_out,
                                const char *pattern);
void llconf_set_file_attributes(llconf_item *lli, int mode, int uid, int gid);
void destroy_llconf_item(llconf_item *lli);
void destroy_llconf_item_list(llconf_item *list);
llconf_ptr_item *create_llconf_ptr_item(llconf_item *lli);
llconf_item *find_llconf_item(llconf_item *list, const char *name);

llconf_item *create_llconf_shadow_item(llconf_item *orig);
llconf_item *create_llconf_shadow_list(llconf_item *list);
int llconf_submit_shadow_list(llconf_item *shadows);
int llconf_revert_shadow_list(llconf_item *shadows);

struct cnfnode *llconf_get_cnftree_read(llconf_item *lli);
struct cnfnode *llconf_get_cnftree_write(llconf_item *lli);

#ifdef __cplusplus
}
#endif

#endif
