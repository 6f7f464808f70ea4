// A peer on a local socket that answers as a test tells it to.
#ifndef FAKE_DAEMON_H
#define FAKE_DAEMON_H

#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ucfgd/owners.h"

struct fake_request {
    std::string tag, word, args;
    std::vector<std::string> more;  // the continuation lines, without the tag
};

// Lines without their tag (" OK", ".1 text"). "!close" hangs up, "!TEXT" sends TEXT as it is.
using fake_reply = std::vector<std::string>;

class fake_daemon {
  public:
    using handler = std::function<fake_reply(const fake_request &)>;

    explicit fake_daemon(handler answer, size_t piece = 0)
        : answer_(std::move(answer)), piece_(piece) {
        char name[] = "/tmp/ucfg-test-XXXXXX";
        folder_ = mkdtemp(name);
        path_ = folder_ + "/socket";
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path_.copy(address.sun_path, sizeof address.sun_path - 1);
        listener_.reset(socket(AF_UNIX, SOCK_STREAM, 0));
        if (bind(listener_.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
            listen(listener_.get(), 4) != 0)
            abort();
        thread_ = std::thread{[this] { serve(); }};
    }
    fake_daemon(const fake_daemon &) = delete;
    fake_daemon &operator=(const fake_daemon &) = delete;
    ~fake_daemon() {
        stop_ = true;
        thread_.join();
        unlink(path_.c_str());
        rmdir(folder_.c_str());
    }

    const std::string &path() const { return path_; }

    // Every line received so far.
    std::vector<std::string> seen() {
        std::lock_guard hold{lock_};
        return seen_;
    }

  private:
    void serve() {
        while (!stop_) {
            pollfd watch{listener_.get(), POLLIN, 0};
            if (poll(&watch, 1, 10) <= 0) continue;
            unique_fd fd{accept(listener_.get(), nullptr, nullptr)};
            talk(fd.get());
        }
    }

    void talk(int fd) {
        std::string input;
        fake_request request;
        while (!stop_) {
            pollfd watch{fd, POLLIN, 0};
            if (poll(&watch, 1, 10) <= 0) continue;
            char chunk[4096];
            ssize_t got = recv(fd, chunk, sizeof chunk, 0);
            if (got <= 0) return;
            input.append(chunk, static_cast<size_t>(got));
            for (size_t end = 0; (end = input.find('\n')) != std::string::npos;) {
                std::string line = input.substr(0, end);
                input.erase(0, end + 1);
                if (!take(fd, line, request)) return;
            }
        }
    }

    bool take(int fd, const std::string &line, fake_request &request) {
        {
            std::lock_guard hold{lock_};
            seen_.push_back(line);
        }
        size_t end = line.find_first_of(" .");
        if (end == std::string::npos) return true;
        if (line[end] == '.') {
            request.more.push_back(line.substr(end));
            return true;
        }
        request.tag = line.substr(0, end);
        size_t blank = std::min(line.find(' ', end + 1), line.size());
        request.word = line.substr(end + 1, blank - end - 1);
        request.args = line.substr(std::min(blank + 1, line.size()));
        fake_reply reply = answer_(request);
        std::string text;
        for (const std::string &part : reply) {
            if (part == "!close") return send_text(fd, text) && false;
            text += part[0] == '!' ? part.substr(1) : request.tag + part + "\n";
        }
        request = {};
        return send_text(fd, text);
    }

    bool send_text(int fd, std::string_view text) {
        while (!text.empty()) {
            size_t size = piece_ == 0 ? text.size() : std::min(piece_, text.size());
            ssize_t put = send(fd, text.data(), size, MSG_NOSIGNAL);
            if (put <= 0) return false;
            text.remove_prefix(static_cast<size_t>(put));
        }
        return true;
    }

    handler answer_;
    size_t piece_;
    std::string folder_, path_;
    unique_fd listener_;
    std::atomic<bool> stop_ = false;
    std::mutex lock_;
    std::vector<std::string> seen_;
    std::thread thread_;
};

#endif
