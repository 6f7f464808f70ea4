#include "daemon_fixture.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

namespace fs = std::filesystem;

namespace {

constexpr int k_patience_ms = 10'000;

constexpr std::string_view k_modules = R"(
box {
    module: keyvalue
    file: /etc/box.conf
    options: separator="="
}
hosts {
    file: /etc/hosts
}
)";

constexpr std::string_view k_param = R"(
access: in($perm, 'r', 'w')
name {
    help: 'Name of the box'
    len: 8
    get: llget('box', 'name')
    set: llset('box', 'name', $_)
}
level {
    get: llget('box', 'level')
    set: llset('box', 'level', $_)
    sanity: ($_ =~ '^[0-9]+$'
             || seterror($_ .. ' is no level', 'error.level', $_, 0, 9))
}
hosts {
    list: lllist('hosts', '.')
    add: lladd('hosts', '', slashify($_)) && lladd('hosts', slashify($_), 'name') && llset('hosts', slashify($_) .. '/name', 'new')
    del: lldel('hosts', '', slashify($_))
    move: llswap('hosts', '', slashify($-), slashify($_))
    sanity: isip($_) || seterror($_ .. ' is no address', 'error.ip', $_)
    * {
        name {
            get: llget('hosts', slashify($1) .. '/name')
            set: llset('hosts', slashify($1) .. '/name', $_)
        }
    }
}
)";

std::string read_file(const std::string &name) {
    std::ifstream stream{name, std::ios::binary};
    return {std::istreambuf_iterator<char>{stream}, {}};
}

/* A namespace of our own; as another user than root together with a user namespace in which we
 * are root. */
bool isolate() {
    const uid_t uid = getuid();
    const gid_t gid = getgid();
    if (unshare(uid == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) != 0) return false;
    if (uid != 0) {
        std::ofstream{"/proc/self/setgroups"} << "deny";
        std::ofstream{"/proc/self/uid_map"} << "0 " << uid << " 1";
        std::ofstream{"/proc/self/gid_map"} << "0 " << gid << " 1";
    }
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", "/run", "tmpfs", 0, "mode=0755") == 0 &&
           mount("none", "/dev/shm", "tmpfs", 0, nullptr) == 0;
}

bool is_isolated() {
    static const bool isolated = isolate();
    return isolated;
}

[[noreturn]] void execute(const std::vector<std::string> &words) {
    std::vector<char *> argv;
    for (const std::string &word : words)
        argv.push_back(const_cast<char *>(word.c_str()));
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
}

int status_of(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace

bool client::send(std::string_view bytes) const {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
    return true;
}

bool client::receive(int milliseconds) {
    pollfd waiting{fd_.get(), POLLIN, 0};
    if (closed_ || poll(&waiting, 1, milliseconds) <= 0) return false;
    char bytes[65536];
    const ssize_t got = read(fd_.get(), bytes, sizeof bytes);
    if (got <= 0) {
        closed_ = true;
        return false;
    }
    input_.append(bytes, static_cast<size_t>(got));
    return true;
}

std::string client::line() {
    size_t searched = 0;
    for (;;) {
        const size_t end = input_.find('\n', searched);
        if (end != std::string::npos) {
            std::string text = input_.substr(0, end + 1);
            input_.erase(0, end + 1);
            return text;
        }
        searched = input_.size();
        if (!receive(k_patience_ms)) return closed_ ? "<closed>" : "<silent>";
    }
}

std::string client::reply(std::string_view tag) {
    const std::string final_start = std::string{tag} + ' ';
    std::string text;
    for (;;) {
        const std::string next = line();
        text += next;
        if (next.starts_with(final_start) || next.back() == '>') return text;
    }
}

std::string client::ask(std::string_view request) {
    if (!send(std::string{request} + '\n')) return "<closed>";
    const size_t newline = request.rfind('\n');
    const std::string_view last =
        newline == std::string_view::npos ? request : request.substr(newline + 1);
    return reply(last.substr(0, last.find(' ')));
}

std::string client::login(std::string_view request) {
    std::string text = ask(request);
    constexpr std::string_view k_word = "l.1 SESSION ";
    const size_t at = text.find(k_word);
    if (at == std::string::npos) return text;
    const size_t end = text.find('\n', at);
    session_ = text.substr(at + k_word.size(), end - at - k_word.size());
    return text.erase(at, end + 1 - at);
}

bool client::silent_for(int milliseconds) {
    return input_.empty() && !receive(milliseconds) && !closed_;
}

program_result run_program(const std::vector<std::string> &words,
                           const std::function<void()> &prepare) {
    const unique_fd out{memfd_create("out", MFD_CLOEXEC)};
    const unique_fd err{memfd_create("err", MFD_CLOEXEC)};
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(out.get(), 1);
        dup2(err.get(), 2);
        if (prepare) prepare();
        execute(words);
    }
    const int status = status_of(pid);
    return {status, read_file("/proc/self/fd/" + std::to_string(out.get())),
            read_file("/proc/self/fd/" + std::to_string(err.get()))};
}

void daemon_test::SetUp() {
    if (!is_isolated()) {
        GTEST_SKIP() << "no mount namespace can be made here (" << strerror(errno)
                     << "), and without one the daemon would use the machine's own PID file";
    }
    std::string name = "/run/root-XXXXXX";
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    root_ = name;
    put("/dev/.keep", "");
    put("/var/log/.keep", "");
    configure("", "root {\n access: rwx\n}\n");
    put("/etc/ucfgd/modules.conf", k_modules);
    put("/etc/ucfgd/param.conf", k_param);
    put("/etc/ucfgd/management.conf", "access: in($perm, 'r', 'x')\n");
    put("/etc/ucfgd/functions.conf", "");
    put("/etc/ucfgd/types.conf", "");
    put("/etc/box.conf", "# the box\nname = alpha\nlevel = 5\n");
    put("/etc/hosts", "127.0.0.1\tlocalhost\n\n192.0.2.10\tfiles # disk\n192.0.2.11  mail\n");
    prepare();
}

void daemon_test::TearDown() {
    if (pid_ != 0) stop();
    prctl(PR_SET_CHILD_SUBREAPER, 0);
    const std::string text = root_.empty() ? "" : log();
    EXPECT_EQ(text.find("Sanitizer"), std::string::npos) << text;
    EXPECT_EQ(text.find("runtime error"), std::string::npos) << text;
    if (HasFailure()) printf("--- the daemon's log:\n%s---\n", text.c_str());
    std::error_code ignored;
    if (!root_.empty()) fs::remove_all(root_, ignored);
}

std::string daemon_test::file(std::string_view name) const {
    return fs::exists(path(name)) ? read_file(path(name)) : "<missing>";
}

void daemon_test::put(std::string_view name, std::string_view text) const {
    fs::create_directories(fs::path{path(name)}.parent_path());
    std::ofstream{path(name), std::ios::binary} << text;
}

void daemon_test::append(std::string_view name, std::string_view text) const {
    put(name, file(name) + std::string{text});
}

void daemon_test::use_appliance() const {
    fs::remove_all(root_);
    fs::copy(SOURCE_DIR "/examples/appliance", root_, fs::copy_options::recursive);
    fs::create_directories(path("/dev"));
    fs::create_directories(path("/var/log"));
}

void daemon_test::configure(std::string_view listener, std::string_view users,
                            std::string_view rest) const {
    std::string text = "listen {\n local {\n  type: unix\n";
    text += listener.empty() ? "authtype: usercred\n" : listener;
    text += " }\n}\nusers {\n";
    text.append(users).append("}\n").append(rest);
    put("/etc/ucfgd/ucfgd.conf", text);
}

void daemon_test::launch(const std::vector<std::string> &arguments) {
    std::vector<std::string> words{UCFGD, "--root=" + root_};
    if (!in_background) words.emplace_back("--foreground");
    words.insert(words.end(), arguments.begin(), arguments.end());
    const int flags = O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC;
    const unique_fd out{open(path(".log").c_str(), flags, 0600)};
    pid_ = fork();
    if (pid_ != 0) {
        if (!in_background) return;
        prctl(PR_SET_CHILD_SUBREAPER, 1); /* so that its end can be waited for */
        EXPECT_EQ(wait_for_end(), 0);
        pid_ = std::atoi(read_file("/run/ucfgd.pid").c_str());
        return;
    }
    dup2(out.get(), 1);
    dup2(out.get(), 2);
    for (const auto &[name, value] : environment)
        setenv(name.c_str(), value.c_str(), 1);
    if (before_exec) before_exec();
    execute(words);
}

void daemon_test::start(const std::vector<std::string> &arguments) {
    launch(arguments);
    if (in_background) {
        ASSERT_GT(pid_, 0);
        return;
    }
    const bool ready = eventually([this] {
        const std::string text = log();
        return text.find("\ndone.\n") != std::string::npos ||
               text.find("environment... done.\n") != std::string::npos;
    });
    ASSERT_TRUE(ready) << log();
}

int daemon_test::wait_for_end() {
    return status_of(std::exchange(pid_, 0));
}

void daemon_test::stop(int signal, int status) {
    kill(pid_, signal);
    EXPECT_EQ(wait_for_end(), status) << log();
}

program_result daemon_test::run(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {UCFGD, "--root=" + root_});
    return run_program(arguments);
}

client daemon_test::connect(std::string_view socket) const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path(socket).copy(address.sun_path, sizeof address.sun_path - 1);
    unique_fd fd{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    if (!eventually([&] {
            return ::connect(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
        })) {
        ADD_FAILURE() << "connect: " << strerror(errno);
        return {};
    }
    return client{std::move(fd)};
}

client daemon_test::logged_in(std::string_view request) const {
    client made = connect();
    const std::string reply = made.login(request);
    EXPECT_TRUE(reply.ends_with("l OK\n")) << reply;
    return made;
}

std::string daemon_test::log() const {
    return read_file(path(".log"));
}

bool daemon_test::eventually(const std::function<bool()> &condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds{k_patience_ms};
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds{2});
    }
    return true;
}

pid_t daemon_test::child() const {
    const std::string number = std::to_string(pid_);
    return std::atoi(read_file("/proc/" + number + "/task/" + number + "/children").c_str());
}

std::vector<std::pair<std::string, std::string>> wrapped_accounts(const std::string &directory) {
    return {
        {"LD_PRELOAD", WRAPPER_LIBRARIES},
        {"NSS_WRAPPER_PASSWD", directory + "/passwd"},
        {"NSS_WRAPPER_GROUP", directory + "/group"},
        {"NSS_WRAPPER_SHADOW", directory + "/shadow"},
        {"PAM_WRAPPER", "1"},
        {"PAM_WRAPPER_SERVICE_DIR", directory + "/pam.d"},
        {"NSS_WRAPPER_DISABLE_DEEPBIND", "1"},
        {"PAM_WRAPPER_DISABLE_DEEPBIND", "1"},
    };
}
