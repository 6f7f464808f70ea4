#include "daemon/listen.h"

#include <fcntl.h>
#include <libdaemon/daemon.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstring>
#include <string>

#include "llconf/nodes.h"
#include "llconf/path.h"
#include "loop_fixture.h"
#include "ucfgd/owners.h"

namespace {

using settings = std::initializer_list<std::pair<const char *, const char *>>;

class Listen : public LoopFixture {
  protected:
    Listen() {
        daemon_pid_file_proc = [] { return "/nonexistent/pid"; };
    }
    ~Listen() override { unlink(path_.c_str()); }

    void add(const char *name, settings entries) {
        cnfnode *node = cnf_add_branch(section_.get(), name);
        for (auto [key, value] : entries)
            cnfnode_setval(cnf_add_branch(node, key), value);
    }

    unique_fd connect_local() const {
        unique_fd fd{socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0)};
        sockaddr_un address{AF_UNIX, {}};
        memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
        EXPECT_EQ(connect(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        return fd;
    }

    static int accept_one() { return listen_callback(g_cb_list->fd, g_cb_list->data); }

    std::string path_ = testing::TempDir() + "listen-" + std::to_string(getpid());
    owned<cnfnode, destroy_cnftree> section_{create_cnfnode("listen")};
};

TEST_F(Listen, OpensWhatItCanAndSkipsTlsUnknownAndUntypedEntries) {
    add("secure", {{"type:", "tcp"}, {"tls:", "yes"}});
    add("strange", {{"type:", "pigeon"}});
    add("untyped", {{"path:", path_.c_str()}});
    add("local", {{"type:", "unix"}, {"path:", path_.c_str()}, {"mode:", "438"}});
    unique_fd stale{listen_sock_un(path_.c_str(), 0600)};
    testing::internal::CaptureStdout();
    EXPECT_EQ(listen_setup(section_.get()), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "unknown type pigeon\n");
    ASSERT_NE(g_cb_list, nullptr);
    EXPECT_EQ(g_cb_list->next, nullptr);
    EXPECT_EQ(fcntl(g_cb_list->fd, F_GETFD), FD_CLOEXEC);
    struct stat file {};
    ASSERT_EQ(stat(path_.c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 0777, 0666u);
}

TEST_F(Listen, EndsTheDaemonWhenASocketsPathDoesNotFit) {
    std::string path = "/" + std::string(108, 'p');
    EXPECT_EXIT(listen_sock_un(path.c_str(), 0600), testing::ExitedWithCode(1),
                "bind: File name too long on '/p+'");
}

TEST_F(Listen, KeepsToTheLoopbackAddressAlsoWhenItsAddressCannotBeRead) {
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

TEST_F(Listen, MakesSessionsAndPausesWhileNoDescriptorIsLeft) {
    add("local", {{"type:", "unix"}, {"path:", path_.c_str()}});
    listen_setup(section_.get());
    EXPECT_EQ(accept_one(), -1) << "nobody is there, and nothing waits";
    unique_fd first = connect_local();
    ASSERT_EQ(accept_one(), 0);
    EXPECT_STREQ(g_session_list->listenname, "local");
    EXPECT_EQ(g_session_list->ucred->pid, getpid());
    unique_fd second = connect_local();
    struct rlimit before {};
    getrlimit(RLIMIT_NOFILE, &before);
    struct rlimit none {
        3, before.rlim_max
    };
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_EQ(accept_one(), -1);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(g_cb_list->type, FD_CALLBACK_PARKED);
    listen_resume();
    EXPECT_EQ(g_cb_list->type, FD_CALLBACK_READ);
    EXPECT_EQ(accept_one(), 0);
}

}  // namespace
