#include "daemon/listen.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <string>

#include "loop_fixture.h"
#include "ucfgd/owners.h"

namespace {

TEST(Listen, KeepsToTheLoopbackAddressAlsoWhenItsAddressCannotBeRead) {
    for (const char *ip : {"127.0.0.1", "nowhere"}) {
        unique_fd fd{listen_sock_in(ip, "65536")};
        sockaddr_in address{};
        socklen_t size = sizeof address;
        getsockname(fd.get(), reinterpret_cast<sockaddr *>(&address), &size);
        EXPECT_EQ(ntohl(address.sin_addr.s_addr), INADDR_LOOPBACK) << ip;
        std::string port = std::to_string(ntohs(address.sin_port));
        EXPECT_EQ(listen_sock_in6("127.0.0.1", port.c_str()), -1) << "taken";
    }
}

}  // namespace
