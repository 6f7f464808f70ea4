#include "tavevent/tavevent.h"

#include <errno.h>
#include <fcntl.h>
#include <jansson.h>
#include <sys/stat.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "ucfgd/escape.h"
#include "ucfgd/owners.h"

/* Events, for their next owner.
 *
 * An event is a number and a few values; other programs follow the event file and act on them. The
 * writer keeps no file open: whoever rotates the file just moves it away, and the next event makes
 * a new one. One write with O_APPEND puts a line there whole, whatever other programs append
 * meanwhile.
 *
 * A writer must not fail for what the environment lacks: without the directory or the right to
 * write, the line goes to syslog. It must not produce a line that a reader cannot parse either, so
 * a text that is not UTF-8 has its odd bytes replaced.
 */

namespace {

constexpr char k_default_file[] = "/var/log/tavevent.jsonl";
constexpr mode_t k_file_mode = 0640;
constexpr std::string_view k_replacement = "\xEF\xBF\xBD";

owned_str g_file;

using json = owned<json_t, json_decref>;

/* One value out of the arguments; null with errno EINVAL for what does not fit the letter. */
using value_source = json (*)(char letter, void *arguments);

/* The text with every byte that strict UTF-8 does not allow replaced. */
std::string valid_utf8(std::string_view text) {
    std::string valid;
    while (!text.empty()) {
        int length = static_cast<int>(std::min<size_t>(text.size(), 4));
        int code = getUTF8Char(text.data(), &length);
        json probe{code >= 0 ? json_stringn(text.data(), static_cast<size_t>(length)) : nullptr};
        size_t used = probe ? static_cast<size_t>(length) : 1;
        valid += probe ? text.substr(0, used) : k_replacement;
        text.remove_prefix(used);
    }
    return valid;
}

json text_value(const char *text) {
    json value{json_string(text ? text : "")};
    if (!value) value.reset(json_string(valid_utf8(text ? text : "").c_str()));
    if (!value) errno = ENOMEM;
    return value;
}

std::optional<int> parse_int(const char *text) {
    if (!text || (*text != '-' && (*text < '0' || *text > '9'))) return std::nullopt;
    char *end = nullptr;
    errno_guard keep;
    errno = 0;
    long number = std::strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || number < INT_MIN || number > INT_MAX)
        return std::nullopt;
    return static_cast<int>(number);
}

struct variadic {
    va_list values;
};

json next_variadic(char letter, void *arguments) {
    auto *from = static_cast<variadic *>(arguments);
    if (letter == 's') return text_value(va_arg(from->values, const char *));
    if (letter == 'i') return json{json_integer(va_arg(from->values, int))};
    errno = EINVAL;
    return nullptr;
}

json next_text(char letter, void *arguments) {
    const char *text = *(*static_cast<const char *const **>(arguments))++;
    if (letter == 's') return text_value(text);
    if (letter == 'i')
        if (auto number = parse_int(text)) return json{json_integer(*number)};
    errno = EINVAL;
    return nullptr;
}

json event_args(std::string_view format, value_source next, void *arguments) {
    json args{json_array()};
    for (char letter : format) {
        json value = next(letter, arguments);
        if (!value) return nullptr;
        if (json_array_append_new(args.get(), value.release()) != 0) throw std::bad_alloc{};
    }
    if (!args) throw std::bad_alloc{};
    return args;
}

std::string event_line(int number, json args) {
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    const long microseconds = now.tv_nsec / 1000;
    double seconds = static_cast<double>(now.tv_sec) + static_cast<double>(microseconds) / 1e6;
    json event{json_object()};
    int failed = json_object_set_new(event.get(), "time", json_real(seconds));
    failed |= json_object_set_new(event.get(), "pid", json_integer(getpid()));
    failed |= json_object_set_new(event.get(), "event", json_integer(number));
    failed |= json_object_set_new(event.get(), "args", args.release());
    if (failed != 0) return {};
    owned_str text{json_dumps(event.get(), JSON_PRESERVE_ORDER | JSON_REAL_PRECISION(16))};
    return text ? text.get() : std::string{};
}

/* Half a line would take the next event's with it. It is cut off again unless somebody has appended
 * behind it meanwhile; then it gets an end. */
void take_back(int fd, ssize_t written) {
    errno_guard keep;
    struct stat file {};
    const off_t end = lseek(fd, 0, SEEK_CUR);
    const bool is_last = fstat(fd, &file) == 0 && end >= written && file.st_size == end;
    if (is_last && ftruncate(fd, end - written) == 0) return;
    if (write(fd, "\n", 1) != 1) syslog(LOG_ERR | LOG_DAEMON, "the event file has a broken line");
}

/* Whether the line can be written in one piece without waiting for a reader. */
bool takes_whole_line(int fd, size_t size) {
    struct stat file {};
    return fstat(fd, &file) == 0 && (!S_ISFIFO(file.st_mode) || size <= PIPE_BUF);
}

/* Leaves errno alone unless it fails. */
int append_event(std::string line) {
    int before = errno;
    unique_fd fd{open(g_file ? g_file.get() : k_default_file,
                      O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK,
                      k_file_mode)};
    line += '\n';
    ssize_t written = -1;
    errno = EAGAIN;
    if (fd && takes_whole_line(fd.get(), line.size()))
        written = write(fd.get(), line.data(), line.size());
    if (static_cast<size_t>(written) == line.size()) return fd.close_now();
    if (written < 0 && errno != EAGAIN) return -1;
    if (written >= 0) {
        take_back(fd.get(), written);
        errno = ENOSPC;
        return -1;
    }
    line.pop_back();
    syslog(LOG_NOTICE | LOG_DAEMON, "%s", line.c_str());
    errno = before;
    return 0;
}

int emit(int number, std::string_view format, value_source next, void *arguments) {
    try {
        json args = event_args(format, next, arguments);
        if (!args) return -1;
        std::string line = event_line(number, std::move(args));
        if (!line.empty()) return append_event(std::move(line));
    } catch (const std::bad_alloc &) {}
    errno = ENOMEM;
    return -1;
}

}  // namespace

int writeevt(int number, const char *format, ...) {
    variadic arguments;
    va_start(arguments.values, format);
    int result = emit(number, format ? format : "", next_variadic, &arguments);
    va_end(arguments.values);
    return result;
}

int writeevt_list(int number, const char *format, size_t count, const char *const *texts) {
    std::string_view letters = format ? format : "";
    if (letters.size() == count) return emit(number, letters, next_text, &texts);
    errno = EINVAL;
    return -1;
}

int tavevent_set_file(const char *path) {
    owned_str copy{path ? strdup(path) : nullptr};
    if (path && !copy) return -1;
    g_file = std::move(copy);
    return 0;
}
