/* GETs per second of a library that does the same job inside the process that asks: no connection,
 * no rights, no transaction.
 *
 * usage: augeas_rate ROOT ENTRIES MILLISECONDS
 *
 * Asks for the names in ROOT's hosts file (make_hosts) in turn, and prints how many a second. */

#include <augeas.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

static double now_ms(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec * 1e3 + (double)now.tv_nsec / 1e6;
}

int main(int argc, char **argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: augeas_rate ROOT ENTRIES MILLISECONDS\n");
        return 2;
    }
    augeas *library = aug_init(argv[1], NULL, AUG_NO_MODL_AUTOLOAD);
    if (library == NULL || aug_set(library, "/augeas/load/Hosts/lens", "Hosts.lns") != 0 ||
        aug_set(library, "/augeas/load/Hosts/incl", "/etc/hosts") != 0 || aug_load(library) != 0) {
        fprintf(stderr, "%s: the hosts file cannot be read\n", argv[1]);
        return 1;
    }
    const long entries = atol(argv[2]);
    const double start = now_ms();
    const double limit = atof(argv[3]);
    double taken = 0;
    long asked = 0;
    for (; taken < limit; taken = now_ms() - start) {
        char path[64];
        const char *value = NULL;
        snprintf(path, sizeof path, "/files/etc/hosts/%ld/canonical", asked++ % entries + 1);
        if (aug_get(library, path, &value) != 1 || value == NULL) {
            fprintf(stderr, "%s: no value\n", path);
            return 1;
        }
    }
    printf("%.6g\n", (double)asked / taken * 1e3);
    aug_close(library);
    return 0;
}
