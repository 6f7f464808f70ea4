#include <cstring>

#include "llconf/nodes.h"
#include "llconf/parser.h"

/* Any text: one node `line` per line, blank ones too. */

namespace {

constexpr const char *k_line = "line";

int read_line(const void *, cnf_reader *reader, int, const char *text, size_t length) {
    return cnf_read_key(reader, nullptr, k_line, text, length) != nullptr ? 1 : -1;
}

int format_line(const void *, const cnf_format *format) {
    return cnf_out_text(format->out, format->node->value);
}

int accepts_line(const void *, int level, const cnfnode *, const char *name, const char *) {
    return level == 1 && std::strcmp(name, k_line) == 0 ? 1 : 0;
}

constexpr cnf_parser make_parser() {
    cnf_parser parser{};
    parser.version = CNF_PARSER_VERSION;
    parser.name = "lines";
    parser.keep_blank_lines = 1;
    parser.read = read_line;
    parser.format = format_line;
    parser.accepts = accepts_line;
    return parser;
}

constexpr cnf_parser k_lines = make_parser();

}  // namespace

int cnfmodule_register_lines(void) {
    return cnf_register_parser(&k_lines);
}
