/* One request and its reply: tags, status words, error records. */
#include <algorithm>
#include <array>

#include "conn.h"

namespace {

using namespace ucfg;

struct status_word {
    std::string_view word;
    int code;
};

constexpr std::array k_status_words{
    status_word{"OK", k_ucfg_ok},         status_word{"NO", k_ucfg_refused},
    status_word{"BAD", k_ucfg_malformed}, status_word{"ERR", k_ucfg_failed},
    status_word{"INUSE", k_ucfg_inuse},
};

}  // namespace

namespace ucfg {

std::string new_tag(ucfg_conn *conn) {
    /* Short enough for the daemon's smallest tag buffer, which holds 13 characters. */
    return "u" + std::to_string(++conn->tag_count % 100000000);
}

verdict read_verdict(std::string_view text) {
    size_t blank = text.find(' ');
    std::string_view word = text.substr(0, blank);
    for (const status_word &row : k_status_words)
        if (word == row.word)
            return {row.code,
                    std::string{blank == std::string_view::npos ? "" : text.substr(blank + 1)}};
    /* One reply of the daemon has no status word; it complains of a missing argument. */
    return {k_ucfg_malformed, std::string{text}};
}

int receive(ucfg_conn *conn, std::string_view tag, int timeout, const line_sink &sink,
            verdict &end) {
    size_t taken = 0;
    bool cut = false;
    for (;;) {
        std::string_view line;
        int result = read_line(conn, timeout, line);
        if (result != k_ucfg_ok) return result;
        bool ours = line.starts_with(tag);
        cut = cut || (ours && line.size() >= k_reply_line_full);
        std::string_view rest = ours ? line.substr(tag.size()) : std::string_view{};
        if (ours && (rest.empty() || rest.front() == ' ')) {
            end = read_verdict(rest.empty() ? rest : rest.substr(1));
            end.cut = cut;
            return k_ucfg_ok;
        }
        taken += line.size() + 1;
        if (taken > conn->reply_limit) {
            drop(conn);
            return fail(conn, k_ucfg_protocol, "the reply is larger than this client takes");
        }
        if (!ours || rest.front() != '.' || !sink) continue;
        size_t blank = std::min(rest.find(' '), rest.size());
        sink(rest.substr(1, blank - 1), rest.substr(std::min(blank + 1, rest.size())));
    }
}

int exchange(ucfg_conn *conn, std::string_view tag, std::string_view text, int timeout,
             const line_sink &sink) {
    if (!conn->fd) return fail(conn, k_ucfg_lost, "not connected");
    int result = send_all(conn, text);
    if (result != k_ucfg_ok) return result;
    line_sink collect = [&](std::string_view qualifier, std::string_view data) {
        if (qualifier == "error")
            conn->error_id = std::string{data};
        else if (qualifier == "error.arg")
            conn->error_args.emplace_back(data);
        if (sink) sink(qualifier, data);
    };
    verdict end;
    result = receive(conn, tag, timeout, collect, end);
    if (result != k_ucfg_ok) return result;
    conn->text = std::move(end.text);
    conn->cut = end.cut;
    return conn->code = end.code;
}

int command(ucfg_conn *conn, std::string_view line, const line_sink &sink) {
    std::string tag = new_tag(conn);
    std::string text = tag + " " + std::string{line} + "\n";
    int result = exchange(conn, tag, text, conn->timeout, sink);
    return result == k_ucfg_ok && conn->cut ? fail(conn, k_ucfg_too_long, k_cut_text) : result;
}

}  // namespace ucfg

namespace {

owned<ucfg_reply, ucfg_destroy_reply> new_reply() {
    owned<ucfg_reply, ucfg_destroy_reply> reply{
        static_cast<ucfg_reply *>(calloc(1, sizeof(ucfg_reply)))};
    if (!reply) throw std::bad_alloc{};
    return reply;
}

void append_line(list_builder<ucfg_line> &lines, std::string_view qualifier,
                 std::string_view text) {
    owned_str q = make_text(qualifier);
    owned_str t = make_text(text);
    auto *line = static_cast<ucfg_line *>(calloc(1, sizeof(ucfg_line)));
    if (!line) throw std::bad_alloc{};
    line->qualifier = q.release();
    line->text = t.release();
    lines.append(line);
}

int request(ucfg_conn *conn, const char *const *continuation, size_t count, const char *line,
            ucfg_reply **out) {
    std::string tag = new_tag(conn);
    std::string text;
    for (size_t i = 0; i < count; i++)
        text += tag + "." + continuation[i] + "\n";
    text += tag + " " + line + "\n";
    if (static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) != count + 1)
        return fail(conn, k_ucfg_usage, "a line of a request cannot hold a newline");
    if (!conn->fd) return fail(conn, k_ucfg_lost, "not connected");
    int result = send_all(conn, text);
    if (result != k_ucfg_ok) return result;
    owned<ucfg_reply, ucfg_destroy_reply> reply = new_reply();
    list_builder<ucfg_line> lines;
    verdict end;
    auto sink = [&](std::string_view qualifier, std::string_view data) {
        append_line(lines, qualifier, data);
        reply->lines = lines.head();
    };
    result = receive(conn, tag, conn->job_timeout, sink, end);
    if (result != k_ucfg_ok) return result;
    reply->code = end.code;
    reply->cut = end.cut;
    reply->text = make_text(end.text).release();
    conn->text = std::move(end.text);
    if (out) *out = reply.release();
    return end.code;
}

}  // namespace

int ucfg_request(ucfg_conn *conn, const char *const *continuation, size_t count,
                 const char *command, ucfg_reply **reply) {
    if (reply) *reply = nullptr;
    return guarded(conn, [&] {
        if (!command || (count > 0 && !continuation)) return fail(conn, k_ucfg_usage, "no command");
        return request(conn, continuation, count, command, reply);
    });
}
