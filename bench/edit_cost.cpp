/* What one request costs on a long hosts file, and the same request on a short one, in turns.
 *
 * usage: edit_cost get|set|submit|submit1000 ROUNDS LONG_SOCKET ENTRIES SHORT_SOCKET ENTRIES
 *
 * Prints microseconds on the long file, on the short one, and their ratio; for submit1000 they are
 * those of one item. Both sessions have made a first edit before anything is timed. The entries are
 * drawn at random, the same for both kinds of file as far as they have them. */

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string_view>
#include <vector>

#include "hosts_file.h"
#include "rounds.h"
#include "wire.h"

namespace {

/* The same sequence on every run. */
class dice {
  public:
    long below(long limit) {
        state_ = state_ * 6364136223846793005u + 1442695040888963407u;
        return static_cast<long>((state_ >> 33) % static_cast<uint64_t>(limit));
    }

  private:
    uint64_t state_ = 20;
};

class target {
  public:
    target(const char *path, const char *entries) : line_{path}, entries_{std::atol(entries)} {
        line_.login();
        line_.ask("t " + set_words() + "\n");
    }
    ~target() { line_.ask("t REVERT\n"); }
    target(const target &) = delete;
    target &operator=(const target &) = delete;

    std::string parameter() {
        return "network.hosts." + host_address(dice_.below(entries_), "%2e") + ".name";
    }
    std::string set_words() {
        return "SET " + parameter() + " changed-" + std::to_string(++changes_) + "%2eexample%2enet";
    }

    /* Microseconds that a request takes on the average, when all of them are asked one by one. */
    double ask_all(const std::vector<std::string> &requests) {
        double took = timed_us([&] {
            for (const std::string &request : requests)
                line_.ask(request);
        });
        return took / static_cast<double>(requests.size());
    }

  private:
    wire line_;
    long entries_;
    dice dice_;
    long changes_ = 0;
};

std::string batch(target &on, int items) {
    std::string text;
    for (int i = 1; i <= items; i++)
        text += "t." + std::to_string(i) + " " + on.set_words() + "\n";
    return text + "t SUBMIT\n";
}

struct kind {
    std::string_view name;
    int requests; /* in one round */
    int items;    /* in one request */
    std::string (*make)(target &on, int items);
};

constexpr kind k_kinds[] = {
    {"get", 4000, 1, [](target &on, int) { return "t GET " + on.parameter() + "\n"; }},
    {"set", 4000, 1, [](target &on, int) { return "t " + on.set_words() + "\n"; }},
    {"submit", 4000, 1, batch},
    {"submit1000", 10, 1000, batch},
};

const kind *find_kind(std::string_view name) {
    for (const kind &each : k_kinds)
        if (each.name == name) return &each;
    return nullptr;
}

double one_round(target &on, const kind &what) {
    std::vector<std::string> requests;
    for (int i = 0; i < what.requests; i++)
        requests.push_back(what.make(on, what.items));
    return on.ask_all(requests) / what.items;
}

}  // namespace

int main(int argc, char **argv) {
    const kind *what = argc == 7 ? find_kind(argv[1]) : nullptr;
    if (!what) {
        std::fprintf(stderr,
                     "usage: edit_cost get|set|submit|submit1000 ROUNDS LONG_SOCKET "
                     "ENTRIES SHORT_SOCKET ENTRIES\n");
        return 2;
    }
    target long_file{argv[3], argv[4]};
    target short_file{argv[5], argv[6]};
    one_round(long_file, *what);
    one_round(short_file, *what);
    pairs result;
    for (int round = std::atoi(argv[2]); round > 0; round--) {
        double measured = one_round(long_file, *what);
        result.add(measured, one_round(short_file, *what));
    }
    result.print();
    return 0;
}
