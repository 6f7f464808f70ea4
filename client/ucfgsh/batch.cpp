#include "ucfgsh/batch.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <map>
#include <set>

#include "ucfgsh/change_input.h"
#include "ucfgsh/teach.h"

namespace ucfgsh {

namespace {

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

constexpr const char *k_no_item =
    " is no item: set PATH VALUE, add LIST NAME, del LIST NAME or move LIST NAME PLACE, one a line";

/* Asks what is there, a list only once. */
class present_state {
  public:
    explicit present_state(session &link) : link_(link) {}

    /* Whether the order would change nothing. */
    bool holds(const order &what) {
        switch (what.op) {
            case k_ucfg_set:
                return read_values(link_, {what.path})[0] == what.value;
            case k_ucfg_add:
                return names(what.path).contains(what.value);
            case k_ucfg_del:
                return !names(what.path).contains(what.value);
            case k_ucfg_move:
                return false;
        }
        return false;
    }

  private:
    const std::set<std::string> &names(const std::string &list) {
        auto known = lists_.find(list);
        if (known != lists_.end()) return known->second;
        ucfg_strings *found = nullptr;
        link_.quietly([&](ucfg_conn *conn) {
            return ucfg_list(conn, k_ucfg_parameters, list.c_str(), &found);
        });
        owned_strings owner{found};
        std::vector<std::string> all = to_vector(found);
        return lists_[list] = {all.begin(), all.end()};
    }

    session &link_;
    std::map<std::string, std::set<std::string>> lists_;
};

}  // namespace

std::optional<batch_item> read_item(const shell &sh, const std::string &line, std::string &reason) {
    words split = split_words(line);
    const op_row *row = nullptr;
    for (const op_row &r : k_item_rows)
        if (!split.list.empty() && split.list[0].text == r.word) row = &r;
    if (!row || split.open || split.list.size() - 1 < row->least ||
        split.list.size() - 1 > row->most) {
        reason = "\"" + line + "\"" + k_no_item;
        return std::nullopt;
    }
    batch_item item{{row->op, "", ""}, line};
    std::vector<word> typed(split.list.begin() + 1, split.list.end());
    if (row->op == k_ucfg_add || row->op == k_ucfg_del) {
        auto what = find_entry(sh, typed, reason);
        if (!what) return std::nullopt;
        item.what.path = what->list;
        item.what.value = what->name;
        return item;
    }
    const char *problem = nullptr;
    auto path = resolve_path(sh, typed[0].raw, k_ucfg_parameters, &problem);
    if (!path) {
        reason = typed[0].raw + ": " + (problem ? problem : "not a path");
        return std::nullopt;
    }
    item.what.path = *path;
    item.what.value = typed[1].text;
    if (typed.size() > 2) item.what.second = typed[2].text;
    return item;
}

std::optional<std::vector<batch_item>> read_items(const shell &sh, const std::string &text,
                                                  bad_line &bad) {
    std::vector<batch_item> items;
    bad = {};
    for (size_t at = 0; at < text.size();) {
        size_t end = std::min(text.find('\n', at), text.size());
        std::string line = text.substr(at, end - at);
        at = end + 1;
        bad.line++;
        if (line.ends_with('\r')) line.pop_back();
        words split = split_words(line);
        if (split.list.empty() && !split.open) continue;
        auto item = read_item(sh, line, bad.reason);
        if (!item) return std::nullopt;
        item->line = bad.line;
        items.push_back(std::move(*item));
    }
    return items;
}

namespace {

constexpr size_t k_hints = 10;

/* Advice on the first items that were refused. What an entry lacks is not known where the batch was
 * to make some. */
std::vector<std::string> advise(shell &sh, const batch_outcome &outcome) {
    std::vector<std::string> hints(outcome.items.size());
    bool makes =
        std::any_of(outcome.items.begin(), outcome.items.end(), [](const batch_item &item) {
            return item.what.op != k_ucfg_set && item.what.op != k_ucfg_del;
        });
    size_t given = 0;
    for (size_t i = 0; i < outcome.answer->count && given < k_hints; i++) {
        if (outcome.answer->results[i].code == k_ucfg_ok) continue;
        const order &what = outcome.items[i].what;
        attempt tried{*word_of(what.op), k_ucfg_parameters, what.path, what.value};
        tried.knows_entries = !makes;
        hints[i] = next_step(sh, tried);
        given++;
    }
    return hints;
}

}  // namespace

batch_outcome apply_items(shell &sh, std::vector<batch_item> items) {
    batch_outcome outcome;
    outcome.items = std::move(items);
    if (outcome.items.empty()) return outcome;
    order_step step;
    for (const batch_item &item : outcome.items)
        step.push_back(item.what);
    ucfg_batch *answer = nullptr;
    outcome.code = run_step(sh, after_loss::report, std::move(step), &answer);
    outcome.answer.reset(answer);
    outcome.text = ucfg_text(sh.link.conn());
    if (outcome.answer && !outcome.applied()) outcome.hints = advise(sh, outcome);
    return outcome;
}

std::vector<batch_item> not_yet_so(shell &sh, const std::vector<batch_item> &items) {
    present_state state{sh.link};
    std::vector<batch_item> rest;
    std::copy_if(items.begin(), items.end(), std::back_inserter(rest),
                 [&](const batch_item &item) { return !state.holds(item.what); });
    return rest;
}

std::string item_reason(const batch_outcome &outcome, size_t number) {
    const ucfg_item_result &result = outcome.answer->results[number];
    std::string reason = readable(result.text);
    if (result.id) {
        reason += std::string{" ("} + result.id;
        for (size_t i = 0; i < result.args->count; i++)
            reason += std::string{i == 0 ? ": " : ", "} + result.args->items[i];
        reason += ")";
    }
    bool advised = number < outcome.hints.size() && !outcome.hints[number].empty();
    return advised ? reason + "; " + outcome.hints[number] : reason;
}

void tell_batch_json(shell &sh, const batch_outcome &outcome, const std::string &file) {
    owned_json list{json_array()};
    for (size_t i = 0; i < outcome.items.size(); i++) {
        const ucfg_item_result *result =
            outcome.answer && i < outcome.answer->count ? &outcome.answer->results[i] : nullptr;
        bool fine = result ? result->code == k_ucfg_ok : outcome.applied();
        owned_json item = json_object_of({{"item", outcome.items[i].typed}});
        json_put(item, "ok", owned_json{json_boolean(fine)});
        json_array_append_new(list.get(), item.release());
        if (fine || !result) continue;
        add_error(sh, {.status = ucfg_code_name(result->code),
                       .message = readable(result->text),
                       .path = subject_of(outcome.items[i].what),
                       .id = result->id ? result->id : "",
                       .args = to_vector(result->args),
                       .hint = i < outcome.hints.size() ? outcome.hints[i] : "",
                       .file = file,
                       .line = file.empty() ? 0 : outcome.items[i].line});
    }
    owned_json object{json_object()};
    json_put(object, "items", std::move(list));
    sh.out.document(std::move(object));
}

std::string count_changes(size_t count) {
    return std::to_string(count) + (count == 1 ? " change" : " changes");
}

}  // namespace ucfgsh
