#ifndef UCFGD_TREE_DEFINITION_H
#define UCFGD_TREE_DEFINITION_H

#ifndef __cplusplus
#    error "definition.h is for C++ sources"
#endif

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "llconf/nodes.h"

/* What the readers of definition files have in common: where in which file they are, and what they
 * say about it.
 *
 * A reader keeps a reading_file for each file and a reading_entry for each entry on its stack. What
 * is complained of in between, also further down, is complained of there. Nothing here throws but
 * reading_place. */

class reading_file {
  public:
    /* The complete name, which must live as long as the object. */
    explicit reading_file(const char *name);
    reading_file(const reading_file &) = delete;
    reading_file &operator=(const reading_file &) = delete;
    ~reading_file();

  private:
    const char *file_before_;
    const cnfnode *entry_before_;
};

class reading_entry {
  public:
    explicit reading_entry(const cnfnode *entry);
    reading_entry(const reading_entry &) = delete;
    reading_entry &operator=(const reading_entry &) = delete;
    ~reading_entry();

  private:
    const cnfnode *before_;
};

/* The entry that is being read, or null. */
const cnfnode *reading_now();

/* "FILE:LINE:COLUMN: " of the entry, or of a byte of its value; "FILE: " without an entry, and
 * empty when no file is being read. */
std::string reading_place(long value_at = -1);

/* Logs a line about the entry, its place in front. */
void complain(int priority, const char *format, ...) __attribute__((format(printf, 2, 3)));

/* Logs why the expression that is the entry's value could not be parsed, with the place in the file
 * where it goes wrong. */
void complain_of_expression(const char *error_text);

/* The same for one that is left out without a word, except when files are only looked at. */
void complain_of_silent();

/* Complains of a value that is read as a number and is none, when files are only looked at. */
void complain_of_no_number(const char *value);

/* Logs a warning of an entry that nobody reads, with the word that was probably meant. */
void complain_of_unknown(const cnfnode *entry, std::span<const std::string_view> known);

/* Complains of everything below root that none of the paths leads to. Paths are names joined with
 * "/"; a name may be "*". A name that begins with "." is nobody's. */
void complain_of_unknown_paths(const cnfnode *root, std::span<const std::string_view> paths);

/* Whether the files are only looked at: nothing of the machine is changed, and nothing is run. */
extern bool g_only_checking;

/* From now on only looks, and prints complaints, which are all log lines from warnings on, on
 * standard error instead of logging them. */
void check_begin();

/* How many there were. */
size_t check_complaints();

#endif
