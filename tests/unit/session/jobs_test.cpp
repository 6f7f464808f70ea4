#include <sys/stat.h>

#include "session_fixture.h"

class Jobs : public session_test {
  protected:
    void SetUp() override {
        session_test::SetUp();
        define(g_ccdtree, "access: '1'\n* {\n get: fetch($0)\n set: store($0, $_)\n}\n");
        define(g_mgmttree, "access: '1'\nrun {\n admin: system($arg1)\n}\n");
    }
};

TEST_F(Jobs, OutputOfAnActionArrivesWhileItRuns) {
    ccd_session *session = logged_in("admin");
    const std::string fifo = dir + "/fifo";
    mkfifo(fifo.c_str(), 0600);
    ask(session, "t ADMIN run echo+one;read+x<" + fifo + ";echo+$x;echo+err+>%262;exit+0\nn NOOP");
    std::string output;
    for (; output.empty(); output = replies(session))
        pump();
    EXPECT_EQ(output, "t.1 one\n");
    std::ofstream(fifo) << "two\n";
    output = wait(session);
    EXPECT_NE(output.find("t.2 err\n"), std::string::npos) << output;
    EXPECT_TRUE(output.ends_with("t.1 \nt.2 \nt OK\nn OK\n")) << output;
    ask(session, "averylongtag1234 ADMIN run exit+3");
    EXPECT_EQ(wait(session), "averylongtag1.1 \naverylongtag1.2 \naverylongtag1234 ERR\n");
}

TEST_F(Jobs, ActionsAreBoundedAlsoWithoutTheirSessionsAndCommitsAreNot) {
    limit_set(k_limit_jobs_per_user, 2);
    for (int i = 0; i < 2; i++) {
        ccd_session *session = logged_in("admin");
        ask(session, "t ADMIN run exec+sleep+100");
        session_discard(session);
    }
    session_sweep();
    ccd_session *session = logged_in("admin");
    EXPECT_EQ(ask(session, "t ADMIN run true"), "t ERR Resource temporarily unavailable\n");
    limit_set(k_limit_jobs_per_user, 16);
    limit_set(k_limit_jobs, 2);
    EXPECT_EQ(ask(session, "t ADMIN run true"), "t ERR Resource temporarily unavailable\n");
    limit_set(k_limit_jobs, 64);
    ask(session, "t SET a 1\nc COMMIT");
    EXPECT_EQ(wait(session), "c OK\n");
    while (g_bgexec_ctx_list) {
        bgexec_end(g_bgexec_ctx_list, EIO);
        pump();
    }
}

/* The wait status of a script, its output and its errors. */
static std::tuple<int, std::string, std::string> run(const char *program, std::string script,
                                                     const std::string &input, uid_t uid) {
    std::string name{program};
    char option[] = "-c";
    char *const argv[] = {name.data(), option, script.data(), nullptr};
    char *data[2] = {};
    int size[2] = {};
    int status = -1;
    EXPECT_EQ(execute(program, argv, uid, input.data(), static_cast<int>(input.size()), &data[0],
                      &size[0], &data[1], &size[1], &status),
              0);
    const owned_str out{data[0]};
    const owned_str err{data[1]};
    return {status, out ? out.get() : "", err ? err.get() : ""};
}

TEST(Execute, ExchangesAnyAmountOfDataWithAProgramUnderItsAccount) {
    const std::string input(3000000, 'x');
    EXPECT_EQ(run("sh", "cat; echo error >&2; exit 3", input, getuid()),
              std::tuple(3 << 8, input, "error\n"));
    EXPECT_EQ(run("sh", "ls /proc/self/fd | wc -l; kill -PIPE $$", "", getuid()),
              std::tuple(SIGPIPE, "4\n", ""));
    EXPECT_EQ(run("/no/such", "", "", getuid()),
              std::tuple(1 << 8, "", "executing '/no/such' failed: No such file or directory\n"));
    if (getuid() == 0) {
        EXPECT_EQ(run("sh", "id -u; id -g; id -G", "", 65534),
                  std::tuple(0, "65534\n65534\n65534\n", ""));
    }
}
