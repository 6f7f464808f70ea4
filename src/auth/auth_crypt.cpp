/* The methods that compare with the stored password of a system account. */

#include <crypt.h>
#include <pwd.h>
#include <shadow.h>

#include <cstddef>
#include <cstring>
#include <memory>

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

/* A field that no password fits ("*", "!", the empty text) makes crypt_r fail, which it tells by
 * null or by a text that begins with "*"; that text must never count as equal to the field. */
int check_password(const char *pass, const char *stored) {
    if (!stored) return 1;
    auto data = std::unique_ptr<crypt_data>(new (std::nothrow) crypt_data{});
    if (!data) return 1;
    const char *hash = crypt_r(pass, stored, data.get());
    const bool accepted = hash && hash[0] != '*' && equal_secrets(hash, stored);
    guaranteed_memset(data.get(), 0, sizeof(crypt_data));
    return accepted ? 0 : 1;
}

}  // namespace

int session_auth_passwd(ccd_session *, const char *user, const char *pass) {
    const passwd *account = getpwnam(user);
    return account ? check_password(pass, account->pw_passwd) : 1;
}

int session_auth_shadow(ccd_session *, const char *user, const char *pass) {
    const spwd *account = getspnam(user);
    return account ? check_password(pass, account->sp_pwdp) : 1;
}
