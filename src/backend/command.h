#ifndef UCFGD_BACKEND_COMMAND_H
#define UCFGD_BACKEND_COMMAND_H

#ifndef __cplusplus
#    error "command.h is for C++ sources"
#endif

#include <array>
#include <memory>
#include <string>
#include <string_view>

/* The one way in which definitions' shell commands are run: from expressions, for module instances
 * that read from and write to commands, and by the restart pass. command.cpp tells the idea. */

/* How a command ended. */
struct command_end {
    int error = 0;  /* 0 when it ended by itself; else why not, as errno has it: ETIME past its
                     * time, EFBIG past the output that is kept, or why it could not be run */
    int status = 0; /* as waitpid gives it, when error is 0 */

    bool well() const { return error == 0 && status == 0; }
    /* It has ended by itself, and a shell that could start it did: no signal, no 126, no 127. */
    bool ran() const;
    /* For the log: "exit status 3", "signal 9", or the text of the error. */
    std::array<char, 80> text() const;
};

/* What a command is given, and where what it prints goes. */
struct command_ends {
    const std::string_view *input = nullptr; /* null: nothing, that is /dev/null */
    std::string *output = nullptr; /* null: where the daemon's own goes; else appended to it */
};

/* Runs a command with /bin/sh and waits for its end; never throws. */
command_end run_command(const char *command, const command_ends &ends = {});

/* A command that runs while the daemon goes on, until somebody wants to know what it has printed.
 * It has no more time than any other, counted from its start. */
class command_ahead {
  public:
    /* Null with errno when it cannot be started. */
    static std::unique_ptr<command_ahead> start(const char *command);
    command_ahead();
    command_ahead(const command_ahead &) = delete;
    command_ahead &operator=(const command_ahead &) = delete;
    ~command_ahead(); /* ends it; in another process than that which started it, leaves it alone */

    /* Readable when it has ended; -1 where the system has no such descriptors. */
    int descriptor() const;
    /* How many have been started, and how many of those are there still. */
    static unsigned long started();
    static unsigned long running();
    /* Whether it is this process that can wait for it. */
    bool is_ours() const;
    bool is_late() const;
    /* Waits for its end; what it printed is appended to output. Never throws. */
    command_end finish(std::string &output);

  private:
    struct parts;
    std::unique_ptr<parts> parts_;
};

/* One request of a client, while it is served. */
class command_request {
  public:
    command_request();
    command_request(const command_request &) = delete;
    command_request &operator=(const command_request &) = delete;
    ~command_request();
};

/* Whether a command of the request that is served has been ended past its time. Expressions then
 * start no more of them: others wait for one command that hangs, not for a row of them. */
bool command_request_overran();

/* For a forked child of the daemon: from now on commands have all the time of the child, and go
 * with it when its process group is ended. */
void commands_run_in_child();

/* Whether this is such a child, which may wait for others. */
bool command_may_wait();

#endif
