// A parser for files of lines such as
//
//     79927398713,switch,rack 7
//
// One node a line, name: the tag; children "kind" and "place", the second of which takes what is
// left of the line, commas included.

#include <llconf/nodes.h>
#include <llconf/parser.h>

#include <cstring>
#include <string_view>

namespace {

constexpr char k_kind[] = "kind";
constexpr char k_place[] = "place";

const char *comments(const void *) {
    return "#";
}

// Cuts the text before the first comma off the line.
std::string_view take_column(std::string_view &line, bool last) {
    size_t comma = last ? std::string_view::npos : line.find(',');
    std::string_view column = line.substr(0, comma);
    line.remove_prefix(comma == std::string_view::npos ? line.size() : comma + 1);
    return column;
}

int read_line(const void *, cnf_reader *reader, int, const char *text, size_t length) {
    std::string_view line{text, length};
    if (line.find(',') == std::string_view::npos || line[0] == ',') return 0;
    std::string_view tag = take_column(line, false);
    cnfnode *entry = cnf_read_node(reader, nullptr, tag.data(), tag.size(), nullptr, 0);
    if (entry == nullptr) return -1;
    bool has_place = line.find(',') != std::string_view::npos;
    std::string_view kind = take_column(line, false);
    if (cnf_read_key(reader, entry, k_kind, kind.data(), kind.size()) == nullptr) return -1;
    if (!has_place) return 1;
    std::string_view place = take_column(line, true);
    return cnf_read_key(reader, entry, k_place, place.data(), place.size()) == nullptr ? -1 : 1;
}

const cnfnode *child(const cnfnode *node, const char *name) {
    return find_node(node->first_child, name);
}

int format_line(const void *, const cnf_format *format) {
    const cnfnode *kind = child(format->node, k_kind);
    const cnfnode *place = child(format->node, k_place);
    int result = cnf_out_text(format->out, format->node->name);
    result |= cnf_out_text(format->out, ",");
    result |= cnf_out_text(format->out, kind != nullptr ? kind->value : nullptr);
    if (place != nullptr) {
        result |= cnf_out_text(format->out, ",");
        result |= cnf_out_text(format->out, place->value);
    }
    return result == 0 ? 0 : -1;
}

int accepts(const void *, int level, const cnfnode *, const char *name, const char *value) {
    if (level == 1) return *name != '\0' && *name != '#' && strpbrk(name, ", \t") == nullptr;
    if (level == 2 && strcmp(name, k_kind) == 0)
        return value == nullptr || strchr(value, ',') == nullptr;
    return level == 2 && strcmp(name, k_place) == 0;
}

constexpr cnf_parser k_parser = {
    .version = CNF_PARSER_VERSION,
    .name = "assets",
    .options = nullptr,
    .keep_blank_lines = 0,
    .indent = 0,
    .prepare = nullptr,
    .release = nullptr,
    .comments = comments,
    .cut = nullptr,
    .read = read_line,
    .kind_of = nullptr,
    .format = format_line,
    .accepts = accepts,
    .read_tree = nullptr,
    .format_tree = nullptr,
    .counted_names = 0,
};

}  // namespace

extern "C" int cnfmodule_register_assets() {
    return cnf_register_parser(&k_parser);
}
