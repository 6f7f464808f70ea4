#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

/* Runs a fuzz target without a fuzzing engine, so that the tests need no other compiler than the
 * rest: every file of a corpus, then mutations of them, the same ones in every run.
 *
 *     fuzz_NAME CORPUS [MUTATIONS [SECONDS]]
 *     fuzz_NAME FILE                             one input alone, for a debugger
 *
 * An input that kills the target is left in "crash-NAME" in the current directory; give it as FILE.
 * It belongs into the corpus once it is mended. An input that takes longer than a minute counts as
 * one that never ends. The targets have the interface of the usual engines and can be linked to one
 * of those in place of this file. */

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);
extern "C" __attribute__((weak)) void __sanitizer_set_death_callback(void (*callback)());

namespace {

constexpr std::size_t k_longest = 4096;
constexpr unsigned k_endless_seconds = 60;

/* What the syntaxes are made of, so that mutations get past the first character. */
constexpr std::array<std::string_view, 40> k_words = {
    "(",          ")",          "{",        "}",        "[",
    "]",          "'",          "\"",       "\\",       "\n",
    "\n\n",       "\r\n",       " ",        "\t",       "=",
    ":",          ": ",         "#",        ";",        ",",
    "..",         "%2e",        "%",        "*",        "/",
    "$_",         "$0",         "&& ",      "? 1 :",    "-9223372036854775808",
    "99999",      "\xc3\xa9",   "\xff",     " SET a ",  "a.1 ADD list e3\n",
    "a SUBMIT\n", "a COMMIT\n", "a NOOP\n", "foreach(", "list(",
};

const std::string *g_running = nullptr;
std::string g_crash_file;

/* Only what a signal handler may do. */
void keep_input() {
    const int fd = open(g_crash_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0 || !g_running) return;
    const ssize_t written = write(fd, g_running->data(), g_running->size());
    close(fd);
    static const char k_note[] = "The input that did this is in the file crash-*.\n";
    if (written >= 0 && write(STDERR_FILENO, k_note, sizeof k_note - 1) < 0) _exit(1);
}

void keep_input_and_die(int signal) {
    keep_input();
    ::signal(signal, SIG_DFL);
    raise(signal);
}

/* A sanitizer tells more about bad accesses than we could, so those signals are its own. */
void watch_for_death() {
    std::vector<int> watched = {SIGABRT, SIGALRM};
    if (__sanitizer_set_death_callback)
        __sanitizer_set_death_callback(keep_input);
    else
        watched.insert(watched.end(), {SIGSEGV, SIGBUS, SIGFPE, SIGILL});
    for (const int signal : watched)
        ::signal(signal, keep_input_and_die);
}

void run(const std::string &input) {
    g_running = &input;
    alarm(k_endless_seconds);
    /* A copy of its exact size, so that a sanitizer sees every byte read beyond it. */
    const std::vector<std::uint8_t> bytes(input.begin(), input.end());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    alarm(0);
}

/* The same numbers on every machine. */
class random_numbers {
  public:
    std::size_t below(std::size_t limit) {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 7;
        state_ ^= state_ << 17;
        return static_cast<std::size_t>(state_ >> 16) % std::max<std::size_t>(limit, 1);
    }

  private:
    std::uint64_t state_ = 0x9e3779b97f4a7c15;
};

class mutator {
  public:
    explicit mutator(const std::vector<std::string> &seeds) : seeds_(seeds) {}

    std::string next() {
        std::string text = seeds_[random_.below(seeds_.size())];
        for (std::size_t changes = 1 + random_.below(6); changes > 0; changes--)
            change(text);
        text.resize(std::min(text.size(), k_longest));
        return text;
    }

  private:
    void change(std::string &text) {
        const std::size_t at = random_.below(text.size() + 1);
        const std::size_t count = random_.below(std::min<std::size_t>(text.size() - at, 64) + 1);
        const std::string &other = seeds_[random_.below(seeds_.size())];
        switch (random_.below(7)) {
            case 0:
                text.insert(at, k_words[random_.below(k_words.size())]);
                break;
            case 1:
                text.erase(at, count);
                break;
            case 2:
                text.insert(random_.below(text.size() + 1), text.substr(at, count));
                break;
            case 3:
                text.replace(at, count, other, random_.below(other.size() + 1), 64);
                break;
            case 4:
                if (at < text.size()) text[at] = static_cast<char>(random_.below(256));
                break;
            case 5:
                if (at < text.size())
                    text[at] = static_cast<char>(text[at] ^ (1 << random_.below(8)));
                break;
            default:
                for (std::size_t times = random_.below(50); times > 0; times--)
                    text.insert(at, text.substr(at, count));
        }
    }

    const std::vector<std::string> &seeds_;
    random_numbers random_;
};

std::string read_file(const std::filesystem::path &name) {
    std::ifstream stream{name, std::ios::binary};
    return {std::istreambuf_iterator<char>{stream}, {}};
}

std::vector<std::string> read_corpus(const char *directory) {
    std::vector<std::filesystem::path> names;
    for (const auto &entry : std::filesystem::directory_iterator{directory})
        names.push_back(entry.path());
    std::sort(names.begin(), names.end());
    std::vector<std::string> seeds;
    for (const std::filesystem::path &name : names)
        seeds.push_back(read_file(name));
    return seeds;
}

void run_corpus(const char *directory, long mutations, long seconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds{seconds};
    const std::vector<std::string> seeds = read_corpus(directory);
    if (seeds.empty()) {
        fprintf(stderr, "%s: no inputs\n", directory);
        exit(1);
    }
    for (const std::string &seed : seeds)
        run(seed);
    mutator mutants{seeds};
    long done = 0;
    for (; done < mutations && std::chrono::steady_clock::now() < end; done++)
        run(mutants.next());
    printf("%zu inputs, %ld mutations of them\n", seeds.size(), done);
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 2) {
        fprintf(stderr, "Usage: %s CORPUS [MUTATIONS [SECONDS]]\n       %s FILE\n", argv[0],
                argv[0]);
        return 2;
    }
    g_crash_file = "crash-" + std::filesystem::path{argv[0]}.filename().string();
    watch_for_death();
    if (std::filesystem::is_directory(argv[1])) {
        run_corpus(argv[1], argc > 2 ? std::atol(argv[2]) : 100'000,
                   argc > 3 ? std::atol(argv[3]) : 3);
    } else {
        run(read_file(argv[1]));
    }
    return 0;
}
