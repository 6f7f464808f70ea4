#include "auth/hlxaaa.h"

#include <libdaemon/dlog.h>
#include <strings.h>
#include <syslog.h>

#include <array>
#include <exception>
#include <sstream>
#include <string>

#include "auth/session_auth.h"
#include "backend/ll_trns.h"
#include "backend/llconf_item.h"
#include "hlxauth/hlxauth.h"
#include "hlxauth/session.h"
#include "hlxauth/syslog_helper.h"
#include "session/session.h"
#include "tree/trns.h"
#include "ucfgd/owners.h"

/* Sessions that the appliance's own login service has authenticated.
 *
 * A client that holds such a session logs in under a reserved name with the identifier as its
 * password. The store says whether the identifier is good; the daemon keeps a copy of it with its
 * own session and hands it to node methods as $hlxaaa_sid. At login the session's access-control
 * list is set up from four backend modules. The classes of the store throw; nothing thrown leaves
 * this file: a refusal is all that a failing store can bring about. */

namespace ucfgd {

/* A message on its way out of a login that cannot be granted. */
class app_exception {
  public:
    explicit app_exception(std::string message) : message_(std::move(message)) {}
    virtual ~app_exception() = default;
    void set(std::string message) { message_ = std::move(message); }
    const std::string &get_str() const { return message_; }
    void print() const { auth_log("Error: %s", message_.c_str()); }

  private:
    std::string message_;
};

class app_error : public app_exception {
  public:
    using app_exception::app_exception;
};

namespace {

const std::string k_log_identity{"ucfgd-hlxaaa"};
const std::string k_user_name{".hlxaaa"};
const std::string k_nameless_user{"RVAPI"};

struct input_row {
    const char *module;
    const char *failure;
};

/* The backend modules that the access-control list is made from, in the order in which they are
 * looked for. */
constexpr std::array k_acl_inputs{
    input_row{"authorization", ": Failed to obtain acl configuration"},
    input_row{"radserv", ": Failed to obtain radius configuration"},
    input_row{"tacusrlvl", ": Failed to obtain tacacs configuration"},
    input_row{"appliance", ": Failed to obtain appliance configuration"},
};

/* The read view of a module's tree in the master context, or null. */
cnfnode *get_cnfnode_from_g_ctx(const char *name) {
    llconf_item *item = find_llconf_item(lli_list_from_trns_ctx(g_trns_ctx), name);
    return item != nullptr ? llconf_get_cnftree_read(item) : nullptr;
}

/* The session that the identifier names. Throws what the store throws, and app_error when the
 * session is not for logging in. */
hlx_auth::session::priv_session_data find_session(const char *identifier) {
    using namespace hlx_auth::session;
    sid_info sid;
    std::istringstream in{identifier};
    if (!(in >> sid)) throw app_error{"not a session identifier"};
    priv_session session;
    session.init();
    session.shm_restore(session_table{}.lookup_priv_shmid(sid));
    const priv_session_data &data = session.get_session();
    if (data.get_sid_str() != sid.get_sid_str()) throw app_error{"the session has ended"};
    if ((data.get_flags() & HLX_AUTH_FLAG_NO_LOGIN) != 0)
        throw app_error{"the session is not valid for a login"};
    return data;
}

int log_in(ccd_session *session, const char *identifier) {
    ost::util::syslog_helper log{k_log_identity, LOG_PID, LOG_AUTH};
    auto data = find_session(identifier);
    owned_str sid = dup_str(data.get_sid_str());
    if (!sid) return 1;
    free(session->hlxaaa_sid);
    session->hlxaaa_sid = sid.release();
    const std::string &user = data.get_username();
    log.log(LOG_INFO,
            "Session validity established.  User: " + (user.empty() ? k_nameless_user : user));
    return 0;
}

int init_acl(const sid_data *sid, const char *function) {
    int flags = hlx_auth_session_get_attr_flag(sid);
    if (flags == -1 || (flags & HLX_AUTH_FLAG_NO_ACL) != 0) return 0;
    ost::util::syslog_helper log{k_log_identity, LOG_PID, LOG_USER};
    std::string identifier{sid->sid, static_cast<size_t>(sid->sid_sz)};
    log.log(LOG_INFO, std::string{function} + ": SID: " + identifier);
    std::array<cnfnode *, k_acl_inputs.size()> trees{};
    for (size_t i = 0; i < trees.size(); i++) {
        trees[i] = get_cnfnode_from_g_ctx(k_acl_inputs[i].module);
        if (trees[i] == nullptr) {
            log.log(LOG_ERR, std::string{function} + k_acl_inputs[i].failure);
            return -1;
        }
    }
    return lib_hlxaaa_acl_init(sid, trees[0], trees[1], trees[2], trees[3]);
}

}  // namespace

}  // namespace ucfgd

int session_auth_hlxaaa(ccd_session *session, const char *user, const char *pass) {
    if (session == nullptr || user == nullptr || pass == nullptr) return 1;
    if (strcasecmp(user, ucfgd::k_user_name.c_str()) != 0) return 1;
    try {
        return ucfgd::log_in(session, pass);
    } catch (const ucfgd::app_exception &error) {
        error.print();
    } catch (const std::exception &error) {
        auth_log("Error: %s", error.what());
    }
    return 1;
}

int hlxaaa_acl_init(const sid_data *sid) {
    if (sid == nullptr || g_trns_ctx == nullptr) return 0;
    try {
        return ucfgd::init_acl(sid, __func__);
    } catch (const std::exception &error) {
        daemon_log(LOG_ERR, "Error: %s", error.what());
        return -1;
    }
}
