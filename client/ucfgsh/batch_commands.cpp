/* Several changes at once, as they are typed: all of them or none. */
#include "ucfgsh/batch.h"
#include "ucfgsh/change_input.h"
#include "ucfgsh/terminal.h"

namespace ucfgsh {

namespace {

/* The items of the arguments, of a file, or of what follows up to "end". */
std::optional<std::vector<batch_item>> take_items(shell &sh, const arguments &args) {
    std::vector<batch_item> items;
    bad_line bad;
    for (const word &w : args.words) {
        auto item = read_item(sh, w.text, bad.reason);
        if (!item) {
            complain_usage(sh, bad.reason);
            return std::nullopt;
        }
        items.push_back(std::move(*item));
    }
    if (!items.empty()) return items;
    auto flag = args.flags.find('f');
    bool here = flag == args.flags.end() && sh.lines;
    auto text =
        here ? read_lines(sh, "end") : read_all(sh, flag == args.flags.end() ? "-" : flag->second);
    if (!text) return std::nullopt;
    auto found = read_items(sh, *text, bad);
    if (!found) complain_usage(sh, bad.reason);
    return found;
}

void print_batch(shell &sh, const batch_outcome &outcome) {
    for (size_t i = 0; i < outcome.answer->count; i++) {
        bool fine = outcome.answer->results[i].code == k_ucfg_ok;
        if (fine && outcome.applied() && !sh.interactive) continue;
        std::string line =
            sh.out.paint(fine ? style::good : style::bad, fine ? "ok      " : "refused ");
        line += sh.out.paint(style::value, outcome.items[i].typed);
        if (!fine) line += ": " + sh.out.paint(style::bad, item_reason(outcome, i));
        sh.out.line(line);
    }
}

}  // namespace

int run_submit(shell &sh, const arguments &args) {
    auto items = take_items(sh, args);
    if (!items) return g_interrupted ? k_exit_interrupted : k_exit_usage;
    batch_outcome outcome = apply_items(sh, std::move(*items));
    if (!outcome.answer && !outcome.applied()) return report_failure(sh, "submit", outcome.code);
    if (sh.out.json()) {
        tell_batch_json(sh, outcome, "");
        return status_of(outcome.code, "");
    }
    if (outcome.answer) print_batch(sh, outcome);
    if (outcome.applied()) return report_done(sh, count_changes(outcome.items.size()));
    const std::string &text = outcome.text;
    sh.out.complain(sh.prefix + "nothing of the batch was applied" +
                    (text.empty() ? "" : ": " + readable(text)));
    return k_exit_failed;
}

}  // namespace ucfgsh
