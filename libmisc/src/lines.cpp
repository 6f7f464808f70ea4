#include "ucfgd/lines.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "ucfgd/owners.h"
#include "ucfgd/slist.h"

static_assert(offsetof(struct line, next) == 0);

namespace {

constexpr size_t k_read_size = 4095;
constexpr size_t k_convert_size = 4096;

bool is_dropped(char c) {
    return static_cast<unsigned char>(c) < 32 && c != '\t';
}

/* One line of a block: copies without control characters up to a NUL, a newline, max_len - 1 copied
 * characters or the end of the block, and the newline too when it fits. Moves pos and buf_size past
 * what was consumed and returns how much that was. */
size_t getline(const char *&pos, size_t &buf_size, char *dst, size_t max_len) {
    size_t used = 0;
    size_t copied = 0;
    while (used < buf_size && copied < max_len - 1) {
        char c = pos[used];
        if (c == '\0') break;
        if (c == '\n') {
            dst[copied++] = c;
            used++;
            break;
        }
        if (!is_dropped(c)) dst[copied++] = c;
        used++;
    }
    dst[copied] = '\0';
    pos += used;
    buf_size -= used;
    return used;
}

}  // namespace

struct line *create_line(const char *text) {
    auto *l = static_cast<struct line *>(std::calloc(1, sizeof(struct line)));
    if (!l || !text) return l;
    l->line = strdup(text);
    if (l->line) return l;
    std::free(l);
    return nullptr;
}

void destroy_line(struct line *l) {
    if (!l) return;
    std::free(l->line);
    std::free(l);
}

void destroy_line_list(struct line *list) {
    for (struct line *l : removal_safe(list))
        destroy_line(l);
}

struct line *append_line(struct line *list, struct line *l) {
    return slist_append(list, l);
}

struct line *prepend_line(struct line *list, struct line *l) {
    return slist_prepend(list, l);
}

int line_setval(struct line *l, const char *value) {
    char *copy = nullptr;
    if (value) {
        copy = strdup(value);
        if (!copy) return -1;
    }
    std::free(l->line);
    l->line = copy;
    return 0;
}

struct line *read_lines(FILE *file) {
    list_builder<struct line> lines;
    char buffer[k_read_size];
    while (fgets(buffer, sizeof buffer, file)) {
        struct line *l = create_line(buffer);
        if (!l) break;
        lines.append(l);
    }
    return lines.release();
}

struct line *convert_lines(const char *buf, size_t size) {
    list_builder<struct line> lines;
    char buffer[k_convert_size];
    while (size > 0 && *buf != '\0') {
        if (getline(buf, size, buffer, sizeof buffer) == 0) break;
        struct line *l = create_line(buffer);
        if (!l) break;
        lines.append(l);
    }
    return lines.release();
}
