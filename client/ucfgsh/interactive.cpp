/* The terminal: line editing, history, Tab and "?". What is completed and explained comes from
 * completion.cpp; here it only meets the editing library. */
#include "ucfgsh/interactive.h"

#include <fcntl.h>
#include <histedit.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cwchar>

#include "ucfgsh/commits.h"
#include "ucfgsh/explain.h"
#include "ucfgsh/secrets.h"
#include "ucfgsh/terminal.h"

namespace ucfgsh {

namespace {

constexpr timespec k_tick{1, 0};
constexpr wchar_t k_cancel_key = 3;
constexpr size_t k_room_for_time = 20;
constexpr int k_history_size = 1000;
constexpr const char *k_history_name = "/.ucfgsh_history";

size_t count_characters(std::string_view text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U;
    }));
}

page screen() {
    return {static_cast<size_t>(terminal_columns()), static_cast<size_t>(terminal_rows())};
}

class editor : public line_source {
  public:
    explicit editor(shell &sh);
    bool next(std::string &line, const std::string &prompt) override;

  private:
    static editor *of(EditLine *el) {
        void *self = nullptr;
        el_get(el, EL_CLIENTDATA, &self);
        return static_cast<editor *>(self);
    }
    static char *show_prompt(EditLine *el) { return of(el)->prompt_.data(); }
    static int on_read(EditLine *el, wchar_t *to) { return of(el)->read_character(to); }
    static unsigned char on_tab(EditLine *el, int) { return of(el)->complete_here(); }
    static unsigned char on_question(EditLine *el, int) { return of(el)->help_here(); }
    static unsigned char on_cancel(EditLine *el, int) { return of(el)->cancel(); }

    std::string_view before_cursor() const {
        const LineInfo *info = el_line(el_.get());
        return {info->buffer, static_cast<size_t>(info->cursor - info->buffer)};
    }
    int read_character(wchar_t *to);
    void wait_for_key();
    void show_time_left(long seconds);
    void make_prompt();
    unsigned char complete_here();
    unsigned char help_here();
    unsigned char cancel();
    void load_history(const std::string &file);
    void remember(const std::string &line);

    shell &sh_;
    owned<EditLine, el_end> el_;
    owned<History, history_end> history_;
    owned<FILE, fclose> history_file_; /* each line goes to its end as it is typed */
    std::string prompt_;
    std::string state_; /* the prompt without the time that is left of a trial */
    std::optional<std::chrono::steady_clock::time_point> trial_end_;
    bool completing_ = true;
    bool cancelled_ = false;
};

editor::editor(shell &sh)
    : sh_(sh), el_(el_init("ucfgsh", stdin, stdout, stderr)), history_(history_init()) {
    if (!el_ || !history_) throw std::bad_alloc{};
    HistEvent event;
    history(history_.get(), &event, H_SETSIZE, k_history_size);
    history(history_.get(), &event, H_SETUNIQUE, 1);
    const char *home = getenv("HOME");
    if (home && *home) load_history(std::string{home} + k_history_name);
    EditLine *el = el_.get();
    el_set(el, EL_CLIENTDATA, this);
    el_set(el, EL_PROMPT_ESC, show_prompt, '\1');
    el_set(el, EL_EDITOR, "emacs");
    el_set(el, EL_SIGNAL, 1);
    el_set(el, EL_HIST, history, history_.get());
    el_set(el, EL_ADDFN, "ucfg-complete", "complete the word", on_tab);
    el_set(el, EL_ADDFN, "ucfg-help", "explain what belongs here", on_question);
    el_set(el, EL_ADDFN, "ucfg-cancel", "drop the line", on_cancel);
    el_set(el, EL_GETCFN, on_read);
    el_set(el, EL_BIND, "^I", "ucfg-complete", nullptr);
    el_set(el, EL_BIND, "?", "ucfg-help", nullptr);
    el_set(el, EL_BIND, "^C", "ucfg-cancel", nullptr);
    el_set(el, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    /* While a line is edited, Ctrl-C is a key like any other. */
    el_set(el, EL_SETTY, "-d", "-isig", nullptr);
    el_source(el, nullptr);
}

/* A file that has grown is written anew with what is kept of it; otherwise several programs add to
 * it side by side. */
void editor::load_history(const std::string &file) {
    HistEvent event;
    int count = history(history_.get(), &event, H_LOAD, file.c_str());
    unique_fd fd{open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, S_IRUSR | S_IWUSR)};
    struct stat now {};
    if (!fd || fstat(fd.get(), &now) != 0 || !S_ISREG(now.st_mode)) return;
    if ((now.st_mode & (S_IRWXG | S_IRWXO)) != 0) (void)fchmod(fd.get(), S_IRUSR | S_IWUSR);
    history_file_.reset(fdopen(fd.release(), "a"));
    if (!history_file_ || count <= 2 * k_history_size) return;
    if (ftruncate(fileno(history_file_.get()), 0) == 0)
        history(history_.get(), &event, H_SAVE_FP, history_file_.get());
    fflush(history_file_.get());
}

bool editor::next(std::string &line, const std::string &prompt) {
    completing_ = prompt.empty();
    prompt_ = prompt;
    if (completing_) make_prompt();
    int count = 0;
    cancelled_ = false;
    const char *text = el_gets(el_.get(), &count);
    if (cancelled_) g_interrupted = 1;
    if (cancelled_ || !text || count <= 0) return false;
    line.assign(text, static_cast<size_t>(count));
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
        line.pop_back();
    if (completing_) remember(line);
    return true;
}

void editor::make_prompt() {
    state_ = sh_.here.empty() ? "ucfg" : "ucfg " + print_path(sh_.here);
    if (is_dirty(sh_) || orders_are_stale(sh_)) state_ += '*';
    trial_end_.reset();
    auto left = trial_left(sh_.link);
    if (left) trial_end_ = std::chrono::steady_clock::now() + std::chrono::seconds{*left};
    show_time_left(left.value_or(0));
}

void editor::show_time_left(long seconds) {
    std::string text = state_ + (trial_end_ ? " trial " + print_duration(seconds) : "") + ">";
    /* The marks say that what is between them takes no room; the library loses one at the end. */
    bool colored = sh_.out.paint(style::title, "x") != "x";
    prompt_ = (colored ? "\1\033[1m\1" + text + "\1\033[0m\1" : text) + " ";
}

/* Ctrl-C waits as long as this lives, but for the time of a ppoll with `before`. */
class interrupts_held {
  public:
    interrupts_held() {
        sigset_t interrupt;
        sigemptyset(&interrupt);
        sigaddset(&interrupt, SIGINT);
        sigprocmask(SIG_BLOCK, &interrupt, &before);
    }
    interrupts_held(const interrupts_held &) = delete;
    interrupts_held &operator=(const interrupts_held &) = delete;
    ~interrupts_held() { sigprocmask(SIG_SETMASK, &before, nullptr); }

    sigset_t before;
};

/* While a commit is on trial, the prompt counts its seconds down; a line that has grown longer than
 * the screen is left alone. */
void editor::wait_for_key() {
    const interrupts_held held;
    pollfd watch{STDIN_FILENO, POLLIN, 0};
    while (!g_interrupted &&
           ppoll(&watch, 1, trial_end_ && completing_ ? &k_tick : nullptr, &held.before) == 0) {
        auto left = static_cast<long>(
            std::chrono::ceil<std::chrono::seconds>(*trial_end_ - std::chrono::steady_clock::now())
                .count());
        const LineInfo *info = el_line(el_.get());
        size_t used =
            count_characters({info->buffer, static_cast<size_t>(info->lastchar - info->buffer)}) +
            state_.size() + k_room_for_time;
        if (left < 0) trial_end_.reset();
        show_time_left(left);
        if (used >= static_cast<size_t>(terminal_columns())) continue;
        printf("\r%s\r", std::string(used, ' ').c_str());
        if (!trial_end_)
            printf("the time of the trial is over: \"history\" shows what was undone\n");
        fflush(stdout);
        el_set(el_.get(), EL_REFRESH);
    }
}

int editor::read_character(wchar_t *to) {
    mbstate_t state{};
    for (;;) {
        wait_for_key();
        /* Typed before the terminal was the editor's, it came as a signal. */
        if (g_interrupted) {
            g_interrupted = 0;
            *to = k_cancel_key;
            return 1;
        }
        char c = 0;
        ssize_t got = read(STDIN_FILENO, &c, 1);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return static_cast<int>(got);
        size_t used = mbrtowc(to, &c, 1, &state);
        if (used <= 1) return 1;
        if (used == static_cast<size_t>(-1)) state = {};
    }
}

/* A line that begins with a blank stays out of the history; one with a value like a password stays
 * out of its file. */
void editor::remember(const std::string &line) {
    if (line.empty() || line.front() == ' ') return;
    HistEvent event;
    history(history_.get(), &event, H_ENTER, line.c_str());
    FILE *file = history_file_.get();
    if (!file || sets_secret(sh_, split_words(line).list)) return;
    owned<History, history_end> single{history_init()};
    if (!single) return;
    history(single.get(), &event, H_SETSIZE, 1);
    history(single.get(), &event, H_ENTER, line.c_str());
    fseek(file, 0, SEEK_END);
    history(single.get(), &event, H_SAVE_FP, file);
    fflush(file);
}

unsigned char editor::complete_here() {
    if (!completing_) return el_insertstr(el_.get(), "\t") == 0 ? CC_REFRESH : CC_ERROR;
    std::string line{before_cursor()};
    candidates found = complete(sh_, line);
    if (found.items.empty()) return CC_REFRESH_BEEP;
    std::string typed = line.substr(found.start);
    std::string better = common_prefix(found.items);
    if (found.items.size() == 1 && found.final) better += ' ';
    if (found.count > found.items.size()) better = typed;
    if (found.items.size() > 1 && (better.size() <= typed.size() || better.empty())) {
        printf("\n%s", show_candidates(sh_, found, screen()).c_str());
        fflush(stdout);
        return CC_REDISPLAY;
    }
    el_deletestr(el_.get(), static_cast<int>(count_characters(typed)));
    return el_insertstr(el_.get(), better.c_str()) == 0 ? CC_REFRESH : CC_REFRESH_BEEP;
}

unsigned char editor::help_here() {
    std::string line{before_cursor()};
    if (!completing_ || !asks_for_help(line))
        return el_insertstr(el_.get(), "?") == 0 ? CC_REFRESH : CC_ERROR;
    printf("?\n%s", printable(explain(sh_, line, screen())).c_str());
    fflush(stdout);
    return CC_REDISPLAY;
}

/* Of a value of several lines or a batch, nothing is kept. */
unsigned char editor::cancel() {
    cancelled_ = !completing_;
    const LineInfo *info = el_line(el_.get());
    std::string_view all{info->buffer, static_cast<size_t>(info->lastchar - info->buffer)};
    std::string_view rest{info->cursor, static_cast<size_t>(info->lastchar - info->cursor)};
    int behind = static_cast<int>(count_characters(rest));
    int length = static_cast<int>(count_characters(all));
    el_cursor(el_.get(), behind);
    el_deletestr(el_.get(), length);
    printf("^C\n");
    fflush(stdout);
    return cancelled_ ? CC_EOF : CC_REDISPLAY;
}

/* Leaving drops what is not committed: the user is asked to say so twice. */
bool may_leave(shell &sh, bool &warned) {
    if (warned || sh.opts.keep || !(is_dirty(sh) || orders_are_stale(sh))) return true;
    sh.out.complain(
        "There are uncommitted changes (\"changes\" shows them). \"commit\" keeps them;");
    sh.out.complain("leave once more to drop them.");
    warned = true;
    return false;
}

}  // namespace

int run_interactive(shell &sh) {
    editor lines{sh};
    sh.lines = &lines;
    sh.interactive = true;
    sh.prefix = "";
    bool warned = false;
    std::string line;
    for (;;) {
        g_interrupted = 0;
        if (lines.next(line, "")) {
            words split = split_words(line);
            int status = split.open ? complain_usage(sh, "a quote is not closed")
                                    : run_command(sh, split.list);
            sh.out.end_answer(status == k_exit_done);
            sh.out.flush();
            if (!sh.quit && !split.list.empty()) warned = false;
        } else {
            printf("\n");
            sh.quit = true;
        }
        if (sh.quit && may_leave(sh, warned)) break;
        sh.quit = false;
    }
    sh.lines = nullptr;
    return k_exit_done;
}

}  // namespace ucfgsh
