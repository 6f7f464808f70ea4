/* The load generator: GETs per second that two servers answer, in turns.
 *
 * It does what any client does: gives every request a tag of its own, cuts the replies into lines,
 * and looks at each of them: nothing but right answers to the right tags counts. Every connection
 * has as many requests in flight as it is told, sent with one write; the next ones follow when all
 * of them are answered.
 *
 * usage: get_rate PARAMETER CONNECTIONS IN_FLIGHT ROUNDS MILLISECONDS DAEMON_SOCKET FLOOR_SOCKET
 *
 * Prints requests per second of the daemon, of the floor, and their ratio. Only the daemon is
 * logged into. */

#include <sys/epoll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "rounds.h"
#include "wire.h"

namespace {

/* One connection, and the requests that are in flight on it. */
class lane {
  public:
    explicit lane(const std::string &path) : line(path) {}

    void start_batch(std::string_view parameter, int in_flight) {
        requests_.clear();
        for (int i = 0; i < in_flight; i++) {
            append_tag(requests_, next_tag_++);
            requests_ += " GET ";
            requests_ += parameter;
            requests_ += '\n';
        }
        line.send(requests_);
    }

    /* Reads what has come; true when all that was in flight is answered. */
    bool receive(std::string_view value) {
        size_t room = 65536;
        if (replies_.size() < used_ + room) replies_.resize(used_ + room);
        ssize_t got = read(line.fd(), replies_.data() + used_, room);
        if (got <= 0) give_up("read");
        used_ += static_cast<size_t>(got);
        std::string_view rest{replies_.data(), used_};
        for (size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
            take_line(rest.substr(0, end), value);
            rest.remove_prefix(end + 1);
        }
        std::memmove(replies_.data(), rest.data(), rest.size());
        used_ = rest.size();
        return answered_ == next_tag_;
    }

    wire line;

  private:
    static void append_tag(std::string &text, long tag) {
        std::array<char, 24> digits;
        text.append(digits.data(), std::to_chars(digits.begin(), digits.end(), tag).ptr);
    }

    /* The data line of the oldest request in flight, or its final line. */
    void take_line(std::string_view text, std::string_view value) {
        expected_.clear();
        append_tag(expected_, answered_);
        expected_ += has_value_ ? std::string_view{" OK"} : value;
        errno = 0;
        if (text != expected_) give_up("wrong reply: " + std::string{text});
        if (has_value_) answered_++;
        has_value_ = !has_value_;
    }

    std::string requests_;
    std::string replies_;
    std::string expected_;
    size_t used_ = 0;
    long next_tag_ = 1000;
    long answered_ = 1000;
    bool has_value_ = false;
};

class load {
  public:
    load(const std::string &path, bool log_in, const std::string &parameter, int connections,
         int in_flight)
        : epoll_{epoll_create1(0)}, parameter_(parameter), in_flight_(in_flight) {
        for (int i = 0; i < connections; i++)
            lanes_.emplace_back(path);
        for (int i = 0; i < connections; i++)
            watch(i);
        for (lane &each : lanes_)
            if (log_in) each.line.login();
        std::string_view reply = lanes_[0].line.ask("t GET " + parameter + "\n");
        value_ = reply.substr(1, reply.find('\n') - 1);
    }

    /* Requests per second over that time. */
    double run(double milliseconds) {
        long batches = 0;
        double start = now_us();
        double end = start + milliseconds * 1000;
        for (lane &each : lanes_)
            each.start_batch(parameter_, in_flight_);
        for (size_t running = lanes_.size(); running > 0;) {
            int ready = epoll_wait(epoll_.get(), events_.data(), k_most_events, -1);
            bool go_on = now_us() < end;
            for (int i = 0; i < ready; i++) {
                lane &each = lanes_[events_[static_cast<size_t>(i)].data.u32];
                if (!each.receive(value_)) continue;
                batches++;
                if (go_on)
                    each.start_batch(parameter_, in_flight_);
                else
                    running--;
            }
        }
        return static_cast<double>(batches * in_flight_) / (now_us() - start) * 1e6;
    }

  private:
    static constexpr int k_most_events = 128;

    void watch(int index) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u32 = static_cast<uint32_t>(index);
        int fd = lanes_[static_cast<size_t>(index)].line.fd();
        if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) != 0) give_up("epoll_ctl");
    }

    unique_fd epoll_;
    std::vector<lane> lanes_;
    std::array<epoll_event, k_most_events> events_{};
    std::string parameter_;
    std::string value_; /* the data line behind the tag */
    int in_flight_;
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
