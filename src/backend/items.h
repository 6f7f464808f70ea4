#ifndef UCFGD_BACKEND_ITEMS_H
#define UCFGD_BACKEND_ITEMS_H

#ifndef __cplusplus
#    error "items.h is for the backend's own sources"
#endif

#include <map>
#include <memory>
#include <string>

#include "archive/file_state.h"
#include "backend/directory.h"
#include "backend/llconf_item.h"
#include "backend/seen_file.h"

struct cnf_journal;

/* What an item's tree is, and what may happen to it next. item_state.cpp has the table. */
enum class tree_state : unsigned char {
    /* Of a shadow. */
    none,     /* there is none: reads go on to the item that it shadows */
    own,      /* its own */
    lent,     /* its own, in which a shadow of this one works at the moment */
    borrowed, /* that of the item that it shadows, under a journal */
    /* Of a primary item. */
    unseen,    /* an empty one: nobody has looked at the source yet */
    read,      /* what the source held when it was looked at last */
    unread,    /* not what the source holds, which is there and cannot be read */
    submitted, /* the edits of a session, which the child of a commit may be writing */
    blind,     /* edits as well, made over an unread source */
    overtaken  /* what the source held while the child of a commit may have been writing it */
};

enum class tree_event : unsigned char {
    copied,     /* a shadow gets a copy of the tree that it read so far */
    borrows,    /* a shadow gets the loan of the tree of the one it shadows, */
    lends,      /* which lends it, */
    given_back, /* and has it back: an event of both */
    dropped,    /* a shadow's own tree goes, or moves up */
    taken,      /* the tree of a shadow arrives */
    looked,     /* the source has been read, or has not changed since that */
    failed      /* the source is there and cannot be read */
};

/* What files were of which the archive has given the contents, by the member's name, and empty for
 * that of an instance with one file. The commit gives them owner and mode back, and removes again
 * what was not there. */
using archived_states = std::map<std::string, file_state>;
using shared_states = std::shared_ptr<const archived_states>;

class command_source;

/* A tree and what it was read from: a file (null: nobody has looked), or the files of a directory.
 */
struct recorded_tree {
    struct cnfnode *tree = nullptr;
    shared_record record;
    shared_seen_file seen;
};

/* What an llconf_item really is. */
struct item_record : llconf_item {
    tree_state state = tree_state::none;
    cnf_journal *journal = nullptr;  /* of a borrowed tree: what is noted here can be taken back */
    item_record *borrower = nullptr; /* of a lent tree */
    shared_record record;            /* of the item's own tree, when that is a directory's */
    shared_seen_file seen;           /* and when that is a file's */
    shared_states archived;          /* of the edits of an item; null where there are none */
    file_identity looked;            /* of the file, when it was parsed last, well or not */
    int create_mode = -1;            /* of a file that was not there; negative: by the umask */
    recorded_tree parsed;            /* the last parse; its tree is the caller's until installed */
    recorded_tree replaced; /* the tree that a submit put aside: the source's, as last read */
    struct fe_node *check =
        nullptr; /* owned: what a new file must pass before it is in its place */
    std::shared_ptr<command_source> source; /* of an item with "depends:"; null without */
    int serial = 0; /* of the master context, when the source was looked at last */
};

inline item_record *record_of(llconf_item *lli) {
    return static_cast<item_record *>(lli);
}
inline const item_record *record_of(const llconf_item *lli) {
    return static_cast<const item_record *>(lli);
}

/* Moves the item on. An event that cannot happen in its state is a fault of this program: it is
 * logged, and the state stays. */
void item_enter(item_record *item, tree_event event);

/* Whether the child of a commit may be writing the item's source, or has done so since it was
 * looked at last. */
bool item_commit_open(const item_record *item);

/* Whether a commit has ended since the item's source was looked at last. Its child wrote the source
 * without this process seeing it: perhaps after another session's revert had read the old one, or
 * from a hook. */
bool item_commit_ended(const item_record *item);

/* Puts the tree that a submit replaced back in its place, clean; the edits are gone. */
void item_put_back(item_record *primary);

/* What the file of an item, or a member of it, was in the archive whose contents it has; null for
 * one that is not from there. */
const file_state *item_archived(const item_record *item, const std::string &member);

/* Whether the tree of an instance with one file stands for none: there was none in the archive, and
 * nothing has been added since. */
bool item_means_no_file(const item_record *item);

/* The tree that a submit replaced goes. */
void item_drop_replaced(item_record *primary);

/* The records of the files of the tree that lli reads or writes; null for no directory. */
const directory_record *item_directory(const llconf_item *lli);

/* A primary's tree that could not be read is read again, if that goes by now: an edit should not
 * begin with what the source does not hold. For lli without a tree of its own. */
void item_retry_unread(llconf_item *lli);

/* Which of an item's four hook lists. */
using hook_list = struct fe_node *llconf_item::*;

/* Runs one of the item's hooks, if there is one. The hook may replace its own list: the old one
 * lives until it has returned. Keeps errno. */
void run_hook(llconf_item *lli, hook_list which);

#endif
