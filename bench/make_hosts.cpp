/* Prints a hosts file of that many entries.
 *
 * usage: make_hosts ENTRIES */

#include <cstdio>
#include <cstdlib>

#include "hosts_file.h"

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_hosts ENTRIES\n");
        return 2;
    }
    long entries = std::atol(argv[1]);
    for (long n = 0; n < entries; n++) {
        std::printf("%s\thost-%ld.example.net\thost-%ld h%ld\n", host_address(n, ".").c_str(), n, n,
                    n);
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}
