#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "engine.h"
#include "ucfgd/owners.h"

/* Files, streams and memory, in and out. All of a text is in memory before it is parsed, and all of
 * it is planned before the first byte is written. */

namespace {

constexpr size_t k_first_buffer = 16384;
constexpr size_t k_runs_at_once = 64;
static_assert(k_runs_at_once <= IOV_MAX);

int fail_with_errno(std::string_view label) {
    return set_error(errno, label, 0, errno_text());
}

/* A growing buffer that a parse takes over. */
struct text_buffer {
    owned_str text;
    size_t size = 0;
    size_t length = 0;

    /* Room for one byte more at least; one behind it stays free. False with ENOMEM or EFBIG. */
    bool reserve(size_t wanted) {
        if (length > k_max_file) {
            errno = EFBIG;
            return false;
        }
        if (wanted + 1 <= size) return true;
        size_t bigger = std::max(wanted + 1, std::min(size * 2, k_max_file + 2));
        auto *memory = static_cast<char *>(std::realloc(text.get(), bigger));
        if (memory == nullptr) return false;
        (void)text.release();
        text.reset(memory);
        size = bigger;
        return true;
    }

    char *finish() {
        text.get()[length] = '\0';
        if (size - length > k_first_buffer) {
            if (void *smaller = std::realloc(text.get(), length + 1)) {
                (void)text.release();
                return static_cast<char *>(smaller);
            }
        }
        return text.release();
    }
};

/* Does not wait for a named pipe's other end. */
unique_fd open_source(const char *path) {
    unique_fd fd{open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK)};
    if (fd && fcntl(fd.get(), F_SETFL, O_RDONLY) < 0) fd.reset();
    return fd;
}

bool read_descriptor(int fd, size_t expected, text_buffer &buffer) {
    if (expected > k_max_file) {
        errno = EFBIG;
        return false;
    }
    if (!buffer.reserve(expected + 1)) return false;
    while (true) {
        if (!buffer.reserve(buffer.length + 1)) return false;
        ssize_t got = read(fd, buffer.text.get() + buffer.length, buffer.size - buffer.length - 1);
        if (got == 0) return true;
        if (got > 0) {
            buffer.length += static_cast<size_t>(got);
        } else if (errno != EINTR) {
            return false;
        }
    }
}

bool read_stream(FILE *stream, text_buffer &buffer) {
    if (!buffer.reserve(k_first_buffer)) return false;
    while (true) {
        if (!buffer.reserve(buffer.length + 1)) return false;
        size_t room = buffer.size - buffer.length - 1;
        size_t got = std::fread(buffer.text.get() + buffer.length, 1, room, stream);
        buffer.length += got;
        if (got < room) return std::ferror(stream) == 0;
    }
}

cnfnode *parse_buffer(const cnfmodule *module, std::string_view label, text_buffer &buffer) {
    size_t length = buffer.length;
    try {
        return parse_owned_text(module, label, buffer.finish(), length);
    } catch (const std::bad_alloc &) {
        set_error(ENOMEM, label, 0, "Cannot allocate memory");
        return nullptr;
    }
}

int write_vector(int fd, iovec *vector, int count) {
    while (count > 0) {
        ssize_t done = writev(fd, vector, count);
        if (done < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        auto left = static_cast<size_t>(done);
        for (; count > 0 && left >= vector->iov_len; vector++, count--)
            left -= vector->iov_len;
        if (count == 0) break;
        vector->iov_base = static_cast<char *>(vector->iov_base) + left;
        vector->iov_len -= left;
    }
    return 0;
}

int write_runs(int fd, const written_text &out) {
    std::array<iovec, k_runs_at_once> vector{};
    for (size_t done = 0; done < out.runs.size();) {
        size_t count = std::min(k_runs_at_once, out.runs.size() - done);
        for (size_t i = 0; i < count; i++) {
            const text_run &run = out.runs[done + i];
            vector[i] = {const_cast<char *>(out.at(run)), run.length};
        }
        if (write_vector(fd, vector.data(), static_cast<int>(count)) < 0) return -1;
        done += count;
    }
    return 0;
}

/* What is no file on a disk says EINVAL or the like: there is nothing to sync. */
int sync_descriptor(int fd) {
    errno_guard keep;
    while (fsync(fd) < 0) {
        if (errno == EINTR) continue;
        if (errno == EINVAL || errno == EROFS || errno == ENOTSUP) return 0;
        return errno;
    }
    return 0;
}

int write_descriptor(int fd, std::string_view label, const written_text &out) {
    if (write_runs(fd, out) < 0) return fail_with_errno(label);
    int error = sync_descriptor(fd);
    if (error == 0) return 0;
    errno = error;
    return fail_with_errno(label);
}

bool plan(const cnfmodule *module, std::string_view label, const cnfnode *tree, written_text &out) {
    int before = std::exchange(errno, 0);
    refusal refused;
    try {
        if (write_tree(module, record(tree), out, refused)) {
            errno = before;
            return true;
        }
        set_error(errno, label, 0, refused.why);
    } catch (const std::bad_alloc &) {
        set_error(ENOMEM, label, 0, "Cannot allocate memory");
    }
    return false;
}

int no_argument(std::string_view label) {
    errno = EINVAL;
    return fail_with_errno(label);
}

}  // namespace

cnfnode *cnfmodule_parse(const cnfmodule *module, FILE *stream) {
    if (module == nullptr || stream == nullptr) {
        no_argument(module != nullptr ? module->name : "stream");
        return nullptr;
    }
    int before = errno;
    text_buffer buffer;
    if (!read_stream(stream, buffer)) {
        fail_with_errno(module->name);
        return nullptr;
    }
    errno = before;
    return parse_buffer(module, module->name, buffer);
}

cnfnode *cnfmodule_parse_file(const cnfmodule *module, const char *path) {
    if (path == nullptr && module != nullptr) path = module->default_file;
    if (module == nullptr || path == nullptr) {
        no_argument(module != nullptr ? module->name : "file");
        return nullptr;
    }
    int before = errno;
    unique_fd fd{open_source(path)};
    if (!fd) {
        fail_with_errno(path);
        return nullptr;
    }
    errno = before;
    return cnfmodule_parse_fd(module, path, fd.get());
}

cnfnode *cnfmodule_parse_fd(const cnfmodule *module, const char *label, int fd) {
    if (module == nullptr) {
        no_argument("descriptor");
        return nullptr;
    }
    if (label == nullptr) label = module->name;
    int before = errno;
    text_buffer buffer;
    struct stat status {};
    bool known = fstat(fd, &status) == 0;
    size_t expected = 0;
    if (known && status.st_size > 0) {
        expected = static_cast<size_t>(std::min<off_t>(status.st_size, k_max_file + 1));
    }
    if (!known || !read_descriptor(fd, expected, buffer)) {
        fail_with_errno(label);
        return nullptr;
    }
    errno = before;
    return parse_buffer(module, label, buffer);
}

cnfnode *cnfmodule_parse_text(const cnfmodule *module, const char *label, const char *text,
                              size_t length) {
    if (module == nullptr || (text == nullptr && length > 0)) {
        no_argument(module != nullptr ? module->name : "text");
        return nullptr;
    }
    std::string_view name = label != nullptr ? label : module->name;
    text_buffer buffer;
    if (!buffer.reserve(length)) {
        fail_with_errno(name);
        return nullptr;
    }
    if (length > 0) std::memcpy(buffer.text.get(), text, length);
    buffer.length = length;
    return parse_buffer(module, name, buffer);
}

int cnfmodule_unparse(const cnfmodule *module, FILE *stream, const cnfnode *tree) {
    if (module == nullptr || stream == nullptr || tree == nullptr) return no_argument("stream");
    written_text out;
    if (!plan(module, module->name, tree, out)) return -1;
    for (const text_run &run : out.runs) {
        if (std::fwrite(out.at(run), 1, run.length, stream) != run.length) {
            return fail_with_errno(module->name);
        }
    }
    return std::fflush(stream) == 0 ? 0 : fail_with_errno(module->name);
}

int cnfmodule_unparse_file(const cnfmodule *module, const char *path, const cnfnode *tree) {
    if (path == nullptr && module != nullptr) path = module->default_file;
    if (module == nullptr || path == nullptr || tree == nullptr) return no_argument("file");
    written_text out;
    if (!plan(module, path, tree, out)) return -1;
    unique_fd fd{open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, 0600)};
    if (!fd) return fail_with_errno(path);
    if (write_descriptor(fd.get(), path, out) < 0) return -1;
    return fd.close_now() == 0 ? 0 : fail_with_errno(path);
}

int cnfmodule_unparse_fd(const cnfmodule *module, int fd, const cnfnode *tree) {
    if (module == nullptr || fd < 0 || tree == nullptr) return no_argument("descriptor");
    written_text out;
    if (!plan(module, module->name, tree, out)) return -1;
    return write_descriptor(fd, module->name, out);
}

char *cnfmodule_unparse_text(const cnfmodule *module, const cnfnode *tree, size_t *length) {
    if (module == nullptr || tree == nullptr) {
        no_argument("text");
        return nullptr;
    }
    written_text out;
    if (!plan(module, module->name, tree, out)) return nullptr;
    size_t size = out.length();
    owned_str text{static_cast<char *>(std::malloc(size + 1))};
    if (!text) {
        fail_with_errno(module->name);
        return nullptr;
    }
    char *at = text.get();
    for (const text_run &run : out.runs) {
        std::memcpy(at, out.at(run), run.length);
        at += run.length;
    }
    *at = '\0';
    if (length != nullptr) *length = size;
    return text.release();
}
