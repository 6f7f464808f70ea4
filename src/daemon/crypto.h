#ifndef UCFGD_CRYPTO_H
#define UCFGD_CRYPTO_H

#ifndef __cplusplus
#    error "crypto.h is for the daemon's own sources"
#endif

#define OPENSSL_SUPPRESS_DEPRECATED

#include <openssl/blowfish.h>
#include <openssl/evp.h>

/* What the daemon calls of libcrypto. Linking that library takes longer than all the rest of a
 * small start, and a quarter of the memory; a daemon without an archive hardly ever calls it. So it
 * is loaded when it is first needed. */
struct crypto_library {
    decltype(&BF_set_key) blowfish_key;
    decltype(&BF_cfb64_encrypt) blowfish;
    decltype(&EVP_sha256) sha256;
    decltype(&EVP_Digest) digest;
};

/* Loads it, the first time. Null and errno ENOSYS, after a line in the log, when that fails; it is
 * tried again then. */
const crypto_library *load_crypto();

#endif
