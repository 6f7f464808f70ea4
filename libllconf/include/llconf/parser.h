#ifndef LLCONF_PARSER_H
#define LLCONF_PARSER_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What a parser supplies. The engine does the rest: it reads and writes files, keeps the source
 * texts, puts comments and blank lines in their place, tracks sections, counts lines, translates
 * line ends, and checks what is about to be written.
 *
 * A parser answers four questions, each with one function:
 *
 *   cut      where does the piece that starts here end, and what is it?
 *   read     which node does this piece stand for?
 *   format   which text stands for this node?
 *   accepts  can the file hold this name and value?
 *
 * 1. A syntax of one entry a line leaves cut null. The engine then cuts at line ends, makes
 *    ".empty", ".comment" and ".unparsed" nodes itself, and calls read for the other lines.
 * 2. Texts handed to read and format end before the line end of their last line and contain no NUL.
 *    They are not terminated. Lines inside a piece may end in CRLF.
 * 3. Formatted texts have "\n" between their lines and none behind the last; the engine puts the
 *    line ends of the file there.
 * 4. What format produced is cut and read again before it is written, and must give the same node:
 *    a text that would become something else is refused with EINVAL.
 * 5. data is what prepare made of the module's options; null without prepare.
 * 6. Every function takes time linear in the text it is given. The engine calls cut once per piece:
 *    it must not look further than a bounded distance behind the piece it returns, except to
 *    report an error.
 * 7. Results: 0 for success and -1 with errno for failure, where nothing else is said. No exception
 *    may leave a function.
 */

struct cnfnode;
struct cnf_reader;
struct cnf_out;

enum cnf_piece_kind {
    CNF_ENTRY = 1, /* one node */
    CNF_OPEN,      /* the head of a section; its children follow, up to a CNF_CLOSE */
    CNF_CLOSE,     /* the end of the section opened last */
    CNF_HEADING,   /* the head of a section that ends where the next heading or the file does */
    CNF_COMMENT,   /* a ".comment" node: blanks, a comment sign, the text */
    CNF_EMPTY,     /* an ".empty" node */
    CNF_UNPARSED,  /* an ".unparsed" node; its value is the text */
    CNF_SHARED     /* the same, for a line that says something about several entries (relate) */
};

struct cnf_cut {
    const char *text; /* everything from the current place to the end of the file */
    size_t length;    /* above 0 */
    int depth;        /* sections that are open here */
    /* answers */
    int kind;
    size_t piece;      /* length of the piece with its line end; 1 to length */
    const char *error; /* a constant text, when cut returns -1 with EINVAL */
    size_t error_at;   /* its offset in text, for the line number */
};

struct cnf_format {
    const struct cnfnode *node;
    int kind;  /* CNF_ENTRY, CNF_OPEN, CNF_CLOSE, CNF_HEADING or CNF_SHARED */
    int level; /* 1 for a child of the file's root */
    /* The text that the node was read from, so that blanks and a comment behind the entry can be
     * kept, and what it was then; null and 0 for a new node. The node may bear any other name and
     * value by now. */
    const char *old;
    size_t old_length;
    int old_kind;
    struct cnf_out *out;
};

#define CNF_PARSER_VERSION 1
#define CNF_SHARING_PARSER 2

struct cnf_parser {
    unsigned version; /* CNF_PARSER_VERSION, or CNF_SHARING_PARSER */
    const char *name;
    const char *const *options; /* names of the options, null behind the last; null: none */
    int keep_blank_lines;       /* blank lines are entries, too (only without cut) */
    int indent;                 /* blanks a level before a new comment */

    /* Makes data of the options (null: none), which are checked against the names above before.
     * EINVAL for a value that cannot be used. Both may be null. */
    int (*prepare)(const struct cnfnode *options, void **data);
    void (*release)(void *data);

    /* The characters that start a comment; the first one is written. Null: no comments. */
    const char *(*comments)(const void *data);

    /* Finds the piece at the start of cut->text. Null: a piece is a line. */
    int (*cut)(const void *data, struct cnf_cut *cut);

    /* Makes the node of a piece (CNF_ENTRY, CNF_OPEN or CNF_HEADING) with cnf_read_node and its
     * children with further calls. Returns 1; 0 for a text that cannot be read and becomes an
     * ".unparsed" node (no node may have been made then); -1 with errno for what is an error of the
     * file (cnf_read_error) or ENOMEM. */
    int (*read)(const void *data, struct cnf_reader *reader, int kind, const char *text,
                size_t length);

    /* What a node is written as: CNF_ENTRY, CNF_OPEN or CNF_HEADING. Null: CNF_ENTRY. A node that
     * was read as a section stays one. The children of a section are entries and sections of their
     * own; those of an entry belong to its text. */
    int (*kind_of)(const void *data, const struct cnfnode *node);

    /* Appends the text of a node (or of the end of its section, CNF_CLOSE) to format->out. */
    int (*format)(const void *data, const struct cnf_format *format);

    /* 1 when the file can hold a node of that name and value (null: none) as a child of parent, 0
     * when not, -1 with ENOMEM. Looks at the node alone: whether its entry can be written as a
     * whole, format says. level: 1 for a child of the file's root; parent is that root then.
     * Formatting nodes are the engine's affair, and texts with CR, LF or NUL never arrive when cut
     * is null. */
    int (*accepts)(const void *data, int level, const struct cnfnode *parent, const char *name,
                   const char *value);

    /* A syntax that is no list of entries supplies these two instead of cut, read and format, and
     * remembers no texts below the root. cnf_read_node with a null parent sets the name and value
     * of the root. The text handed over and the text produced are the whole file, last line end
     * included. */
    int (*read_tree)(const void *data, struct cnf_reader *reader, const char *text, size_t length);
    int (*format_tree)(const void *data, const struct cnfnode *tree, struct cnf_out *out);

    /* 1 where a list's nodes are named by decimal numbers that a reader counts anew, so that a tree
     * with a gap in them reads back under other numbers. */
    int counted_names;
};

/* The record of a syntax with shared lines; parser.version is CNF_SHARING_PARSER.
 *
 * relate is called when all pieces have been read. It adds to the entries what the shared lines say
 * about them, as further children, with cnf_read_node; a new child of root is an entry that only
 * such lines speak of. Returns 0, or -1 with errno. A shared line is no part of what the tree says:
 * when the tree has changed, format is asked for its text (kind CNF_SHARED), which follows from the
 * entries, and an entry's text leaves out what a shared line says already. Nothing formatted: no
 * line. */
struct cnf_sharing_parser {
    struct cnf_parser parser;
    int (*relate)(const void *data, struct cnf_reader *reader, struct cnfnode *root);
};

/* Registers a parser under its name; the record must stay valid for good. A parser of that name
 * that is registered already is left in its place (EEXIST). Returns 0, or -1 (EINVAL for a record
 * of another version, or one that lacks a function; ENOMEM). */
int cnf_register_parser(const struct cnf_parser *parser);

/* --- for read ------------------------------------------------------------------------------- */

/* Makes a node from pieces of text, which are copied; value null: none. parent null: the node of
 * the piece itself (made once, first); otherwise the new last child of parent, a node made for this
 * piece. Null with ENOMEM; the read function then returns -1. Texts must not contain NUL. */
struct cnfnode *cnf_read_node(struct cnf_reader *reader, struct cnfnode *parent, const char *name,
                              size_t name_length, const char *value, size_t value_length);

/* The same for a name that lives as long as the process (a constant, or from cnf_intern): it is not
 * copied. */
struct cnfnode *cnf_read_key(struct cnf_reader *reader, struct cnfnode *parent, const char *name,
                             const char *value, size_t value_length);

/* Says what is wrong at text + offset; `what` is copied. Returns -1 with EINVAL. */
int cnf_read_error(struct cnf_reader *reader, size_t offset, const char *what);

/* --- for format ----------------------------------------------------------------------------- */

/* Appends to the text. Both return 0, or -1 with ENOMEM. */
int cnf_out_add(struct cnf_out *out, const char *text, size_t length);
int cnf_out_text(struct cnf_out *out, const char *text); /* null: nothing */

/* For format and format_tree: says why the node cannot be written; `why` is copied. unfinished: 1
 * where only what can still be added or set is missing, so that an edit that leads here may be the
 * first of several. Returns -1 with EINVAL (or ENOMEM). A format that answers -1 with EINVAL
 * without this refuses, too. */
int cnf_out_refuse(struct cnf_out *out, int unfinished, const char *why);

/* For format_tree: the text of the file that the tree was read from, *length bytes without a NUL
 * behind them; null for a tree that was not read from a file of this module's syntax and options.
 */
const char *cnf_out_source(const struct cnf_out *out, size_t *length);

/* --- for all -------------------------------------------------------------------------------- */

/* A copy of text that is never freed: for the few names that options give. Null with ENOMEM. */
const char *cnf_intern(const char *text);

/* The value of an option, or fallback when it is missing or has no value. Borrowed. */
const char *cnf_option(const struct cnfnode *options, const char *name, const char *fallback);

/* 1 when the text has neither CR nor LF in it. Null: 1. */
int cnf_fits_line(const char *text);

/* The length of the line at text with its line end (LF or CRLF); *end (may be null): without it.
 * For cut functions. */
size_t cnf_line_length(const char *text, size_t length, size_t *end);

/* --- the built-in ones ---------------------------------------------------------------------- */

int cnfmodule_register_tavconf(void);
int cnfmodule_register_python(void);
int cnfmodule_register_lines(void);
int cnfmodule_register_shellvars(void);
int cnfmodule_register_hosts(void);
int cnfmodule_register_keyvalue(void);
int cnfmodule_register_ini(void);
int cnfmodule_register_table(void);
int cnfmodule_register_interfaces(void);
int cnfmodule_register_mgetty(void);
int cnfmodule_register_aliases(void);

#ifdef __cplusplus
}
#endif

#endif
