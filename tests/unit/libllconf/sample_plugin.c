#include <string.h>

#include "llconf/nodes.h"
#include "llconf/parser.h"

/* A parser in C: lines of the form "!NAME", everything else cannot be read. */

static int read_mark(const void *data, struct cnf_reader *reader, int kind, const char *text,
                     size_t length) {
    (void)data;
    (void)kind;
    if (text[0] != '!' || length < 2) return 0;
    return cnf_read_node(reader, NULL, text + 1, length - 1, NULL, 0) != NULL ? 1 : -1;
}

/* Writes names as they are, so that the engine has to find out what does not read back. */
static int format_mark(const void *data, const struct cnf_format *format) {
    (void)data;
    if (cnf_out_text(format->out, "!") < 0) return -1;
    return cnf_out_text(format->out, format->node->name);
}

static int accepts_mark(const void *data, int level, const struct cnfnode *parent, const char *name,
                        const char *value) {
    (void)data;
    (void)parent;
    (void)name;
    return level == 1 && value == NULL;
}

static const struct cnf_parser k_marks = {.version = CNF_PARSER_VERSION,
                                          .name = "marks",
                                          .read = read_mark,
                                          .format = format_mark,
                                          .accepts = accepts_mark};

int cnfmodule_register_marks(void);

int cnfmodule_register_marks(void) {
    return cnf_register_parser(&k_marks);
}
