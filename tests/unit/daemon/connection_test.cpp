#include "daemon/connection.h"

#include <sys/socket.h>

#include <string>

#include "loop_fixture.h"
#include "session/protocol.h"
#include "ucfgd/owners.h"

namespace {

class Connection : public LoopFixture {
  protected:
    Connection() {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        client_.reset(ends[1]);
        in_ = create_fd_callback(ends[0], FD_CALLBACK_READ, read_callback, session_);
        out_ = create_fd_callback(dup(ends[0]), FD_CALLBACK_PARKED, write_callback, session_);
        loop_add_callback(session_->fdcb_out = out_);
        loop_add_callback(session_->fdcb_in = in_);
        add_session(session_);
    }

    int request(std::string_view text) {
        EXPECT_EQ(write(client_.get(), text.data(), text.size()), std::ssize(text));
        return read_callback(in_->fd, in_->data);
    }

    std::string reply() {
        std::string text(1 << 20, '\0');
        ssize_t got = recv(client_.get(), text.data(), text.size(), MSG_DONTWAIT);
        return text.substr(0, got > 0 ? static_cast<size_t>(got) : 0);
    }

    unique_fd client_;
    ccd_session *session_ = create_session();
    fd_callback *in_;
    fd_callback *out_;
};

TEST_F(Connection, AnswersAtOnceWithoutWaitingForTheWriteSide) {
    EXPECT_EQ(request("a1 NO"), 0);
    EXPECT_EQ(reply(), "");
    EXPECT_EQ(request("OP\r\n"), 0);
    EXPECT_EQ(reply(), "a1 OK\n");
    EXPECT_EQ(out_->type, FD_CALLBACK_PARKED);
}

TEST_F(Connection, StopsReadingFromAClientThatDoesNotReadAndGoesOnWhenItDoes) {
    std::string much(4 << 20, 'r');
    session_write(session_, much.data(), much.size());
    EXPECT_EQ(request("a NOOP\n"), 0);
    EXPECT_EQ(in_->type, FD_CALLBACK_PARKED);
    EXPECT_EQ(write_callback(out_->fd, out_->data), 0) << "a full socket is no error";
    EXPECT_EQ(out_->type, FD_CALLBACK_WRITE);
    size_t total = 0;
    for (std::string part = reply(); !part.empty(); part = reply()) {
        total += part.size();
        ASSERT_EQ(write_callback(out_->fd, out_->data), 0);
    }
    EXPECT_EQ(in_->type, FD_CALLBACK_PARKED) << "a line waits for its turn";
    session_sweep();
    EXPECT_EQ(out_->type, FD_CALLBACK_PARKED);
    EXPECT_EQ(in_->type, FD_CALLBACK_READ);
    EXPECT_GE(total, much.size());
}

TEST_F(Connection, IsGivenUpAtTheEndOfItsInputAndItsCallbacksAcceptThat) {
    client_.reset();
    EXPECT_EQ(read_callback(in_->fd, in_->data), -1);
    EXPECT_EQ(in_->state, FD_CALLBACK_FINISHED);
    EXPECT_EQ(read_callback(in_->fd, in_->data), -1);
    EXPECT_EQ(write_callback(out_->fd, out_->data), -1);
    session_sweep();
    EXPECT_EQ(g_session_list, nullptr) << "nobody ever logged in";
}

TEST_F(Connection, OfATerminatedSessionEndsWithItsLastReply) {
    session_->state = k_session_logout;
    EXPECT_EQ(request("part of a line"), 0) << "nothing to tell yet";
    EXPECT_EQ(request("\n"), -1);
    EXPECT_EQ(reply(), "part NO logged out\n");
    EXPECT_EQ(out_->state, FD_CALLBACK_FINISHED);
}

}  // namespace
