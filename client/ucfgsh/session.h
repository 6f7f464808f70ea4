/* The program's session with the daemon: it logs in, brings the connection back when it was lost,
 * and says so. */
#ifndef UCFGSH_SESSION_H
#define UCFGSH_SESSION_H

#include <functional>
#include <string>

#include "ucfgsh/options.h"
#include "ucfgsh/records.h"

namespace ucfgsh {

/* What may happen to a request whose connection broke before its answer came. */
enum class after_loss {
    repeat,   /* asking twice does no harm */
    report,   /* it may have been carried out; the user decides */
    same_only /* the same, and it makes no sense in a session without the old one's changes */
};

class session {
  public:
    /* `tell` prints one line for the user. */
    session(const options &opts, std::function<void(const std::string &)> tell);

    /* Connects, and logs in or resumes. `perms` are the bits that the work needs, 0: all. A result
     * other than k_exit_done has been explained. */
    int open(int perms);

    /* Ends the session; leaves it for --session when that was asked for. */
    void close();

    /* Whether a new session may replace one that is gone for good. Somebody who types can be told;
     * a script would go on and commit half of its changes. */
    void allow_new_session(bool allow) { may_replace_ = allow; }

    /* Runs one request. A lost connection is brought back; the request is repeated or reported. */
    using request = std::function<int(ucfg_conn *)>;
    int call(after_loss policy, const request &work);

    /* Whether the last call sent its request. */
    bool asked() const { return asked_; }

    /* Who knows whether the changes of a session that is gone can be made again. */
    void ask_about_loss(std::function<bool()> can_rebase) { can_rebase_ = std::move(can_rebase); }

    /* Queries that only help with typing: no recovery, nothing said. */
    int quietly(const request &work);

    /* A new log-in, after the old session was ended by somebody else. */
    int log_in_again(const std::string &user, bool force);

    /* The same for the user of a session that is gone. */
    int log_in_anew() { return log_in_again(user_, false); }

    ucfg_conn *conn() { return conn_.get(); }
    bool logged_in() const { return logged_in_; }

    /* Grows whenever a session without the old one's changes begins. */
    unsigned generation() const { return generation_; }

    /* Whether changes may exist that this program has not made. */
    bool resumed_foreign() const { return resumed_foreign_; }

  private:
    int connect();
    int connect_with_patience();
    int log_in();
    int try_login(const std::string &password);
    bool may_ask() const;
    bool recover();
    bool resume_with_patience(int attempts);
    void end();
    int patience() const { return opts_.timeout > 0 ? opts_.timeout * 1000 : -1; }
    int after_end(int code);
    std::string explain() const;
    std::string loss() const;

    const options &opts_;
    std::function<void(const std::string &)> tell_;
    std::function<bool()> can_rebase_;
    owned_conn conn_;
    std::string user_;
    int perms_ = 0;
    bool force_ = false;
    bool may_replace_ = false;
    bool logged_in_ = false;
    bool asked_ = false;
    bool resumed_foreign_ = false;
    unsigned generation_ = 0;
};

/* The status to exit with after a request that ended with that code and text. */
int status_of(int code, const std::string &text);

/* What to do about a refusal, or "". */
std::string advice(int code, const std::string &text);

}  // namespace ucfgsh

#endif
