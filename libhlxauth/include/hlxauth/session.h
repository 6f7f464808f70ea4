#ifndef HLXAUTH_SESSION_H
#define HLXAUTH_SESSION_H

#ifndef __cplusplus
#    error "session.h is for C++; a C program uses hlxauth.h"
#endif

#include <iosfwd>
#include <stdexcept>
#include <string>
#include <vector>

#include "hlxauth/hlxauth.h"

/* The store's classes. What fails throws hlx_auth::session::session_error, a std::runtime_error
 * whose text says what and why. */

namespace hlx_auth::session {

class session_error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/* The place of a session in shared memory. Made anew for every session that a place is given to, so
 * an old one never leads to somebody else's session. */
class SHM_ID {
  public:
    explicit SHM_ID(int id) : id_(id) {}
    int get() const { return id_; }

  private:
    int id_;
};

/* An identifier; empty until one is read. */
class sid_info {
  public:
    const std::string &get_sid_str() const { return sid_; }

    /* Reads one word; a word that is no identifier sets the stream's fail bit and leaves sid as it
     * was. */
    friend std::istream &operator>>(std::istream &in, sid_info &sid);
    friend std::ostream &operator<<(std::ostream &out, const sid_info &sid);

  private:
    std::string sid_;
};

class session_table {
  public:
    /* Where the session is. Throws when there is none. */
    SHM_ID lookup_priv_shmid(const sid_info &sid) const;
};

class priv_session_data {
  public:
    priv_session_data() = default;
    explicit priv_session_data(const hlx_auth_session &record);

    const std::string &get_sid_str() const { return sid_; }
    const std::string &get_username() const { return username_; }
    const std::vector<std::string> &get_groups() const { return groups_; }
    int get_flags() const { return flags_; }

  private:
    std::string sid_;
    std::string username_;
    std::vector<std::string> groups_;
    int flags_ = 0;
};

/* A copy of one session. */
class priv_session {
  public:
    /* Forgets what was restored before. */
    void init();
    /* Copies the session from shared memory. Throws when it has gone. */
    void shm_restore(SHM_ID id);
    const priv_session_data &get_session() const { return data_; }

  private:
    priv_session_data data_;
};

}  // namespace hlx_auth::session

#endif
