#include "ucfgsh/terminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <cstring>

#include "ucfgd/owners.h"

namespace ucfgsh {

volatile sig_atomic_t g_interrupted = 0;

namespace {

void on_interrupt(int) {
    g_interrupted = 1;
}

constexpr size_t k_password_limit = 4096;

/* Echo off for as long as it lives. */
class quiet_terminal {
  public:
    explicit quiet_terminal(int fd) : fd_(fd) {
        known_ = tcgetattr(fd, &before_) == 0;
        if (!known_) return;
        termios quiet = before_;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(fd, TCSAFLUSH, &quiet);
    }
    quiet_terminal(const quiet_terminal &) = delete;
    quiet_terminal &operator=(const quiet_terminal &) = delete;
    ~quiet_terminal() {
        if (known_) tcsetattr(fd_, TCSAFLUSH, &before_);
    }

  private:
    int fd_;
    bool known_ = false;
    termios before_{};
};

bool read_first_line(int fd, std::string &line) {
    for (;;) {
        char c = 0;
        ssize_t got = read(fd, &c, 1);
        if (got < 0 && errno == EINTR && !g_interrupted) continue;
        if (got < 0) return false;
        if (got == 0) return !line.empty();
        if (c == '\n') return true;
        if (line.size() >= k_password_limit) return false;
        line += c;
    }
}

void write_text(int fd, std::string_view text) {
    while (!text.empty()) {
        ssize_t put = write(fd, text.data(), text.size());
        if (put < 0 && errno != EINTR) return;
        if (put > 0) text.remove_prefix(static_cast<size_t>(put));
    }
}

winsize window() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0)
        return winsize{24, 80, 0, 0};
    return size;
}

}  // namespace

std::optional<std::string> ask_password(const std::string &prompt) {
    unique_fd tty{open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)};
    if (!tty) return std::nullopt;
    std::string line;
    line.reserve(k_password_limit);
    bool answered = false;
    {
        quiet_terminal quiet{tty.get()};
        write_text(tty.get(), prompt);
        answered = read_first_line(tty.get(), line);
    }
    write_text(tty.get(), "\n");
    if (!answered) return std::nullopt;
    return line;
}

std::optional<std::string> read_password_file(const std::string &path, std::string &reason) {
    unique_fd file{open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    std::string line;
    line.reserve(k_password_limit);
    if (!file || (!read_first_line(file.get(), line) && !line.empty())) {
        reason = file ? "its first line is too long" : strerror(errno);
        return std::nullopt;
    }
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

int terminal_rows() {
    return window().ws_row;
}

int terminal_columns() {
    return window().ws_col;
}

std::string printable(std::string_view text) {
    constexpr std::string_view k_digits = "0123456789abcdef";
    std::string clean;
    clean.reserve(text.size());
    for (size_t i = 0; i < text.size(); i++) {
        auto byte = static_cast<unsigned char>(text[i]);
        /* The second row of control characters, two bytes each in UTF-8. */
        bool high =
            byte == 0xc2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xa0;
        if (!high && ((byte >= ' ' && byte != 127) || byte == '\n' || byte == '\t')) {
            clean += text[i];
            continue;
        }
        if (high) byte = static_cast<unsigned char>(text[++i]);
        clean += "\\x";
        clean += k_digits[byte >> 4U];
        clean += k_digits[byte & 15U];
    }
    return clean;
}

void catch_interrupts() {
    struct sigaction action {};
    action.sa_handler = on_interrupt;
    sigaction(SIGINT, &action, nullptr);
}

}  // namespace ucfgsh
