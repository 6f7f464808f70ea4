/* Resident memory of a daemon: idle, and what sessions add that have sent a request.
 *
 * usage: sessions PID SOCKET PARAMETER SESSIONS
 *
 * Prints MiB of the daemon that nobody has used yet; KiB that its very first session adds, with all
 * that is made once; and, when that one has logged out again, KiB that a single session adds, and
 * that each of many adds. The daemon must be a fresh one. */

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
    process_memory fresh = memory_of(argv[1]);
    process_memory first;
    {
        std::vector<wire> lines;
        open_sessions(lines, 1, argv[2], request);
        first = memory_of(argv[1]);
        lines.back().ask("t LOGOUT\n");
    }
    std::vector<wire> lines;
    process_memory idle = memory_of(argv[1]);
    open_sessions(lines, 1, argv[2], request);
    process_memory one = memory_of(argv[1]);
    open_sessions(lines, count, argv[2], request);
    process_memory all = memory_of(argv[1]);
    std::printf("%.4g %ld %ld %.4g\n", static_cast<double>(fresh.rss_kib) / 1024,
                first.pss_kib - fresh.pss_kib, one.pss_kib - idle.pss_kib,
                static_cast<double>(all.pss_kib - idle.pss_kib) / static_cast<double>(count));
    return 0;
}
