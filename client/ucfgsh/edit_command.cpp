/* A part of the tree in the user's editor. What is applied is the difference between the commands
 * that were there before and those that are there afterwards, as one batch. Whatever is refused is
 * handed back with its reasons, until it fits or the user leaves it as it is. */
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "ucfgsh/batch.h"
#include "ucfgsh/change_input.h"
#include "ucfgsh/saved_tree.h"

namespace ucfgsh {

namespace {

constexpr const char *k_mark = "#! ";
constexpr const char *k_heading =
    "# What differs when you leave the editor is applied, all or nothing.\n"
    "# An entry whose \"add\" is taken away is deleted; a parameter whose \"set\" is\n"
    "# taken away keeps its value. An empty text changes nothing.\n";

/* Those that understand "+12" as the line to begin at. */
constexpr std::array k_line_editors{"vi",     "vim", "nvim",  "view", "nano",      "emacs",
                                    "joe",    "jed", "mg",    "ne",   "zile",      "micro",
                                    "mcedit", "kak", "elvis", "nvi",  "vim.basic", "vim.tiny"};

/* A file that goes away with it, unless it is kept. */
class scratch_file {
  public:
    scratch_file() {
        const char *directory = getenv("TMPDIR");
        name_ = std::string{directory && *directory ? directory : "/tmp"} + "/ucfgsh-XXXXXX.conf";
        unique_fd fd{mkostemps(name_.data(), static_cast<int>(strlen(".conf")), O_CLOEXEC)};
        if (!fd) name_.clear();
    }
    scratch_file(const scratch_file &) = delete;
    scratch_file &operator=(const scratch_file &) = delete;
    ~scratch_file() {
        if (!name_.empty() && !kept_) unlink(name_.c_str());
    }

    const std::string &name() const { return name_; }
    void keep() { kept_ = true; }
    bool write(const std::string &text) const {
        std::ofstream file{name_, std::ios::binary | std::ios::trunc};
        file << text;
        return static_cast<bool>(file.flush());
    }

  private:
    std::string name_;
    bool kept_ = false;
};

std::string chosen_editor() {
    for (const char *variable : {"VISUAL", "EDITOR"})
        if (const char *chosen = getenv(variable); chosen && *chosen) return chosen;
    return access("/usr/bin/editor", X_OK) == 0 ? "editor" : "vi";
}

bool takes_line(const std::string &editor) {
    std::string program = editor.substr(0, editor.find(' '));
    program = program.substr(program.rfind('/') + 1);
    return std::find(k_line_editors.begin(), k_line_editors.end(), program) != k_line_editors.end();
}

/* True when the editor has ended well. Ctrl-C is for it alone meanwhile. */
bool run_editor(const std::string &file, unsigned long line) {
    std::string editor = chosen_editor();
    std::string place = "+" + std::to_string(line);
    std::string call = editor + " \"$@\"";
    struct sigaction ignore {
    }, before{};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGINT, &ignore, &before);
    pid_t child = fork();
    if (child == 0) {
        signal(SIGINT, SIG_DFL);
        signal(SIGPIPE, SIG_DFL);
        const char *first = line > 0 && takes_line(editor) ? place.c_str() : file.c_str();
        const char *second = first == file.c_str() ? nullptr : file.c_str();
        execl("/bin/sh", "sh", "-c", call.c_str(), "sh", first, second, nullptr);
        _exit(127);
    }
    int status = -1;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR)
        continue;
    sigaction(SIGINT, &before, nullptr);
    return child > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/* Without the reasons of the last attempt. */
std::string without_marks(const std::string &text) {
    std::istringstream lines{text};
    std::string plain;
    for (std::string line; std::getline(lines, line);)
        if (!line.starts_with(k_mark)) plain += line + "\n";
    return plain;
}

using reasons = std::map<unsigned long, std::string>;

/* Each reason above its line; those of no line come first. */
std::string with_marks(const std::string &text, const reasons &why, unsigned long &first) {
    std::istringstream lines{text};
    std::string marked;
    unsigned long number = 0, shown = 0;
    first = 0;
    auto mark = [&] {
        auto reason = why.find(number);
        if (reason == why.end()) return;
        marked += k_mark + reason->second + "\n";
        shown++;
        if (first == 0) first = number + shown;
    };
    mark();
    for (std::string line; std::getline(lines, line);) {
        number++;
        mark();
        marked += line + "\n";
    }
    return marked;
}

std::string entry_of(const order &what) {
    return take_text(ucfg_path_append(what.path.c_str(), what.value.c_str()));
}

/* What leads from the old commands to the new ones: entries that are gone are deleted, then what
 * is new is done in its order. */
std::vector<batch_item> difference(const std::vector<saved_line> &before,
                                   const std::vector<batch_item> &after) {
    std::set<std::string> known, wanted;
    for (const saved_line &line : before)
        if (line.unreadable.empty()) known.insert(typed_order(line.what));
    for (const batch_item &item : after)
        wanted.insert(typed_order(item.what));
    std::vector<batch_item> items;
    std::string gone; /* the last deleted entry; what lies in it goes with it */
    for (const saved_line &line : before) {
        if (line.what.op != k_ucfg_add || wanted.contains(typed_order(line.what))) continue;
        std::string entry = entry_of(line.what);
        if (!gone.empty() && entry.starts_with(gone + ".")) continue;
        gone = entry;
        order what{k_ucfg_del, line.what.path, line.what.value};
        items.push_back({what, typed_order(what)});
    }
    for (const batch_item &item : after)
        if (!known.contains(typed_order(item.what))) items.push_back(item);
    return items;
}

/* One look at the text that the editor has left. */
struct attempt_to_apply {
    bool done = false;
    batch_outcome outcome = {};
    reasons why = {};
};

attempt_to_apply try_text(shell &sh, const std::vector<saved_line> &before,
                          const std::string &text) {
    attempt_to_apply tried;
    std::string here = std::exchange(sh.here, {});
    bad_line bad;
    auto items = read_items(sh, text, bad);
    sh.here = here;
    if (!items) {
        tried.why[bad.line] = bad.reason;
        return tried;
    }
    /* Nothing at all is more likely a way out than the wish to delete everything. */
    if (!items->empty()) tried.outcome = apply_items(sh, difference(before, *items));
    tried.done = tried.outcome.applied();
    if (tried.done) return tried;
    if (!tried.outcome.answer) {
        tried.why[0] = ucfg_text(sh.link.conn());
        return tried;
    }
    for (size_t i = 0; i < tried.outcome.answer->count; i++) {
        if (tried.outcome.answer->results[i].code == k_ucfg_ok) continue;
        const batch_item &item = tried.outcome.items[i];
        std::string &why = tried.why[item.line];
        why += (why.empty() ? "" : "; ") + (item.line == 0 ? item.typed + ": " : "") +
               item_reason(tried.outcome, i);
    }
    return tried;
}

int tell_applied(shell &sh, const batch_outcome &outcome) {
    if (sh.out.json()) tell_batch_json(sh, outcome, "");
    return report_done(
        sh, outcome.items.empty() ? "nothing was changed" : count_changes(outcome.items.size()));
}

int give_up(shell &sh, scratch_file &file, const attempt_to_apply &tried, const std::string &text) {
    file.keep();
    (void)file.write(text);
    if (!tried.why.empty() && !sh.out.json())
        for (const auto &[line, reason] : tried.why)
            sh.out.complain(sh.prefix + file.name() + ":" + std::to_string(line) + ": " + reason);
    return complain_failed(sh, "edit", "nothing was changed; your text is in " + file.name());
}

}  // namespace

int run_edit(shell &sh, const arguments &args) {
    auto path = args.words.empty() ? sh.here : take_path(sh, args.words[0]);
    if (!path) return k_exit_usage;
    std::vector<saved_line> before;
    int status = read_tree(sh, "edit", *path, before);
    if (status != k_exit_done) return status;
    std::string text = k_heading;
    for (const std::string &line : print_saved(before))
        text += line + "\n";
    scratch_file file;
    std::string shown = text;
    attempt_to_apply tried;
    for (unsigned long line = 0;;) {
        if (file.name().empty() || !file.write(shown))
            return complain_failed(sh, "edit", std::string{"no scratch file: "} + strerror(errno));
        sh.out.flush();
        bool fine = run_editor(file.name(), line);
        auto now = read_all(sh, file.name());
        std::string left = without_marks(now.value_or(text));
        bool same = left == text;
        if (tried.why.empty() && same && fine) return tell_applied(sh, {});
        if (!fine && same && tried.why.empty())
            return complain_failed(sh, "edit", "the editor has failed; nothing was changed");
        if (!fine || same) return give_up(sh, file, tried, left);
        text = left;
        tried = try_text(sh, before, text);
        if (tried.done) return tell_applied(sh, tried.outcome);
        if (!sh.link.logged_in()) return give_up(sh, file, tried, text);
        shown = with_marks(text, tried.why, line);
    }
}

}  // namespace ucfgsh
