#include "tree/kept.h"

#include <libdaemon/dlog.h>
#include <syslog.h>

#include <cstring>

#include "daemon/log.h"
#include "daemon/trace.h"
#include "fe/fe.h"
#include "tree/param_failure.h"

kept_counts g_kept_counts{};

namespace {

/* Longer values cost more to send than to find. */
constexpr size_t k_longest_value = 256;

/* An evaluation would have done the same. */
void note_hit() {
    g_kept_counts.hits++;
    ccd_forget_failure();
    fe_forget_failure();
}

}  // namespace

kept_answers::kept_answers(backend_ctx *ctx, const param_path *path)
    : slot_(ctx && g_debug_level == 0 && !fe_is_evaluating() ? kept_slot_of(path) : nullptr),
      version_(trns_version()),
      seen_(slot_ ? trns_seen_ctx(ctx) : nullptr),
      impure_(fe_impure_count()),
      lines_(log_line_count()) {}

bool kept_answers::is_current() const {
    return slot_ && slot_->version == version_ && slot_->seen == seen_;
}

std::optional<bool> kept_answers::verdict(unsigned int permissions) const {
    if (!is_current() || !(slot_->known >> permissions & 1U)) return std::nullopt;
    note_hit();
    return (slot_->granted >> permissions & 1U) != 0;
}

const char *kept_answers::value() const {
    if (!is_current() || !slot_->value) return nullptr;
    note_hit();
    return slot_->value;
}

/* Where the evaluation itself has moved the version on (a command whose output it read was run),
 * what is kept here is never found. */
bool kept_answers::may_keep() {
    g_kept_counts.misses++;
    if (!slot_ || fe_impure_count() != impure_ || log_line_count() != lines_) return false;
    if (!is_current()) {
        slot_->clear();
        slot_->version = version_;
        slot_->seen = seen_;
    }
    return true;
}

void kept_answers::keep_verdict(unsigned int permissions, bool granted) {
    if (!may_keep()) return;
    const auto bit = static_cast<unsigned char>(1U << permissions);
    slot_->known |= bit;
    if (granted) slot_->granted |= bit;
}

void kept_answers::keep_value(const char *value) {
    if (!may_keep() || !value || std::strlen(value) > k_longest_value) return;
    const errno_guard keep;
    slot_->value = dup_str(value).release();
}

const char *ccd_param_ppath_kept_get(backend_ctx *ctx, const param_path *path, owned_str &own) {
    kept_answers kept{ctx, path};
    const char *value = kept.value();
    if (value && !k_checks_kept) return value;
    own.reset(ccd_param_ppath_get(ctx, path));
    if (value) {
        require_same_answer(own && std::strcmp(own.get(), value) == 0, path);
    } else {
        kept.keep_value(own.get());
    }
    return own.get();
}

void kept_slot::clear() {
    std::free(value);
    *this = {};
}

void require_same_answer(bool same, const param_path *path) {
    if (same) return;
    daemon_log(LOG_CRIT, "what was kept of '%s' is not so any more", path->fullpath);
    log_finish();
    std::abort();
}
