#ifndef UCFGD_BACKEND_COMMAND_SOURCE_H
#define UCFGD_BACKEND_COMMAND_SOURCE_H

#ifndef __cplusplus
#    error "command_source.h is for the backend's own sources"
#endif

#include <memory>
#include <string>

#include "backend/items.h"

/* Instances that show what a program makes of its files: a "pipe-in:" command with "depends:".
 * command_source.cpp tells the idea. */

struct command_end;

/* patterns: files and shell patterns, parted by blanks. Null when memory is exhausted. */
std::shared_ptr<command_source> make_command_source(const char *patterns);

/* A revert: finds out whether the tree is still what the command would print, and if not lets the
 * command run ahead. 0. */
int command_source_revert(item_record *item);

/* The tree is about to be read. One that is out of date is made anew; what cannot be read is an
 * empty one. */
void command_source_read(item_record *item);

/* pipes.cpp: the tree of what a command has printed; null with errno, as llconf_parse_pipe_in. */
cnfnode *parse_output(llconf_item *lli, const char *command, const command_end &end,
                      const std::string &text);

#endif
