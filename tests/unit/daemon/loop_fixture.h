#ifndef TESTS_DAEMON_LOOP_FIXTURE_H
#define TESTS_DAEMON_LOOP_FIXTURE_H

#include <gtest/gtest.h>
#include <libdaemon/dlog.h>
#include <syslog.h>
#include <unistd.h>

#include "daemon/loop.h"
#include "session/session.h"

/* Leaves neither sessions nor registrations to the next test. */
class LoopFixture : public testing::Test {
  protected:
    /* The log takes its descriptor before a test counts on the numbers of its own. */
    LoopFixture() { daemon_log(LOG_DEBUG, "a test of the loop"); }
    ~LoopFixture() override {
        while (ccd_session *session = g_session_list) {
            remove_session(session);
            destroy_session(session);
        }
        while (g_cb_list) {
            close(g_cb_list->fd);
            loop_del_callback(g_cb_list);
        }
    }
};

#endif
