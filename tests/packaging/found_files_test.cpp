#include <filesystem>
#include <fstream>
#include <sstream>

#include "daemon_fixture.h"

/* Areas as installed, on files as an installer or an administrator leaves them.
 *
 * The cases stand in data/AREA.cases; what a line means is told by how it begins:
 *
 *   ##                  a remark
 *   = title             a case begins; its title is a sentence about behaviour
 *   file PATH [MODE]    makes a file of the lines behind it that begin with "|"
 *   link PATH TARGET    a symbolic link there;  folder PATH, gone PATH
 *   login               a new session, which sees what has changed
 *   ask REQUEST         the answer is OK, or has a line that begins with each text behind "<"
 *   now PATH            the file has the lines behind it that begin with "|", and no others
 */

namespace {

namespace fs = std::filesystem;

struct found_case {
    std::string title;
    std::vector<std::string> lines;

    friend void PrintTo(const found_case &found, std::ostream *out) { *out << found.title; }
};

std::vector<found_case> read_cases() {
    std::vector<found_case> cases;
    for (const auto &entry : fs::directory_iterator(SOURCE_DIR "/tests/packaging/data")) {
        std::ifstream in{entry.path()};
        for (std::string line; std::getline(in, line);) {
            if (line.starts_with("= ")) cases.push_back({line.substr(2), {}});
            if (!line.starts_with("= ") && !line.starts_with("##"))
                cases.back().lines.push_back(line);
        }
    }
    return cases;
}

class FoundFiles : public daemon_test, public testing::WithParamInterface<found_case> {
  protected:
    void prepare() override {
        fs::remove_all(path("/etc"));
        fs::create_directories(path("/etc"));
        fs::copy(SOURCE_DIR "/packaging/etc/ucfgd", path("/etc/ucfgd"),
                 fs::copy_options::recursive);
    }

    /* The lines behind this one that begin with that sign, without it. */
    std::vector<std::string> take(char sign) {
        std::vector<std::string> taken;
        for (; at_ < GetParam().lines.size() && GetParam().lines[at_][0] == sign; at_++)
            taken.push_back(GetParam().lines[at_].substr(1));
        return taken;
    }

    std::string take_text() {
        std::string text;
        for (const std::string &line : take('|'))
            text += line + "\n";
        return text;
    }

    void ask(const std::string &request) {
        if (!std::exchange(started_, true)) start();
        if (session_.fd() < 0) session_ = logged_in();
        const std::string reply = "\n" + session_.ask("a " + request);
        std::vector<std::string> answers = take('<');
        if (answers.empty()) answers.emplace_back(" OK");
        for (const std::string &answer : answers)
            EXPECT_NE(reply.find("\na" + answer), std::string::npos) << request << reply;
    }

    void step(const std::string &line) {
        std::istringstream words{line};
        std::string verb, name, rest;
        words >> verb >> name >> rest;
        const fs::path place = path(name);
        if (verb == "ask") return ask(line.substr(4));
        if (verb == "login") return session_.close();
        if (verb == "now") {
            EXPECT_EQ(file(name), take_text()) << name;
            return;
        }
        fs::remove(place);
        fs::create_directories(verb == "folder" ? place : place.parent_path());
        if (verb == "file") put(name, take_text());
        if (verb == "file" && !rest.empty())
            fs::permissions(place, fs::perms(std::stoi(rest, nullptr, 8)));
        if (verb == "link") fs::create_symlink(rest, place);
    }

    std::size_t at_ = 0;
    bool started_ = false;
    client session_;
};

TEST_P(FoundFiles, AreToldTrulyAndChanged) {
    SCOPED_TRACE(GetParam().title);
    while (at_ < GetParam().lines.size())
        step(GetParam().lines[at_++]);
}

TEST(Apply, TriesAValueInANetworkOfItsOwn) {
    const std::string apply = SOURCE_DIR "/packaging/etc/ucfgd/apply try ";
    if (std::system("unshare -n true") != 0) GTEST_SKIP() << "no network namespaces";
    EXPECT_NE(std::system((apply + "/proc/sys/net/ipv4/tcp_congestion_control nosuch").c_str()), 0);
    EXPECT_EQ(std::system((apply + "/proc/sys/net/ipv4/ip_forward 1").c_str()), 0);
    EXPECT_EQ(std::system((apply + "/proc/sys/net/ipv4/nosuch 1").c_str()), 0);
}

std::string name_of(const testing::TestParamInfo<found_case> &found) {
    std::string name;
    bool begins = true;
    for (char c : found.param.title) {
        const int code = static_cast<unsigned char>(c);
        if (std::isalnum(code)) name += static_cast<char>(begins ? std::toupper(code) : code);
        begins = !std::isalnum(code);
    }
    return name;
}

INSTANTIATE_TEST_SUITE_P(Area, FoundFiles, testing::ValuesIn(read_cases()), name_of);

}  // namespace
