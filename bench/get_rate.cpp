/* The load generator: GETs per second that servers answer, in turns.
 *
 * It does what any client does: gives every request a tag of its own, cuts the replies into lines,
 * and looks at each of them: nothing but right answers to the right tags counts. Every connection
 * has as many requests in flight as it is told, sent with one write; the next ones follow when all
 * of them are answered. PARAMETERS are one or more paths, separated by blanks, which all
 * connections together ask for in turn.
 *
 * usage: get_rate PARAMETERS CONNECTIONS IN_FLIGHT ROUNDS MILLISECONDS DAEMON FLOOR [REDIS]
 *
 * The last three are sockets. Prints requests per second of the daemon, of the floor, and their
 * ratio; with Redis, which gets the daemon's values under the same names, its requests per second
 * and the ratio of the daemon to it. Only the daemon is logged into. */

#include <sys/epoll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "rounds.h"
#include "wire.h"

namespace {

/* A request and the two lines of its reply, each without the tag in front of it. */
struct question {
    std::string request;
    std::array<std::string, 2> reply;
};

using questions = std::vector<question>;

/* Who stands at the other end. Redis knows no tags. */
enum class server { daemon, floor, redis };

/* One connection, and the requests that are in flight on it. */
class lane {
  public:
    lane(const std::string &path, server kind) : line(path), tagged_(kind != server::redis) {
        if (kind == server::daemon) line.login();
    }

    /* Goes on with the question that follows those which other connections have asked. */
    void start_batch(const questions &all, size_t &next, int in_flight) {
        requests_.clear();
        in_flight_.clear();
        for (int i = 0; i < in_flight; i++) {
            const question &asked = all[next++ % all.size()];
            if (tagged_) append_tag(requests_, first_tag_ + i);
            requests_ += asked.request;
            in_flight_.push_back(&asked);
        }
        line.send(requests_);
        lines_ = 0;
    }

    /* Reads what has come; true when all that was in flight is answered. */
    bool receive() {
        size_t room = 65536;
        if (replies_.size() < used_ + room) replies_.resize(used_ + room);
        ssize_t got = read(line.fd(), replies_.data() + used_, room);
        if (got <= 0) give_up("read");
        used_ += static_cast<size_t>(got);
        std::string_view rest{replies_.data(), used_};
        for (size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
            take_line(rest.substr(0, end));
            rest.remove_prefix(end + 1);
        }
        std::memmove(replies_.data(), rest.data(), rest.size());
        used_ = rest.size();
        if (lines_ < 2 * in_flight_.size()) return false;
        first_tag_ += static_cast<long>(in_flight_.size());
        return true;
    }

    wire line;

  private:
    static void append_tag(std::string &text, long tag) {
        std::array<char, 24> digits;
        text.append(digits.data(), std::to_chars(digits.begin(), digits.end(), tag).ptr);
    }

    void take_line(std::string_view text) {
        errno = 0;
        if (lines_ >= 2 * in_flight_.size()) give_up("more than was asked: " + std::string{text});
        expected_.clear();
        if (tagged_) append_tag(expected_, first_tag_ + static_cast<long>(lines_ / 2));
        expected_ += in_flight_[lines_ / 2]->reply[lines_ % 2];
        if (text != expected_) give_up("wrong reply: " + std::string{text});
        lines_++;
    }

    bool tagged_;
    std::vector<const question *> in_flight_;
    std::string requests_;
    std::string replies_;
    std::string expected_;
    size_t used_ = 0;
    size_t lines_ = 0; /* that have come of the batch */
    long first_tag_ = 1000;
};

class load {
  public:
    load(const std::string &path, server kind, int connections, int in_flight)
        : epoll_{epoll_create1(0)}, in_flight_(in_flight) {
        for (int i = 0; i < connections; i++) {
            lanes_.emplace_back(path, kind);
            watch(i);
        }
    }

    /* Asks for the values once, in the words of the daemon. */
    void learn(const std::vector<std::string> &parameters) {
        for (const std::string &name : parameters) {
            std::string_view reply = lanes_[0].line.ask("t GET " + name + "\n");
            std::string value{reply.substr(1, reply.find('\n') - 1)};
            questions_.push_back({" GET " + name + "\n", {value, " OK"}});
        }
    }

    /* Gives Redis the values that the daemon has. */
    void teach(const load &daemon, const std::vector<std::string> &parameters) {
        for (size_t i = 0; i < parameters.size(); i++) {
            const std::string value = daemon.questions_[i].reply[0].substr(std::strlen(".1 "));
            lanes_[0].line.send(words({"SET", parameters[i], value}));
            lanes_[0].line.skip("+OK\r\n");
            questions_.push_back({words({"GET", parameters[i]}),
                                  {"$" + std::to_string(value.size()) + "\r", value + "\r"}});
        }
    }

    /* Requests per second over that time. */
    double run(double milliseconds) {
        long batches = 0;
        double start = now_us();
        double end = start + milliseconds * 1000;
        for (lane &each : lanes_)
            each.start_batch(questions_, next_, in_flight_);
        for (size_t running = lanes_.size(); running > 0;) {
            int ready = epoll_wait(epoll_.get(), events_.data(), k_most_events, -1);
            bool go_on = now_us() < end;
            for (int i = 0; i < ready; i++) {
                lane &each = lanes_[events_[static_cast<size_t>(i)].data.u32];
                if (!each.receive()) continue;
                batches++;
                if (go_on)
                    each.start_batch(questions_, next_, in_flight_);
                else
                    running--;
            }
        }
        return static_cast<double>(batches * in_flight_) / (now_us() - start) * 1e6;
    }

  private:
    static constexpr int k_most_events = 128;

    /* A request as Redis wants it. */
    static std::string words(const std::vector<std::string> &list) {
        std::string text = "*" + std::to_string(list.size()) + "\r\n";
        for (const std::string &word : list)
            text += "$" + std::to_string(word.size()) + "\r\n" + word + "\r\n";
        return text;
    }

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
    questions questions_;
    size_t next_ = 0;
    int in_flight_;
};

std::vector<std::string> split(const char *text) {
    std::istringstream words{text};
    return {std::istream_iterator<std::string>{words}, {}};
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 8 && argc != 9) {
        std::fprintf(stderr,
                     "usage: get_rate PARAMETERS CONNECTIONS IN_FLIGHT ROUNDS MILLISECONDS "
                     "DAEMON FLOOR [REDIS]\n");
        return 2;
    }
    const std::vector<std::string> parameters = split(argv[1]);
    const int connections = std::atoi(argv[2]);
    const int in_flight = std::atoi(argv[3]);
    const double milliseconds = std::atof(argv[5]);
    load daemon{argv[6], server::daemon, connections, in_flight};
    daemon.learn(parameters);
    load floor{argv[7], server::floor, connections, in_flight};
    floor.learn(parameters);
    std::optional<load> redis;
    if (argc == 9)
        redis.emplace(argv[8], server::redis, connections, in_flight).teach(daemon, parameters);

    daemon.run(milliseconds);
    floor.run(milliseconds);
    pairs to_floor;
    pairs to_redis;
    for (int round = std::atoi(argv[4]); round > 0; round--) {
        double measured = daemon.run(milliseconds);
        to_floor.add(measured, floor.run(milliseconds));
        if (redis) to_redis.add(measured, redis->run(milliseconds));
    }
    to_floor.print();
    if (redis) to_redis.print();
    return 0;
}
