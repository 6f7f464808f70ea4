#ifndef UCFGD_ARCHIVE_MERGE_H
#define UCFGD_ARCHIVE_MERGE_H

#ifndef __cplusplus
#    error "merge.h is for C++ sources"
#endif

#include <string>

/* Versions of a text, line by line. Texts in which a side has changed up to 500 lines are merged
 * here, in a moment; for others, and for differences, the programs diff3 and diff of Debian's
 * diffutils do the work, and where they are missing it fails. */

enum class merge_result {
    merged,   /* all changes of both sides are in the result */
    conflict, /* both sides changed the same lines */
    failed    /* errno tells why */
};

struct text_merge {
    merge_result result = merge_result::failed;
    std::string text;      /* when merged */
    std::string conflicts; /* when not: "lines 3-5, line 9" of mine */
};

/* What becomes of base when mine and yours both changed it. */
text_merge merge_texts(const std::string &base, const std::string &mine, const std::string &yours);

/* The unified difference of two texts under the names given; empty when there is none. 0, or -1
 * with errno. */
int unified_diff(const std::string &before, const std::string &after,
                 const std::string &before_label, const std::string &after_label,
                 std::string &difference);

#endif
