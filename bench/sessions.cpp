/* Resident memory of a daemon: idle, and what sessions add that have sent a request.
 *
 * usage: sessions PID SOCKET PARAMETER SESSIONS
 *
 * Prints MiB of the idle daemon, KiB that the first session adds, and KiB that each of the others
 * adds. The daemon must be a fresh one. */

#include <cstdlib>
#include <vector>

#include "process_memory.h"
#include "wire.h"

namespace {

void open_sessions(std::vector<wire> &lines, size_t count, const char *path,
                   const std::string &request) {
    while (lines.size() < count) {
        lines.emplace_back(path);
        lines.back().login();
        lines.back().ask(request);
    }
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: sessions PID SOCKET PARAMETER SESSIONS\n");
        return 2;
    }
    std::string request = "t GET " + std::string{argv[3]} + "\n";
    auto count = static_cast<size_t>(std::atol(argv[4]));
    std::vector<wire> lines;
    process_memory idle = memory_of(argv[1]);
    open_sessions(lines, 1, argv[2], request);
    process_memory one = memory_of(argv[1]);
    open_sessions(lines, count, argv[2], request);
    process_memory all = memory_of(argv[1]);
    std::printf("%.4g %ld %.4g\n", static_cast<double>(idle.rss_kib) / 1024,
                one.pss_kib - idle.pss_kib,
                static_cast<double>(all.pss_kib - one.pss_kib) / static_cast<double>(count - 1));
    return 0;
}
