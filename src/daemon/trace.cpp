#include "daemon/trace.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "daemon/log.h"
#include "ucfgd/owners.h"

volatile int g_debug_level = 0;

namespace {

constexpr size_t k_text_size = 16384;

}  // namespace

void trace(int level, const char *format, ...) {
    if (g_debug_level <= level) return;
    errno_guard keep;
    char text[k_text_size];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (length <= 0) return;
    const size_t size = std::min(static_cast<size_t>(length), sizeof text - 1);
    if (static_cast<size_t>(length) > size) text[size - 1] = '\n';
    fflush(stdout); /* what was printed otherwise keeps its place */
    log_text(1, text, size);
}
