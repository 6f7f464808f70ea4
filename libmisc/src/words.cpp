#include "ucfgd/words.h"

#include <algorithm>
#include <cstring>

namespace {

bool is_white(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

/* Nearly all characters are above the blank. */
bool ends_word(char c) {
    return static_cast<unsigned char>(c) <= ' ' && (c == '\0' || is_white(c));
}

}  // namespace

size_t dup_next_word_b(const char **position, char *buffer, size_t size) {
    const char *word = *position;
    while (is_white(*word))
        word++;
    const char *end = word;
    while (!ends_word(*end))
        end++;
    size_t copied = std::min(static_cast<size_t>(end - word), size - 1);
    std::memcpy(buffer, word, copied);
    buffer[copied] = '\0';
    *position = end;
    return copied;
}
