#ifndef HLXAUTH_SYSLOG_HELPER_H
#define HLXAUTH_SYSLOG_HELPER_H

#ifndef __cplusplus
#    error "syslog_helper.h is for C++"
#endif

#include <string>

namespace ost::util {

/* Messages to syslog under an identity of their own. */
class syslog_helper {
  public:
    /* options and facility are those of openlog(3). */
    syslog_helper(std::string identity, int options, int facility);

    /* Sends one message. Control characters in it become blanks, so that a text from outside cannot
     * forge a line. */
    void log(int priority, const std::string &text) const;

  private:
    std::string identity_;
    int options_;
    int facility_;
};

}  // namespace ost::util

#endif
