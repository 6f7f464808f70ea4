#ifndef UCFGD_TREE_KEPT_H
#define UCFGD_TREE_KEPT_H

#ifndef __cplusplus
#    error "kept.h is for C++ sources"
#endif

#include <cstdint>
#include <cstdlib>
#include <optional>

#include "tree/param_path.h"
#include "ucfgd/owners.h"

/* What is kept of a path. */
struct kept_slot {
    uint64_t version;      /* of the trees in which it was found; 0 where nothing is kept */
    const trns_ctx *seen;  /* whose they were */
    unsigned char known;   /* a bit for each set of permissions that there is a verdict for, */
    unsigned char granted; /* and for each that it says yes to */
    char *value;           /* owned; null for none */

    void clear();
};

/* The slot of a path, zeroed when that was resolved; null for a path that is not kept itself. */
kept_slot *kept_slot_of(const param_path *path);

/* Answers that are kept: what "access:" and "get:" of a path said, for as long as they would say it
 * again.
 *
 *  1. Kept is what a pure evaluation (fe/purity.h) has answered: one that called nothing but
 *     functions that look at names, variables and the trees of files, read no variable that tells
 *     sessions apart, logged nothing (at any level) and did not fail. Whether it was, is seen
 *     behind it.
 *  2. It is kept for the path, the permissions that were asked for, the version of all trees
 *     (trns_version) and the context whose trees were read (trns_seen_ctx): sessions that have
 *     changed nothing share what is kept. Any edit of any tree ends it.
 *  3. It is kept and used where a request begins. Inside an evaluation, whose limits a kept answer
 *     would not count towards, each answer is a fresh one: where a limit is met it may be wrong,
 *     which only the failure of the whole makes good.
 *  4. While lines are traced nothing is kept, so that the trace shows every evaluation.
 *  5. A build with AddressSanitizer evaluates all the same and ends the process where the answers
 *     differ.
 */
class kept_answers {
  public:
    /* To be made in front of the evaluation. */
    kept_answers(backend_ctx *ctx, const param_path *path);

    /* What is kept; empty or null where nothing is. The value lives as long as the path, or until
     * another is kept. */
    std::optional<bool> verdict(unsigned int permissions) const;
    const char *value() const;

    /* The answer of the evaluation, kept when that was pure. A null value is none. */
    void keep_verdict(unsigned int permissions, bool granted);
    void keep_value(const char *value);

  private:
    bool is_current() const;
    bool may_keep();

    kept_slot *slot_; /* null: nothing is kept */
    uint64_t version_;
    const trns_ctx *seen_;
    unsigned long impure_;
    unsigned long lines_;
};

/* The answer of "get:", escaped: the kept one, or that of an evaluation, which own takes. Null,
 * with errno, where there is no value. It lives as long as own and the path. */
const char *ccd_param_ppath_kept_get(backend_ctx *ctx, const param_path *path, owned_str &own);

/* Whether "access:" is granted: the kept verdict, or what evaluate answers, which is 1, 0, or
 * negative (taken for no, this once) where there is none. */
template <class evaluation>
bool kept_access(backend_ctx *ctx, const param_path *path, unsigned int permissions,
                 evaluation evaluate);

/* How many answers were kept ones, and how many were not. */
struct kept_counts {
    unsigned long hits;
    unsigned long misses;
};
extern kept_counts g_kept_counts;

/* Ends the process where a kept answer is not what an evaluation says. */
void require_same_answer(bool same, const param_path *path);

#ifdef __SANITIZE_ADDRESS__
constexpr bool k_checks_kept = true;
#else
constexpr bool k_checks_kept = false;
#endif

template <class evaluation>
bool kept_access(backend_ctx *ctx, const param_path *path, unsigned int permissions,
                 evaluation evaluate) {
    kept_answers kept{ctx, path};
    if (const std::optional<bool> known = kept.verdict(permissions)) {
        if (k_checks_kept) require_same_answer(evaluate() == int{*known}, path);
        return *known;
    }
    const int granted = evaluate();
    if (granted >= 0) kept.keep_verdict(permissions, granted > 0);
    return granted > 0;
}

#endif
