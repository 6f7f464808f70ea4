#include "wire.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t k_chunk = 65536;

/* The last line of a reply that is whole; empty as long as it is not. */
std::string_view last_line(std::string_view reply) {
    if (reply.empty() || reply.back() != '\n') return {};
    reply.remove_suffix(1);
    size_t newline = reply.rfind('\n');
    return newline == std::string_view::npos ? reply : reply.substr(newline + 1);
}

}  // namespace

void give_up(const std::string &what) {
    if (errno != 0)
        std::fprintf(stderr, "%s: %s\n", what.c_str(), std::strerror(errno));
    else
        std::fprintf(stderr, "%s\n", what.c_str());
    std::exit(1);
}

wire::wire(const std::string &path) : fd_{socket(AF_UNIX, SOCK_STREAM, 0)} {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        give_up(path);
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    if (!fd_ || connect(fd_.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        give_up(path);
}

void wire::send(std::string_view bytes) const {
    while (!bytes.empty()) {
        ssize_t sent = write(fd_.get(), bytes.data(), bytes.size());
        if (sent <= 0) give_up("write");
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
}

std::string_view wire::ask(std::string_view request) {
    send(request);
    size_t used = 0;
    for (;;) {
        if (reply_.size() < used + k_chunk) reply_.resize(used + k_chunk);
        ssize_t got = read(fd_.get(), reply_.data() + used, k_chunk);
        if (got <= 0) give_up("read");
        used += static_cast<size_t>(got);
        std::string_view reply{reply_.data(), used};
        std::string_view last = last_line(reply);
        if (!last.starts_with("t ")) continue;
        if (last == "t OK") return reply;
        errno = 0;
        give_up("the answer to " + std::string{request.substr(0, 200)} + "is " +
                std::string{reply.substr(0, 2000)});
    }
}

void wire::skip(std::string_view bytes) const {
    for (char wanted : bytes) {
        char got = 0;
        if (read(fd_.get(), &got, 1) != 1 || got != wanted) give_up("not the answer expected");
    }
}

void wire::login() {
    ask("t LOGIN root\n");
}
