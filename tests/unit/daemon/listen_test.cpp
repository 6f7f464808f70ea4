#include "daemon/listen.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <libdaemon/daemon.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "daemon/connection.h"
#include "daemon/loop.h"
#include "llconf/nodes.h"
#include "llconf/path.h"
#include "session/session.h"
#include "ucfgd/owners.h"

namespace {

class Listen : public testing::Test {
  protected:
    Listen() {
        daemon_pid_file_proc = [] { return "/nonexistent/pid"; };
        path_ = testing::TempDir() + "listen-" + std::to_string(getpid());
    }

    ~Listen() override {
        for (ccd_session *session : removal_safe(g_session_list)) {
            remove_session(session);
            destroy_session(session);
        }
        while (g_cb_list) {
            close(g_cb_list->fd);
            loop_del_callback(g_cb_list);
        }
        unlink(path_.c_str());
    }

    /* Adds a listener of that name with these entries. */
    void listener(const char *name,
                  std::initializer_list<std::pair<const char *, const char *>> entries) {
        cnfnode *node = cnf_add_branch(section_.get(), name);
        for (auto [key, value] : entries)
            cnfnode_setval(cnf_add_branch(node, key), value);
    }

    int registered() const {
        int count = 0;
        for (const fd_callback *cb = g_cb_list; cb; cb = cb->next)
            count++;
        return count;
    }

    mode_t mode() const {
        struct stat file {};
        return stat(path_.c_str(), &file) == 0 ? file.st_mode & 07777 : 0;
    }

    unique_fd connect_local() const {
        unique_fd fd{socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0)};
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
        if (connect(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
            fd.reset();
        return fd;
    }

    std::string path_;
    owned<cnfnode, destroy_cnftree> section_{create_cnfnode("listen")};
};

sockaddr_in bound_address(int fd) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size), 0);
    return address;
}

TEST_F(Listen, OpensWhatItCanAndSkipsTlsUnknownAndUntypedEntries) {
    listener("secure", {{"type:", "tcp"}, {"tls:", "yes"}});
    listener("strange", {{"type:", "pigeon"}});
    listener("untyped", {{"path:", path_.c_str()}});
    listener("local", {{"type:", "unix"}, {"path:", path_.c_str()}, {"mode:", "438"}});
    testing::internal::CaptureStdout();
    EXPECT_EQ(listen_setup(section_.get()), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "unknown type pigeon\n");
    ASSERT_EQ(registered(), 1);
    EXPECT_STREQ(cnfnode_getname(static_cast<cnfnode *>(g_cb_list->data)), "local");
    EXPECT_EQ(mode(), 0666u);
}

TEST_F(Listen, ReplacesAStaleSocketAndIsPrivateUnlessToldOtherwise) {
    listener("local", {{"type:", "unix"}, {"path:", path_.c_str()}});
    unique_fd stale{listen_sock_un(path_.c_str(), 0666)};
    listen_setup(section_.get());
    EXPECT_EQ(mode(), 0600u);
    EXPECT_TRUE(connect_local());
    EXPECT_NE(fcntl(g_cb_list->fd, F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(Listen, EndsTheDaemonWhenALocalSocketCannotBeBound) {
    std::string too_long = "/" + std::string(108, 'p');
    EXPECT_EXIT(listen_sock_un(too_long.c_str(), 0600), testing::ExitedWithCode(1),
                "bind: File name too long on '/p+'");
    EXPECT_EXIT(listen_sock_un("/nonexistent/socket", 0600), testing::ExitedWithCode(1), "bind: ");
}

TEST_F(Listen, KeepsToTheLoopbackAddressAlsoWhenItsAddressCannotBeRead) {
    for (const char *ip : {"127.0.0.1", "127.0.0.1.5.6", "nowhere"}) {
        unique_fd fd{listen_sock_in(ip, "65536")};
        EXPECT_EQ(ntohl(bound_address(fd.get()).sin_addr.s_addr), INADDR_LOOPBACK) << ip;
    }
    unique_fd taken{listen_sock_in("127.0.0.1", "0")};
    std::string port = std::to_string(ntohs(bound_address(taken.get()).sin_port));
    EXPECT_EQ(listen_sock_in6("127.0.0.1", port.c_str()), -1);
    EXPECT_EXIT(listen_sock_in("127.0.0.1", port.c_str()), testing::ExitedWithCode(1), "bind: ");
}

TEST_F(Listen, MakesAConnectionASessionWithItsPeersCredentials) {
    listener("local", {{"type:", "unix"}, {"path:", path_.c_str()}});
    listen_setup(section_.get());
    unique_fd client = connect_local();
    ASSERT_EQ(listen_callback(g_cb_list->fd, g_cb_list->data), 0);
    const ccd_session *session = g_session_list;
    ASSERT_NE(session, nullptr);
    EXPECT_STREQ(session->listenname, "local");
    EXPECT_EQ(session->ucred->pid, getpid());
    EXPECT_EQ(session->fdcb_in->type, FD_CALLBACK_READ);
    EXPECT_EQ(session->fdcb_out->type, FD_CALLBACK_PARKED);
    EXPECT_EQ(listen_callback(g_cb_list->fd, g_cb_list->data), -1) << "nobody else waits";
}

TEST_F(Listen, PausesWithoutDescriptorsUntilOneIsClosed) {
    listener("local", {{"type:", "unix"}, {"path:", path_.c_str()}});
    listen_setup(section_.get());
    unique_fd first = connect_local();
    ASSERT_EQ(listen_callback(g_cb_list->fd, g_cb_list->data), 0);
    unique_fd second = connect_local();
    struct rlimit before {};
    getrlimit(RLIMIT_NOFILE, &before);
    struct rlimit none = before;
    none.rlim_cur = 3;
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_EQ(listen_callback(g_cb_list->fd, g_cb_list->data), -1);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(g_cb_list->type, FD_CALLBACK_PARKED);
    listen_resume();
    EXPECT_EQ(g_cb_list->type, FD_CALLBACK_READ);
    EXPECT_EQ(listen_callback(g_cb_list->fd, g_cb_list->data), 0);
}

}  // namespace
