#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "daemon_fixture.h"

/* What others do to the files while a session edits them: not a line of theirs is lost. */

namespace {

/* A program of theirs that adds a line in front, and the moment at which it runs. */
struct intrusion {
    const char *name;
    const char *command; /* %s: the file; ADDED: the line */
};

constexpr intrusion k_programs[] = {
    {"editor", "{ echo ADDED; cat %s; } >%s.new && cat %s.new >%s && rm %s.new"},
    {"sed", "sed -i '1iADDED' %s"},
    {"tee", "echo ADDED | tee -a %s >/dev/null"},
    {"mv", "{ echo ADDED; cat %s; } >%s.new && mv %s.new %s"},
};
enum class moment { unread, logged_in, edited, committing, last };
constexpr const char *k_modules = R"(
names {
    module: hosts
    file: /etc/hosts
    flags: always-revert
}
sshd {
    module: keyvalue
    file: /etc/sshd_config
    flags: create
    flags: always-revert
    pre-commit: system('test ! -e %R/slow || sleep 0.04')
}
parts {
    module: keyvalue
    dir: /etc/parts
    pattern: *.conf
    flags: always-revert
    pre-commit: system('test ! -e %R/slow || sleep 0.04')
}
)";
constexpr const char *k_parameters = R"(
access: in($perm, 'r', 'w')
host {
    set: llset('names', '192.0.2.11/name', $_)
}
port {
    set: llset('sshd', 'Port', $_)
}
part {
    set: llset('parts', 'a.conf/Port', $_)
}
)";

std::string with(std::string text, const std::string &word, const std::string &value) {
    for (size_t at; (at = text.find(word)) != std::string::npos;)
        text.replace(at, word.size(), value);
    return text;
}

class Others : public daemon_test, public testing::WithParamInterface<intrusion> {
  protected:
    struct target {
        const char *file, *set, *added;
    };
    static constexpr target k_targets[] = {
        {"/etc/hosts", "host", "198.51.100.%d added"},
        {"/etc/sshd_config", "port", "Added%d yes"},
        {"/etc/parts/a.conf", "part", "Added%d yes"},
    };
    void intrude(const target &at, const std::string &line) {
        std::string command = with(with(GetParam().command, "%s", path(at.file)), "ADDED", line);
        ASSERT_EQ(std::system(command.c_str()), 0);
    }
    int rounds() const {
        const char *wanted = std::getenv("UCFGD_ROUNDS");
        return wanted ? std::atoi(wanted) : 2;
    }
};

TEST_P(Others, LoseNoLine) {
    const std::string config = "# a\n#\n#\nPort 22\n#\n#\n# z\n";
    put("/etc/sshd_config", config);
    put("/etc/parts/a.conf", config);
    put("/slow", "");
    put("/etc/ucfgd/modules.conf", with(k_modules, "%R", path("")));
    put("/etc/ucfgd/param.conf", k_parameters);
    start();
    int number = 0;
    int committed = 0;
    for (int round = 0; round < rounds(); round++)
        for (const target &at : k_targets)
            for (int when = 0; when < static_cast<int>(moment::last); when++) {
                const std::string value = "v" + std::to_string(number);
                const std::string line = with(at.added, "%d", std::to_string(number++));
                auto comes_at = [&](moment now) {
                    if (static_cast<int>(now) == when) intrude(at, line);
                };
                comes_at(moment::unread);
                client a = logged_in();
                comes_at(moment::logged_in);
                const std::string set = std::string{"1 SET "} + at.set + " " + value;
                EXPECT_EQ(a.ask(set), "1 OK\n");
                comes_at(moment::edited);
                a.send("2 COMMIT\n");
                std::this_thread::sleep_for(std::chrono::milliseconds(number * 7 % 50));
                comes_at(moment::committing);
                const std::string answer = a.reply("2");
                const std::string now = file(at.file);
                EXPECT_NE(("\n" + now).find("\n" + line + "\n"), std::string::npos)
                    << at.file << " moment " << when << ": " << answer << now;
                const bool ok = answer == "2 OK\n";
                committed += ok ? 1 : 0;
                /* One that has read before us and writes behind us is not ours to mend. */
                if (when != static_cast<int>(moment::committing)) {
                    EXPECT_EQ(ok, now.find(value) != std::string::npos) << answer << now;
                }
                a.close();
            }
    EXPECT_GE(committed, number / 2);
}

INSTANTIATE_TEST_SUITE_P(programs, Others, testing::ValuesIn(k_programs),
                         [](const auto &program) { return program.param.name; });

}  // namespace
