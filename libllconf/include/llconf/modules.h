#ifndef LLCONF_MODULES_H
#define LLCONF_MODULES_H

#include <stddef.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

struct cnfnode;
struct cnf_parser;

/* Parser modules: each knows one syntax and turns a file into a tree and back.
 *
 * 1. Ownership: a tree returned by a parse belongs to the caller (destroy_cnftree) and may outlive
 *    its module. Registered modules belong to the library; clones to their maker.
 * 2. Failure: null or -1 with errno (EINVAL for syntax, EFBIG above 256 MiB, or the system's own);
 *    cnf_error_text says where and what. Nothing is logged. Success leaves errno alone.
 * 3. What was read and not changed is written back byte for byte. A tree that holds a text which
 * the file cannot hold is refused with EINVAL before the first byte is written.
 * 4. Formatting nodes (nodes.h) keep comments, blank lines and unreadable lines in their place.
 * 5. Streams and descriptors stay open and belong to the caller.
 */

struct cnfmodule {
    struct cnfmodule *next;
    char *name;
    char *default_file;              /* null for none */
    struct cnfnode *options;         /* as parse_options gives them; null for none */
    const struct cnf_parser *parser; /* its operations; parser.h */
    void *data;                      /* what the parser made of the options */
};

/* Registers the built-in parsers; further calls do nothing. Returns 0, or -1 with ENOMEM. */
int register_all(void);

/* The registered parser of that name (borrowed, never freed), or null. */
struct cnfmodule *find_cnfmodule(const char *name);

/* An instance of a parser with a name, a default file and options of its own. name null: that of
 * the parser; default_file and options may be null. All are copied. Null with EINVAL for an option
 * that the parser does not know or a value that it cannot use (reported through llconf_set_report),
 * or ENOMEM. */
struct cnfmodule *clone_cnfmodule(const struct cnfmodule *parser, const char *name,
                                  const char *default_file, const struct cnfnode *options);

/* Frees an instance. Null and registered modules are left alone. */
void destroy_cnfmodule(struct cnfmodule *module);

/* An option string as a tree: one child of "(root)" per option, with a value if it has one. Options
 * are `name` or `name=value`, separated by blanks or commas; a value may stand in double quotes
 * with
 * \" and \\ inside. Null with EINVAL for anything else; null text is the empty list. */
struct cnfnode *parse_options(const char *text);

/* Read a tree from a stream, a file (null: the default file), a descriptor (from where it stands)
 * or memory. Null on failure. `label` stands for the file's name in errors; null: the module's
 * name, as it does for a stream. */
struct cnfnode *cnfmodule_parse(const struct cnfmodule *module, FILE *stream);
struct cnfnode *cnfmodule_parse_file(const struct cnfmodule *module, const char *path);
struct cnfnode *cnfmodule_parse_fd(const struct cnfmodule *module, const char *label, int fd);
struct cnfnode *cnfmodule_parse_text(const struct cnfmodule *module, const char *label,
                                     const char *text, size_t length);

/* Write a tree; 0, or -1. cnfmodule_unparse flushes the stream. cnfmodule_unparse_file (null: the
 * default file) creates or truncates the file and answers 0 only when every byte has reached the
 * disk: the final fsync and the close have succeeded. A file that it creates has mode 0600; one
 * that is there keeps its mode. cnfmodule_unparse_fd is the same for a descriptor that the caller
 * has opened as he needs it; it does not close it. What is no file on a disk (a pipe) is not
 * synced. */
int cnfmodule_unparse(const struct cnfmodule *module, FILE *stream, const struct cnfnode *tree);
int cnfmodule_unparse_file(const struct cnfmodule *module, const char *path,
                           const struct cnfnode *tree);
int cnfmodule_unparse_fd(const struct cnfmodule *module, int fd, const struct cnfnode *tree);
/* The text itself, *length bytes with a NUL behind them; freed by the caller; null on failure. */
char *cnfmodule_unparse_text(const struct cnfmodule *module, const struct cnfnode *tree,
                             size_t *length);

/* Makes of a tree, which a parse of the same module or a clone of one has returned, what parsing
 * text would make of it. Quick where text is what unparsing the tree gave: only lines that have
 * changed are read, the rest is compared. 0; or -1 with errno (EINVAL where lines of the syntax
 * depend on others, ERANGE for too many changes): the tree may be neither the one nor the other
 * then, and text has to be parsed. */
int cnfmodule_adopt(const struct cnfmodule *module, struct cnfnode *tree, const char *text,
                    size_t length);

/* Whether no line of a file depends on another, so that writing a tree reads no more again than the
 * lines that have changed. */
int cnfmodule_is_by_lines(const struct cnfmodule *module);

/* 1 when a node of that name and value (null: none), standing below parent, can be stored in a file
 * of this module; 0 otherwise. The tree's root is the parent of an entry: the nearest node at or
 * above parent that a parse returned as its root, or else the top. Looks at the texts alone: asked
 * before an edit, as cnfmodule_fits is asked behind it. Keeps errno, but for ENOMEM: 0 is no answer
 * then. */
int cnfmodule_accepts(const struct cnfmodule *module, const struct cnfnode *parent,
                      const char *name, const char *value);
/* The same, told which node is the root of the file (a directory module's new file, say). */
int cnfmodule_accepts_below(const struct cnfmodule *module, const struct cnfnode *root,
                            const struct cnfnode *parent, const char *name, const char *value);
/* The same for every node that cnf_add_branch (parent, path) would create. 1 for what is no path:
 * cnf_add_branch says so itself. root null: found as cnfmodule_accepts does. */
int cnfmodule_accepts_branch(const struct cnfmodule *module, const struct cnfnode *root,
                             const struct cnfnode *parent, const char *path);

/* What a file of this module makes of an entry as it stands, between its neighbours. */
enum cnf_fitness {
    CNF_UNFIT,      /* it cannot be written, or would not be read as what it is */
    CNF_UNFINISHED, /* nor can it now, but values or parts that it still lacks can be added */
    CNF_FIT
};

/* Looks at the entry that node is or belongs to. root: of the file, or null, as above. Where every
 * edit is followed by this question about each place that it has touched, and those are taken back
 * that leave something unfit, a tree that holds nothing unfinished can be written. A syntax without
 * entries (a lens) decides on the whole file when it is written. *why (may be null) tells, for what
 * is not fit, what is wrong; borrowed until the next call. -1 with ENOMEM; otherwise keeps errno.
 */
int cnfmodule_fits(const struct cnfmodule *module, const struct cnfnode *root,
                   const struct cnfnode *node, const char **why);

/* Loads a library and calls its `int cnfmodule_register_NAME(void)`, which registers parsers with
 * cnf_register_parser (parser.h) and returns 0. flags: those of dlopen; 0 is RTLD_NOW. A path that
 * others than root may write is refused with EPERM. The library stays loaded. Returns 0, or -1 with
 * errno; the reason is also reported through llconf_set_report. */
int cnfmodule_register_plugin(const char *name, const char *library, int flags);

/* Whether a file may be loaded into a privileged process: 0 when it is a regular file that belongs
 * to root (or to the user who runs this process) and neither group nor others may write it or
 * replace it in its directory; -1 with EPERM when not, or with the errno of looking at it. */
int llconf_check_library(const char *path);

/* "FILE:LINE: what is wrong" or "FILE: reason" of the last parse or unparse that failed; never
 * null. Borrowed until the next failure. */
const char *cnf_error_text(void);

/* The column in that line, in characters from 1 on; 0 where no line is named. */
size_t cnf_error_column(void);

/* Sets who hears what the library has to say beyond results: priority (of syslog), one line without
 * a line end, and data. Null: nobody. */
typedef void (*llconf_report)(int priority, const char *text, void *data);
void llconf_set_report(llconf_report report, void *data);

#ifdef __cplusplus
}
#endif

#endif
