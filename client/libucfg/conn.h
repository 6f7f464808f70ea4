/* The connection as the library's own files see it: the handle's record, bytes in and out, and one
 * reply at a time. Functions here may throw std::bad_alloc; guarded() turns it into a code where
 * the C interface begins. */
#ifndef UCFG_CONN_H
#define UCFG_CONN_H

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ucfg/ucfg.h"
#include "ucfgd/owners.h"

namespace ucfg {

/* What the daemon's buffers hold: longer words would be cut without a word. */
inline constexpr size_t k_word_limit = 1023;
inline constexpr size_t k_component_limit = 255;
inline constexpr size_t k_argument_limit = 255;
inline constexpr size_t k_admin_word_limit = 2047;
inline constexpr size_t k_user_limit = 63;
inline constexpr size_t k_line_limit = 16382;
inline constexpr size_t k_request_limit = 4U << 20U;

/* What this side takes: a line of the daemon has at most 16383 characters, its newline included. */
inline constexpr size_t k_reply_line_limit = 65536;
inline constexpr size_t k_reply_line_full = 16382;
inline constexpr const char *k_cut_text = "longer than a reply can be, 16 KiB";

enum class peer_kind { none, local, tcp };

/* How a reply ended: the code of its status word and the text behind it. */
struct verdict {
    int code = k_ucfg_protocol;
    std::string text;
    bool cut = false;
};

/* Takes the data lines of a reply as they arrive: the qualifier and the text. */
using line_sink = std::function<void(std::string_view qualifier, std::string_view text)>;

}  // namespace ucfg

struct ucfg_conn {
    unique_fd fd;
    ucfg::peer_kind kind = ucfg::peer_kind::none;
    std::string host, port, peer;

    std::string inbuf;
    size_t in_start = 0;   /* bytes before it are taken */
    size_t in_scanned = 0; /* bytes before it hold no newline */
    unsigned long tag_count = 0;

    int timeout = 60000;
    int job_timeout = -1;
    size_t reply_limit = 64U << 20U;
    bool cut = false; /* the last reply lost the end of a line */
    volatile sig_atomic_t *interrupt = nullptr;

    int code = k_ucfg_ok;
    std::string text;
    std::optional<std::string> error_id;
    std::vector<std::string> error_args;

    std::string session_id, user;
    int perms = 0;
};

namespace ucfg {

/* Notes a failure of the library's own and returns its code. */
int fail(ucfg_conn *conn, int code, std::string text);

/* ---- transport.cpp ---- */

/* Sends all of it, reading what arrives meanwhile, so that two full buffers cannot block each
 * other. */
int send_all(ucfg_conn *conn, std::string_view data);

/* The next line, without its newline; it stays valid until the next read. */
int read_line(ucfg_conn *conn, int timeout, std::string_view &line);

/* Drops the connection and what was read of it. */
void drop(ucfg_conn *conn);

/* ---- reply.cpp ---- */

std::string new_tag(ucfg_conn *conn);

/* What a final line says, from its status word on. */
verdict read_verdict(std::string_view text);

/* Reads up to the final line of the request with that tag; lines of other tags, late replies, are
 * skipped. Returns ok when a final line came, whatever it says. */
int receive(ucfg_conn *conn, std::string_view tag, int timeout, const line_sink &sink,
            verdict &end);

/* One request from its first byte to its final line. `text` holds all of its lines. The verdict
 * becomes the call's code and text; error records are picked up on the way. */
int exchange(ucfg_conn *conn, std::string_view tag, std::string_view text, int timeout,
             const line_sink &sink);

/* The same for a one-line command, tag and newline added here. */
int command(ucfg_conn *conn, std::string_view line, const line_sink &sink = nullptr);

/* ---- words.cpp: what may be sent ---- */

std::string escape_text(const char *text);
std::string unescape_text(std::string_view text);

/* ok, or why this path cannot be sent. */
int check_path(ucfg_conn *conn, const char *path, size_t limit = k_word_limit);

/* Appends a blank and the escaped word; an empty word or one over the limit is refused. */
int append_word(ucfg_conn *conn, std::string &line, const char *word, size_t limit,
                const char *what);

/* All further arguments of a command. */
int append_words(ucfg_conn *conn, std::string &line, const char *const *args, size_t count,
                 size_t limit);

/* ---- records.cpp ---- */

/* A C string or a list of them; both throw when memory is exhausted. */
owned_str make_text(std::string_view text);
using owned_strings = owned<ucfg_strings, ucfg_destroy_strings>;
owned_strings make_strings(const std::vector<std::string> &items);

/* The frame of every function that talks: forgets what the last call said and lets no exception
 * out. */
template <class body>
int guarded(ucfg_conn *conn, body &&work) noexcept {
    if (!conn) return k_ucfg_usage;
    try {
        conn->text.clear();
        conn->error_id.reset();
        conn->error_args.clear();
        return conn->code = work();
    } catch (...) {
        conn->text.clear();
        return conn->code = k_ucfg_no_memory;
    }
}

}  // namespace ucfg

#endif
