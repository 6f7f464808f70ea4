/* The load generator: GETs per second that two servers answer, in turns.
 *
 * Every connection sends its requests in batches: as many as are to be in flight at once, and the
 * next batch when all of the last are answered. Each batch of replies is compared as a whole with
 * the first one, so that nothing but right answers counts.
 *
 * usage: get_rate PARAMETER CONNECTIONS IN_FLIGHT ROUNDS MILLISECONDS DAEMON_SOCKET FLOOR_SOCKET
 *
 * Prints requests per second of the daemon, of the floor, and their ratio. Only the daemon is
 * logged into. */

#include <sys/epoll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <vector>

#include "rounds.h"
#include "wire.h"

namespace {

struct lane {
    explicit lane(const std::string &path) : line(path) {}
    wire line;
    std::string replies;
    bool busy = false;
};

class load {
  public:
    load(const std::string &path, bool log_in, const std::string &parameter, int connections,
         int in_flight)
        : epoll_{epoll_create1(0)} {
        for (int i = 0; i < connections; i++)
            lanes_.emplace_back(path);
        for (int i = 0; i < connections; i++)
            watch(i);
        for (lane &each : lanes_)
            if (log_in) each.line.login();
        std::string request = "t GET " + parameter + "\n";
        std::string reply{lanes_[0].line.ask(request)};
        for (int i = 0; i < in_flight; i++) {
            batch_ += request;
            expected_ += reply;
        }
        per_batch_ = in_flight;
    }

    /* Requests per second over that time. */
    double run(double milliseconds) {
        long batches = 0;
        double start = now_us();
        double end = start + milliseconds * 1000;
        for (lane &each : lanes_)
            start_batch(each);
        for (size_t running = lanes_.size(); running > 0;) {
            int ready =
                epoll_wait(epoll_.get(), events_.data(), static_cast<int>(events_.size()), -1);
            bool go_on = now_us() < end;
            for (int i = 0; i < ready; i++) {
                lane &each = lanes_[events_[static_cast<size_t>(i)].data.u32];
                if (!receive(each)) continue;
                batches++;
                if (go_on)
                    start_batch(each);
                else
                    running--;
            }
        }
        return static_cast<double>(batches * per_batch_) / (now_us() - start) * 1e6;
    }

  private:
    void watch(int index) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u32 = static_cast<uint32_t>(index);
        int fd = lanes_[static_cast<size_t>(index)].line.fd();
        if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) != 0) give_up("epoll_ctl");
    }

    void start_batch(lane &each) {
        each.replies.clear();
        each.line.send(batch_);
    }

    /* True when the batch is answered. */
    bool receive(lane &each) {
        std::array<char, 65536> bytes;
        ssize_t got = read(each.line.fd(), bytes.data(), bytes.size());
        if (got <= 0) give_up("read");
        each.replies.append(bytes.data(), static_cast<size_t>(got));
        if (each.replies.size() < expected_.size()) return false;
        errno = 0;
        if (each.replies != expected_) give_up("wrong reply: " + each.replies);
        return true;
    }

    unique_fd epoll_;
    std::vector<lane> lanes_;
    std::array<epoll_event, 128> events_{};
    std::string batch_;
    std::string expected_;
    long per_batch_ = 1;
};

}  // namespace

int main(int argc, char **argv) {
    if (argc != 8) {
        std::fprintf(stderr,
                     "usage: get_rate PARAMETER CONNECTIONS IN_FLIGHT ROUNDS MILLISECONDS "
                     "DAEMON_SOCKET FLOOR_SOCKET\n");
        return 2;
    }
    int connections = std::atoi(argv[2]);
    int in_flight = std::atoi(argv[3]);
    double milliseconds = std::atof(argv[5]);
    load daemon{argv[6], true, argv[1], connections, in_flight};
    load floor{argv[7], false, argv[1], connections, in_flight};
    daemon.run(milliseconds);
    floor.run(milliseconds);
    pairs result;
    for (int round = std::atoi(argv[4]); round > 0; round--) {
        double measured = daemon.run(milliseconds);
        result.add(measured, floor.run(milliseconds));
    }
    result.print();
    return 0;
}
