/* Several changes at once: all of them or none. */
#include <algorithm>
#include <array>

#include "ucfgsh/change_input.h"

namespace ucfgsh {

namespace {

/* One item of a batch, and how it was typed. */
struct batch_item {
    order what;
    std::string typed;
};

struct op_row {
    std::string_view word;
    ucfg_op op;
    size_t least, most; /* words behind the first one */
};

constexpr std::array k_item_rows{
    op_row{"set", k_ucfg_set, 2, 2},
    op_row{"add", k_ucfg_add, 1, 2},
    op_row{"del", k_ucfg_del, 1, 2},
    op_row{"move", k_ucfg_move, 3, 3},
};

std::optional<batch_item> read_item(shell &sh, const std::string &line) {
    words split = split_words(line);
    const op_row *row = nullptr;
    for (const op_row &r : k_item_rows)
        if (!split.list.empty() && split.list[0].text == r.word) row = &r;
    if (!row || split.open || split.list.size() - 1 < row->least ||
        split.list.size() - 1 > row->most) {
        complain_usage(sh, "\"" + line +
                               "\" is no item: set PATH VALUE, add LIST NAME, del LIST "
                               "NAME or move LIST NAME PLACE, one a line");
        return std::nullopt;
    }
    batch_item item{{row->op, "", ""}, line};
    std::vector<word> typed(split.list.begin() + 1, split.list.end());
    if (row->op == k_ucfg_add || row->op == k_ucfg_del) {
        auto what = take_entry(sh, typed);
        if (!what) return std::nullopt;
        item.what.path = what->list;
        item.what.value = what->name;
        return item;
    }
    auto path = take_path(sh, typed[0]);
    if (!path) return std::nullopt;
    item.what.path = *path;
    item.what.value = typed[1].text;
    if (typed.size() > 2) item.what.second = typed[2].text;
    return item;
}

/* The items' lines: arguments, a file, or what follows up to "end". */
std::optional<std::vector<std::string>> item_lines(shell &sh, const arguments &args) {
    std::vector<std::string> lines;
    for (const word &w : args.words)
        lines.push_back(w.text);
    if (!lines.empty()) return lines;
    std::optional<std::string> text;
    auto flag = args.flags.find('f');
    if (flag == args.flags.end() && sh.lines) {
        text = read_lines(sh, "end");
    } else {
        text = read_all(sh, flag == args.flags.end() ? "-" : flag->second);
    }
    if (!text) return std::nullopt;
    for (size_t at = 0; at <= text->size();) {
        size_t end = std::min(text->find('\n', at), text->size());
        std::string line = text->substr(at, end - at);
        if (!split_words(line).list.empty()) lines.push_back(line);
        at = end + 1;
    }
    return lines;
}

std::string item_reason(const ucfg_item_result &result) {
    std::string reason = readable(result.text);
    if (!result.id) return reason;
    reason += std::string{" ("} + result.id;
    for (size_t i = 0; i < result.args->count; i++)
        reason += std::string{i == 0 ? ": " : ", "} + result.args->items[i];
    return reason + ")";
}

void print_batch(shell &sh, const std::vector<batch_item> &items, const ucfg_batch &batch,
                 bool applied) {
    for (size_t i = 0; i < batch.count; i++) {
        bool fine = batch.results[i].code == k_ucfg_ok;
        if (fine && applied && !sh.interactive) continue;
        std::string line =
            sh.out.paint(fine ? style::good : style::bad, fine ? "ok      " : "refused ");
        line += sh.out.paint(style::value, items[i].typed);
        if (!fine) line += ": " + sh.out.paint(style::bad, item_reason(batch.results[i]));
        sh.out.line(line);
    }
}

void tell_batch_json(shell &sh, const std::vector<batch_item> &items, const ucfg_batch &batch) {
    owned_json list{json_array()};
    for (size_t i = 0; i < batch.count; i++) {
        const ucfg_item_result &result = batch.results[i];
        bool fine = result.code == k_ucfg_ok;
        owned_json item = json_object_of({{"item", items[i].typed}});
        json_put(item, "ok", owned_json{json_boolean(fine)});
        json_array_append_new(list.get(), item.release());
        if (fine) continue;
        add_error(sh, {.status = ucfg_code_name(result.code),
                       .message = readable(result.text),
                       .path = print_path(items[i].what.path),
                       .id = result.id ? result.id : "",
                       .args = to_vector(result.args)});
    }
    owned_json object{json_object()};
    json_put(object, "items", std::move(list));
    sh.out.document(std::move(object));
}

std::string count_text(size_t count) {
    return std::to_string(count) + (count == 1 ? " change" : " changes");
}

}  // namespace

int run_submit(shell &sh, const arguments &args) {
    auto lines = item_lines(sh, args);
    if (!lines) return k_exit_usage;
    std::vector<batch_item> items;
    for (const std::string &line : *lines) {
        auto item = read_item(sh, line);
        if (!item) return k_exit_usage;
        items.push_back(std::move(*item));
    }
    order_step step;
    for (const batch_item &item : items)
        step.push_back(item.what);
    ucfg_batch *answer = nullptr;
    int code = run_step(sh, after_loss::report, std::move(step), &answer);
    owned_batch batch{answer};
    if (!batch) return report_failure(sh, "submit", code);
    bool applied = code == k_ucfg_ok;
    if (sh.out.json()) {
        tell_batch_json(sh, items, *batch);
        return status_of(code, "");
    }
    print_batch(sh, items, *batch, applied);
    if (applied) return report_done(sh, sh.interactive ? "" : count_text(items.size()) + " made");
    std::string text = ucfg_text(sh.link.conn());
    sh.out.complain(sh.prefix + "nothing of the batch was applied" +
                    (text.empty() ? "" : ": " + readable(text)));
    return k_exit_failed;
}

}  // namespace ucfgsh
