/* A parser for files of lines such as
 *
 *     # comment
 *     inlet: 235
 *
 * One node a line, name: what stands before the colon, value: what stands behind it. */

#include <llconf/nodes.h>
#include <llconf/parser.h>
#include <string.h>

static const char *comments(const void *data) {
    (void)data;
    return "#";
}

static size_t skip_blanks(const char *text, size_t at, size_t length) {
    while (at < length && (text[at] == ' ' || text[at] == '\t'))
        at++;
    return at;
}

static int read_line(const void *data, struct cnf_reader *reader, int kind, const char *text,
                     size_t length) {
    (void)data;
    (void)kind;
    const char *colon = memchr(text, ':', length);
    if (colon == NULL || colon == text) return 0;
    size_t name_length = (size_t)(colon - text);
    if (strcspn(text, " \t") < name_length) return 0;
    size_t value = skip_blanks(text, name_length + 1, length);
    while (length > value && (text[length - 1] == ' ' || text[length - 1] == '\t'))
        length--;
    if (cnf_read_node(reader, NULL, text, name_length, text + value, length - value) == NULL)
        return -1;
    return 1;
}

static int format_line(const void *data, const struct cnf_format *format) {
    (void)data;
    if (cnf_out_text(format->out, format->node->name) < 0) return -1;
    if (cnf_out_text(format->out, ": ") < 0) return -1;
    return cnf_out_text(format->out, format->node->value);
}

static int accepts(const void *data, int level, const struct cnfnode *parent, const char *name,
                   const char *value) {
    (void)data;
    (void)parent;
    if (level != 1 || *name == '\0' || *name == '#' || strpbrk(name, ": \t") != NULL) return 0;
    if (value == NULL) return 1;
    size_t length = strlen(value);
    return length == 0 ||
           (strchr(" \t", value[0]) == NULL && strchr(" \t", value[length - 1]) == NULL);
}

static const struct cnf_parser k_parser = {
    .version = CNF_PARSER_VERSION,
    .name = "colonfile",
    .comments = comments,
    .read = read_line,
    .format = format_line,
    .accepts = accepts,
};

int cnfmodule_register_colonfile(void);

int cnfmodule_register_colonfile(void) {
    return cnf_register_parser(&k_parser);
}
