#include "ucfgd/words.h"

namespace {

bool is_white(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

}  // namespace

size_t dup_next_word_b(const char **position, char *buffer, size_t size) {
    const char *text = *position;
    size_t copied = 0;
    while (is_white(*text))
        text++;
    for (; *text != '\0' && !is_white(*text); text++)
        if (copied + 1 < size) buffer[copied++] = *text;
    buffer[copied] = '\0';
    *position = text;
    return copied;
}
