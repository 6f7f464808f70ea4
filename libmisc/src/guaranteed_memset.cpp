#include "ucfgd/guaranteed_memset.h"

void *guaranteed_memset(void *v, int c, size_t n) {
    auto *bytes = static_cast<volatile unsigned char *>(v);
    for (size_t i = 0; i < n; i++)
        bytes[i] = static_cast<unsigned char>(c);
    return v;
}
