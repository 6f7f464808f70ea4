#ifndef BENCH_WIRE_H
#define BENCH_WIRE_H

#include <string>
#include <string_view>

#include "ucfgd/owners.h"

/* One client connection, for programs that measure: whatever goes wrong ends the program with a
 * line on standard error, since a figure that stands on an error would be worth nothing. */

class wire {
  public:
    explicit wire(const std::string &path);
    int fd() const { return fd_.get(); }

    void send(std::string_view bytes) const;

    /* Sends a whole request, whose tag is "t", and reads up to its final line, which must be OK.
     * The reply is valid until the next call. */
    std::string_view ask(std::string_view request);

    /* Reads exactly that. */
    void skip(std::string_view bytes) const;

    /* Gives its memory back. */
    void forget_reply() { std::string{}.swap(reply_); }

    /* Logs in as the account that runs the program. */
    void login();

  private:
    unique_fd fd_;
    std::string reply_;
};

/* Ends the program: the reason, and that of the system when errno is not 0. */
[[noreturn]] void give_up(const std::string &what);

#endif
