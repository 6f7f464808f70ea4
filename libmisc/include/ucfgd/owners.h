#ifndef UCFGD_OWNERS_H
#define UCFGD_OWNERS_H

#ifndef __cplusplus
#    error "owners.h is for C++ sources"
#endif

#include <errno.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

/* The owners that source files use, one idiom for each thing:
 *
 *   owned_str s{strdup(text)};            a C string, freed with free()
 *   unique_fd fd{open(...)};              a descriptor, closed
 *   errno_guard keep;                     errno as it was, on leaving the scope
 *   owned<ccdtree_node, destroy_...> n;   any record with its destroy_ function
 *   for (auto *s : removal_safe(list))    a walk whose body may unlink and free its element
 *   list_builder<line> lines;             a list built at its tail
 */

template <auto release>
struct release_with {
    template <class record>
    void operator()(record *r) const {
        release(r);
    }
};

template <class record, auto release>
using owned = std::unique_ptr<record, release_with<release>>;

struct free_memory {
    void operator()(void *memory) const { std::free(memory); }
};

using owned_str = std::unique_ptr<char, free_memory>;

/* An owned copy of text; empty (errno ENOMEM) when memory is exhausted. */
inline owned_str dup_str(std::string_view text) {
    owned_str copy{static_cast<char *>(std::malloc(text.size() + 1))};
    if (copy) {
        if (!text.empty()) std::memcpy(copy.get(), text.data(), text.size());
        copy.get()[text.size()] = '\0';
    }
    return copy;
}

/* A descriptor, closed when its owner goes; -1 is none. Closing keeps errno. Where a failed close
 * can lose data, close_now says so. */
class unique_fd {
  public:
    unique_fd() = default;
    explicit unique_fd(int fd) : fd_(fd) {}
    unique_fd(unique_fd &&other) noexcept : fd_(other.release()) {}
    unique_fd &operator=(unique_fd &&other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    unique_fd(const unique_fd &) = delete;
    unique_fd &operator=(const unique_fd &) = delete;
    ~unique_fd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1) {
        int old = std::exchange(fd_, fd);
        if (old < 0) return;
        int saved = errno;
        ::close(old);
        errno = saved;
    }
    /* Closes at once. Returns the result of close(). */
    int close_now() { return ::close(release()); }

  private:
    int fd_ = -1;
};

class errno_guard {
  public:
    errno_guard() : saved_(errno) {}
    errno_guard(const errno_guard &) = delete;
    errno_guard &operator=(const errno_guard &) = delete;
    ~errno_guard() { errno = saved_; }
    int saved() const { return saved_; }

  private:
    int saved_;
};

/* The elements of a list; each one's successor is remembered before the loop's body sees it, so
 * that the body may unlink and free its element, but not the next one. */
template <class record>
class removal_safe {
  public:
    explicit removal_safe(record *first) : first_(first) {}

    class iterator {
      public:
        explicit iterator(record *r) : current_(r), next_(r ? r->next : nullptr) {}
        record *operator*() const { return current_; }
        iterator &operator++() {
            current_ = next_;
            next_ = current_ ? current_->next : nullptr;
            return *this;
        }
        bool operator!=(const iterator &other) const { return current_ != other.current_; }

      private:
        record *current_;
        record *next_;
    };

    iterator begin() const { return iterator{first_}; }
    iterator end() const { return iterator{nullptr}; }

  private:
    record *first_;
};

/* Builds a list without walking it. Takes records whose next is null; does not free them. */
template <class record>
class list_builder {
  public:
    void append(record *r) {
        *tail_ = r;
        tail_ = &r->next;
    }
    bool empty() const { return head_ == nullptr; }
    record *head() const { return head_; }
    /* The list, which belongs to the caller now; the builder is empty again. */
    record *release() {
        tail_ = &head_;
        return std::exchange(head_, nullptr);
    }

    list_builder() = default;
    list_builder(const list_builder &) = delete;
    list_builder &operator=(const list_builder &) = delete;

  private:
    record *head_ = nullptr;
    record **tail_ = &head_;
};

#endif
