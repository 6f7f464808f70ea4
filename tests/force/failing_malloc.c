/* Preloaded into the daemon: lets one allocation fail, the one of a given number.
 *
 * The file that FAILING_MALLOC names holds three 64-bit numbers, which whoever tests the daemon
 * maps too: how many allocations there were since it was set to 0, the number of the one that fails
 * (0 for none), and how many have failed. Children count along; programs that they start do not. */

#include <errno.h>
#include <fcntl.h>
#include <stdatomic.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

enum { k_count, k_fail_at, k_failed, k_numbers };

void *__libc_malloc(size_t size);
void *__libc_calloc(size_t number, size_t size);
void *__libc_realloc(void *memory, size_t size);
void *__libc_memalign(size_t alignment, size_t size);

static _Atomic uint64_t *g_numbers;

__attribute__((constructor)) static void set_up(void) {
    const char *name = getenv("FAILING_MALLOC");
    int fd = name ? open(name, O_RDWR | O_CLOEXEC) : -1;
    unsetenv("LD_PRELOAD");
    if (fd < 0) return;
    void *memory =
        mmap(NULL, k_numbers * sizeof(uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (memory != MAP_FAILED) g_numbers = memory;
}

static int fails(void) {
    if (!g_numbers || ++g_numbers[k_count] != g_numbers[k_fail_at]) return 0;
    g_numbers[k_failed]++;
    errno = ENOMEM;
    return 1;
}

void *malloc(size_t size) {
    return fails() ? NULL : __libc_malloc(size);
}

void *calloc(size_t number, size_t size) {
    return fails() ? NULL : __libc_calloc(number, size);
}

void *realloc(void *memory, size_t size) {
    return fails() ? NULL : __libc_realloc(memory, size);
}

void *aligned_alloc(size_t alignment, size_t size) {
    return fails() ? NULL : __libc_memalign(alignment, size);
}

int posix_memalign(void **memory, size_t alignment, size_t size) {
    void *made = fails() ? NULL : __libc_memalign(alignment, size);
    if (!made) return ENOMEM;
    *memory = made;
    return 0;
}
