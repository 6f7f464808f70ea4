/* The records handed out, and what the last call said. */
#include <array>
#include <new>

#include "conn.h"

namespace ucfg {

owned_str make_text(std::string_view text) {
    owned_str copy = dup_str(text);
    if (!copy) throw std::bad_alloc{};
    return copy;
}

owned_strings make_strings(const std::vector<std::string> &items) {
    owned_strings strings{static_cast<ucfg_strings *>(calloc(1, sizeof(ucfg_strings)))};
    if (!strings) throw std::bad_alloc{};
    strings->items = static_cast<char **>(calloc(items.size() + 1, sizeof(char *)));
    if (!strings->items) throw std::bad_alloc{};
    for (const std::string &item : items) {
        strings->items[strings->count] = make_text(item).release();
        strings->count++;
    }
    return strings;
}

}  // namespace ucfg

namespace {

constexpr std::array k_code_names{
    "ok",      "refused",     "malformed", "failed",   "in use", "unreachable",   "lost",
    "timeout", "interrupted", "protocol",  "too long", "usage",  "out of memory",
};
static_assert(k_code_names.size() == k_ucfg_no_memory + 1);

}  // namespace

void ucfg_destroy_strings(ucfg_strings *strings) {
    if (!strings) return;
    for (size_t i = 0; i < strings->count; i++)
        free(strings->items[i]);
    free(static_cast<void *>(strings->items));
    free(strings);
}

void ucfg_destroy_attr(ucfg_attr *attr) {
    if (!attr) return;
    free(attr->ops);
    ucfg_destroy_strings(attr->choices);
    ucfg_destroy_strings(attr->flags);
    free(attr->type);
    free(attr);
}

void ucfg_destroy_batch(ucfg_batch *batch) {
    if (!batch) return;
    for (size_t i = 0; i < batch->count; i++) {
        free(batch->results[i].text);
        free(batch->results[i].id);
        ucfg_destroy_strings(batch->results[i].args);
    }
    free(batch->results);
    free(batch);
}

void ucfg_destroy_reply(ucfg_reply *reply) {
    if (!reply) return;
    for (ucfg_line *line : removal_safe(reply->lines)) {
        free(line->qualifier);
        free(line->text);
        free(line);
    }
    free(reply->text);
    free(reply);
}

const char *ucfg_peer(const ucfg_conn *conn) {
    return conn ? conn->peer.c_str() : "";
}

void ucfg_set_timeout(ucfg_conn *conn, int milliseconds) {
    conn->timeout = milliseconds;
}

void ucfg_set_job_timeout(ucfg_conn *conn, int milliseconds) {
    conn->job_timeout = milliseconds;
}

void ucfg_set_reply_limit(ucfg_conn *conn, size_t bytes) {
    conn->reply_limit = bytes;
}

void ucfg_set_interrupt(ucfg_conn *conn, volatile sig_atomic_t *flag) {
    conn->interrupt = flag;
}

int ucfg_last(const ucfg_conn *conn) {
    return conn ? conn->code : k_ucfg_usage;
}

const char *ucfg_text(const ucfg_conn *conn) {
    if (!conn) return "no connection handle";
    return conn->code == k_ucfg_no_memory ? "out of memory" : conn->text.c_str();
}

const char *ucfg_error_id(const ucfg_conn *conn) {
    return conn && conn->error_id ? conn->error_id->c_str() : nullptr;
}

const char *ucfg_error_arg(const ucfg_conn *conn, size_t number) {
    if (!conn || number >= conn->error_args.size()) return nullptr;
    return conn->error_args[number].c_str();
}

const char *ucfg_code_name(int code) {
    if (code < 0 || static_cast<size_t>(code) >= k_code_names.size()) return "unknown";
    return k_code_names[static_cast<size_t>(code)];
}

const char *ucfg_session_id(const ucfg_conn *conn) {
    return conn ? conn->session_id.c_str() : "";
}

const char *ucfg_user(const ucfg_conn *conn) {
    return conn ? conn->user.c_str() : "";
}

int ucfg_perms(const ucfg_conn *conn) {
    return conn ? conn->perms : 0;
}
