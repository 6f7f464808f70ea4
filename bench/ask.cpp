/* Sends requests, sixteen with each write, and waits for their replies in between.
 *
 * usage: ask SOCKET COUNT REQUESTS
 *
 * COUNT is rounded up to a multiple of sixteen. REQUESTS are one or more commands, separated by
 * commas, which are sent in turn. */

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "wire.h"

namespace {

constexpr int k_in_flight = 16;

/* Reads that many replies, each of which must be good. */
void await(const wire &line, int count) {
    std::string pending;
    while (count > 0) {
        std::array<char, 65536> chunk;
        ssize_t got = read(line.fd(), chunk.data(), chunk.size());
        if (got <= 0) give_up("read");
        pending.append(chunk.data(), static_cast<size_t>(got));
        size_t begin = 0;
        for (size_t end; (end = pending.find('\n', begin)) != std::string::npos; begin = end + 1) {
            const std::string_view text{pending.data() + begin, end - begin};
            if (text == "t OK") count--;
            errno = 0;
            if (text.starts_with("t ") && text != "t OK") give_up("the reply is " + pending);
        }
        pending.erase(0, begin);
    }
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: ask SOCKET COUNT REQUESTS\n");
        return 2;
    }
    std::vector<std::string> requests;
    std::istringstream list{argv[3]};
    for (std::string command; std::getline(list, command, ',');)
        requests.push_back("t " + command + "\n");
    wire line{argv[1]};
    line.login();
    const long count = std::atol(argv[2]);
    size_t next = 0;
    for (long asked = 0; asked < count; asked += k_in_flight) {
        std::string batch;
        for (int i = 0; i < k_in_flight; i++)
            batch += requests[next++ % requests.size()];
        line.send(batch);
        await(line, k_in_flight);
    }
    return 0;
}
