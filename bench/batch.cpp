/* How long a batch of changes takes: collected lines and a SUBMIT, up to the last line of the
 * reply.
 *
 * usage: batch SOCKET ROUNDS ENTRIES ITEMS...
 *
 * Each item changes an entry of a hosts file that has so many. Prints a line of milliseconds, one
 * for each number of items, and a line of microseconds for one item. */

#include <cstdlib>
#include <vector>

#include "hosts_file.h"
#include "rounds.h"
#include "wire.h"

namespace {

std::string batch(long items, long entries) {
    std::string text;
    for (long i = 0; i < items; i++)
        text += "t." + std::to_string(i) + " SET network.hosts." +
                host_address(i % entries, "%2e") + ".name changed-" + std::to_string(i) +
                "%2eexample%2enet\n";
    return text + "t SUBMIT\n";
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 5) {
        std::fprintf(stderr, "usage: batch SOCKET ROUNDS ENTRIES ITEMS...\n");
        return 2;
    }
    const int rounds = std::atoi(argv[2]);
    const long entries = std::atol(argv[3]);
    wire line{argv[1]};
    line.login();
    std::string each;
    for (int i = 4; i < argc; i++) {
        const long items = std::atol(argv[i]);
        const std::string text = batch(items, entries);
        std::vector<double> took;
        for (int round = 0; round < rounds; round++) {
            took.push_back(timed_us([&] { line.ask(text); }));
            line.ask("t REVERT\n");
        }
        std::printf("%.4g ", median(took) / 1000);
        char one[32];
        std::snprintf(one, sizeof one, "%.3g ", median(took) / static_cast<double>(items));
        each += one;
    }
    std::printf("\n%s\n", each.c_str());
    return 0;
}
