#ifndef BENCH_PROCESS_MEMORY_H
#define BENCH_PROCESS_MEMORY_H

#include <cstdio>
#include <cstring>
#include <string>

/* Memory of a process that is resident, as the kernel counts it page by page. */

struct process_memory {
    long rss_kib = 0; /* all of it */
    long pss_kib = 0; /* shared pages by halves, thirds, ... */
};

/* pid: a number, or "self". All 0 when it cannot be read. */
inline process_memory memory_of(const std::string &pid) {
    process_memory result;
    std::FILE *file = std::fopen(("/proc/" + pid + "/smaps_rollup").c_str(), "re");
    if (!file) return result;
    char line[256];
    while (std::fgets(line, sizeof line, file)) {
        std::sscanf(line, "Rss: %ld", &result.rss_kib);
        std::sscanf(line, "Pss: %ld", &result.pss_kib);
    }
    std::fclose(file);
    return result;
}

#endif
