/* A hosts file in the library, and in the plain program beside it: time and memory.
 *
 * usage: hosts_tree HOSTS_FILE ENTRIES ROUNDS
 *
 * Prints three lines: bytes per node (the library, the plain program, a clone in the library) and
 * nanoseconds per node of that clone; milliseconds to parse; milliseconds to write it back after
 * one value has changed (both: the library, the plain program, their ratio). */

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <vector>

#include "hosts_file.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "llconf/path.h"
#include "plain_hosts.h"
#include "process_memory.h"
#include "rounds.h"
#include "wire.h"

namespace {

using library_tree = owned<cnfnode, destroy_cnftree>;
using plain_tree = owned<plain_node, plain_free>;

struct subject {
    const char *file;
    const cnfmodule *module;
    long entries;

    double nodes() const { return static_cast<double>(entries * k_nodes_per_entry); }
    library_tree parse() const {
        library_tree tree{cnfmodule_parse_file(module, file)};
        if (!tree) give_up(cnf_error_text());
        return tree;
    }
    plain_tree parse_plain() const {
        plain_tree tree{plain_parse_file(file)};
        if (!tree) give_up(file);
        return tree;
    }
};

void change_one(cnfnode *root, const subject &of, int round) {
    std::string path = host_address(of.entries / 2, ".") + "/name";
    std::string value = "round-" + std::to_string(round) + ".example";
    if (cnfnode_setval(cnf_get_node(root, path.c_str()), value.c_str()) != 0) give_up(path);
}

/* Both write to where writing costs nothing, so that what is left is making the text. */
double library_write_us(const subject &of, const library_tree &tree, int sink) {
    int result = 0;
    double took = timed_us([&] { result = cnfmodule_unparse_fd(of.module, sink, tree.get()); });
    if (result != 0) give_up(cnf_error_text());
    return took;
}

double plain_write_us(const plain_tree &tree, int sink) {
    ssize_t written = -1;
    double took = timed_us([&] {
        size_t length = 0;
        owned_str text{plain_format(tree.get(), &length)};
        if (text) written = write(sink, text.get(), length);
    });
    if (written < 0) give_up("plain_format");
    return took;
}

void measure_times(const subject &of, int rounds) {
    plain_keep_memory();
    of.parse_plain();
    unique_fd sink{open("/dev/null", O_WRONLY | O_CLOEXEC)};
    if (!sink) give_up("/dev/null");
    pairs parsing;
    pairs writing;
    for (int round = 0; round < rounds; round++) {
        library_tree tree;
        plain_tree plain;
        double library_us = timed_us([&] { tree = of.parse(); });
        parsing.add(library_us / 1000, timed_us([&] { plain = of.parse_plain(); }) / 1000);
        change_one(tree.get(), of, round);
        library_us = library_write_us(of, tree, sink.get());
        writing.add(library_us / 1000, plain_write_us(plain, sink.get()) / 1000);
    }
    parsing.print();
    writing.print();
}

/* Bytes by which a process grows that does the work, which keeps what it returns. */
template <typename work>
double growth(work &&piece) {
    int ends[2];
    if (pipe(ends) != 0) give_up("pipe");
    pid_t pid = fork();
    if (pid < 0) give_up("fork");
    if (pid == 0) {
        long before = memory_of("self").rss_kib;
        auto kept = piece();
        long grown = memory_of("self").rss_kib - before;
        _exit(write(ends[1], &grown, sizeof grown) == sizeof grown ? 0 : 1);
    }
    long grown = 0;
    if (read(ends[0], &grown, sizeof grown) != sizeof grown) give_up("read");
    waitpid(pid, nullptr, 0);
    close(ends[0]);
    close(ends[1]);
    return static_cast<double>(grown) * 1024;
}

double clone_us(const subject &of, int rounds) {
    library_tree tree = of.parse();
    std::vector<double> times;
    for (int round = 0; round < rounds; round++) {
        library_tree copy;
        times.push_back(timed_us([&] { copy.reset(clone_cnftree(tree.get())); }));
        if (!copy) give_up("clone_cnftree");
    }
    return median(times);
}

void measure_memory(const subject &of, int rounds) {
    double library = growth([&] { return of.parse(); });
    double plain = growth([&] { return of.parse_plain(); });
    double clone = growth([&] {
                       library_tree tree = of.parse();
                       library_tree copy{clone_cnftree(tree.get())};
                       return std::pair{std::move(tree), std::move(copy)};
                   }) -
                   library;
    double took = clone_us(of, rounds);
    std::printf("%.4g %.4g %.4g %.4g\n", library / of.nodes(), plain / of.nodes(),
                clone / of.nodes(), took * 1000 / of.nodes());
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: hosts_tree HOSTS_FILE ENTRIES ROUNDS\n");
        return 2;
    }
    if (register_all() != 0) give_up("register_all");
    subject of{argv[1], find_cnfmodule("hosts"), std::atol(argv[2])};
    measure_memory(of, std::atoi(argv[3]));
    measure_times(of, std::atoi(argv[3]));
    return 0;
}
