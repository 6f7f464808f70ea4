#include "daemon/trace.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "daemon/log.h"
#include "ucfgd/owners.h"

volatile int g_debug_level = 0;

namespace {

constexpr size_t k_text_size = 16384;

[[gnu::noinline]] __attribute__((format(printf, 1, 0))) void print(const char *format,
                                                                   va_list arguments) {
    errno_guard keep;
    char text[k_text_size];
    const int length = vsnprintf(text, sizeof text, format, arguments);
    if (length <= 0) return;
    const size_t size = std::min(static_cast<size_t>(length), sizeof text - 1);
    if (static_cast<size_t>(length) > size) text[size - 1] = '\n';
    fflush(stdout); /* what was printed otherwise keeps its place */
    log_text(1, text, size);
}

}  // namespace

/* Nearly always silent: the room for a line is taken where there is one. */
void trace(int level, const char *format, ...) {
    if (g_debug_level <= level) return;
    va_list arguments;
    va_start(arguments, format);
    print(format, arguments);
    va_end(arguments);
}
