#include <algorithm>
#include <cerrno>
#include <new>
#include <string_view>

#include "engine.h"
#include "llconf/nodes.h"
#include "llconf/parser.h"
#include "node_record.h"
#include "parsers/tavconf_scan.h"

/* Where in its file a node stands, for whoever complains of it. */

namespace {

/* The offset of what is asked for within the node's own text. */
size_t offset_in(const cnf_source &source, std::string_view text, long value_at) {
    if (value_at >= 0 && std::string_view{source.parser->name} == "tavconf")
        return llconf::tav_value_source(text, static_cast<size_t>(value_at));
    const size_t begin = text.find_first_not_of(" \t");
    return begin == std::string_view::npos ? 0 : begin;
}

bool begins_character(char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
}

}  // namespace

size_t column_of(std::string_view text, size_t offset) {
    const std::string_view before = text.substr(0, offset);
    const size_t line_end = before.rfind('\n');
    const size_t line_begin = line_end == std::string_view::npos ? 0 : line_end + 1;
    return 1 +
           static_cast<size_t>(std::ranges::count_if(before.substr(line_begin), begins_character));
}

int cnfnode_place(const cnfnode *node, long value_at, cnf_place *place) try {
    const source_text *text = node != nullptr ? record(node)->text() : nullptr;
    if (text == nullptr) {
        errno = EINVAL;
        return -1;
    }
    const std::string_view file{text->source->text, text->source->length};
    const size_t offset =
        text->offset + offset_in(*text->source, file.substr(text->offset, text->head), value_at);
    place->line = 1 + static_cast<size_t>(std::ranges::count(file.substr(0, offset), '\n'));
    place->column = column_of(file, offset);
    return 0;
} catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return -1;
}
