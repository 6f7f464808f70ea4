#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "engine.h"
#include "ucfgd/owners.h"

namespace {

constexpr size_t k_error_size = 4096 + 512; /* a path and a reason */

std::array<char, k_error_size> g_error_text;
size_t g_error_column = 0;
llconf_report g_report = nullptr;
void *g_report_data = nullptr;

}  // namespace

int set_error(int error, std::string_view label, size_t line, std::string_view what) {
    auto width = [](std::string_view text) { return static_cast<int>(text.size()); };
    if (line > 0) {
        std::snprintf(g_error_text.data(), k_error_size, "%.*s:%zu: %.*s", width(label),
                      label.data(), line, width(what), what.data());
    } else {
        std::snprintf(g_error_text.data(), k_error_size, "%.*s: %.*s", width(label), label.data(),
                      width(what), what.data());
    }
    for (char *c = g_error_text.data(); *c != '\0'; c++) {
        if (static_cast<unsigned char>(*c) < ' ' || *c == '\x7f') *c = '?';
    }
    g_error_column = 0;
    errno = error;
    return -1;
}

std::string_view errno_text() {
    const char *text = strerrordesc_np(errno);
    return text != nullptr ? text : "unknown error";
}

void report(int priority, const std::string &text) {
    errno_guard keep;
    if (g_report != nullptr) g_report(priority, text.c_str(), g_report_data);
}

void set_error_column(size_t column) {
    g_error_column = column;
}

size_t cnf_error_column(void) {
    return g_error_column;
}

const char *cnf_error_text(void) {
    return g_error_text.data();
}

void llconf_set_report(llconf_report handler, void *data) {
    g_report = handler;
    g_report_data = data;
}
