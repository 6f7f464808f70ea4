#ifndef BENCH_HOSTS_FILE_H
#define BENCH_HOSTS_FILE_H

#include <string>

/* The hosts files that everything here works on: entry n has an address of its own, a name and two
 * aliases, which makes four nodes. */

enum { k_nodes_per_entry = 4 };

/* The address of entry n (from 0), with what is to stand between its numbers: ".", or "%2e" inside
 * a parameter path. */
inline std::string host_address(long n, const char *separator) {
    return "10" + (separator + std::to_string(n / 62500)) +
           (separator + std::to_string(n / 250 % 250)) + (separator + std::to_string(n % 250 + 1));
}

#endif
