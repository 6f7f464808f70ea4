#include "daemon/crypto.h"

#include <dlfcn.h>
#include <errno.h>
#include <libdaemon/dlog.h>
#include <openssl/opensslv.h>

namespace {

/* The very library of the headers, whose functions keep their form. */
#define UCFGD_TEXT_OF(number) #number
#define UCFGD_SONAME(number) "libcrypto.so." UCFGD_TEXT_OF(number)
constexpr char k_soname[] = UCFGD_SONAME(OPENSSL_SHLIB_VERSION);

template <typename function>
bool find(void *handle, const char *name, function &found) {
    found = reinterpret_cast<function>(dlsym(handle, name));
    return found != nullptr;
}

bool load(crypto_library &library) {
    void *handle = dlopen(k_soname, RTLD_LAZY | RTLD_LOCAL);
    return handle && find(handle, "BF_set_key", library.blowfish_key) &&
           find(handle, "BF_cfb64_encrypt", library.blowfish) &&
           find(handle, "EVP_sha256", library.sha256) && find(handle, "EVP_Digest", library.digest);
}

}  // namespace

const crypto_library *load_crypto() {
    static crypto_library library;
    static bool is_loaded = false;
    if (!is_loaded) is_loaded = load(library);
    if (is_loaded) return &library;
    const char *why = dlerror();
    daemon_log(LOG_ERR, "loading %s failed: %s", k_soname, why ? why : "");
    errno = ENOSYS;
    return nullptr;
}
