#include "documents.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "llconf/modules.h"
#include "llconf/nodes.h"

namespace {

constexpr std::string_view k_prompt = "$ ";

example named(const std::string &label) {
    example made;
    std::istringstream words{label};
    for (std::string word; words >> word;) {
        if (word.starts_with("file=")) {
            made.file = word.substr(5);
        } else if (made.kind.empty()) {
            made.kind = word;
        }
    }
    return made;
}

/* A line of a literal display as it is printed. */
std::string without_roff(const std::string &line) {
    return std::regex_replace(std::regex_replace(line, std::regex{R"(\\&)"}, ""),
                              std::regex{R"(\\e)"}, "\\");
}

/* Commands name the machine's files; here they are those of the copy. */
std::string below(const std::string &root, const std::string &command) {
    if (command.find("ucfgsh") != std::string::npos) return command;
    return std::regex_replace(command, std::regex{" /(etc|usr|var)/"}, " " + root + "/$1/");
}

void expect_parses(const std::string &text, const std::string &where) {
    register_all();
    const owned<cnfnode, destroy_cnftree> tree{
        cnfmodule_parse_text(find_cnfmodule("tavconf"), where.c_str(), text.data(), text.size())};
    EXPECT_NE(tree, nullptr) << cnf_error_text() << "\n" << text;
}

}  // namespace

std::vector<example> examples_of(const std::string &document) {
    const bool is_page = !document.ends_with(".md");
    const std::string begin = is_page ? ".Bd" : "```";
    const std::string end = is_page ? ".Ed" : "```";
    std::vector<example> found;
    std::string label;
    std::string line;
    bool inside = false;
    for (std::ifstream file{document}; std::getline(file, line);) {
        if (inside && line == end) {
            inside = false;
        } else if (inside) {
            found.back().text += (is_page ? without_roff(line) : line) + '\n';
        } else if (line.starts_with(begin)) {
            found.push_back(named(is_page ? label : line.substr(begin.size())));
            inside = true;
            label.clear();
        } else {
            label = line.starts_with(".\\\"") ? line.substr(3) : "";
        }
    }
    return found;
}

bool fits(std::string_view text, std::string_view expected) {
    const size_t gap = expected.starts_with("...\n") ? 0 : expected.find("\n...\n");
    if (gap == std::string_view::npos) return text == expected;
    const std::string_view before = gap == 0 ? "" : expected.substr(0, gap + 1);
    const std::string_view after = expected.substr(gap + (gap == 0 ? 4 : 5));
    return text.size() >= before.size() + after.size() && text.starts_with(before) &&
           text.ends_with(after);
}

void document_test::prepare() {
    use_appliance();
    put("/scratch/.keep", "");
    const std::string socket = path("/dev/ucfgd");
    put("/bin/ucfgsh", "#!/bin/sh\nexec " UCFGSH " --plain --socket " + socket + " \"$@\"\n");
    put("/bin/ucfgd", "#!/bin/sh\nexec " UCFGD " --root=" + path("") + " \"$@\"\n");
    put("/bin/hlxsession", "#!/bin/sh\nexec " HLXSESSION " \"$@\"\n");
    /* As nginx -t -c FILE: each line of the files that FILE includes ends in ";". */
    put("/bin/nginx",
        "#!/bin/sh\nfor file in $(sed -n 's/;//; s/^ *include //p' \"$3\"); do\n"
        "    grep -qv ';$' $file && { echo unexpected end of file; exit 1; }\ndone\nexit 0\n");
    for (const char *program : {"/bin/ucfgsh", "/bin/ucfgd", "/bin/hlxsession", "/bin/nginx"})
        chmod(path(program).c_str(), 0755);
    environment = {{"PATH", path("/bin:") + path("/usr/local/sbin:") + getenv("PATH")}};
}

std::string document_test::shell(std::string command) const {
    command = below(path(""), command);
    return run_program({"/bin/sh", "-c", command},
                       [this] {
                           dup2(1, 2);
                           if (chdir(path("/scratch").c_str()) != 0) _exit(126);
                           const std::string old = getenv("PATH");
                           setenv("PATH", (path("/bin") + ":" + old).c_str(), 1);
                           setenv("PKG_CONFIG_PATH", STAGED_PACKAGES, 1);
                           setenv("PKG_CONFIG_SYSROOT_DIR", STAGE, 1);
                           unsetenv("MAKEFLAGS");
                       })
        .out;
}

void document_test::restart() {
    if (pid() != 0) stop();
    EXPECT_EQ(run({"--check"}).err, "");
    start();
}

void document_test::reload() {
    if (pid() == 0) start();
    const size_t before = log().size();
    kill(pid(), SIGHUP);
    EXPECT_TRUE(eventually([&] { return log().find("reload: done", before) != std::string::npos; }))
        << log();
}

void document_test::run_console(const std::string &text) {
    std::istringstream lines{text};
    std::string command;
    std::string expected;
    const auto run = [&] {
        if (command == "systemctl restart ucfgd") return restart();
        if (command == "systemctl reload ucfgd") return reload();
        if (command.empty()) return;
        if (pid() == 0 && command.find("ucfgsh ") != std::string::npos) start();
        const std::string printed =
            std::regex_replace(shell(command), std::regex{path("") + "/"}, "/");
        EXPECT_TRUE(fits(printed, expected)) << "$ " << command << "\n" << printed;
    };
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with(k_prompt)) {
            expected += line + '\n';
            continue;
        }
        run();
        command = line.substr(k_prompt.size());
        expected.clear();
    }
    run();
}

void document_test::follow(const std::string &document) {
    for (const example &block : examples_of(document)) {
        if (!block.file.empty()) {
            put(block.file[0] == '/' ? block.file : "/scratch/" + block.file, block.text);
        } else if (block.kind == "console") {
            run_console(block.text);
        } else if (block.kind == "conf" || block.kind == "tree" || block.kind == "parse") {
            expect_parses(block.text, document);
        }
    }
}
