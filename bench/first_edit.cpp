/* What the first edit of a session adds to the cost of an edit, for each node of the file.
 *
 * usage: first_edit PID SOCKET ENTRIES ROUNDS
 *
 * Prints nanoseconds and bytes per node. Memory is that of the first round: later ones find the
 * pages that a revert has given back. */

#include <cstdlib>
#include <vector>

#include "hosts_file.h"
#include "process_memory.h"
#include "rounds.h"
#include "wire.h"

int main(int argc, char **argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: first_edit PID SOCKET ENTRIES ROUNDS\n");
        return 2;
    }
    auto nodes = static_cast<double>(std::atol(argv[3]) * k_nodes_per_entry);
    wire line{argv[2]};
    line.login();
    std::string parameter = "network.hosts." + host_address(1, "%2e") + ".name ";
    std::vector<double> extra_us;
    long before = memory_of(argv[1]).rss_kib;
    long after = before;
    for (int round = std::atoi(argv[4]); round > 0; round--) {
        double first = timed_us([&] { line.ask("t SET " + parameter + "first%2eexample\n"); });
        if (extra_us.empty()) after = memory_of(argv[1]).rss_kib;
        double later = timed_us([&] { line.ask("t SET " + parameter + "second%2eexample\n"); });
        extra_us.push_back(first - later);
        line.ask("t REVERT\n");
    }
    std::printf("%.4g %.4g\n", median(extra_us) * 1000 / nodes,
                static_cast<double>(after - before) * 1024 / nodes);
    return 0;
}
