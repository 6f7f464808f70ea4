#include "daemon/connection.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "daemon/loop.h"
#include "session/protocol.h"
#include "session/session.h"
#include "ucfgd/owners.h"

namespace {

class Connection : public testing::Test {
  protected:
    Connection() {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        client_.reset(ends[1]);
        session_ = create_session();
        session_->listenname = strdup("local");
        session_->fdcb_in = create_fd_callback(ends[0], FD_CALLBACK_READ, read_callback, session_);
        session_->fdcb_out =
            create_fd_callback(dup(ends[0]), FD_CALLBACK_PARKED, write_callback, session_);
        loop_add_callback(session_->fdcb_out);
        loop_add_callback(session_->fdcb_in);
        in_ = session_->fdcb_in;
        out_ = session_->fdcb_out;
        add_session(session_);
    }

    ~Connection() override {
        for (ccd_session *session : removal_safe(g_session_list)) {
            remove_session(session);
            destroy_session(session);
        }
        while (g_cb_list) {
            close(g_cb_list->fd);
            loop_del_callback(g_cb_list);
        }
    }

    int send_request(const std::string &text) {
        EXPECT_EQ(write(client_.get(), text.data(), text.size()),
                  static_cast<ssize_t>(text.size()));
        return read_callback(in_->fd, in_->data);
    }

    std::string received() {
        std::string text(8 << 20, '\0');
        ssize_t got = recv(client_.get(), text.data(), text.size(), MSG_DONTWAIT);
        text.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return text;
    }

    unique_fd client_;
    ccd_session *session_;
    fd_callback *in_;
    fd_callback *out_;
};

TEST_F(Connection, AnswersAtOnceWithoutWaitingForTheWriteSide) {
    EXPECT_EQ(send_request("a1 NO"), 0);
    EXPECT_EQ(received(), "");
    EXPECT_EQ(send_request("OP\r\n"), 0);
    EXPECT_EQ(received(), "a1 OK\n");
    EXPECT_EQ(session_->type, 1);
    EXPECT_EQ(out_->type, FD_CALLBACK_PARKED);
}

TEST_F(Connection, StopsReadingFromAClientThatDoesNotReadAndGoesOnWhenItDoes) {
    std::string reply(4 << 20, 'r');
    session_write(session_, reply.data(), reply.size());
    EXPECT_EQ(send_request("a NOOP\n"), 0);
    EXPECT_EQ(in_->type, FD_CALLBACK_PARKED);
    EXPECT_EQ(out_->type, FD_CALLBACK_WRITE);
    EXPECT_EQ(write_callback(out_->fd, out_->data), 0) << "a full socket is no error";
    size_t total = 0;
    while (out_->type == FD_CALLBACK_WRITE) {
        total += received().size();
        ASSERT_EQ(write_callback(out_->fd, out_->data), 0);
    }
    total += received().size();
    session_sweep();
    EXPECT_EQ(in_->type, FD_CALLBACK_READ);
    EXPECT_GE(total, reply.size());
}

TEST_F(Connection, LeavesInputToTheJobThatHoldsTheSession) {
    session_->flags |= k_session_locked;
    EXPECT_EQ(send_request("a NOOP\n"), 0);
    EXPECT_EQ(received(), "");
    EXPECT_EQ(databuf_pending(session_->inbuf), 7);
}

TEST_F(Connection, IsGivenUpAtTheEndOfItsInput) {
    client_.reset();
    EXPECT_EQ(read_callback(in_->fd, in_->data), -1);
    EXPECT_EQ(session_->state, k_session_suspended);
    EXPECT_EQ(in_->state, FD_CALLBACK_FINISHED);
    EXPECT_EQ(read_callback(in_->fd, in_->data), -1) << "its session is gone for the callbacks";
    EXPECT_EQ(write_callback(out_->fd, out_->data), -1);
    session_sweep();
    EXPECT_EQ(g_session_list, nullptr) << "nobody ever logged in";
}

TEST_F(Connection, OfATerminatedSessionEndsWithItsLastReply) {
    session_->state = k_session_logout;
    EXPECT_EQ(send_request("part of a line"), 0) << "nothing to tell yet";
    EXPECT_EQ(send_request("\n"), -1);
    EXPECT_EQ(received(), "part NO logged out\n");
    EXPECT_EQ(out_->state, FD_CALLBACK_FINISHED);
    session_sweep();
    EXPECT_EQ(g_session_list, nullptr);
}

TEST_F(Connection, OfAVanishedClientIsClosedByAFailedWrite) {
    session_write(session_, "late\n", 5);
    client_.reset();
    EXPECT_EQ(write_callback(out_->fd, out_->data), -1);
    EXPECT_EQ(in_->state, FD_CALLBACK_FINISHED);
}

}  // namespace
