#ifndef UCFGD_SESSION_SUB_CONTEXT_H
#define UCFGD_SESSION_SUB_CONTEXT_H

#ifndef __cplusplus
#    error "sub_context.h is for C++ sources"
#endif

#include <cstdlib>
#include <utility>

#include "session/session.h"
#include "ucfgd/owners.h"

/* The throw-away copy of a session's context that one request edits: what a request does to the
 * session's trees, and says of its next commit, it does whole or not at all. Merged when everything
 * went well; on every other way out its edits are taken back. It is the session's backend_ctx_sub
 * for as long as it lives. */
class sub_context {
  public:
    explicit sub_context(ccd_session *session)
        : session_(session),
          comment_(session->commit_comment ? dup_str(session->commit_comment) : nullptr),
          trial_(session->commit_trial) {
        session->backend_ctx_sub = trns_copy_ctx(session->backend_ctx);
    }
    sub_context(const sub_context &) = delete;
    sub_context &operator=(const sub_context &) = delete;
    ~sub_context() {
        trns_ctx *ctx = std::exchange(session_->backend_ctx_sub, nullptr);
        if (ctx && !merged_) trns_cancel_ctx(ctx);
        trns_destroy_ctx(ctx);
        if (merged_) return;
        std::free(std::exchange(session_->commit_comment, comment_.release()));
        session_->commit_trial = trial_;
    }

    /* Null (errno is set) when there is no memory for it. */
    trns_ctx *get() const { return session_->backend_ctx_sub; }
    void merge() {
        trns_submit_ctx(get());
        merged_ = true;
    }

  private:
    ccd_session *session_;
    owned_str comment_; /* what was said of the next commit before */
    long trial_;
    bool merged_ = false;
};

#endif
