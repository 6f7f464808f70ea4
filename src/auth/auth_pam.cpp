/* The method that asks Linux-PAM, service "ucfgd". */

#include <libdaemon/dlog.h>
#include <security/pam_appl.h>

#include <cstdlib>
#include <cstring>

#include "auth/auth_context.h"
#include "auth/session_auth.h"
#include "ucfgd/guaranteed_memset.h"
#include "ucfgd/owners.h"

namespace {

struct wipe_memory {
    void operator()(char *text) const {
        guaranteed_memset(text, 0, strlen(text));
        free(text);
    }
};
using secret_str = std::unique_ptr<char, wipe_memory>;

void no_delay(int, unsigned, void *) {}

/* A refusal would otherwise make everybody wait for the delay that modules ask for. */
void switch_delay_off(pam_handle_t *pamh) {
    pam_set_item(pamh, PAM_FAIL_DELAY, reinterpret_cast<const void *>(no_delay));
}

void free_responses(pam_response *responses, int count) {
    for (int i = 0; i < count; ++i) {
        if (!responses[i].resp) continue;
        guaranteed_memset(responses[i].resp, 0, strlen(responses[i].resp));
        free(responses[i].resp);
    }
    free(responses);
}

/* The answer to one message; false when there is none to be had. */
bool answer(const ccd_auth_context &context, const pam_message &message, pam_response &response) {
    switch (message.msg_style) {
        case PAM_PROMPT_ECHO_ON:
            response.resp = strdup(context.username);
            return response.resp != nullptr;
        case PAM_PROMPT_ECHO_OFF:
            response.resp = strdup(context.password);
            return response.resp != nullptr;
        case PAM_ERROR_MSG:
            return true;
        case PAM_TEXT_INFO:
            free(g_auth_message);
            g_auth_message = message.msg ? strdup(message.msg) : nullptr;
            return true;
        default:
            return false;
    }
}

int run_transaction(pam_handle_t *pamh, const char *user, const char *pass) {
    switch_delay_off(pamh);
    pam_set_item(pamh, PAM_USER, user);
    pam_set_item(pamh, PAM_AUTHTOK, pass);
    pam_set_item(pamh, PAM_TTY, "/dev/ucfgd");

    int result = pam_authenticate(pamh, 0);
    if (result != PAM_SUCCESS) {
        auth_log("pam_authenticate() failed: %s", pam_strerror(pamh, result));
        return result;
    }
    result = pam_acct_mgmt(pamh, 0);
    if (result != PAM_SUCCESS) {
        auth_log("pam_acct_mgmt() failed: %s", pam_strerror(pamh, result));
        return result;
    }
    /* The user is accepted by now; the two lines below carry the text of that result. */
    if (pam_setcred(pamh, PAM_ESTABLISH_CRED) != PAM_SUCCESS) {
        daemon_log(LOG_ERR, "pam_setcred() failed: %s", pam_strerror(pamh, result));
    }
    if (pam_open_session(pamh, 0) != PAM_SUCCESS) {
        daemon_log(LOG_ERR, "pam_open_session() failed: %s", pam_strerror(pamh, result));
    }
    return result;
}

}  // namespace

int session_pam_conv(int num_msg, const pam_message **msg, pam_response **resp, void *appdata_ptr) {
    const auto *context = static_cast<const ccd_auth_context *>(appdata_ptr);
    if (num_msg <= 0 || num_msg > PAM_MAX_NUM_MSG || !msg || !resp || !context) return PAM_CONV_ERR;
    auto *responses =
        static_cast<pam_response *>(calloc(static_cast<size_t>(num_msg), sizeof(pam_response)));
    if (!responses) return PAM_CONV_ERR;
    for (int i = 0; i < num_msg; ++i) {
        if (!answer(*context, *msg[i], responses[i])) {
            free_responses(responses, num_msg);
            return PAM_CONV_ERR;
        }
    }
    *resp = responses;
    return PAM_SUCCESS;
}

int session_auth_pam(ccd_session *session, const char *user, const char *pass) {
    const secret_str username{strdup(user)};
    const secret_str password{strdup(pass)};
    if (!username || !password) return 1;
    ccd_auth_context context{username.get(), password.get(), session};
    const pam_conv conversation{session_pam_conv, &context};

    pam_handle_t *pamh = nullptr;
    int result = pam_start("ucfgd", user, &conversation, &pamh);
    if (result != PAM_SUCCESS) {
        auth_log("pam_start() failed: %s", pam_strerror(pamh, result));
    } else {
        result = run_transaction(pamh, user, pass);
        pam_end(pamh, result);
    }
    return result == PAM_SUCCESS ? 0 : 1;
}
