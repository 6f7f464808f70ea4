#ifndef TESTS_DAEMON_FIXTURE_H
#define TESTS_DAEMON_FIXTURE_H

#include <gtest/gtest.h>
#include <signal.h>

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ucfgd/owners.h"

/* The real program under a scratch root, and clients of it.
 *
 * The test program gives itself a mount namespace with a /run and a /dev/shm of its own: there are
 * the PID file, the AAA store and the scratch roots, and with the namespace they go. So tests run
 * side by side, disturb no installed daemon and leave nothing behind. */

/* One connection. Replies are compared as they come off the wire, tags and newlines included. */
class client {
  public:
    client() = default;
    explicit client(unique_fd fd) : fd_(std::move(fd)) {}

    /* Sends the request, a newline behind it, and gives the reply up to its final line: that of the
     * tag of the request's last line. "<closed>" and "<silent>" stand where that line is missing.
     */
    std::string ask(std::string_view request);
    /* The lines up to the final one of a tag; what arrives behind it waits for the next call. */
    std::string reply(std::string_view tag);
    /* The next line with its newline, or "<closed>" or "<silent>". */
    std::string line();
    /* A login under the tag "l", with the session's identifier taken out of the reply. */
    std::string login(std::string_view request = "l LOGIN root");
    const std::string &session() const { return session_; }

    /* Bytes as they are. False when the daemon has closed the connection. */
    bool send(std::string_view bytes) const;
    /* Whether nothing comes within that time. */
    bool silent_for(int milliseconds);
    int fd() const { return fd_.get(); }
    void close() { fd_.reset(); }

  private:
    bool receive(int milliseconds);

    unique_fd fd_;
    std::string input_;
    std::string session_;
    bool closed_ = false;
};

struct program_result {
    int status;  // exit status, or minus the signal
    std::string out;
    std::string err;
};

/* Runs a program to its end. */
program_result run_program(const std::vector<std::string> &words,
                           const std::function<void()> &prepare = nullptr);

class daemon_test : public ::testing::Test {
  protected:
    /* Makes the scratch root and calls prepare, for what a class of tests adds. Where no root can
     * be made, nothing is prepared and no path leads to a file of the machine. */
    void SetUp() final;
    virtual void prepare() {}
    void TearDown() override;

    /* Files below the scratch root; put makes the directories that lead there. */
    std::string path(std::string_view name) const {
        return (root_.empty() ? "/dev/null" : root_) + std::string{name};
    }
    std::string file(std::string_view name) const;
    void put(std::string_view name, std::string_view text) const;
    /* Puts a copy of the sample appliance where the small root was. */
    void use_appliance() const;
    /* ucfgd.conf with these entries of the one listener, users and, behind them, anything else. */
    void configure(std::string_view listener, std::string_view users,
                   std::string_view rest = "") const;
    /* Adds to a file. */
    void append(std::string_view name, std::string_view text) const;

    /* Starts the daemon in the foreground and waits until it takes connections; in the background,
     * as the packaged unit does, where a test asks for that. Then it logs to syslog. */
    void start(const std::vector<std::string> &arguments = {});
    /* The same without waiting. */
    void launch(const std::vector<std::string> &arguments = {});
    void stop(int signal = SIGTERM, int status = 0);
    /* Waits for the end of what was launched: its exit status, or minus the signal. */
    int wait_for_end();
    void kill_daemon() { stop(SIGKILL, -SIGKILL); }
    /* The program with these arguments and --root, to its end. */
    program_result run(std::vector<std::string> arguments) const;

    client connect(std::string_view socket = "/dev/ucfgd") const;
    client logged_in(std::string_view request = "l LOGIN root") const;

    /* Standard output and standard error of the daemon that was started last. */
    std::string log() const;
    bool logged(std::string_view text) const { return log().find(text) != std::string::npos; }
    /* Waits for a condition, ten seconds at most. */
    static bool eventually(const std::function<bool()> &condition);

    pid_t pid() const { return pid_; }
    /* The process that the daemon runs a command in; 0 when there is none. */
    pid_t child() const;

    std::vector<std::pair<std::string, std::string>> environment;
    bool in_background = false;
    std::function<void()> before_exec; /* in the daemon's process */

  private:
    std::string root_;
    pid_t pid_ = 0;
};

/* Sets, for the daemon to be started, the libraries that stand in for the machine's accounts.
 * Their files are below the given directory: passwd, group, shadow, and pam.d/ucfgd. */
std::vector<std::pair<std::string, std::string>> wrapped_accounts(const std::string &directory);

#endif
