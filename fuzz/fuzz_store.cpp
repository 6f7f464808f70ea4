#include <fcntl.h>
#include <llconf/nodes.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "hlxauth/hlxauth.h"
#include "ucfgd/owners.h"

/* An AAA store that another program has damaged. The input is a list of changes to a store with two
 * sessions, each where (two bytes), what (one), and how often (one): at byte 0xffff the file is
 * cut. Every call answers, with a session whose texts end or with an error. */

namespace {

constexpr size_t k_change_size = 4;
constexpr off_t k_lock_start = 16; /* behind mark, size and the count of sessions */
constexpr off_t k_lock_end = k_lock_start + sizeof(pthread_mutex_t);

void require(bool condition) {
    if (!condition) std::abort();
}

template <size_t size>
bool ends(const char (&text)[size]) {
    return std::memchr(text, 0, size) != nullptr;
}

void check(const hlx_auth_session &session) {
    require(ends(session.sid) && ends(session.user) && ends(session.acl));
    require(session.group_count >= 0 && session.group_count <= HLX_AUTH_GROUPS_MAX);
    for (int i = 0; i < session.group_count; i++)
        require(ends(session.groups[i]));
}

/* A store with two sessions, made once. Each input gets it as it was. */
class sample_store {
  public:
    sample_store() {
        hlx_auth_set_store(name_.c_str());
        std::strcpy(wanted.user, "anna");
        std::strcpy(wanted.groups[wanted.group_count++], "staff");
        wanted.lifetime = -1;
        for (char(&one)[HLX_AUTH_SID_SIZE + 1] : sid)
            require(hlx_auth_session_create(&wanted, one) == 0);
        const unique_fd fd = open();
        struct stat st {};
        require(fstat(fd.get(), &st) == 0);
        image_.resize(static_cast<std::size_t>(st.st_size));
        require(pread(fd.get(), image_.data(), image_.size(), 0) == st.st_size);
    }
    sample_store(const sample_store &) = delete;
    sample_store &operator=(const sample_store &) = delete;
    ~sample_store() { shm_unlink(name_.c_str()); }

    unique_fd open() const {
        unique_fd fd{shm_open(name_.c_str(), O_RDWR | O_CLOEXEC, 0)};
        require(static_cast<bool>(fd));
        return fd;
    }
    void put_back() const {
        const unique_fd fd = open();
        require(ftruncate(fd.get(), static_cast<off_t>(image_.size())) == 0);
        require(pwrite(fd.get(), image_.data(), image_.size(), 0) ==
                static_cast<ssize_t>(image_.size()));
    }

    hlx_auth_session wanted{};
    char sid[2][HLX_AUTH_SID_SIZE + 1];

  private:
    std::string name_ = "/fuzz-store-" + std::to_string(getpid());
    std::string image_;
};

/* Changes land in the header and in the first places, where there is something to damage. */
void damage(const unique_fd &fd, const uint8_t *data, size_t size) {
    const bool alone = size < 2 * k_change_size;
    for (; size >= k_change_size; data += k_change_size, size -= k_change_size) {
        const off_t at = data[0] << 8 | data[1];
        const std::string bytes(data[3], static_cast<char>(data[2]));
        const bool in_lock = at < k_lock_end && at + data[3] > k_lock_start;
        if (at == 0xffff)
            require(ftruncate(fd.get(), data[2] << 8 | data[3]) == 0);
        else if (!in_lock || alone)
            require(pwrite(fd.get(), bytes.data(), bytes.size(), at) >= 0);
    }
}

void use_everything(const hlx_auth_session &wanted, const char *sid) {
    char made[HLX_AUTH_SID_SIZE + 1];
    hlx_auth_session copy{};
    sid_data id{};
    require(hlx_auth_session_sid_data(sid, &id) == 0);
    hlx_auth_session_sid_check(sid);
    if (hlx_auth_session_get(sid, &copy) == 0) check(copy);
    hlx_auth_session_get_attr_flag(&id);
    size_t count = 0;
    owned<hlx_auth_session, std::free> all{hlx_auth_session_list(&count)};
    for (size_t i = 0; i < count; i++)
        check(all.get()[i]);
    owned<cnfnode, destroy_cnftree> tree{create_cnfnode("(root)")};
    lib_hlxaaa_acl_init(&id, tree.get(), tree.get(), tree.get(), tree.get());
    if (hlx_auth_session_create(&wanted, made) == 0)
        require(std::strlen(made) == HLX_AUTH_SID_SIZE);
    hlx_auth_session_revoke(sid);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const sample_store g_store;
    g_store.put_back();
    damage(g_store.open(), data, size);
    use_everything(g_store.wanted, g_store.sid[1]);
    return 0;
}
