#include "daemon/trace.h"

#include <cstdarg>
#include <cstdio>

#include "ucfgd/owners.h"

volatile int g_debug_level = 0;

void trace(int level, const char *format, ...) {
    if (g_debug_level <= level) return;
    errno_guard keep;
    va_list arguments;
    va_start(arguments, format);
    vprintf(format, arguments);
    va_end(arguments);
    fflush(stdout);
}
