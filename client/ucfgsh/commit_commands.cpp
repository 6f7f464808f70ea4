/* Making a session's changes real, and what happens when that does not go smoothly.
 *
 * A daemon with an archive tells afterwards what a commit has done; which record is ours is learnt
 * from what is new in the archive. A daemon without one says nothing more than OK, and so do we.
 */
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <random>
#include <thread>

#include "ucfgsh/commands.h"
#include "ucfgsh/commits.h"
#include "ucfgsh/terminal.h"

namespace ucfgsh {

namespace {

constexpr int k_attempts = 8;
constexpr int k_first_pause_ms = 100;
constexpr int k_longest_pause_ms = 800;
constexpr long k_most_minutes = 7L * 24 * 60;

enum class telling { everything, failures, failures_but_conflicts };

struct commit_wish {
    std::optional<std::string> comment;
    long trial_seconds = 0;
};

int give_order(shell &sh, const char *parameter, const std::string &value, const char *flag) {
    if (!has_node(sh.link, k_ucfg_parameters, parameter))
        return complain_missing(sh, flag, parameter);
    int code = sh.link.call(after_loss::same_only, [&](ucfg_conn *conn) {
        return ucfg_set(conn, parameter, value.c_str());
    });
    return code == k_ucfg_ok ? k_exit_done : report_failure(sh, flag, code);
}

int give_orders(shell &sh, const commit_wish &wish) {
    int status = k_exit_done;
    if (wish.trial_seconds > 0)
        status =
            give_order(sh, k_trial_parameter, std::to_string(wish.trial_seconds), "commit --trial");
    if (status == k_exit_done && wish.comment)
        status = give_order(sh, k_comment_parameter, *wish.comment, "commit -m");
    return status;
}

/* The next commit may be meant otherwise. */
void withdraw_orders(shell &sh, const commit_wish &wish) {
    auto set = [&](const char *parameter, const char *value) {
        sh.link.quietly([&](ucfg_conn *conn) { return ucfg_set(conn, parameter, value); });
    };
    if (wish.trial_seconds > 0) set(k_trial_parameter, "0");
    if (wish.comment) set(k_comment_parameter, "");
}

/* The commit of this session among those that were not there before; "" for none. */
std::string own_commit(shell &sh, const std::string &newest_before) {
    std::vector<std::string> fresh = commit_numbers(sh.link);
    fresh.erase(std::find(fresh.begin(), fresh.end(), newest_before), fresh.end());
    if (fresh.size() > 1) {
        std::string process = "pid=" + std::to_string(getpid()) + ",";
        for (const std::string &number : fresh)
            if (commit_part(sh.link, number, "from").find(process) != std::string::npos)
                return number;
    }
    return fresh.empty() ? "" : fresh.back();
}

bool tells_of_failure(const std::string &note) {
    return note.find("fail") != std::string::npos || note.find("error") != std::string::npos;
}

void print_trial(shell &sh) {
    auto left = trial_left(sh.link);
    sh.out.line("on trial" + (left ? ", undone by itself in " + print_duration(*left) : "") +
                ": \"confirm\" keeps it, \"cancel\" undoes it at once");
}

void print_outcome(shell &sh, const std::string &number, bool briefly) {
    std::vector<std::string> notes = split_lines(commit_part(sh.link, number, "notes"));
    if (briefly) {
        for (const std::string &note : notes)
            if (tells_of_failure(note)) sh.out.complain(sh.prefix + "committed, but " + note);
        return;
    }
    sh.out.line(sh.out.paint(style::title, "commit " + number));
    for (const std::string &file : split_lines(commit_part(sh.link, number, "files")))
        sh.out.line("  " + sh.out.paint(style::value, file));
    for (const std::string &note : notes)
        sh.out.line("  " + sh.out.paint(tells_of_failure(note) ? style::bad : style::value, note));
    if (commit_part(sh.link, number, "state") == "trial") print_trial(sh);
}

void tell_outcome_json(shell &sh, const std::string &number) {
    if (number.empty()) return;
    owned_json object = json_object_of({{"state", commit_part(sh.link, number, "state")}});
    json_put(object, "commit", json_number(number));
    for (const char *part : {"files", "notes"})
        json_put(object, part, json_list(split_lines(commit_part(sh.link, number, part))));
    sh.out.document(std::move(object));
}

int commit_changes(shell &sh, const commit_wish &wish, telling what) {
    bool briefly = what != telling::everything;
    if (orders_are_stale(sh))
        return complain_usage(sh,
                              "the changes of the session that was lost are not in this one: "
                              "\"rebase\" makes them again, \"revert\" forgets them");
    std::vector<std::string> numbers = commit_numbers(sh.link);
    std::string newest = numbers.empty() ? "" : numbers.front();
    int status = give_orders(sh, wish);
    if (status != k_exit_done) {
        withdraw_orders(sh, wish);
        return status;
    }
    int code = sh.link.call(after_loss::same_only, ucfg_commit);
    if (code != k_ucfg_ok) {
        status = status_of(code, ucfg_text(sh.link.conn()));
        bool passes = status == k_exit_conflict && !on_trial(sh.link.conn());
        if (!passes || what != telling::failures_but_conflicts) report_failure(sh, "commit", code);
        withdraw_orders(sh, wish);
        if (sh.interactive && sh.link.logged_in() && !sh.orders.steps.empty() && !is_dirty(sh))
            sh.out.complain(
                "  the session is without its changes now: \"rebase\" makes them again");
        return status;
    }
    sh.changes.clear();
    sh.orders.steps.clear();
    std::string number = own_commit(sh, newest);
    sh.number = number;
    if (sh.out.json())
        tell_outcome_json(sh, number);
    else if (!number.empty())
        print_outcome(sh, number, briefly);
    else if (!newest.empty() && !briefly)
        sh.out.line("nothing was to be written");
    if (number.empty() && !briefly && !sh.out.json() && wish.trial_seconds > 0 &&
        trial_left(sh.link))
        print_trial(sh);
    return k_exit_done;
}

std::optional<long> take_minutes(shell &sh, const std::string &text) {
    long minutes = 0;
    auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), minutes);
    if (problem == std::errc{} && end == text.data() + text.size() && minutes >= 1 &&
        minutes <= k_most_minutes)
        return minutes;
    complain_usage(sh, "--trial takes a number of minutes from 1 to " +
                           std::to_string(k_most_minutes) + ", not \"" + text + "\"");
    return std::nullopt;
}

/* Whether the orders can be made again without asking: what the commit was refused for has passed,
 * and nothing is carried out twice. */
bool worth_another_try(shell &sh, int status, bool in_commit) {
    if (g_interrupted || sh.orders.steps.empty() || sh.link.resumed_foreign()) return false;
    if (status == k_exit_conflict) return !on_trial(sh.link.conn());
    if (status != k_exit_unreachable) return false;
    return !in_commit || !sh.link.asked() || sh.orders.repeatable();
}

}  // namespace

int commit_once(shell &sh, int status) {
    std::minstd_rand dice{std::random_device{}()};
    for (int i = 1;; i++) {
        bool in_commit = status == k_exit_done;
        bool last = i == k_attempts || sh.link.resumed_foreign() || sh.orders.steps.empty();
        telling what = last ? telling::failures : telling::failures_but_conflicts;
        if (in_commit) status = commit_changes(sh, {}, what);
        if (status == k_exit_done || last || !worth_another_try(sh, status, in_commit))
            return status;
        /* Those who met once would meet again. */
        std::uniform_int_distribution<int> pause{
            0, std::min(k_first_pause_ms * i, k_longest_pause_ms)};
        std::this_thread::sleep_for(std::chrono::milliseconds{pause(dice)});
        if (status != k_exit_conflict)
            sh.out.complain(sh.prefix + "making the change again, in a new session");
        status = replay_orders(sh);
    }
}

int commit_script(shell &sh) {
    sh.out.begin_answer("commit");
    return commit_changes(sh, {}, telling::failures);
}

int run_commit(shell &sh, const arguments &args) {
    commit_wish wish;
    if (auto flag = args.flags.find('m'); flag != args.flags.end()) wish.comment = flag->second;
    if (auto flag = args.flags.find('t'); flag != args.flags.end()) {
        auto minutes = take_minutes(sh, flag->second);
        if (!minutes) return k_exit_usage;
        wish.trial_seconds = *minutes * 60;
    }
    return commit_changes(sh, wish, sh.opts.quiet ? telling::failures : telling::everything);
}

int run_rebase(shell &sh, const arguments &) {
    if (sh.link.logged_in() && sh.link.resumed_foreign())
        return complain_usage(sh,
                              "the session holds changes that this program has not made, and "
                              "cannot make again");
    size_t count = sh.orders.steps.size();
    int status = replay_orders(sh);
    if (!sh.link.logged_in()) return status;
    if (count == 0 && !sh.out.json()) sh.out.line("there were no changes to make again");
    int shown = run_changes(sh, {});
    return status != k_exit_done ? status : shown;
}

}  // namespace ucfgsh
