#include "ucfgd/databuf.h"

#include <errno.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

/* What this library is made of, for its next owner.
 *
 * The containers and text functions that everything else is built from: byte buffers, lists, the
 * escaping of what crosses the client interface, the clock, and queries of the network interfaces.
 * They know nothing of the daemon and never exit: they return and leave errno. Only the interface
 * queries log, on standard error.
 *
 * A databuf is a window into one block. Consuming moves the window's start and costs nothing; only
 * when room at the end runs out is the content moved to the front, and only after 8 KiB have been
 * consumed is the block cut to what fits, so that a buffer that once held a long reply
 * does not keep its memory for as long as the connection lives. Short requests and replies
 * therefore never copy.
 *
 * The counters are int, as the interface demands. Whatever would push one of them past INT_MAX is
 * refused like exhausted memory.
 */

namespace {

constexpr int k_initial_size = 1024;
constexpr int k_slack = 1024;
constexpr int k_read_chunk = 1024;
constexpr int k_shrink_above = 8192;

/* Moves the window to the block's front. */
void compact(databuf *dbuf) {
    if (!dbuf->buf || dbuf->start == 0) return;
    int pending = databuf_pending(dbuf);
    std::memmove(dbuf->buf, dbuf->buf + dbuf->start, static_cast<size_t>(pending));
    dbuf->start = 0;
    dbuf->end = pending;
}

/* Moves the window to the front of a block that fits it. */
void shrink(databuf *dbuf) {
    compact(dbuf);
    int size = dbuf->end + k_slack;
    if (!dbuf->buf || size >= dbuf->size) return;
    auto *shrunk = static_cast<char *>(std::realloc(dbuf->buf, static_cast<size_t>(size)));
    if (!shrunk) return;
    dbuf->buf = shrunk;
    dbuf->size = size;
}

int free_bytes(const databuf *dbuf) {
    return dbuf->size - dbuf->end;
}

int consumed(databuf *dbuf, ssize_t written) {
    if (written > 0) databuf_remove(dbuf, static_cast<int>(written));
    return static_cast<int>(written);
}

}  // namespace

databuf *create_databuf(void) {
    auto *dbuf = static_cast<databuf *>(std::calloc(1, sizeof(databuf)));
    if (!dbuf) return nullptr;
    dbuf->buf = static_cast<char *>(std::malloc(k_initial_size));
    if (!dbuf->buf) {
        std::free(dbuf);
        return nullptr;
    }
    dbuf->size = k_initial_size;
    return dbuf;
}

void destroy_databuf(databuf *dbuf) {
    if (!dbuf) return;
    std::free(dbuf->buf);
    std::free(dbuf);
}

int databuf_reserve(databuf *dbuf, int len) {
    if (len <= 0 || (dbuf->buf && len <= free_bytes(dbuf))) return free_bytes(dbuf);
    compact(dbuf);
    if (dbuf->buf && len <= free_bytes(dbuf)) return free_bytes(dbuf);
    if (len > INT_MAX - k_slack - dbuf->end) {
        errno = ENOMEM;
        return free_bytes(dbuf);
    }
    int size = dbuf->end + len + k_slack;
    auto *grown = static_cast<char *>(std::realloc(dbuf->buf, static_cast<size_t>(size)));
    if (!grown) return free_bytes(dbuf);
    dbuf->buf = grown;
    dbuf->size = size;
    return free_bytes(dbuf);
}

int databuf_add(databuf *dbuf, const void *data, int len) {
    if (len <= 0) return 0;
    if (databuf_reserve(dbuf, len) < len) return -1;
    std::memcpy(dbuf->buf + dbuf->end, data, static_cast<size_t>(len));
    dbuf->end += len;
    return 0;
}

int databuf_remove(databuf *dbuf, int len) {
    dbuf->start += std::clamp(len, 0, databuf_pending(dbuf));
    if (dbuf->start > k_shrink_above) shrink(dbuf);
    return 0;
}

char *databuf_steal(databuf *dbuf) {
    char *block = dbuf->buf;
    *dbuf = databuf{};
    return block;
}

int databuf_flushout(databuf *dbuf, int fd) {
    int pending = databuf_pending(dbuf);
    if (pending == 0) return 0;
    return consumed(dbuf, write(fd, dbuf->buf + dbuf->start, static_cast<size_t>(pending)));
}

int databuf_sendout(databuf *dbuf, int fd) {
    int pending = databuf_pending(dbuf);
    if (pending == 0) return 0;
    ssize_t sent = send(fd, dbuf->buf + dbuf->start, static_cast<size_t>(pending),
                        MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent <= 0) return static_cast<int>(sent);
    /* A socket takes a long reply in many pieces. Each byte of it is moved once at most. */
    dbuf->start += static_cast<int>(sent);
    if (dbuf->start > k_shrink_above && dbuf->start >= databuf_pending(dbuf)) shrink(dbuf);
    return static_cast<int>(sent);
}

int databuf_flushin(databuf *dbuf, int fd) {
    if (databuf_reserve(dbuf, k_read_chunk) < k_read_chunk) return -1;
    ssize_t got = read(fd, dbuf->buf + dbuf->end, k_read_chunk);
    if (got > 0) dbuf->end += static_cast<int>(got);
    return static_cast<int>(got);
}
