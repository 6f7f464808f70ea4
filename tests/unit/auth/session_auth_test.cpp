#include "auth/session_auth.h"

#include <crypt.h>
#include <gtest/gtest.h>
#include <libdaemon/dlog.h>
#include <pwd.h>
#include <security/pam_appl.h>
#include <shadow.h>
#include <sys/socket.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "auth/auth_context.h"
#include "llconf/nodes.h"
#include "session/session.h"
#include "ucfgd/owners.h"

/* The accounts of this test stand in for the machine's: name, user id and password field, null for
 * none. They are in the shadow database as well. */
namespace {

struct account {
    uid_t uid;
    const char *field;
};

std::map<std::string, account> g_accounts;

}  // namespace

extern "C" passwd *getpwnam(const char *name) {
    static passwd entry;
    const auto found = g_accounts.find(name);
    if (found == g_accounts.end()) return nullptr;
    entry.pw_uid = found->second.uid;
    entry.pw_passwd = const_cast<char *>(found->second.field);
    return &entry;
}

extern "C" spwd *getspnam(const char *name) {
    static spwd entry;
    const auto found = g_accounts.find(name);
    if (found == g_accounts.end()) return nullptr;
    entry.sp_pwdp = const_cast<char *>(found->second.field);
    return &entry;
}

namespace {

class Authentication : public testing::Test {
  protected:
    void SetUp() override {
        daemon_log_use = DAEMON_LOG_STDERR;
        hash = crypt("secret", "$1$saltsalt");
        g_accounts = {{"joe", {1001, hash.c_str()}},
                      {"locked", {1002, "!"}},
                      {"none", {1003, "*0"}},
                      {"open", {1004, ""}},
                      {"null", {1005, nullptr}}};
        session.listenname = strdup("local");
    }
    void TearDown() override {
        destroy_cnftree(g_conftree);
        g_conftree = nullptr;
        free(session.listenname);
        free(session.auth_method);
    }

    void listen(const std::vector<const char *> &methods) {
        destroy_cnftree(g_conftree);
        g_conftree = create_cnfnode("(root)");
        cnfnode *section = create_cnfnode("listen");
        cnfnode *local = create_cnfnode("local");
        append_node(g_conftree, section);
        append_node(section, local);
        for (const char *name : methods) {
            cnfnode *entry = create_cnfnode("authtype:");
            cnfnode_setval(entry, name);
            append_node(local, entry);
        }
    }
    /* The accepting method, or the refusal's number. */
    std::string login(const char *user, const char *pass) {
        free(session.auth_method);
        session.auth_method = nullptr;
        const int result = session_auth(&session, user, pass);
        return result == 0 ? session.auth_method : std::to_string(result);
    }

    std::string hash;
    ccd_session session{};
};

}  // namespace

TEST_F(Authentication, TriesTheMethodsInTheirOrder) {
    EXPECT_EQ(login("joe", "joe"), "-1");
    listen({});
    EXPECT_EQ(login("joe", "joe"), "-1");
    listen({"passwd", "usercred", "debug"});
    EXPECT_EQ(login("joe", "secret"), "passwd");
    EXPECT_EQ(login("joe", "wrong"), "1");
    EXPECT_EQ(login("joe", "joe"), "debug");
    ucred peer{1, 1001, 1001};
    session.ucred = &peer;
    EXPECT_EQ(login("joe", "wrong"), "usercred");
    EXPECT_EQ(login("joe", "secret"), "passwd");
    EXPECT_EQ(login("locked", "wrong"), "1");
    EXPECT_EQ(login("stranger", "wrong"), "1");
    listen({"usercred", "debug"});
    EXPECT_EQ(login("locked", "wrong"), "-1");
    free(session.listenname);
    session.listenname = strdup("elsewhere");
    EXPECT_EQ(login("joe", "joe"), "-1");
}

TEST_F(Authentication, LogsAMethodThatItDoesNotKnowAndGoesOn) {
    listen({"magic", "debug"});
    testing::internal::CaptureStderr();
    EXPECT_EQ(login("joe", "joe"), "debug");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "unknown authtype magic\n");
}

TEST_F(Authentication, NoPasswordFitsAFieldThatIsNone) {
    for (auto *method : {session_auth_passwd, session_auth_shadow}) {
        EXPECT_EQ(method(&session, "joe", "secret"), 0);
        EXPECT_EQ(method(&session, "joe", ""), 1);
        for (const char *user : {"locked", "none", "open", "null", "stranger"}) {
            for (const char *pass : {"", "!", "*0", "*1"}) {
                EXPECT_EQ(method(&session, user, pass), 1) << user << pass;
            }
        }
    }
}

TEST_F(Authentication, ThePamConversationAnswersPromptsAndKeepsInformation) {
    char user[] = "joe";
    char pass[] = "secret";
    ccd_auth_context context{user, pass, &session};
    const pam_message messages[] = {{PAM_PROMPT_ECHO_ON, "login"},
                                    {PAM_PROMPT_ECHO_OFF, "password"},
                                    {PAM_ERROR_MSG, "dropped"},
                                    {PAM_TEXT_INFO, "first"},
                                    {PAM_TEXT_INFO, "expires soon"}};
    const pam_message strange{99, "?"};
    const pam_message *list[] = {&messages[0], &messages[1], &messages[2],
                                 &messages[3], &messages[4], &strange};
    pam_response *responses = nullptr;
    EXPECT_EQ(session_pam_conv(6, list, &responses, &context), PAM_CONV_ERR);
    ASSERT_EQ(session_pam_conv(5, list, &responses, &context), 0);
    EXPECT_STREQ(responses[0].resp, "joe");
    EXPECT_STREQ(responses[1].resp, "secret");
    for (int i : {2, 3, 4})
        EXPECT_EQ(responses[i].resp, nullptr);
    EXPECT_STREQ(g_auth_message, "expires soon");
    free(responses[0].resp);
    free(responses[1].resp);
    free(responses);
    listen({});
    login("joe", "joe");
    EXPECT_EQ(g_auth_message, nullptr);
}
