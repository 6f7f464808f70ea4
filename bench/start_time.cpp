/* From the start of a daemon to its first answer.
 *
 * usage: start_time SOCKET ROUNDS PROGRAM [ARGUMENT...]
 *
 * Prints milliseconds. The program must stay in the foreground and end with SIGTERM. */

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "rounds.h"
#include "wire.h"

namespace {

constexpr useconds_t k_pause_us = 100;
constexpr double k_patience_us = 10e6;

pid_t start(char **command) {
    pid_t pid = fork();
    if (pid < 0) give_up("fork");
    if (pid > 0) return pid;
    int quiet = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(quiet, STDIN_FILENO);
    dup2(quiet, STDOUT_FILENO);
    dup2(quiet, STDERR_FILENO);
    execv(command[0], command);
    _exit(127);
}

bool accepts(const char *path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    unique_fd fd{socket(AF_UNIX, SOCK_STREAM, 0)};
    return connect(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
}

double ready_us(const char *path, char **command) {
    unlink(path);
    double begin = now_us();
    pid_t pid = start(command);
    while (!accepts(path)) {
        if (waitpid(pid, nullptr, WNOHANG) != 0 || now_us() - begin > k_patience_us) {
            errno = 0;
            give_up(std::string{command[0]} + " does not answer");
        }
        usleep(k_pause_us);
    }
    {
        wire line{path};
        line.ask("t NOOP\n");
    }
    double took = now_us() - begin;
    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
    return took;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: start_time SOCKET ROUNDS PROGRAM [ARGUMENT...]\n");
        return 2;
    }
    std::vector<double> times;
    ready_us(argv[1], argv + 3);
    for (int round = std::atoi(argv[2]); round > 0; round--)
        times.push_back(ready_us(argv[1], argv + 3));
    std::printf("%.4g\n", median(times) / 1000);
    return 0;
}
