/* What a directory instance of many members costs.
 *
 * usage: members SOCKET MEMBERS ROUNDS
 *
 * The parameters are those that bench/run defines for it. Prints milliseconds of a COMMIT of one
 * changed member, of a log-in, and of a REVERT of another one. */

#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "rounds.h"
#include "wire.h"

namespace {

/* Longer than a file that has just changed may change again unseen. */
constexpr useconds_t k_settling_us = 50'000;

std::string set_member(long number, int round) {
    return "t SET members.member-" + std::to_string(number) + "%2econf.name round-" +
           std::to_string(round) + "\n";
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: members SOCKET MEMBERS ROUNDS\n");
        return 2;
    }
    const long members = std::atol(argv[2]);
    const int rounds = std::atoi(argv[3]);
    wire line{argv[1]};
    line.login();
    std::vector<double> commits;
    std::vector<double> logins;
    std::vector<double> reverts;
    for (int round = 0; round < rounds; round++) {
        line.ask(set_member(members / 2, round));
        commits.push_back(timed_us([&] { line.ask("t COMMIT\n"); }));
        usleep(k_settling_us);
        wire other{argv[1]};
        logins.push_back(timed_us([&] { other.login(); }));
        line.ask(set_member(members / 3, round));
        reverts.push_back(timed_us([&] { line.ask("t REVERT\n"); }));
    }
    std::printf("%.3g %.3g %.3g\n", median(commits) / 1000, median(logins) / 1000,
                median(reverts) / 1000);
    return 0;
}
