#ifndef FE_PATTERN_CHECK_H
#define FE_PATTERN_CHECK_H

#include <cstddef>
#include <string_view>

namespace fe {

// The size of a regular expression once its repetitions are written out, or 0 when the C library
// must not get it: it has more than 1,000 characters, repetitions that multiply to more than 1,000,
// or back-references, or that size is out of reason.
size_t measure_pattern(std::string_view pattern);

}  // namespace fe

#endif
