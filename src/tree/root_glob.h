#ifndef UCFGD_TREE_ROOT_GLOB_H
#define UCFGD_TREE_ROOT_GLOB_H

#include <glob.h>

#include <cstddef>
#include <string>

/* The files that match a pattern written by someone who knows nothing of the root prefix, in the
 * order of their names. Internal to the tree.
 *
 * They are looked for below the prefix, which is text and no pattern. name() is complete; given()
 * is without the prefix, for whom puts it before the name again. Names live as long as the object.
 * A search that fails finds what it can, and is logged: no match is what most directories give, a
 * directory out of reach is not. Throws std::bad_alloc when the pattern cannot be formed. */
class root_glob {
  public:
    explicit root_glob(const char *pattern);
    root_glob(const root_glob &) = delete;
    root_glob &operator=(const root_glob &) = delete;
    ~root_glob() { globfree(&matches_); }

    const char *pattern() const { return full_.c_str(); } /* complete */
    std::size_t count() const { return matches_.gl_pathc; }
    const char *name(std::size_t index) const { return matches_.gl_pathv[index]; }
    const char *given(std::size_t index) const { return name(index) + prefix_length_; }

  private:
    std::string full_;
    std::size_t prefix_length_;
    glob_t matches_{};
};

#endif
