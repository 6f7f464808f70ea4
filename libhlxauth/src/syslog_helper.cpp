#include "hlxauth/syslog_helper.h"

#include <syslog.h>

#include <utility>

namespace ost::util {

syslog_helper::syslog_helper(std::string identity, int options, int facility)
    : identity_(std::move(identity)), options_(options), facility_(facility) {}

/* syslog keeps the identity's address, so it is opened and closed around every message. */
void syslog_helper::log(int priority, const std::string &text) const {
    std::string line = text;
    for (char &c : line)
        if (static_cast<unsigned char>(c) < 32) c = ' ';
    openlog(identity_.c_str(), options_, facility_);
    syslog(priority, "%s", line.c_str());
    closelog();
}

}  // namespace ost::util
