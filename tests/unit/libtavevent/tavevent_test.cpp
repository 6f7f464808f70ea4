#include "tavevent/tavevent.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <jansson.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "ucfgd/owners.h"

namespace {

class Event : public testing::Test {
  protected:
    Event() { tavevent_set_file(path_.c_str()); }
    ~Event() override {
        tavevent_set_file(nullptr);
        unlink(path_.c_str());
    }

    /* The members of the file's last line that do not change, as JSON. */
    std::string last() {
        std::ifstream file(path_);
        std::string text;
        for (std::string next; std::getline(file, next); lines_++)
            text = next;
        owned<json_t, json_decref> event{json_loads(text.c_str(), 0, nullptr)};
        if (!event) return "not JSON: " + text;
        EXPECT_GT(json_real_value(json_object_get(event.get(), "time")), 1.5e9);
        EXPECT_EQ(json_integer_value(json_object_get(event.get(), "pid")), getpid());
        json_object_del(event.get(), "time");
        json_object_del(event.get(), "pid");
        return owned_str{json_dumps(event.get(), JSON_SORT_KEYS)}.get();
    }

    std::string path_ = testing::TempDir() + "tavevent-" + std::to_string(getpid());
    int lines_ = 0;
};

TEST_F(Event, IsOneLineOfJsonAppendedToTheFile) {
    EXPECT_EQ(writeevt(TAVEVENT_LOGOUT, "s", "x"), 0);
    EXPECT_EQ(writeevt(TAVEVENT_LOGIN, "si", "a \"quoted\"\nname\xFF", 6), 0);
    EXPECT_EQ(last(), "{\"args\": [\"a \\\"quoted\\\"\\nname\xEF\xBF\xBD\", 6], \"event\": 2}");
    EXPECT_EQ(lines_, 2);
}

TEST_F(Event, IsRefusedWhenItsFormatDoesNotFitItsValues) {
    const char *texts[] = {"admin", "12"};
    const char *blank[] = {" 5"};
    EXPECT_EQ(writeevt_list(13, "i", 1, blank), -1);
    EXPECT_EQ(writeevt_list(13, "si", 2, texts), 0);
    EXPECT_EQ(last(), R"({"args": ["admin", 12], "event": 13})");
    for (const char *format : {"s", "sis", "ii", "sx"}) {
        errno = 0;
        EXPECT_EQ(writeevt_list(13, format, 2, texts), -1) << format;
        EXPECT_EQ(errno, EINVAL) << format;
    }
    EXPECT_EQ(writeevt(13, "q", 1), -1);
}

TEST_F(Event, IsWholeOrMissingWhenTheDiskIsFull) {
    signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(writeevt(2, "s", "first"), 0);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    rlimit tight = before;
    tight.rlim_cur = 100;
    setrlimit(RLIMIT_FSIZE, &tight);
    EXPECT_EQ(writeevt(2, "s", "second"), -1);
    EXPECT_EQ(errno, ENOSPC);
    setrlimit(RLIMIT_FSIZE, &before);
    ASSERT_EQ(writeevt(2, "s", "third"), 0);
    EXPECT_EQ(last(), R"({"args": ["third"], "event": 2})");
    EXPECT_EQ(lines_, 2);
}

TEST_F(Event, SucceedsWithoutAFileAndFailsWhenTheFileTakesNothing) {
    tavevent_set_file("/nonexistent/directory/events");
    EXPECT_EQ(writeevt(2, nullptr), 0);
    EXPECT_EQ(mkfifo(path_.c_str(), 0600), 0);
    tavevent_set_file(path_.c_str());
    const unique_fd reader{open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)};
    for (int i = 0; i < 2000; i++)
        ASSERT_EQ(writeevt(2, "s", "a reader who does not read"), 0);
    tavevent_set_file("/dev/full");
    EXPECT_EQ(writeevt(2, ""), -1);
    EXPECT_EQ(errno, ENOSPC);
}

}  // namespace
