#ifndef BENCH_PLAIN_HOSTS_H
#define BENCH_PLAIN_HOSTS_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The floor under reading and writing a hosts file: what a program does that has this one file to
 * do and nothing else. A node, its name and its value are one malloc each; comments are skipped,
 * nothing is checked, nothing can be found by name. */

struct plain_node {
    struct plain_node *next;
    struct plain_node *first_child;
    struct plain_node *parent;
    char *name;
    char *value; /* null for none */
};

/* Makes malloc keep what has been freed, so that a tree which is made again and again finds its
 * memory there: what fresh pages cost is no part of the floor. */
void plain_keep_memory(void);

/* Reads the file; null with errno. Freed with plain_free. */
struct plain_node *plain_parse_file(const char *path);

/* The text of the tree, *length bytes; freed by the caller; null with ENOMEM. */
char *plain_format(const struct plain_node *root, size_t *length);

/* Formats the tree and replaces the file for good: temporary file, fsync, rename, fsync of the
 * directory. 0, or -1 with errno. */
int plain_replace_file(const struct plain_node *root, const char *directory, const char *name);

void plain_free(struct plain_node *node);

#ifdef __cplusplus
}
#endif

#endif
