#include "ucfgsh/orders.h"

#include <algorithm>
#include <array>

#include "ucfgsh/commands.h"

namespace ucfgsh {

namespace {

constexpr std::array k_op_words{"set", "add", "del", "move"};
static_assert(k_ucfg_move + 1 == k_op_words.size());

/* What "changes" needs to know beforehand from a daemon that cannot compare. */
void note(shell &sh, const order &what) {
    if (what.op == k_ucfg_set)
        sh.changes.note_set(sh.link, what.path);
    else if (what.op == k_ucfg_add)
        sh.changes.note_list(sh.link, what.path);
    else
        sh.changes.note_entry(sh.link, what.path, what.value);
}

int ask(ucfg_conn *conn, const order_step &step, ucfg_batch **answer) {
    const order &first = step.front();
    const char *path = first.path.c_str();
    const char *value = first.value.c_str();
    if (step.size() == 1 && !answer) {
        switch (first.op) {
            case k_ucfg_set:
                return ucfg_set(conn, path, value);
            case k_ucfg_add:
                return ucfg_add(conn, path, value);
            case k_ucfg_del:
                return ucfg_del(conn, path, value);
            case k_ucfg_move:
                return ucfg_move(conn, path, value, first.second.c_str());
        }
    }
    std::vector<ucfg_item> items;
    items.reserve(step.size());
    for (const order &o : step)
        items.push_back({o.op, o.path.c_str(), o.value.c_str(), o.second.c_str()});
    return ucfg_submit(conn, items.data(), items.size(), answer);
}

/* A session without changes that is up to date. */
int fresh_session(shell &sh) {
    if (!sh.link.logged_in()) return sh.link.log_in_anew();
    int code = sh.link.call(after_loss::repeat, ucfg_revert);
    if (code == k_ucfg_ok) sh.changes.clear();
    return code == k_ucfg_ok ? k_exit_done : report_failure(sh, "revert", code);
}

}  // namespace

bool order_book::repeatable() const {
    return std::all_of(steps.begin(), steps.end(), [](const order_step &step) {
        return std::all_of(step.begin(), step.end(),
                           [](const order &o) { return o.op == k_ucfg_set; });
    });
}

const char *word_of(ucfg_op op) {
    return k_op_words.at(op);
}

bool orders_are_stale(const shell &sh) {
    return !sh.orders.steps.empty() && sh.orders.generation != sh.link.generation();
}

std::string typed_order(const order &what) {
    std::string text = word_of(what.op);
    text += " " + print_path(what.path) + " " + quote_word(what.value);
    return what.op == k_ucfg_move ? text + " " + quote_word(what.second) : text;
}

std::string subject_of(const order &what) {
    if (what.op == k_ucfg_set) return print_path(what.path);
    return print_path(take_text(ucfg_path_append(what.path.c_str(), what.value.c_str())));
}

int run_step(shell &sh, after_loss policy, order_step step, ucfg_batch **answer) {
    if (sh.lines)
        for (const order &what : step)
            note(sh, what);
    unsigned before = sh.link.generation();
    int code = sh.link.call(policy, [&](ucfg_conn *conn) { return ask(conn, step, answer); });
    bool gone = code == k_ucfg_lost && (!sh.link.logged_in() || sh.link.generation() != before);
    if (code != k_ucfg_ok && !gone) return code;
    /* Answered by a session that replaced the lost one: still one of the orders that it lacks. */
    if (sh.orders.steps.empty())
        sh.orders.generation = code == k_ucfg_ok ? sh.link.generation() : before;
    sh.orders.steps.push_back(std::move(step));
    return code;
}

int replay_orders(shell &sh) {
    int status = fresh_session(sh);
    if (status != k_exit_done) return status;
    sh.changes.follow(sh.link);
    std::vector<order_step> steps = std::exchange(sh.orders.steps, {});
    for (size_t i = 0; i < steps.size(); i++) {
        size_t kept = sh.orders.steps.size();
        int code = run_step(sh, after_loss::report, steps[i]);
        if (code == k_ucfg_ok) continue;
        bool refused = code <= k_ucfg_inuse && sh.link.logged_in();
        std::string subject = typed_order(steps[i].front());
        if (steps[i].size() > 1) subject += " (a batch of " + std::to_string(steps[i].size()) + ")";
        status = report_failure(sh, subject, code);
        if (refused) continue;
        /* The next attempt needs those that were not reached as well. */
        size_t first = sh.orders.steps.size() == kept ? i : i + 1;
        auto rest = steps.begin() + static_cast<std::ptrdiff_t>(first);
        sh.orders.steps.insert(sh.orders.steps.end(), rest, steps.end());
        return status;
    }
    return status;
}

}  // namespace ucfgsh
