#include "daemon/journal.h"

#include <libdaemon/dlog.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "daemon/log.h"
#include "ucfgd/owners.h"

namespace {

constexpr std::string_view k_journal_socket = "/run/systemd/journal/socket";

void append_field(std::string &message, std::string_view name, std::string_view value) {
    message.append(name).append("=");
    for (char c : value)
        message += (static_cast<unsigned char>(c) < ' ' && c != '\t') || c == '\x7f' ? ' ' : c;
    message += '\n';
}

/* False when there is no journal, or it does not take the message at once. */
bool send_to_journal(const std::string &message) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::ranges::copy(k_journal_socket, address.sun_path);
    const unique_fd fd{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    return fd && sendto(fd.get(), message.data(), message.size(), MSG_NOSIGNAL,
                        reinterpret_cast<const sockaddr *>(&address), sizeof address) >= 0;
}

}  // namespace

void log_with_fields(int priority, const std::string &text, const std::vector<log_field> &fields) {
    if (log_takes(priority) == 0) return;
    const errno_guard keep;
    const auto ways = daemon_log_use;
    if ((ways & DAEMON_LOG_SYSLOG) != 0) {
        std::string message;
        append_field(message, "MESSAGE", text);
        append_field(message, "PRIORITY", std::to_string(priority));
        append_field(message, "SYSLOG_FACILITY", std::to_string(LOG_DAEMON >> 3));
        append_field(message, "SYSLOG_IDENTIFIER", daemon_log_ident ? daemon_log_ident : "UNKNOWN");
        append_field(message, "SYSLOG_PID", std::to_string(getpid()));
        for (const log_field &field : fields)
            append_field(message, field.name, field.value);
        if (send_to_journal(message))
            daemon_log_use = static_cast<daemon_log_flags>(ways & ~DAEMON_LOG_SYSLOG);
    }
    daemon_log(priority, "%s", text.c_str());
    daemon_log_use = ways;
}
