#ifndef LLCONF_ENGINE_H
#define LLCONF_ENGINE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "llconf/modules.h"
#include "llconf/parser.h"
#include "node_record.h"

/* What stands between the operations on modules and the parsers: how a text becomes a tree
 * (reader.cpp) and a tree a text (writer.cpp), and which nodes a file can hold (accepts.cpp).
 * The functions here may throw std::bad_alloc; their callers in modules.cpp and file_io.cpp turn it
 * into ENOMEM. */

constexpr int k_max_depth = 200;
constexpr size_t k_max_file = size_t{256} << 20;

constexpr std::string_view k_comment_name = ".comment";
constexpr std::string_view k_empty_name = ".empty";
constexpr std::string_view k_unparsed_name = ".unparsed";

/* Sets cnf_error_text to "LABEL:LINE: what" (line 0: "LABEL: what") and errno. Returns -1. Control
 * characters become "?", so that the text stays one line. */
int set_error(int error, std::string_view label, size_t line, std::string_view what);

/* Adds the column to what set_error has just said. */
void set_error_column(size_t column);

/* The column of an offset, in characters from 1 on. */
size_t column_of(std::string_view text, size_t offset);

/* What errno means; a text for every number. */
std::string_view errno_text();

/* Hands a line to the function set with llconf_set_report. Keeps errno. */
void report(int priority, const std::string &text);

/* A parser with the data of one module. */
struct syntax {
    const cnf_parser *parser;
    const void *data;

    explicit syntax(const cnfmodule *module) : parser(module->parser), data(module->data) {}
    bool by_lines() const { return parser->cut == nullptr && parser->read_tree == nullptr; }
    bool whole_file() const { return parser->read_tree != nullptr; }
    bool shares_lines() const { return parser->version == CNF_SHARING_PARSER; }
    /* Sections may hold sections. */
    bool nested() const { return parser->kind_of != nullptr; }
    std::string_view comment_signs() const;
    int kind_of(const cnfnode *node) const {
        return parser->kind_of != nullptr ? parser->kind_of(data, node) : int{CNF_ENTRY};
    }
};

inline bool is_blank(char c) {
    return c == ' ' || c == '\t';
}
std::string_view trimmed(std::string_view text);
bool is_section_kind(int kind);
bool is_shared_line(const node_record *node);

/* One piece of a file. text: without its line end. */
struct piece {
    int kind;
    size_t length;
    std::string_view text;
};

/* Cuts the first piece off rest, which is not empty. False with errno EINVAL and error and error_at
 * set, or with another errno. */
bool cut_piece(const syntax &s, std::string_view rest, int depth, piece &found, const char *&error,
               size_t &error_at);

/* The node that one piece alone stands for, without a source text; null when it does not. Throws
 * std::bad_alloc. */
node_record *read_single(const syntax &s, const piece &p);

/* Parses a text (malloc'd, taken over). Null with errno and cnf_error_text. */
node_record *parse_owned_text(const cnfmodule *module, std::string_view label, char *text,
                              size_t length);

/* A tree as text: runs of it that are still the file's own, and what had to be formatted. */
struct text_run {
    const char *text; /* null: in formatted, at offset */
    size_t offset;
    size_t length;
};

struct written_text {
    std::vector<text_run> runs;
    std::string formatted;

    const char *at(const text_run &run) const {
        return run.text != nullptr ? run.text : formatted.data() + run.offset;
    }
    size_t length() const;
    std::string joined() const;
};

/* Why a tree cannot be written. */
struct refusal {
    std::string why;         /* without the file's name */
    bool unfinished = false; /* the parser says that only something is missing as yet */
};

/* Plans a file. False with errno and refused: EINVAL for a tree that it cannot hold. */
bool write_tree(const cnfmodule *module, const node_record *root, written_text &out,
                refusal &refused);
/* What the node is written as: CNF_ENTRY, CNF_OPEN or CNF_HEADING. */
int written_kind(const cnfmodule *module, const node_record *node);

/* What the file makes of the entry that node is or belongs to (modules.h). why: what is wrong. */
cnf_fitness fitness_of(const cnfmodule *module, const node_record *root, const node_record *node,
                       std::string &why);

/* Whether the file can hold such a node at this level (1: a child of the root, 0: the root). These
 * two throw std::bad_alloc. */
bool accepts_node(const syntax &s, int level, const cnfnode *parent, const char *name,
                  const char *value);
/* The same for a formatting node with its value: writes it and reads it again. */
bool accepts_formatting(const syntax &s, int level, const cnfnode *node);

/* Formats a formatting node, without a line end. old: the text it was read from. */
std::string format_layout(const syntax &s, int level, const cnfnode *node, std::string_view old);

#endif
