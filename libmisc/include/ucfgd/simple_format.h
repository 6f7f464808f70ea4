#ifndef UCFGD_SIMPLE_FORMAT_H
#define UCFGD_SIMPLE_FORMAT_H

#ifndef __cplusplus
#    error "simple_format.h is for C++ sources"
#endif

#include <charconv>
#include <cstdarg>
#include <cstring>
#include <string_view>

/* Formats a text whose directives are %s and %d alone, which nearly all replies and log lines are:
 * printf takes many times as long. What stands in the format goes to out.literal, what the
 * arguments bring to out.inserted. False at another directive: then out has a part of the text. */
template <class output>
bool format_simple(output &out, const char *format, va_list args) {
    while (*format != '\0') {
        const char *percent = strchrnul(format, '%');
        out.literal(std::string_view{format, static_cast<size_t>(percent - format)});
        if (*percent == '\0') return true;
        if (percent[1] == 's') {
            const char *text = va_arg(args, const char *);
            out.inserted(std::string_view{text ? text : "(null)"});
        } else if (percent[1] == 'd') {
            char digits[16];
            const char *end = std::to_chars(digits, digits + sizeof digits, va_arg(args, int)).ptr;
            out.literal(std::string_view{digits, static_cast<size_t>(end - digits)});
        } else {
            return false;
        }
        format = percent + 2;
    }
    return true;
}

#endif
