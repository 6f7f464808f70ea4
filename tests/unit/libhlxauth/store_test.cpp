#include <fcntl.h>
#include <gtest/gtest.h>
#include <llconf/nodes.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <sstream>
#include <string>

#include "hlxauth/hlxauth.h"
#include "hlxauth/session.h"
#include "ucfgd/owners.h"

namespace {

using owned_tree = owned<cnfnode, destroy_cnftree>;

class AaaStore : public ::testing::Test {
  protected:
    AaaStore() : name_("/hlxauth-test-" + std::to_string(getpid())) {
        hlx_auth_set_store(name_.c_str());
    }
    ~AaaStore() override {
        shm_unlink(name_.c_str());
        hlx_auth_set_store(nullptr);
    }

    static std::string create(int flags = 0, int64_t lifetime = -1, const char *group = nullptr) {
        hlx_auth_session wanted{};
        strcpy(wanted.user, "anna");
        if (group != nullptr) strcpy(wanted.groups[wanted.group_count++], group);
        wanted.flags = flags;
        wanted.lifetime = lifetime;
        char sid[HLX_AUTH_SID_SIZE + 1] = "";
        EXPECT_EQ(0, hlx_auth_session_create(&wanted, sid));
        return sid;
    }

    std::string name_;
};

/* root / (entry / (name = value)...)... */
owned_tree tree(std::initializer_list<std::array<const char *, 3>> rules) {
    owned_tree root{create_cnfnode("(root)")};
    for (const auto &[group, name, value] : rules) {
        cnfnode *entry = create_cnfnode(group);
        cnfnode *rule = create_cnfnode(name);
        cnfnode_setval(rule, value);
        append_node(entry, rule);
        append_node(root.get(), entry);
    }
    return root;
}

TEST_F(AaaStore, TellsValidFromUnknownExpiredMalformedAndMissingIdentifiers) {
    std::string sid = create();
    EXPECT_EQ(HLX_AUTH_SID_VALID, hlx_auth_session_sid_check(sid.c_str()));
    EXPECT_EQ(HLX_AUTH_SID_ERANGE, hlx_auth_session_sid_check(std::string(32, 'a').c_str()));
    EXPECT_EQ(HLX_AUTH_SID_ERANGE, hlx_auth_session_sid_check(create(0, 0).c_str()));
    EXPECT_EQ(HLX_AUTH_SID_EINVAL, hlx_auth_session_sid_check((sid + "0").c_str()));
    EXPECT_EQ(HLX_AUTH_SID_EINVAL, hlx_auth_session_sid_check(std::string(32, 'g').c_str()));
    EXPECT_EQ(HLX_AUTH_SID_NULL, hlx_auth_session_sid_check(""));
    EXPECT_EQ(HLX_AUTH_SID_NULL, hlx_auth_session_sid_check(nullptr));
    EXPECT_EQ(0, hlx_auth_session_revoke(sid.c_str()));
    EXPECT_EQ(HLX_AUTH_SID_ERANGE, hlx_auth_session_sid_check(sid.c_str()));
    EXPECT_EQ(-1, hlx_auth_session_revoke(sid.c_str()));
    EXPECT_EQ(ENOENT, errno);
}

TEST_F(AaaStore, NeverLeadsAnOldPlaceToTheNextSession) {
    using namespace hlx_auth::session;
    std::istringstream text{create()};
    sid_info sid;
    ASSERT_TRUE(text >> sid);
    SHM_ID id = session_table{}.lookup_priv_shmid(sid);
    priv_session session;
    session.init();
    session.shm_restore(id);
    EXPECT_EQ("anna", session.get_session().get_username());
    hlx_auth_session_revoke(sid.get_sid_str().c_str());
    create();
    EXPECT_THROW(session.shm_restore(id), std::runtime_error);
    EXPECT_THROW(session_table{}.lookup_priv_shmid(sid), std::runtime_error);
}

TEST_F(AaaStore, SurvivesAProgramThatDiesWhileItHoldsTheLock) {
    std::string sid = create();
    pid_t pid = fork();
    if (pid == 0) {
        /* Killed somewhere in a run of changes, most of which hold the lock. */
        for (;;)
            hlx_auth_session_revoke(create().c_str());
    }
    usleep(50000);
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    EXPECT_EQ(HLX_AUTH_SID_VALID, hlx_auth_session_sid_check(sid.c_str()));
    EXPECT_EQ(HLX_AUTH_SID_VALID, hlx_auth_session_sid_check(create().c_str()));
}

TEST_F(AaaStore, WaitsASecondForAProgramThatStoppedInsideAndThenNotAgain) {
    const unique_fd fd{shm_open(name_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600)};
    flock(fd.get(), LOCK_EX);
    hlx_auth_session wanted{};
    wanted.lifetime = -1;
    char sid[HLX_AUTH_SID_SIZE + 1];
    auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 50; i++) {
        EXPECT_EQ(-1, hlx_auth_session_create(&wanted, sid));
        EXPECT_EQ(ETIMEDOUT, errno);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds{2});
    flock(fd.get(), LOCK_UN);
    ASSERT_EQ(0, hlx_auth_session_create(&wanted, sid));

    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    const pid_t pid = fork();
    if (pid == 0) {
        constexpr size_t k_lock = 16; /* behind mark, size and the count of sessions */
        void *page = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
        pthread_mutex_lock(reinterpret_cast<pthread_mutex_t *>(static_cast<char *>(page) + k_lock));
        if (write(ends[1], "", 1) == 1) pause();
        _exit(1);
    }
    char byte;
    ASSERT_EQ(1, read(ends[0], &byte, 1));
    begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 50; i++) {
        EXPECT_EQ(HLX_AUTH_SID_ERR, hlx_auth_session_sid_check(sid));
        EXPECT_EQ(ETIMEDOUT, errno);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds{5});
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    EXPECT_EQ(HLX_AUTH_SID_VALID, hlx_auth_session_sid_check(sid));
}

TEST_F(AaaStore, TrustsNothingThatItFinds) {
    const std::string sid = create(0, INT64_MAX);
    EXPECT_EQ(HLX_AUTH_SID_VALID, hlx_auth_session_sid_check(sid.c_str()));
    hlx_auth_session wanted{};
    strcpy(wanted.user, "an\na");
    char made[HLX_AUTH_SID_SIZE + 1];
    EXPECT_EQ(-1, hlx_auth_session_create(&wanted, made));
    EXPECT_EQ(EINVAL, errno);
    {
        const unique_fd fd{shm_open(name_.c_str(), O_RDWR | O_CLOEXEC, 0)};
        ASSERT_EQ(64, pwrite(fd.get(), std::string(64, 'x').data(), 64, 0));
        EXPECT_EQ(HLX_AUTH_SID_ERR, hlx_auth_session_sid_check(sid.c_str()));
        EXPECT_EQ(EINVAL, errno);
        if (fchown(fd.get(), 65534, 65534) != 0) GTEST_SKIP() << "only root can give files away";
    }
    EXPECT_EQ(HLX_AUTH_SID_ERANGE, hlx_auth_session_sid_check(sid.c_str()))
        << "root takes the name of its store back";
}

TEST_F(AaaStore, SaysThatItIsFullAndTakesThePlacesOfExpiredSessions) {
    hlx_auth_session wanted{};
    char sid[HLX_AUTH_SID_SIZE + 1];
    for (int i = 0; i < HLX_AUTH_SESSIONS_MAX; i++) {
        wanted.lifetime = i == 0 ? 0 : -1;
        ASSERT_EQ(0, hlx_auth_session_create(&wanted, sid));
    }
    EXPECT_EQ(0, hlx_auth_session_create(&wanted, sid));
    EXPECT_EQ(-1, hlx_auth_session_create(&wanted, sid));
    EXPECT_EQ(ENOSPC, errno);
    size_t count = 0;
    std::unique_ptr<hlx_auth_session, free_memory> list{hlx_auth_session_list(&count)};
    EXPECT_EQ(HLX_AUTH_SESSIONS_MAX, static_cast<int>(count));
}

TEST_F(AaaStore, SetsUpTheAccessListOfTheSessionsGroupsAndRefusesTreesThatDoNotFit) {
    owned_tree other = tree({{"server", "port", "49"}});
    owned_tree acl = tree({{"user", "allow", "network.*"}, {"ops", "deny:", "system.*"}});
    auto list_of = [&](const std::string &sid, const cnfnode *authorization) -> std::string {
        sid_data data;
        hlx_auth_session_sid_data(sid.c_str(), &data);
        if (lib_hlxaaa_acl_init(&data, authorization, other.get(), other.get(), other.get()) < 0)
            return strerror(errno);
        hlx_auth_session session;
        hlx_auth_session_get(sid.c_str(), &session);
        return session.acl;
    };
    EXPECT_EQ("allow network.*\n", list_of(create(), acl.get()));
    EXPECT_EQ("deny system.*\n", list_of(create(0, -1, "ops"), acl.get()));
    EXPECT_EQ("", list_of(create(0, -1, "guest"), acl.get()));
    EXPECT_EQ(strerror(EINVAL), list_of(create(), tree({{"user", "permit", "x"}}).get()));
    EXPECT_EQ(strerror(EINVAL), list_of(create(), nullptr));
    EXPECT_EQ(strerror(ENOENT), list_of(std::string(32, 'a'), acl.get()));
}

}  // namespace
