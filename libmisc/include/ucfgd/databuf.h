#ifndef UCFGD_DATABUF_H
#define UCFGD_DATABUF_H

/* Growable byte buffer with a read start and a write end.
 *
 * Every connection reads into one and replies out of another, and the pipes of child processes fill
 * one each. The content is the bytes from start to end; no NUL follows them.
 *
 *  1. 0 <= start <= end <= size holds before and after every call.
 *  2. The record owns its storage. A pointer into buf is borrowed: the next call that adds,
 * reserves or removes may move it.
 *  3. Lengths are bytes; a negative length counts as 0.
 *  4. Memory exhaustion, and content that would pass INT_MAX bytes, leave the buffer as it was,
 * with errno ENOMEM.
 *  5. The dbuf argument must not be null, except for destroy_databuf.
 */

#ifdef __cplusplus
extern "C" {
#endif

typedef struct databuf {
    char *buf; /* may be null after databuf_steal */
    int size;  /* bytes allocated */
    int start; /* first byte that is not consumed yet */
    int end;   /* one past the last byte */
} databuf;

/* A new buffer with 1024 bytes of storage; null (errno ENOMEM) when memory is exhausted. Released
 * with destroy_databuf. */
databuf *create_databuf(void);

/* Frees storage and record; null is accepted. */
void destroy_databuf(databuf *dbuf);

/* Bytes that wait to be consumed. */
static inline int databuf_pending(const databuf *dbuf) {
    return dbuf->end - dbuf->start;
}

/* Makes room for len more bytes at the end. Returns the free bytes at the end afterwards, which are
 * fewer than len only in the case of rule 4. */
int databuf_reserve(databuf *dbuf, int len);

/* Appends len bytes. Returns 0; -1 in the case of rule 4, and then nothing was appended. */
int databuf_add(databuf *dbuf, const void *data, int len);

/* Consumes len bytes from the front (at most what is there). After more than 8192 consumed bytes
 * the storage shrinks to the content and 1024 bytes. Returns 0. */
int databuf_remove(databuf *dbuf, int len);

/* Hands the storage to the caller, who frees it with free(), and leaves the buffer empty and
 * without storage. The block is handed out from its beginning: steal only what was never consumed
 * from. */
char *databuf_steal(databuf *dbuf);

/* Writes the content with one write() and consumes what was written. Returns the bytes written, 0
 * without a system call when nothing is pending, or the negative result of write with its errno. */
int databuf_flushout(databuf *dbuf, int fd);

/* The same for a socket, with one send() that never waits: a socket that takes nothing now gives -1
 * with EAGAIN, a vanished peer EPIPE and no signal. The storage shrinks when half of it has been
 * consumed. */
int databuf_sendout(databuf *dbuf, int fd);

/* Reads once, at most 1024 bytes, to the end. Returns the result of read(): 0 at the end of the
 * file, negative with errno on an error. */
int databuf_flushin(databuf *dbuf, int fd);

#ifdef __cplusplus
}
#endif

#endif
