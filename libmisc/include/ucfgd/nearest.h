#ifndef UCFGD_NEAREST_H
#define UCFGD_NEAREST_H

#ifndef __cplusplus
#    error "nearest.h is for C++ sources"
#endif

#include <cstddef>
#include <span>
#include <string_view>

/* How many slips of the pen (a character wrong, missing, too many, two exchanged) lead from one
 * word to the other. May throw std::bad_alloc. */
std::size_t count_slips(std::string_view a, std::string_view b);

/* The known word that was probably meant: the one that the fewest slips lead to, the first
 * of several, if they are few for a word of its length. Otherwise empty. May throw std::bad_alloc.
 */
std::string_view nearest_word(std::string_view word, std::span<const std::string_view> known);

#endif
