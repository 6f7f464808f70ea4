#include "auth/session_auth.h"

#include <crypt.h>
#include <gtest/gtest.h>
#include <libdaemon/dlog.h>
#include <pwd.h>
#include <security/pam_appl.h>
#include <shadow.h>
#include <sys/socket.h>

#include <map>
#include <string>

#include "auth/auth_context.h"
#include "conf_text.h"
#include "session/session.h"
#include "ucfgd/owners.h"

/* The accounts of this test, user id 1001 all of them, stand in for the machine's in both
 * databases: name and password field. */
static std::map<std::string, const char *> g_fields;

extern "C" passwd *getpwnam(const char *name) {
    static passwd entry;
    if (!g_fields.contains(name)) return nullptr;
    entry.pw_uid = 1001;
    entry.pw_passwd = const_cast<char *>(g_fields[name]);
    return &entry;
}

extern "C" spwd *getspnam(const char *name) {
    static spwd entry;
    if (!g_fields.contains(name)) return nullptr;
    entry.sp_pwdp = const_cast<char *>(g_fields[name]);
    return &entry;
}

namespace {

class Authentication : public testing::Test {
  protected:
    void SetUp() override {
        daemon_log_use = DAEMON_LOG_STDERR;
        hash = crypt("secret", "$1$saltsalt");
        g_fields = {{"joe", hash.c_str()},
                    {"locked", "!"},
                    {"none", "*0"},
                    {"open", ""},
                    {"null", nullptr}};
        session.listenname = strdup("local");
    }
    void TearDown() override {
        destroy_cnftree(std::exchange(g_conftree, nullptr));
        free(session.listenname);
        free(session.auth_method);
    }

    void listen(const std::string &methods) {
        destroy_cnftree(g_conftree);
        g_conftree = conf_text("listen {\n local {\n" + methods + " }\n}\n");
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
    listen("");
    EXPECT_EQ(login("joe", "joe"), "-1");
    listen("authtype: passwd\nauthtype: usercred\nauthtype: debug\n");
    EXPECT_EQ(login("joe", "secret"), "passwd");
    EXPECT_EQ(login("joe", "wrong"), "1");
    EXPECT_EQ(login("joe", "joe"), "debug");
    ucred peer{1, 1001, 1001};
    session.ucred = &peer;
    EXPECT_EQ(login("joe", "wrong"), "usercred");
    EXPECT_EQ(login("joe", "secret"), "passwd");
    EXPECT_EQ(login("stranger", "wrong"), "1");
    listen("authtype: usercred\nauthtype: magic\nauthtype: debug\n");
    EXPECT_EQ(login("stranger", "wrong"), "-1");
}

TEST_F(Authentication, NoPasswordFitsAFieldThatIsNone) {
    for (auto *method : {session_auth_passwd, session_auth_shadow}) {
        EXPECT_EQ(method(&session, "joe", "secret"), 0);
        EXPECT_EQ(method(&session, "joe", ""), 1);
        for (const char *user : {"locked", "none", "open", "null", "stranger"}) {
            for (const char *pass : {"", "!", "*0", "*1"})
                EXPECT_EQ(method(&session, user, pass), 1) << user << pass;
        }
    }
}

TEST_F(Authentication, ThePamConversationAnswersPromptsAndKeepsInformation) {
    char user[] = "joe";
    char pass[] = "secret";
    ccd_auth_context context{user, pass, &session};
    const auto answer = [&](int style) -> std::string {
        const pam_message message{style, "expires"};
        const pam_message *messages = &message;
        pam_response *response = nullptr;
        if (session_pam_conv(1, &messages, &response, &context) != 0) return "(error)";
        const owned_str text{response->resp};
        free(response);
        return text ? text.get() : "(none)";
    };
    EXPECT_EQ(answer(PAM_PROMPT_ECHO_ON), "joe");
    EXPECT_EQ(answer(PAM_PROMPT_ECHO_OFF), "secret");
    EXPECT_EQ(answer(PAM_ERROR_MSG), "(none)");
    EXPECT_EQ(g_auth_message, nullptr);
    EXPECT_EQ(answer(PAM_TEXT_INFO), "(none)");
    EXPECT_STREQ(g_auth_message, "expires");
    EXPECT_EQ(answer(99), "(error)");
    login("joe", "joe");
    EXPECT_EQ(g_auth_message, nullptr);
}
