/* What listings and single entries cost.
 *
 * usage: listing SOCKET PROCESS leaves|entries COUNT ROUNDS
 *
 * leaves: prints the microseconds that LISTR of the whole tree takes for each of its COUNT leaves,
 * up to the last byte that the client reads, and by how many KiB the daemon's memory grew
 * meanwhile.
 *
 * entries: prints the microseconds of one ADD to the hosts file, of one GET of "asked", whose
 * access rule looks for a name among its entries, and of one DEL. Each edit ends what is kept of
 * answers, so the rule is evaluated. The first edit, which copies the tree, is not among them. */

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string_view>

#include "rounds.h"
#include "wire.h"

namespace {

long status_kib(const std::string &process, std::string_view key) {
    std::ifstream status("/proc/" + process + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(key)) return std::atol(line.c_str() + key.size());
    }
    give_up("no " + std::string(key) + " of process " + process);
}

void measure_leaves(wire &line, const std::string &process, long count, int rounds) {
    std::vector<double> times;
    std::ofstream("/proc/" + process + "/clear_refs") << "5"; /* the peak begins anew */
    const long before = status_kib(process, "VmRSS:");
    for (int i = 0; i < rounds; i++)
        times.push_back(timed_us([&line] { line.ask("t LISTR\n"); }) / static_cast<double>(count));
    std::printf("%.3g %ld\n", median(times), status_kib(process, "VmHWM:") - before);
}

void measure_entries(wire &line, int rounds) {
    std::vector<double> adds;
    std::vector<double> gets;
    std::vector<double> dels;
    line.ask("t ADD network.hosts 192%2e0%2e2%2e1\n");
    for (int i = 0; i < rounds * 100; i++) {
        const std::string entry = " network.hosts 2001:db8::" + std::to_string(i % 1000) + "\n";
        adds.push_back(timed_us([&] { line.ask("t ADD" + entry); }));
        gets.push_back(timed_us([&] { line.ask("t GET asked\n"); }));
        dels.push_back(timed_us([&] { line.ask("t DEL" + entry); }));
    }
    line.ask("t REVERT\n");
    std::printf("%.3g %.3g %.3g\n", median(adds), median(gets), median(dels));
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 6) {
        std::fprintf(stderr, "usage: listing SOCKET PROCESS leaves|entries COUNT ROUNDS\n");
        return 2;
    }
    wire line{argv[1]};
    line.login();
    const int rounds = std::atoi(argv[5]);
    if (std::string_view(argv[3]) == "leaves") {
        measure_leaves(line, argv[2], std::atol(argv[4]), rounds);
    } else {
        measure_entries(line, rounds);
    }
    return 0;
}
