#include "tree/definition.h"

#include <libdaemon/dlog.h>
#include <syslog.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <utility>
#include <vector>

#include "daemon/log.h"
#include "fe/parse.h"
#include "llconf/modules.h"
#include "ucfgd/nearest.h"
#include "ucfgd/owners.h"

bool g_only_checking = false;

namespace {

constexpr size_t k_line_size = 4096;

const char *g_file = nullptr;
const cnfnode *g_entry = nullptr;
size_t g_complaints = 0;

/* The byte that a character of a text begins at. */
size_t byte_of_character(std::string_view text, size_t character) {
    size_t at = 0;
    for (; at < text.size(); at++) {
        if ((static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U) continue;
        if (character-- == 0) break;
    }
    return at;
}

void log_at(int priority, long value_at, const char *text) {
    errno_guard keep;
    try {
        daemon_log(priority, "%s%s", reading_place(value_at).c_str(), text);
    } catch (const std::bad_alloc &) {
        daemon_log(priority, "%s", text);
    }
}

/* A line that says itself where it belongs gets its column at most. */
std::string with_place(std::string_view text) {
    const std::string file = std::string{g_file ? g_file : ""} + ':';
    if (!g_file || !text.starts_with(file)) return reading_place().append(text);
    std::string line{text};
    if (text == cnf_error_text() && cnf_error_column() > 0)
        line.insert(text.find(':', file.size()), ':' + std::to_string(cnf_error_column()));
    return line;
}

bool print_complaint(int priority, const char *text) {
    if (priority > LOG_WARNING) return true;
    g_complaints++;
    std::string line;
    try {
        line = with_place(text) + "\n";
    } catch (const std::bad_alloc &) {
        line = "out of memory\n";
    }
    log_text(2, line.data(), line.size());
    return true;
}

/* The next name of a path, taken off it. */
std::string_view take_name(std::string_view &path) {
    const size_t end = path.find('/');
    const std::string_view name = path.substr(0, end);
    path = end == std::string_view::npos ? std::string_view{} : path.substr(end + 1);
    return name;
}

using path_list = std::vector<std::string_view>;

/* The rest of the paths that go on with that name. */
path_list below(const path_list &paths, std::string_view name, bool &found) {
    path_list rest;
    for (std::string_view path : paths) {
        const std::string_view first = take_name(path);
        if (first == name || (first == "*" && !name.ends_with(':'))) {
            found = true;
            if (!path.empty()) rest.push_back(path);
        }
    }
    return rest;
}

void look_for_unknown(const cnfnode *parent, const path_list &paths) {
    for (const cnfnode *entry = parent->first_child; entry; entry = entry->next) {
        const std::string_view name = entry->name;
        if (name.starts_with('.')) continue;
        bool found = false;
        const path_list rest = below(paths, name, found);
        if (found) {
            look_for_unknown(entry, rest);
            continue;
        }
        path_list names;
        for (std::string_view path : paths)
            names.push_back(take_name(path));
        complain_of_unknown(entry, names);
    }
}

}  // namespace

reading_file::reading_file(const char *name)
    : file_before_(std::exchange(g_file, name)), entry_before_(std::exchange(g_entry, nullptr)) {}

reading_file::~reading_file() {
    g_file = file_before_;
    g_entry = entry_before_;
}

reading_entry::reading_entry(const cnfnode *entry) : before_(std::exchange(g_entry, entry)) {}

reading_entry::~reading_entry() {
    g_entry = before_;
}

const cnfnode *reading_now() {
    return g_entry;
}

std::string reading_place(long value_at) {
    if (!g_file) return {};
    cnf_place place{};
    if (!g_entry || cnfnode_place(g_entry, value_at, &place) != 0)
        return std::string{g_file} + ": ";
    return std::string{g_file} + ':' + std::to_string(place.line) + ':' +
           std::to_string(place.column) + ": ";
}

void complain(int priority, const char *format, ...) {
    char text[k_line_size];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    log_at(priority, -1, text);
}

void complain_of_expression(const char *error_text) {
    constexpr std::string_view k_column = "column ";
    const std::string_view text = error_text;
    long at = -1;
    char *behind = nullptr;
    if (g_file && g_entry && g_entry->value && text.starts_with(k_column)) {
        const unsigned long column = std::strtoul(error_text + k_column.size(), &behind, 10);
        at = static_cast<long>(byte_of_character(g_entry->value, column > 0 ? column - 1 : 0));
    }
    log_at(LOG_ERR, at, error_text);
}

void complain_of_silent() {
    if (g_only_checking)
        complain_of_expression(errno == ENOMEM ? "out of memory" : fe_error_text());
}

void complain_of_no_number(const char *value) {
    const std::string_view text = value;
    const bool number = !text.empty() && text.find_first_not_of("0123456789") == text.npos;
    if (g_only_checking && !number) complain(LOG_WARNING, "Warning: '%s' is no number", value);
}

void complain_of_unknown(const cnfnode *entry, std::span<const std::string_view> known) {
    const reading_entry here{entry};
    try {
        const std::string near{nearest_word(entry->name, known)};
        complain(LOG_WARNING, "Warning: '%s' is unknown and has no effect%s%s%s", entry->name,
                 near.empty() ? "" : "; did you mean '", near.c_str(), near.empty() ? "" : "'?");
    } catch (const std::bad_alloc &) {
        complain(LOG_WARNING, "Warning: '%s' is unknown and has no effect", entry->name);
    }
}

void complain_of_unknown_paths(const cnfnode *root, std::span<const std::string_view> paths) {
    try {
        look_for_unknown(root, {paths.begin(), paths.end()});
    } catch (const std::bad_alloc &) {
        complain(LOG_WARNING, "Warning: not looked at for what is unknown: out of memory");
    }
}

void check_begin() {
    g_only_checking = true;
    log_set_observer(print_complaint);
}

size_t check_complaints() {
    return g_complaints;
}
