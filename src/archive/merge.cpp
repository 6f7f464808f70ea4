#include "archive/merge.h"

#include <errno.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <span>
#include <string_view>
#include <vector>

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

}  // namespace

text_merge merge_texts(const std::string &base, const std::string &mine, const std::string &yours) {
    if (mine == base) return {merge_result::merged, yours, ""};
    if (yours == base || yours == mine) return {merge_result::merged, mine, ""};
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
