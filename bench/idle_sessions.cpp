/* What a GET takes beside sessions that are logged in and silent, and what each of them weighs.
 *
 * usage: idle_sessions PID SOCKET ROUNDS PARAMETER SESSIONS...
 *
 * SESSIONS are numbers in ascending order. Prints a line of microseconds for one request, one for
 * each number, and a line of the KiB of the daemon's memory that each of so many sessions takes;
 * "-" for none. Each session has sent one request. The daemon must be a fresh one, and both need a
 * descriptor for each session. */

#include <sys/resource.h>

#include <cstdlib>
#include <vector>

#include "process_memory.h"
#include "rounds.h"
#include "wire.h"

namespace {

constexpr int k_requests = 1000; /* in one round */

void take_all_descriptors() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

double request_us(wire &line, const std::string &request, int rounds) {
    std::vector<double> took;
    for (int round = 0; round < rounds; round++)
        took.push_back(timed_us([&] {
                           for (int i = 0; i < k_requests; i++)
                               line.ask(request);
                       }) /
                       k_requests);
    return median(took);
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 6) {
        std::fprintf(stderr, "usage: idle_sessions PID SOCKET ROUNDS PARAMETER SESSIONS...\n");
        return 2;
    }
    take_all_descriptors();
    const int rounds = std::atoi(argv[3]);
    const std::string request = "t GET " + std::string{argv[4]} + "\n";
    wire line{argv[2]};
    line.login();
    line.ask(request);
    const process_memory none = memory_of(argv[1]);
    std::vector<wire> silent;
    std::string weights;
    for (int i = 5; i < argc; i++) {
        const auto count = static_cast<size_t>(std::atol(argv[i]));
        while (silent.size() < count) {
            silent.emplace_back(argv[2]);
            silent.back().login();
            silent.back().ask(request);
            silent.back().forget_reply();
        }
        std::printf("%.4g ", request_us(line, request, rounds));
        char weight[32] = "- ";
        if (count > 0) {
            const long grown = memory_of(argv[1]).pss_kib - none.pss_kib;
            std::snprintf(weight, sizeof weight, "%.3g ",
                          static_cast<double>(grown) / static_cast<double>(count));
        }
        weights += weight;
    }
    std::printf("\n%s\n", weights.c_str());
    return 0;
}
