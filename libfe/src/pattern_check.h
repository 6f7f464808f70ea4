#ifndef FE_PATTERN_CHECK_H
#define FE_PATTERN_CHECK_H

#include <string_view>

namespace fe {

// Whether a regular expression may be handed to the C library: at most 1,000 characters,
// repetitions that multiply to at most 1,000, no back-references, and small enough once it is
// written out.
bool pattern_is_harmless(std::string_view pattern);

}  // namespace fe

#endif
