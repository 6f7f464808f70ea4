/* COMMIT of one changed line, and beside it the things that it cannot do without.
 *
 * usage: commit_cost PID SOCKET HOSTS_FILE ENTRIES ROUNDS [ARCHIVE]
 *
 * The floors: fork of a process that has as much resident memory as the daemon at that moment, up
 * to the end of a child that does nothing; the plain program's writing of the same tree, with
 * temporary file, fsync, rename and fsync of the same directory; its reading of that file again.
 * For a daemon with an archive, the writing counts what must be on the disk around it as well, done
 * in the directory ARCHIVE: a folder, the contents before and after, and two states of a record.
 *
 * Prints milliseconds of the COMMIT, of the sum of its floors, their ratio, and the three floors.
 */

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "hosts_file.h"
#include "plain_hosts.h"
#include "process_memory.h"
#include "rounds.h"
#include "ucfgd/owners.h"
#include "wire.h"

namespace {

constexpr const char *k_copy = "hosts.floor";

using plain_tree = owned<plain_node, plain_free>;

/* Memory like that of the daemon: small blocks, all of them written to. */
class ballast {
  public:
    void grow_process_to(long rss_kib) {
        while (memory_of("self").rss_kib < rss_kib) {
            long missing = rss_kib - memory_of("self").rss_kib;
            for (long block = 0; block < missing / (k_block / 1024) + 1; block++) {
                blocks_.push_back(std::make_unique<char[]>(k_block));
                std::memset(blocks_.back().get(), 1, k_block);
            }
        }
    }

  private:
    static constexpr long k_block = 8192;
    std::vector<std::unique_ptr<char[]>> blocks_;
};

struct floors {
    std::vector<double> forking;
    std::vector<double> writing;
    std::vector<double> reading;
};

double fork_us() {
    return timed_us([] {
        pid_t pid = fork();
        if (pid == 0) _exit(0);
        if (pid < 0 || waitpid(pid, nullptr, 0) != pid) give_up("fork");
    });
}

void sync_folder(const std::string &path) {
    unique_fd fd{open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    if (!fd || fsync(fd.get()) != 0) give_up(path);
}

void keep(const std::string &path, const std::string &text) {
    const std::string temporary = path + ".new";
    unique_fd fd{open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)};
    if (!fd || write(fd.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        fsync(fd.get()) != 0 || rename(temporary.c_str(), path.c_str()) != 0)
        give_up(path);
}

/* What an archive needs of the disk before a file may be replaced, and behind it. */
class plain_archive {
  public:
    plain_archive(std::string directory, std::string text)
        : directory_(std::move(directory)), text_(std::move(text)) {}

    void before() {
        if (directory_.empty()) return;
        folder_ = directory_ + "/" + std::to_string(++number_);
        if (mkdir(folder_.c_str(), 0700) != 0) give_up(folder_);
        sync_folder(directory_);
        keep_old();
        keep(folder_ + "/1.after", text_);
        behind();
    }
    void behind() const {
        if (directory_.empty()) return;
        keep(folder_ + "/record", std::string(k_record_size, '\n'));
        sync_folder(folder_);
    }

  private:
    /* Those that the last commit left need no copy. */
    void keep_old() const {
        const std::string last = directory_ + "/" + std::to_string(number_ - 1) + "/1.after";
        const std::string name = folder_ + "/1.before";
        if (number_ == 1) return keep(name, text_);
        if (link(last.c_str(), name.c_str()) != 0) give_up(name);
    }

    static constexpr size_t k_record_size = 600;
    std::string directory_; /* empty: there is no archive */
    std::string text_;
    std::string folder_;
    long number_ = 0;
};

std::string contents(const std::string &file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/* All three, one after the other; their sum in microseconds. */
double floor_us(plain_tree &tree, const std::string &directory, plain_archive &archive,
                floors &each) {
    each.forking.push_back(fork_us());
    each.writing.push_back(timed_us([&] {
        archive.before();
        if (plain_replace_file(tree.get(), directory.c_str(), k_copy) != 0) give_up("write");
        archive.behind();
    }));
    std::string copy = directory + "/" + k_copy;
    tree.reset();
    each.reading.push_back(timed_us([&] { tree.reset(plain_parse_file(copy.c_str())); }));
    if (!tree) give_up(copy);
    return each.forking.back() + each.writing.back() + each.reading.back();
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 6 && argc != 7) {
        std::fprintf(stderr, "usage: commit_cost PID SOCKET HOSTS_FILE ENTRIES ROUNDS [ARCHIVE]\n");
        return 2;
    }
    std::string file = argv[3];
    std::string directory = file.substr(0, file.rfind('/'));
    std::string parameter =
        "network.hosts." + host_address(std::atol(argv[4]) / 2, "%2e") + ".name";
    plain_keep_memory();
    wire line{argv[2]};
    line.login();
    plain_tree tree{plain_parse_file(file.c_str())};
    if (!tree) give_up(file);
    plain_archive archive{argc == 7 ? argv[6] : "", contents(file)};
    ballast filler;
    floors each;
    std::vector<double> measured;
    std::vector<double> floor;
    std::vector<double> ratio;
    int rounds = std::atoi(argv[5]);
    for (int round = 0; round <= rounds; round++) {
        line.ask("t SET " + parameter + " round-" + std::to_string(round) + "%2eexample\n");
        filler.grow_process_to(memory_of(argv[1]).rss_kib);
        double commit = timed_us([&] { line.ask("t COMMIT\n"); });
        if (round == 0) continue; /* both sides have warmed up then */
        measured.push_back(commit);
        floor.push_back(floor_us(tree, directory, archive, each));
        ratio.push_back(commit / floor.back());
    }
    unlink((directory + "/" + k_copy).c_str());
    std::printf("%.4g %.4g %.4f %.4g %.4g %.4g\n", median(measured) / 1000, median(floor) / 1000,
                median(ratio), median(each.forking) / 1000, median(each.writing) / 1000,
                median(each.reading) / 1000);
    return 0;
}
