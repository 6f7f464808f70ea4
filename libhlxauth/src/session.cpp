#include "hlxauth/session.h"

#include <istream>
#include <ostream>

#include "store.h"

namespace hlx_auth::session {

std::istream &operator>>(std::istream &in, sid_info &sid) {
    std::string word;
    if (!(in >> word)) return in;
    std::string normal = normal_sid(word);
    if (normal.empty())
        in.setstate(std::ios::failbit);
    else
        sid.sid_ = normal;
    return in;
}

std::ostream &operator<<(std::ostream &out, const sid_info &sid) {
    return out << sid.sid_;
}

SHM_ID session_table::lookup_priv_shmid(const sid_info &sid) const {
    locked_store store;
    const session_place *place = store.find(sid.get_sid_str());
    if (place == nullptr) throw session_error("no session of that identifier");
    return SHM_ID{store.id_of(*place)};
}

priv_session_data::priv_session_data(const hlx_auth_session &record)
    : sid_(record.sid),
      username_(record.user),
      groups_(record.groups, record.groups + record.group_count),
      flags_(record.flags) {}

void priv_session::init() {
    data_ = {};
}

void priv_session::shm_restore(SHM_ID id) {
    locked_store store;
    const session_place *place = store.by_id(id.get());
    if (place == nullptr) throw session_error("the session has ended");
    data_ = priv_session_data{copy_of(*place)};
}

}  // namespace hlx_auth::session
