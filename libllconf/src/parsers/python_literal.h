/* Python string literals: single quotes, UTF-8 as it is, everything that is not printable escaped.
 * A byte that is not UTF-8 is a lone surrogate, as Python itself shows one. */
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace llconf {

void python_write_literal(std::string_view text, std::string &out);

/* Reads a literal at pos and moves pos behind it. False, with pos at the fault: it is none, or not
 * spelt the way python_write_literal spells it. */
bool python_read_literal(std::string_view text, std::size_t &pos, std::string &out);

}  // namespace llconf
