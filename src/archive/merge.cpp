#include "archive/merge.h"

#include <errno.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "archive/line_diff.h"
#include "ucfgd/owners.h"

namespace {

/* The texts stand in memory, under these descriptors of the program that compares them. */
constexpr int k_first_text = 3;
constexpr std::array k_text_names = {"/dev/fd/3", "/dev/fd/4", "/dev/fd/5"};

unique_fd text_in_memory(const std::string &text) {
    unique_fd fd{memfd_create("text", MFD_CLOEXEC)};
    size_t done = 0;
    while (fd && done < text.size()) {
        ssize_t put = write(fd.get(), text.data() + done, text.size() - done);
        if (put < 0 && errno != EINTR) return unique_fd{};
        if (put > 0) done += static_cast<size_t>(put);
    }
    return fd;
}

class spawn_actions {
  public:
    spawn_actions() { posix_spawn_file_actions_init(&actions_); }
    spawn_actions(const spawn_actions &) = delete;
    spawn_actions &operator=(const spawn_actions &) = delete;
    ~spawn_actions() { posix_spawn_file_actions_destroy(&actions_); }
    void move(int fd, int to) { posix_spawn_file_actions_adddup2(&actions_, fd, to); }
    const posix_spawn_file_actions_t *get() const { return &actions_; }

  private:
    posix_spawn_file_actions_t actions_;
};

/* A descriptor above those that the program gets, so that moving one does not close another. */
unique_fd moved_up(unique_fd fd) {
    return unique_fd{fd ? fcntl(fd.get(), F_DUPFD_CLOEXEC, 16) : -1};
}

pid_t start(std::span<const char *const> words, std::span<const unique_fd> texts, int output) {
    spawn_actions actions;
    actions.move(output, STDOUT_FILENO);
    for (size_t i = 0; i < texts.size(); i++)
        actions.move(texts[i].get(), k_first_text + static_cast<int>(i));
    std::vector<char *> argv;
    for (const char *word : words)
        argv.push_back(const_cast<char *>(word));
    argv.push_back(nullptr);
    char path[] = "PATH=/usr/bin:/bin";
    char locale[] = "LC_ALL=C";
    char *environment[] = {path, locale, nullptr};
    pid_t pid = -1;
    int failure = posix_spawnp(&pid, words[0], actions.get(), nullptr, argv.data(), environment);
    if (failure == 0) return pid;
    errno = failure;
    return -1;
}

int wait_for(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0)
        if (errno != EINTR) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
}

std::string read_output(int fd) {
    std::string output;
    char piece[65536];
    for (;;) {
        ssize_t got = read(fd, piece, sizeof piece);
        if (got == 0 || (got < 0 && errno != EINTR)) return output;
        if (got > 0) output.append(piece, static_cast<size_t>(got));
    }
}

/* Runs a comparing program over texts. Its exit status, 2 or more for trouble; -1 with errno. */
int compare(std::span<const char *const> words, std::span<const std::string *const> texts,
            std::string &output) {
    std::vector<unique_fd> files;
    for (const std::string *text : texts) {
        files.push_back(moved_up(text_in_memory(*text)));
        if (!files.back()) return -1;
    }
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return -1;
    unique_fd from{ends[0]};
    unique_fd to = moved_up(unique_fd{ends[1]});
    pid_t pid = to ? start(words, files, to.get()) : -1;
    if (pid < 0) return -1;
    to.reset();
    output = read_output(from.get());
    return wait_for(pid);
}

/* Lines from up to before to, counted from 0; without one of them, the line they would follow. */
std::string named_lines(size_t from, size_t to) {
    if (to <= from + 1) return "line " + std::to_string(to);
    return "lines " + std::to_string(from + 1) + "-" + std::to_string(to);
}

/* The changes of one side to base, in order, and how its lines lie to those of base behind the ones
 * that have been taken. */
class side {
  public:
    side(const text_lines &lines, const std::vector<line_change> &changes)
        : lines_(lines), changes_(changes) {}

    bool touches(size_t base_to) const {
        return next_ < changes_.size() && changes_[next_].base_from <= base_to;
    }
    size_t next_base() const {
        return next_ < changes_.size() ? changes_[next_].base_from : SIZE_MAX;
    }
    /* Takes the next change; where it ends in base. */
    size_t take() {
        const line_change &one = changes_[next_++];
        base_at_ = one.base_to;
        at_ = one.other_to;
        return one.base_to;
    }
    /* A group of base's lines begins; what has become of them when it has ended. */
    void begin(size_t base_from) { from_ = at_ + (base_from - base_at_); }
    size_t from() const { return from_; }
    size_t to(size_t base_to) const { return at_ + (base_to - base_at_); }
    std::span<const std::string_view> part(size_t base_to) const {
        return std::span{lines_}.subspan(from_, to(base_to) - from_);
    }

  private:
    const text_lines &lines_;
    const std::vector<line_change> &changes_;
    size_t next_ = 0;
    size_t base_at_ = 0;
    size_t at_ = 0;
    size_t from_ = 0;
};

void append(std::string &text, std::span<const std::string_view> lines) {
    for (const std::string_view line : lines)
        text.append(line);
}

/* Changes that touch each other, though in no line, are one: their order would be a guess. */
text_merge merge_sides(const text_lines &base, side &mine, side &yours) {
    text_merge merged{merge_result::merged, "", ""};
    for (size_t done = 0; done < base.size() || mine.touches(done) || yours.touches(done);) {
        const size_t from = std::min({mine.next_base(), yours.next_base(), base.size()});
        append(merged.text, std::span{base}.subspan(done, from - done));
        mine.begin(from);
        yours.begin(from);
        bool is_mine = false;
        bool is_yours = false;
        size_t to = from;
        while (mine.touches(to) || yours.touches(to)) {
            const bool takes_mine = mine.touches(to);
            to = std::max(to, takes_mine ? mine.take() : yours.take());
            (takes_mine ? is_mine : is_yours) = true;
        }
        const auto ours = mine.part(to);
        const auto theirs = yours.part(to);
        if (is_mine && is_yours && !std::ranges::equal(ours, theirs)) {
            merged.result = merge_result::conflict;
            merged.conflicts +=
                (merged.conflicts.empty() ? "" : ", ") + named_lines(mine.from(), mine.to(to));
        }
        append(merged.text, is_mine ? ours : theirs);
        done = to;
    }
    if (merged.result == merge_result::conflict) merged.text.clear();
    return merged;
}

/* "3,5c" or "9a" as "lines 3-5" or "line 9". */
std::string named_lines(std::string_view range) {
    std::string text{range};
    while (!text.empty() && !std::isdigit(static_cast<unsigned char>(text.back())))
        text.pop_back();
    size_t comma = text.find(',');
    if (comma == std::string::npos) return "line " + text;
    text[comma] = '-';
    return "lines " + text;
}

/* In diff3's list a difference begins with "===="; "====" alone when all three differ. Then follow
 * the ranges, each behind the number of its text; the first text is ours. */
std::string conflicts_in(std::string_view list) {
    std::string conflicts;
    bool overlapping = false;
    while (!list.empty()) {
        std::string_view line = list.substr(0, list.find('\n'));
        list.remove_prefix(std::min(line.size() + 1, list.size()));
        if (line.starts_with("====")) overlapping = line == "====";
        if (!overlapping || !line.starts_with("1:")) continue;
        conflicts += (conflicts.empty() ? "" : ", ") + named_lines(line.substr(2));
    }
    return conflicts;
}

/* For texts that differ in many lines. */
text_merge merge_with_program(const std::string &base, const std::string &mine,
                              const std::string &yours) {
    const std::string *texts[] = {&mine, &base, &yours};
    /* Without -E the same change on both sides would be a conflict. */
    const char *merge[] = {"diff3",         "-a",           "-E", "-m", k_text_names[0],
                           k_text_names[1], k_text_names[2]};
    text_merge merged;
    int status = compare(merge, texts, merged.text);
    if (status == 0) {
        merged.result = merge_result::merged;
        return merged;
    }
    merged.text.clear();
    if (status != 1) {
        if (status > 1) errno = EIO;
        return merged;
    }
    const char *list[] = {"diff3", "-a", k_text_names[0], k_text_names[1], k_text_names[2]};
    std::string differences;
    if (compare(list, texts, differences) < 0) return merged;
    merged.result = merge_result::conflict;
    merged.conflicts = conflicts_in(differences);
    return merged;
}

}  // namespace

text_merge merge_texts(const std::string &base, const std::string &mine, const std::string &yours) {
    if (mine == base) return {merge_result::merged, yours, ""};
    if (yours == base || yours == mine) return {merge_result::merged, mine, ""};
    const text_lines base_lines = lines_of(base);
    const text_lines mine_lines = lines_of(mine);
    const text_lines yours_lines = lines_of(yours);
    const auto my_changes = changes_between(base_lines, mine_lines);
    const auto your_changes = my_changes ? changes_between(base_lines, yours_lines) : std::nullopt;
    if (!your_changes) return merge_with_program(base, mine, yours);
    side my_side{mine_lines, *my_changes};
    side your_side{yours_lines, *your_changes};
    return merge_sides(base_lines, my_side, your_side);
}

int unified_diff(const std::string &before, const std::string &after,
                 const std::string &before_label, const std::string &after_label,
                 std::string &difference) {
    const std::string *texts[] = {&before, &after};
    const char *words[] = {"diff",
                           "-u",
                           "-a",
                           "--label",
                           before_label.c_str(),
                           "--label",
                           after_label.c_str(),
                           k_text_names[0],
                           k_text_names[1]};
    int status = compare(words, texts, difference);
    if (status == 0 || status == 1) return 0;
    if (status > 1) errno = EIO;
    return -1;
}
