#include "plain_hosts.h"

#include <fcntl.h>
#include <limits.h>
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

void plain_keep_memory(void) {
    mallopt(M_TRIM_THRESHOLD, INT_MAX);
    mallopt(M_MMAP_MAX, 0);
}

static char *copy_text(const char *text, size_t length) {
    char *copy = malloc(length + 1);
    if (copy == NULL) return NULL;
    memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

static struct plain_node *new_node(const char *name, size_t name_length, const char *value,
                                   size_t value_length) {
    struct plain_node *node = calloc(1, sizeof *node);
    if (node == NULL) return NULL;
    node->name = copy_text(name, name_length);
    if (value != NULL) node->value = copy_text(value, value_length);
    return node;
}

/* The next word of a line; its length, 0 at the end or at a comment. */
static size_t next_word(const char **at, const char *end, const char **word) {
    const char *p = *at;
    while (p < end && (*p == ' ' || *p == '\t'))
        p++;
    *word = p;
    while (p < end && *p != ' ' && *p != '\t' && *p != '#')
        p++;
    *at = p;
    return (size_t)(p - *word);
}

static struct plain_node *parse_line(const char *line, const char *end) {
    const char *word;
    size_t length = next_word(&line, end, &word);
    if (length == 0) return NULL;
    struct plain_node *entry = new_node(word, length, NULL, 0);
    if (entry == NULL) return NULL;
    struct plain_node **link = &entry->first_child;
    const char *name = "name";
    while ((length = next_word(&line, end, &word)) > 0) {
        struct plain_node *node = new_node(name, strlen(name), word, length);
        if (node == NULL) break;
        node->parent = entry;
        *link = node;
        link = &node->next;
        name = "alias";
    }
    return entry;
}

static struct plain_node *parse_text(const char *text, size_t length) {
    struct plain_node *root = new_node("(root)", 6, NULL, 0);
    if (root == NULL) return NULL;
    struct plain_node **link = &root->first_child;
    const char *end = text + length;
    while (text < end) {
        const char *newline = memchr(text, '\n', (size_t)(end - text));
        if (newline == NULL) newline = end;
        struct plain_node *entry = parse_line(text, newline);
        if (entry != NULL) {
            entry->parent = root;
            *link = entry;
            link = &entry->next;
        }
        text = newline + 1;
    }
    return root;
}

struct plain_node *plain_parse_file(const char *path) {
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return NULL;
    struct stat st;
    struct plain_node *root = NULL;
    char *text = fstat(fd, &st) == 0 ? malloc((size_t)st.st_size + 1) : NULL;
    if (text != NULL) {
        ssize_t got = read(fd, text, (size_t)st.st_size);
        if (got >= 0) root = parse_text(text, (size_t)got);
    }
    free(text);
    close(fd);
    return root;
}

static size_t text_length(const struct plain_node *root) {
    size_t length = 0;
    for (const struct plain_node *entry = root->first_child; entry != NULL; entry = entry->next) {
        length += strlen(entry->name) + 1;
        for (const struct plain_node *word = entry->first_child; word != NULL; word = word->next)
            length += strlen(word->value) + 1;
    }
    return length;
}

static char *add_text(char *to, const char *text, char behind) {
    size_t length = strlen(text);
    memcpy(to, text, length);
    to[length] = behind;
    return to + length + 1;
}

char *plain_format(const struct plain_node *root, size_t *length) {
    *length = text_length(root);
    char *text = malloc(*length + 1);
    if (text == NULL) return NULL;
    char *p = text;
    for (const struct plain_node *entry = root->first_child; entry != NULL; entry = entry->next) {
        p = add_text(p, entry->name, '\t');
        for (const struct plain_node *word = entry->first_child; word != NULL; word = word->next)
            p = add_text(p, word->value, word->next != NULL ? ' ' : '\n');
    }
    return text;
}

static int write_all(int fd, const char *text, size_t length) {
    while (length > 0) {
        ssize_t written = write(fd, text, length);
        if (written < 0) return -1;
        text += written;
        length -= (size_t)written;
    }
    return 0;
}

static int sync_directory(const char *directory) {
    int fd = open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return -1;
    int result = fsync(fd);
    close(fd);
    return result;
}

int plain_replace_file(const struct plain_node *root, const char *directory, const char *name) {
    char path[4096];
    char temporary[4096 + 8];
    size_t length;
    snprintf(path, sizeof path, "%s/%s", directory, name);
    snprintf(temporary, sizeof temporary, "%s.new", path);
    char *text = plain_format(root, &length);
    if (text == NULL) return -1;
    int fd = open(temporary, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    int result = fd < 0 ? -1 : write_all(fd, text, length);
    free(text);
    if (result == 0) result = fsync(fd);
    if (fd >= 0 && close(fd) != 0) result = -1;
    if (result == 0) result = rename(temporary, path);
    return result == 0 ? sync_directory(directory) : -1;
}

void plain_free(struct plain_node *node) {
    while (node != NULL) {
        struct plain_node *next = node->next;
        plain_free(node->first_child);
        free(node->name);
        free(node->value);
        free(node);
        node = next;
    }
}
