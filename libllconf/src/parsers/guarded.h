#pragma once

#include <cerrno>
#include <new>

namespace llconf {

/* What a parser's function answers: f's result, or -1 with ENOMEM where memory ran out. */
template <class function>
int guarded(function f) {
    try {
        return f();
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
}

}  // namespace llconf
