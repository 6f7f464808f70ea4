#ifndef UCFGD_DAEMON_LOG_SINK_H
#define UCFGD_DAEMON_LOG_SINK_H

#ifndef __cplusplus
#    error "log_sink.h is for C++ sources"
#endif

#include <limits.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <list>
#include <memory>
#include <string>
#include <string_view>

#include "ucfgd/owners.h"

/* The ways out of the process, each with its queue. For log.cpp. */

class log_sink {
  public:
    log_sink() = default;
    log_sink(const log_sink &) = delete;
    log_sink &operator=(const log_sink &) = delete;
    virtual ~log_sink() = default;

    /* Gives a message to the reader, or queues or drops it. */
    void put(std::string_view message);
    /* The same for a whole line, which may wait for others until give_gathered, put, flush, or the
     * crash of the process: all leave at once. */
    void gather(std::string_view line);
    void give_gathered();
    std::string_view gathered() const { return {lines_.get(), gathered_}; }
    /* Gives what is queued; true when nothing is left. */
    bool flush();
    bool waits() const { return !queue_.empty(); }
    /* Bytes that are queued and not given yet. */
    size_t left() const { return queued_ - given_; }
    /* What to wait for while something is queued; -1 where waiting does not help. */
    virtual int descriptor() const = 0;
    /* In a forked child: what is queued is the parent's, and so is the way out. */
    virtual void forget() { drop_all(); }

  protected:
    /* Gives bytes without waiting: how many were taken; -1 (EAGAIN) when the message has to wait,
     * another errno when it is lost. `first` when a message begins with them. */
    virtual ssize_t give(std::string_view bytes, bool first) = 0;
    /* The message that tells of lost ones. */
    virtual std::string loss_notice(unsigned long count) const = 0;
    const std::list<std::string> &queue() const { return queue_; }
    void drop_all();

  private:
    enum class fate { given, waits, lost };
    fate give_all(std::string_view message, size_t &given);
    void enqueue(std::string_view message, size_t given);
    void append(std::string message);
    void note_losses();
    void lose();

    /* What a pipe takes whole: no line of a child comes in between. */
    static constexpr size_t k_gathered_max = PIPE_BUF;

    std::unique_ptr<char[]> lines_; /* made when the first line is gathered */
    size_t gathered_ = 0;
    std::list<std::string> queue_; /* which takes no memory while it is empty */
    size_t queued_ = 0;            /* bytes of all */
    size_t given_ = 0;             /* bytes of the first that are out already */
    unsigned long lost_ = 0;       /* not told yet */
};

/* A descriptor of any kind. Nothing is said about others who hold it: they may have it blocking. */
class stream_sink : public log_sink {
  public:
    explicit stream_sink(int fd) : fd_(fd) {}
    int descriptor() const override;
    void forget() override;

  protected:
    ssize_t give(std::string_view bytes, bool first) override;
    std::string loss_notice(unsigned long count) const override;

  private:
    enum class kind { closed, plain, socket, nonblocking, polled };
    void look();

    int fd_;
    kind kind_ = kind::closed;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    unique_fd own_; /* what fd_ leads to, opened without blocking */
    bool cut_ = false;
};

/* The protocol log, closed until it is opened. */
class file_sink : public log_sink {
  public:
    int open(const char *path);
    bool is_open() const { return static_cast<bool>(fd_); }
    int descriptor() const override { return fd_.get(); }
    void forget() override;

  protected:
    ssize_t give(std::string_view bytes, bool first) override;
    std::string loss_notice(unsigned long count) const override;

  private:
    unique_fd fd_;
    bool cut_ = false;
};

/* The system log. A message is what goes into its socket. */
class syslog_sink : public log_sink {
  public:
    /* A message in the traditional format; pid 0 for none. */
    static std::string message(int priority, const char *ident, pid_t pid, std::string_view text);
    int descriptor() const override { return fd_.get(); }
    void forget() override;
    /* Moves the errors among what is queued to another sink; the rest is dropped. */
    void move_errors(log_sink &other);

  protected:
    ssize_t give(std::string_view bytes, bool first) override;
    std::string loss_notice(unsigned long count) const override;

  private:
    bool connect();

    unique_fd fd_;
};

#endif
