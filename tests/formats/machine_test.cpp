/* The parsers against the files of the machine that the tests run on: whatever Debian packages have
 * put there is read and written without a difference, one edit changes its own lines, and damaged
 * copies are read as far as possible or refused, never more than that. */
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <random>
#include <sstream>

#include "format_case.h"
#include "format_support.h"

namespace formats {
namespace {

struct source_files {
    const char *parser;
    const char *options;
    const char *pattern;  // a path; "*" stands for any text in the last component
};

constexpr const char *k_passwd = "columns=name/password/uid/gid/gecos/home/shell";
constexpr const char *k_fstab =
    "columns=device/mountpoint/type/options/dump/pass key=mountpoint separator=blank";

constexpr source_files k_sources[] = {
    {"shellvars", "", "/etc/default/*"},
    {"shellvars", "", "/etc/os-release"},
    {"shellvars", "", "/etc/environment"},
    {"shellvars", "", "/etc/adduser.conf"},
    {"shellvars", "", "/etc/deluser.conf"},
    {"shellvars", "", "/etc/e2scrub.conf"},
    {"shellvars", "", "/etc/init.d/*"},
    {"ini", "", "/etc/systemd/*.conf"},
    {"ini", "", "/usr/lib/systemd/system/*.service"},
    {"ini", "", "/usr/lib/systemd/system/*.timer"},
    {"ini", "", "/usr/lib/systemd/system/*.socket"},
    {"ini", "comment=#", "/usr/share/applications/*.desktop"},
    {"ini", "", "/etc/gitconfig"},
    {"ini", "", "/etc/mke2fs.conf"},
    {"table", k_passwd, "/etc/passwd"},
    {"table", "columns=name/password/gid/members", "/etc/group"},
    {"table", "columns=name/password/changed/min/max/warn/inactive/expire/rest", "/etc/shadow"},
    {"table", "columns=name/first/count", "/etc/subuid"},
    {"table", k_fstab, "/etc/fstab"},
    {"table", k_fstab, "/etc/mtab"},
    {"table", "columns=name/port/aliases separator=blank", "/etc/services"},
    {"table", "columns=name/number/aliases separator=blank", "/etc/protocols"},
    {"table", "columns=name/number/aliases separator=blank", "/etc/rpc"},
    {"table", "columns=id/runlevels/action/process", "/etc/inittab"},
    {"interfaces", "", "/etc/network/interfaces"},
    {"interfaces", "ifupdown", "/etc/network/interfaces.d/*"},
    {"hosts", "", "/etc/hosts"},
    {"keyvalue", "", "/etc/resolv.conf"},
    {"keyvalue", "", "/etc/host.conf"},
    {"keyvalue", "", "/etc/login.defs"},
    {"keyvalue", "", "/etc/ssh/ssh*_config"},
    {"keyvalue", "", "/etc/ld.so.conf"},
    {"keyvalue", "", "/etc/pam.d/*"},
    {"keyvalue", "", "/etc/logrotate.d/*"},
    {"keyvalue", "separator==", "/etc/sysctl.conf"},
    {"keyvalue", "separator==", "/etc/sysctl.d/*"},
    {"keyvalue", "separator==", "/usr/lib/sysctl.d/*"},
    {"keyvalue", "separator=:", "/etc/nsswitch.conf"},
    {"keyvalue", "separator=:", "/etc/debconf.conf"},
    {"keyvalue", "columns=type/rest", "/etc/hosts.allow"},
    {"mgetty", "", "/etc/mgetty/login.config"},
    {"aliases", "", "/etc/aliases"},
    {"augeas", "lens=Hosts", "/etc/hosts"},
    {"augeas", "lens=Passwd", "/etc/passwd"},
    {"augeas", "lens=Group", "/etc/group"},
    {"augeas", "lens=Fstab", "/etc/fstab"},
    {"augeas", "lens=Resolv", "/etc/resolv.conf"},
    {"augeas", "lens=Nsswitch", "/etc/nsswitch.conf"},
    {"augeas", "lens=Host_Conf", "/etc/host.conf"},
    {"augeas", "lens=Login_Defs", "/etc/login.defs"},
    {"augeas", "lens=Pam", "/etc/pam.d/*"},
    {"augeas", "lens=Shells", "/etc/shells"},
    {"augeas", "lens=Ssh", "/etc/ssh/ssh_config"},
    {"augeas", "lens=Sysctl", "/etc/sysctl.conf"},
    {"augeas", "lens=Logrotate", "/etc/logrotate.d/*"},
    {"augeas", "lens=Systemd", "/etc/systemd/*.conf"},
    {"lines", "", "/etc/*.conf"},
    {"lines", "", "/etc/bash.bashrc"},
    {"lines", "", "/etc/shells"},
    {"lines", "", "/etc/profile"},
};

constexpr std::size_t k_edits = 20;    // nodes of a file that are edited, one after the other
constexpr std::size_t k_damages = 30;  // damaged copies of a file
constexpr std::size_t k_few = 3;       // the same where a lens is at work, which is slow
constexpr std::size_t k_largest = 1 << 18;
constexpr const char *k_new_value = "9999";

struct machine_file {
    const source_files *source;
    std::string path;
    std::string text;
};

bool uses_lens(const machine_file &file) {
    return file.source->parser == std::string("augeas");
}

bool fits_pattern(const std::string &name, const std::string &pattern) {
    std::size_t star = pattern.find('*');
    if (star == std::string::npos) return name == pattern;
    std::string tail = pattern.substr(star + 1);
    return name.size() >= pattern.size() - 1 && name.rfind(pattern.substr(0, star), 0) == 0 &&
           name.compare(name.size() - tail.size(), tail.size(), tail) == 0;
}

void add_file(const source_files &source, const std::filesystem::path &path,
              std::vector<machine_file> &files) {
    std::error_code none;
    if (!std::filesystem::is_regular_file(path, none)) return;
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    if (!stream || text.str().empty() || text.str().size() > k_largest) return;
    files.push_back({&source, path.string(), text.str()});
}

const std::vector<machine_file> &machine_files() {
    static const std::vector<machine_file> k_files = [] {
        std::vector<machine_file> files;
        for (const source_files &source : k_sources) {
            if (source.parser == std::string("augeas") && !plugin_built()) continue;
            std::filesystem::path pattern(source.pattern);
            std::error_code none;
            std::filesystem::directory_iterator entries(pattern.parent_path(), none);
            for (const auto &entry : entries) {
                if (fits_pattern(entry.path().filename().string(), pattern.filename().string())) {
                    add_file(source, entry.path(), files);
                }
            }
        }
        return files;
    }();
    return k_files;
}

void collect_values(cnfnode *node, std::vector<cnfnode *> &found) {
    for (cnfnode *child = node->first_child; child != nullptr; child = child->next) {
        bool editable = child->value != nullptr && cnfnode_is_formatting(child) == 0;
        if (editable) found.push_back(child);
        collect_values(child, found);
    }
}

/* An edit of one value takes away and adds lines in one place only; more than one line is taken
 * away only where a value went on with further lines. */
void expect_one_place(const std::string &from, const std::string &to) {
    std::vector<std::string> a = split_lines(from);
    std::vector<std::string> b = split_lines(to);
    std::size_t head = 0;
    while (head < a.size() && head < b.size() && a[head] == b[head])
        ++head;
    std::size_t tail = 0;
    while (tail < a.size() - head && tail < b.size() - head &&
           a[a.size() - 1 - tail] == b[b.size() - 1 - tail]) {
        ++tail;
    }
    EXPECT_LE(b.size() - head - tail, 1U);
    for (std::size_t i = head; i + 1 < a.size() - tail; ++i) {
        bool goes_on = a[i].ends_with('\\') || a[i].find_first_of("'\"") != std::string::npos;
        EXPECT_TRUE(goes_on || a[i].starts_with('#')) << a[i];
    }
}

/* A module is made once: a lens takes its time to load. */
const cnfmodule *module_for(const machine_file &file) {
    static std::map<std::string, module_ptr> modules;
    module_ptr &module = modules[std::string(file.source->parser) + " " + file.source->options];
    if (module == nullptr) module = open_module(file.source->parser, file.source->options);
    EXPECT_NE(module, nullptr) << file.source->parser << " " << file.source->options;
    return module.get();
}

void edit_values(const cnfmodule *module, const machine_file &file) {
    tree_ptr tree = parse(module, file.text);
    std::vector<cnfnode *> nodes;
    collect_values(tree.get(), nodes);
    std::size_t step = nodes.size() / (uses_lens(file) ? k_few : k_edits) + 1;
    for (std::size_t i = 0; i < nodes.size(); i += step) {
        SCOPED_TRACE(nodes[i]->name);
        std::string old = nodes[i]->value;
        ASSERT_EQ(cnfnode_setval(nodes[i], k_new_value), 0);
        std::optional<std::string> written = write(module, tree.get());
        /* Some values of a lens are words of a list. */
        bool may_refuse = uses_lens(file) && errno == EINVAL;
        ASSERT_TRUE(written || may_refuse) << cnf_error_text();
        if (written) expect_one_place(file.text, *written);
        tree = parse(module, file.text);
        nodes.clear();
        collect_values(tree.get(), nodes);
    }
}

/* Cuts a copy off, or puts strange bytes into it. */
std::string damaged(const std::string &text, std::mt19937 &random) {
    static const std::string k_strange("\0\n\r\t \"'\\(){}[]#=:;$`\xff", 21);
    std::string copy = text;
    if (random() % 2 == 0) copy.resize(random() % (copy.size() + 1));
    for (auto count = random() % 8; count > 0 && !copy.empty(); --count) {
        std::size_t at = random() % copy.size();
        char c = k_strange[random() % k_strange.size()];
        if (random() % 2 == 0) {
            copy[at] = c;
        } else {
            copy.insert(at, 1 + random() % 3, c);
        }
    }
    return copy;
}

void expect_read_or_refused(const cnfmodule *module, const std::string &text) {
    tree_ptr tree = parse(module, text);
    if (tree == nullptr) {
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(std::string(cnf_error_text()).rfind("FILE:", 0), 0U) << cnf_error_text();
    } else {
        EXPECT_EQ(write(module, tree.get()), text);
    }
}

TEST(MachineFiles, AreReadAndWrittenWithoutADifference) {
    for (const machine_file &file : machine_files()) {
        SCOPED_TRACE(file.path);
        const cnfmodule *module = module_for(file);
        tree_ptr tree = parse(module, file.text);
        ASSERT_NE(tree, nullptr) << cnf_error_text();
        EXPECT_EQ(write(module, tree.get()), file.text);
        tree_ptr copy(clone_cnftree(tree.get()));
        EXPECT_EQ(write(module, copy.get()), file.text);
    }
    std::cout << machine_files().size() << " files of this machine\n";
}

TEST(MachineFiles, ChangeInTheLinesOfAnEditOnly) {
    for (const machine_file &file : machine_files()) {
        SCOPED_TRACE(file.path);
        const cnfmodule *module = module_for(file);
        edit_values(module, file);
    }
}

TEST(MachineFiles, AreReadOrRefusedWhenTheyAreDamaged) {
    std::mt19937 random(20);
    for (const machine_file &file : machine_files()) {
        SCOPED_TRACE(file.path);
        const cnfmodule *module = module_for(file);
        for (std::size_t i = 0; i < (uses_lens(file) ? k_few : k_damages); ++i) {
            expect_read_or_refused(module, damaged(file.text, random));
        }
    }
}

TEST(MachineFiles, AreReadOrRefusedByParsersOfAnotherSyntax) {
    for (const char *parser : {"tavconf", "python", "shellvars", "ini", "table", "interfaces",
                               "mgetty", "hosts", "keyvalue", "lines", "aliases"}) {
        module_ptr module = open_module(parser, "");
        ASSERT_NE(module, nullptr) << parser;
        for (const machine_file &file : machine_files()) {
            SCOPED_TRACE(std::string(parser) + " " + file.path);
            expect_read_or_refused(module.get(), file.text);
        }
    }
}

}  // namespace
}  // namespace formats
