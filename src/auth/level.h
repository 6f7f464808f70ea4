#ifndef UCFGD_AUTH_LEVEL_H
#define UCFGD_AUTH_LEVEL_H

#ifndef __cplusplus
#    error "level.h is for C++ sources"
#endif

#include <chrono>

/* Makes a refusal by password take as long whether the account exists or not: where nothing was
 * compared, because there is no account or no password that fits it, level compares with nothing.
 * What PAM does is not seen, only what it took. */
class refusal_leveller {
  public:
    refusal_leveller();
    void tried_hash() { compares_ = true; }
    void tried_pam() { asked_pam_ = true; }
    void level(const char *pass) const;

  private:
    std::chrono::steady_clock::time_point begin_;
    unsigned long hashes_;
    bool compares_ = false;
    bool asked_pam_ = false;
};

#endif
