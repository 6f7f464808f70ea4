/* Changing: single changes, batches, and the end of a transaction. */
#include <array>

#include "conn.h"

namespace {

using namespace ucfg;

constexpr size_t k_chunk_limit = 16000;

struct op_row {
    ucfg_op op;
    std::string_view word;
    bool value_may_be_empty;
    bool has_second;
};

constexpr std::array k_ops{
    op_row{k_ucfg_set, "SET", true, false},
    op_row{k_ucfg_add, "ADD", false, false},
    op_row{k_ucfg_del, "DEL", false, false},
    op_row{k_ucfg_move, "MOVE", false, true},
};
static_assert(k_ops[k_ucfg_move].op == k_ucfg_move);

/* "WORD path value [second]" into line. */
int change_line(ucfg_conn *conn, const ucfg_item &item, std::string &line) {
    if (static_cast<size_t>(item.op) >= k_ops.size())
        return fail(conn, k_ucfg_usage, "unknown kind of change");
    const op_row &row = k_ops[static_cast<size_t>(item.op)];
    int result = check_path(conn, item.path);
    if (result != k_ucfg_ok) return result;
    line = std::string{row.word} + " " + item.path;
    bool empty = !item.value || !*item.value;
    if (!(row.value_may_be_empty && empty))
        result = append_word(conn, line, item.value, k_word_limit, "the value");
    if (result == k_ucfg_ok && row.has_second)
        result = append_word(conn, line, item.second, k_word_limit, "the second value");
    return result;
}

/* Cuts an escaped value that is too long for one word at its newlines. The daemon joins the chunks
 * with newlines, so the one at each cut is left out; it drops empty chunks, so none is made. */
int cut_value(ucfg_conn *conn, std::string_view escaped, std::vector<std::string_view> &chunks) {
    constexpr std::string_view k_newline = "%0a";
    while (escaped.size() > k_chunk_limit) {
        size_t cut = escaped.rfind(k_newline, k_chunk_limit);
        /* What follows the last cut must not be empty either. */
        if (cut != std::string_view::npos && cut + k_newline.size() == escaped.size() && cut > 0)
            cut = escaped.rfind(k_newline, cut - 1);
        if (cut == std::string_view::npos || cut == 0)
            return fail(conn, k_ucfg_too_long, "a line of the value is too long");
        chunks.push_back(escaped.substr(0, cut));
        escaped.remove_prefix(cut + k_newline.size());
    }
    chunks.push_back(escaped);
    return k_ucfg_ok;
}

int set_long(ucfg_conn *conn, const char *path, const std::string &escaped) {
    int result = check_path(conn, path);
    if (result != k_ucfg_ok) return result;
    std::vector<std::string_view> chunks;
    result = cut_value(conn, escaped, chunks);
    if (result != k_ucfg_ok) return result;
    std::string tag = new_tag(conn);
    std::string text;
    for (std::string_view chunk : chunks)
        text += tag + ". " + std::string{chunk} + "\n";
    text += tag + " SET " + path + "\n";
    if (text.size() > k_request_limit) return fail(conn, k_ucfg_too_long, "the value is too long");
    return exchange(conn, tag, text, conn->timeout, nullptr);
}

/* What a batch's reply says of one item, while it arrives. */
struct item_state {
    int code = k_ucfg_ok;
    std::string text;
    std::optional<std::string> id;
    std::vector<std::string> args;

    void take(std::string_view part, std::string_view text_of_part);
};

void item_state::take(std::string_view part, std::string_view line) {
    if (part == ".error") {
        id = std::string{line};
    } else if (part == ".error.arg") {
        args.emplace_back(line);
    } else if (part.empty() && code == k_ucfg_ok) {
        /* A denied item is answered twice; the first line, which says why, stands. */
        verdict said = read_verdict(line);
        code = said.code;
        text = std::move(said.text);
    }
}

/* Splits "12.error.arg" into the item's number (from 1; 0 when it is none) and the rest. */
size_t item_number(std::string_view qualifier, std::string_view &part) {
    size_t number = 0;
    size_t digits = 0;
    while (digits < qualifier.size() && digits < 9 && qualifier[digits] >= '0' &&
           qualifier[digits] <= '9')
        number = number * 10 + static_cast<size_t>(qualifier[digits++] - '0');
    part = qualifier.substr(digits);
    return part.empty() || part.front() == '.' ? number : 0;
}

owned<ucfg_batch, ucfg_destroy_batch> make_batch(const std::vector<item_state> &states) {
    owned<ucfg_batch, ucfg_destroy_batch> batch{
        static_cast<ucfg_batch *>(calloc(1, sizeof(ucfg_batch)))};
    if (!batch) throw std::bad_alloc{};
    batch->results =
        static_cast<ucfg_item_result *>(calloc(states.size() + 1, sizeof(ucfg_item_result)));
    if (!batch->results) throw std::bad_alloc{};
    for (const item_state &state : states) {
        ucfg_item_result &result = batch->results[batch->count++];
        result.code = state.code;
        result.text = make_text(state.text).release();
        if (state.id) result.id = make_text(*state.id).release();
        result.args = make_strings(state.args).release();
    }
    return batch;
}

/* Sends a batch; states receives what the reply says of each item. */
int submit(ucfg_conn *conn, const ucfg_item *items, size_t count, std::vector<item_state> &states) {
    std::string tag = new_tag(conn);
    std::string text;
    for (size_t i = 0; i < count; i++) {
        std::string line;
        int result = change_line(conn, items[i], line);
        if (result != k_ucfg_ok)
            return fail(conn, result, "item " + std::to_string(i + 1) + ": " + conn->text);
        text.append(tag).append(".").append(std::to_string(i + 1));
        text.append(" ").append(line).append("\n");
    }
    text += tag + " SUBMIT\n";
    if (text.size() > k_request_limit) return fail(conn, k_ucfg_too_long, "the batch is too long");
    states.assign(count, {});
    auto sink = [&](std::string_view qualifier, std::string_view line) {
        std::string_view part;
        size_t number = item_number(qualifier, part);
        if (number >= 1 && number <= count) states[number - 1].take(part, line);
    };
    return exchange(conn, tag, text, conn->timeout, sink);
}

/* SET and MOVE tell a method's refusal as a number alone. The same change as a batch of one tells
 * the reason, and applies nothing when it is refused again. */
int ask_for_reason(ucfg_conn *conn, const ucfg_item &item) {
    std::vector<item_state> states;
    int result = submit(conn, &item, 1, states);
    if (result == k_ucfg_failed && states[0].code != k_ucfg_ok) {
        conn->text = std::move(states[0].text);
        conn->error_id = std::move(states[0].id);
        conn->error_args = std::move(states[0].args);
    }
    return result;
}

int change(ucfg_conn *conn, const ucfg_item &item) {
    constexpr std::string_view k_refused_by_method = "result=2 ";
    if (item.op == k_ucfg_set) {
        std::string escaped = escape_text(item.value);
        if (escaped.size() > k_word_limit) return set_long(conn, item.path, escaped);
    }
    std::string line;
    int result = change_line(conn, item, line);
    if (result != k_ucfg_ok) return result;
    result = command(conn, line);
    bool unexplained = result == k_ucfg_failed && conn->text.starts_with(k_refused_by_method);
    return unexplained ? ask_for_reason(conn, item) : result;
}

}  // namespace

int ucfg_set(ucfg_conn *conn, const char *path, const char *value) {
    return guarded(conn, [&] { return change(conn, {k_ucfg_set, path, value, nullptr}); });
}

int ucfg_add(ucfg_conn *conn, const char *path, const char *name) {
    return guarded(conn, [&] { return change(conn, {k_ucfg_add, path, name, nullptr}); });
}

int ucfg_del(ucfg_conn *conn, const char *path, const char *name) {
    return guarded(conn, [&] { return change(conn, {k_ucfg_del, path, name, nullptr}); });
}

int ucfg_move(ucfg_conn *conn, const char *path, const char *first, const char *second) {
    return guarded(conn, [&] { return change(conn, {k_ucfg_move, path, first, second}); });
}

int ucfg_submit(ucfg_conn *conn, const ucfg_item *items, size_t count, ucfg_batch **batch) {
    if (batch) *batch = nullptr;
    return guarded(conn, [&] {
        if (count > 0 && !items) return fail(conn, k_ucfg_usage, "no items");
        std::vector<item_state> states;
        int result = submit(conn, items, count, states);
        bool answered = result <= k_ucfg_inuse;
        if (answered && batch) *batch = make_batch(states).release();
        return result;
    });
}

int ucfg_commit(ucfg_conn *conn) {
    return guarded(conn, [&] {
        std::string tag = new_tag(conn);
        return exchange(conn, tag, tag + " COMMIT\n", conn->job_timeout, nullptr);
    });
}

int ucfg_revert(ucfg_conn *conn) {
    return guarded(conn, [&] { return command(conn, "REVERT"); });
}

int ucfg_update(ucfg_conn *conn) {
    return guarded(conn, [&] { return command(conn, "UPDATE"); });
}

int ucfg_current(ucfg_conn *conn) {
    return guarded(conn, [&] { return command(conn, "CURRENT"); });
}

int ucfg_dirty(ucfg_conn *conn, int *dirty) {
    *dirty = 0;
    return guarded(conn, [&] {
        return command(conn, "DIRTY", [&](std::string_view qualifier, std::string_view text) {
            if (qualifier == "dirty") *dirty = text != "0";
        });
    });
}
