/* Settings as commands: to a file, and from one. */
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <set>

#include "ucfgsh/batch.h"
#include "ucfgsh/change_input.h"
#include "ucfgsh/saved_tree.h"

namespace ucfgsh {

namespace {

bool write_whole(int fd, std::string_view text) {
    while (!text.empty()) {
        ssize_t put = write(fd, text.data(), text.size());
        if (put < 0 && errno != EINTR) return false;
        if (put > 0) text.remove_prefix(static_cast<size_t>(put));
    }
    return fsync(fd) == 0;
}

/* The file appears as a whole, for its user's eyes only. 0 or an errno. */
int write_file(const std::string &file, const std::string &text, bool replace) {
    std::string scratch = file + ".XXXXXX";
    unique_fd fd{mkostemp(scratch.data(), O_CLOEXEC)};
    if (!fd) return errno;
    unsigned flags = replace ? 0 : RENAME_NOREPLACE;
    if (write_whole(fd.get(), text) &&
        renameat2(AT_FDCWD, scratch.c_str(), AT_FDCWD, file.c_str(), flags) == 0)
        return 0;
    int problem = errno;
    unlink(scratch.c_str());
    return problem;
}

int tell_refusals(shell &sh, const std::string &file, const batch_outcome &outcome) {
    if (sh.out.json()) {
        tell_batch_json(sh, outcome, file);
        return status_of(outcome.code, "");
    }
    for (size_t i = 0; i < outcome.answer->count; i++)
        if (outcome.answer->results[i].code != k_ucfg_ok)
            sh.out.complain(sh.prefix + file + ":" + std::to_string(outcome.items[i].line) + ": " +
                            outcome.items[i].typed + ": " + item_reason(outcome, i));
    sh.out.complain(sh.prefix + "nothing of " + file + " was applied");
    return status_of(outcome.code, "");
}

bool tells_once(const std::vector<batch_item> &items) {
    std::set<std::string> subjects;
    return std::all_of(items.begin(), items.end(), [&](const batch_item &item) {
        /* An entry may have a value of its own. */
        const char *kind = item.what.op == k_ucfg_set ? "set " : "";
        return subjects.insert(kind + subject_of(item.what)).second;
    });
}

/* What is so already is not asked for, so that files are left alone. Where one setting has changed
 * another one that was left out, that has its turn afterwards. */
batch_outcome make_so(shell &sh, std::vector<batch_item> items, size_t &count) {
    bool once = tells_once(items);
    std::vector<batch_item> rest = once ? not_yet_so(sh, items) : items;
    count = rest.size();
    std::set<unsigned long> asked;
    for (const batch_item &item : rest)
        asked.insert(item.line);
    batch_outcome outcome = apply_items(sh, std::move(rest));
    if (!once || count == 0 || !outcome.applied()) return outcome;
    std::erase_if(items, [&](const batch_item &item) { return asked.contains(item.line); });
    std::vector<batch_item> disturbed = not_yet_so(sh, items);
    if (disturbed.empty()) return outcome;
    count += disturbed.size();
    return apply_items(sh, std::move(disturbed));
}

}  // namespace

int show_tree_commands(shell &sh, const std::string &path) {
    std::vector<saved_line> lines;
    int status = read_tree(sh, "show", path, lines);
    if (status != k_exit_done) return status;
    if (sh.out.json()) sh.out.document(json_object_of({{"path", print_path(path)}}));
    return show_lines(sh, print_saved(lines));
}

int run_save(shell &sh, const arguments &args) {
    auto path = args.words.size() > 1 ? take_path(sh, args.words[1]) : std::string{};
    if (!path) return k_exit_usage;
    const std::string &file = args.text(0);
    std::vector<saved_line> lines;
    int status = read_tree(sh, "save", *path, lines);
    if (status != k_exit_done) return status;
    std::string text;
    for (const std::string &line : print_saved(lines))
        text += line + "\n";
    int problem = write_file(file, text, args.has('f'));
    if (problem == EEXIST) return complain_failed(sh, "save", file + " exists; -f replaces it");
    if (problem != 0) return complain_failed(sh, "save", file + ": " + strerror(problem));
    auto hidden = std::count_if(lines.begin(), lines.end(),
                                [](const saved_line &line) { return !line.unreadable.empty(); });
    auto count = static_cast<long>(lines.size()) - hidden;
    owned_json members = json_object_of({{"file", file}});
    json_put(members, "count", owned_json{json_integer(count)});
    std::string done = "saved " + std::to_string(count) + " commands in " + file;
    if (hidden > 0)
        done += "; " + std::to_string(hidden) + (hidden == 1 ? " value" : " values") +
                " cannot be read";
    return report_done(sh, done, std::move(members));
}

int load_file(shell &sh, const std::string &file) {
    auto text = read_all(sh, file);
    if (!text) return k_exit_usage;
    /* What a file means does not depend on where its reader stands. */
    std::string here = std::exchange(sh.here, {});
    bad_line bad;
    auto items = read_items(sh, *text, bad);
    sh.here = here;
    if (!items) {
        if (sh.out.json())
            add_error(sh,
                      {.status = "usage", .message = bad.reason, .file = file, .line = bad.line});
        else
            sh.out.complain(sh.prefix + file + ":" + std::to_string(bad.line) + ": " + bad.reason);
        return k_exit_usage;
    }
    size_t count = 0;
    batch_outcome outcome = make_so(sh, std::move(*items), count);
    if (!outcome.applied() && !outcome.answer) return report_failure(sh, "load", outcome.code);
    if (!outcome.applied()) return tell_refusals(sh, file, outcome);
    if (sh.out.json()) tell_batch_json(sh, outcome, file);
    return report_done(
        sh, count > 0 ? count_changes(count) + " of " + file : "it is all as " + file + " says");
}

}  // namespace ucfgsh
