/* The methods that compare with the stored password of a system account. */

#include <crypt.h>
#include <pwd.h>
#include <shadow.h>

#include <chrono>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>

#include "auth/level.h"
#include "auth/session_auth.h"
#include "ucfgd/guaranteed_memset.h"

namespace {

/* Takes as long for texts that differ early as for those that differ late. */
bool equal_secrets(const char *a, const char *b) {
    const size_t length = strlen(a);
    if (length != strlen(b)) return false;
    unsigned char difference = 0;
    for (size_t i = 0; i < length; ++i) {
        difference = static_cast<unsigned char>(difference | (a[i] ^ b[i]));
    }
    return difference == 0;
}

/* What a hash costs here, told by the field of an account: everything but the hash itself. Where
 * no account has been seen yet, that of root or else what the library prefers. */
class usual_cost {
  public:
    void learn(const char *stored) {
        const std::string_view field{stored};
        const size_t salt_end = field.rfind('$');
        if (salt_end == 0 || salt_end == std::string_view::npos) return;
        const size_t length = field.starts_with("$2") ? k_bcrypt_setting : salt_end + 1;
        if (length < sizeof setting_ && length <= field.size())
            setting_[field.copy(setting_, length)] = '\0';
    }
    const char *setting() {
        if (setting_[0] == '\0') {
            const spwd *root = getspnam("root");
            if (root && root->sp_pwdp) learn(root->sp_pwdp);
        }
        if (setting_[0] == '\0')
            crypt_gensalt_rn(nullptr, 0, nullptr, 0, setting_, sizeof setting_);
        return setting_;
    }
    std::chrono::steady_clock::duration time{}; /* of the last hash */
    unsigned long hashes = 0;

  private:
    static constexpr size_t k_bcrypt_setting = 29;
    char setting_[CRYPT_GENSALT_OUTPUT_SIZE] = "";
};

usual_cost g_usual;

/* Null for a setting that is none. */
const char *timed_hash(const char *pass, const char *setting, crypt_data *data) {
    const auto begin = std::chrono::steady_clock::now();
    const char *hash = crypt_r(pass, setting, data);
    if (!hash || hash[0] == '*') return nullptr;
    g_usual.time = std::chrono::steady_clock::now() - begin;
    g_usual.hashes++;
    return hash;
}

/* A field that no password fits ("*", "!", the empty text) makes crypt_r fail, which it tells by
 * null or by a text that begins with "*"; that text must never count as equal to the field. */
int check_password(const char *pass, const char *stored) {
    if (!stored) return 1;
    auto data = std::unique_ptr<crypt_data>(new (std::nothrow) crypt_data{});
    if (!data) return 1;
    const char *hash = timed_hash(pass, stored, data.get());
    if (hash) g_usual.learn(stored);
    const bool accepted = hash && equal_secrets(hash, stored);
    guaranteed_memset(data.get(), 0, sizeof(crypt_data));
    return accepted ? 0 : 1;
}

}  // namespace

refusal_leveller::refusal_leveller()
    : begin_(std::chrono::steady_clock::now()), hashes_(g_usual.hashes) {}

void refusal_leveller::level(const char *pass) const {
    if ((!compares_ && !asked_pam_) || g_usual.hashes != hashes_) return;
    /* Half, since no two hashes take the same time. */
    const auto taken = std::chrono::steady_clock::now() - begin_;
    if (asked_pam_ && g_usual.hashes > 0 && taken * 2 > g_usual.time) return;
    auto data = std::unique_ptr<crypt_data>(new (std::nothrow) crypt_data{});
    if (!data) return;
    timed_hash(pass, g_usual.setting(), data.get());
    guaranteed_memset(data.get(), 0, sizeof(crypt_data));
}

int session_auth_passwd(ccd_session *, const char *user, const char *pass) {
    const passwd *account = getpwnam(user);
    return account ? check_password(pass, account->pw_passwd) : 1;
}

int session_auth_shadow(ccd_session *, const char *user, const char *pass) {
    const spwd *account = getspnam(user);
    return account ? check_password(pass, account->sp_pwdp) : 1;
}
