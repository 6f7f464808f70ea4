#include "llconf/modules.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>

#include "llconf_trees.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

/* A directory that goes with the test. */
class Modules : public testing::Test {
  protected:
    void SetUp() override {
        std::string name = fs::temp_directory_path() / "llconf-XXXXXX";
        dir_ = mkdtemp(name.data());
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::string path(const char *name) const { return dir_ / name; }
    std::string write(const char *name, const std::string &text) const {
        std::ofstream{path(name), std::ios::binary} << text;
        return path(name);
    }
    static std::string read(const std::string &file) {
        std::ifstream stream{file, std::ios::binary};
        return {std::istreambuf_iterator<char>{stream}, {}};
    }

    fs::path dir_;
};

TEST_F(Modules, OptionStringsBecomeTrees) {
    EXPECT_EQ(show(tree{parse_options("a b=1,c=\"x y\\\"\\\\\\n\" , d= e==")}.get()),
              "(root){a b=1 c=x y\"\\\\n d= e==}");
    EXPECT_EQ(show(tree{parse_options(" ,")}.get()), "(root)");
    for (const char *wrong : {"=x", "a=\"x", "a=\"x\"y", "a\"b\"", "a=x\"", "\"a\"=1", "a=\"\\"}) {
        EXPECT_EQ(parse_options(wrong), nullptr) << wrong;
        EXPECT_EQ(errno, EINVAL);
    }
}

TEST_F(Modules, InstancesCarryTheirOwnOptions) {
    tree options{parse_options("separator==")};
    module_ptr module{
        clone_cnfmodule(parser("keyvalue"), "sysctl", "/etc/sysctl.conf", options.get())};
    options.reset();
    EXPECT_STREQ(module->name, "sysctl");
    EXPECT_STREQ(module->default_file, "/etc/sysctl.conf");
    EXPECT_STREQ(module->options->first_child->value, "=");
    EXPECT_EQ(show(parse(module.get(), "a=1").get()), "(root){a=1}");
    EXPECT_EQ(show(parse(parser("keyvalue"), "a=1").get()), "(root){a=1=}");
    EXPECT_EQ(find_cnfmodule("sysctl"), nullptr);
    EXPECT_EQ(register_all(), 0) << "twice is as good as once";
}

TEST_F(Modules, OptionsThatAParserCannotUseAreRefusedWithAReport) {
    static std::string heard;
    llconf_set_report([](int, const char *text, void *) { heard = text; }, nullptr);
    tree unknown{parse_options("colums=a")};
    EXPECT_EQ(clone_cnfmodule(parser("keyvalue"), "m", nullptr, unknown.get()), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(heard, "module 'm': unknown option 'colums'");
    tree useless{parse_options("columns=a//b")};
    EXPECT_EQ(clone_cnfmodule(parser("keyvalue"), "m", nullptr, useless.get()), nullptr);
    llconf_set_report(nullptr, nullptr);
}

TEST_F(Modules, AnUntouchedFileIsWrittenBackByteForByte) {
    std::string odd = "a\r\nb\n\xff\xfe bytes\n\0nul\n  \t\nlast without end"s;
    for (const char *name : {"hosts", "lines", "keyvalue"}) {
        tree root = parse(parser(name), odd);
        ASSERT_TRUE(root) << cnf_error_text();
        EXPECT_EQ(unparse(parser(name), root.get()), odd);
        EXPECT_EQ(unparse(parser(name), tree{clone_cnftree(root.get())}.get()), odd);
        append_node(root.get(), root->first_child->next);
        std::string moved = unparse(parser(name), root.get());
        EXPECT_EQ(moved, "a\r\n\xff\xfe bytes\n\0nul\n  \t\nlast without end\r\nb"s)
            << "lines move as they are, line ends in between are the file's";
    }
}

TEST_F(Modules, ATreeThatWasWrittenBecomesTheOneThatWouldBeRead) {
    for (const char *text :
         {"10.0.0.1 a\n\n# x\n10.0.0.2 b\r\nodd\n10.0.0.3 c", "a 1\nb 2\n", ""}) {
        for (const char *name : {"hosts", "lines", "keyvalue"}) {
            tree first = parse(parser(name), text);
            tree root{clone_cnftree(first.get())};
            if (root->first_child) append_node(root.get(), root->first_child);
            append_node(root.get(), parse(parser(name), "10.0.0.9 x")->first_child);
            std::string written = unparse(parser(name), root.get());
            ASSERT_EQ(cnfmodule_adopt(parser(name), root.get(), written.data(), written.size()), 0);
            EXPECT_EQ(show(root.get()), show(parse(parser(name), written).get()));
            EXPECT_EQ(cnfnode_is_changed(root.get()), 0);
            EXPECT_EQ(unparse(parser(name), root.get()), written);
            destroy_cnftree(root->first_child);
            tree rest{clone_cnftree(parse(parser(name), unparse(parser(name), root.get())).get())};
            EXPECT_EQ(show(root.get()), show(rest.get())) << "its lines know their new places";
        }
    }
    tree deep = parse(parser("tavconf"), "a: 1\n");
    EXPECT_EQ(cnfmodule_adopt(parser("tavconf"), deep.get(), "a: 1\n", 5), -1);
    tree other = parse(parser("lines"), "a\nb\n");
    EXPECT_EQ(cnfmodule_adopt(parser("lines"), other.get(), "a\n", 2), -1);
}

TEST_F(Modules, WhatWasReadInAnotherSyntaxIsFormattedAnew) {
    tree options{parse_options("separator==")};
    module_ptr equals{clone_cnfmodule(parser("keyvalue"), nullptr, nullptr, options.get())};
    tree root = parse(equals.get(), "a = 1\nb = 2\n");
    EXPECT_EQ(unparse(parser("keyvalue"), root.get()), "a 1\nb 2\n");
    module_ptr same{clone_cnfmodule(parser("keyvalue"), "other", nullptr, options.get())};
    EXPECT_EQ(unparse(same.get(), root.get()), "a = 1\nb = 2\n");
    tree line = parse(parser("lines"), "a free line\n");
    append_node(root.get(), line->first_child);
    EXPECT_EQ(unparse(parser("lines"), root.get()), "lines: 'a' cannot be stored in this file");
}

TEST_F(Modules, FilesAreReadAndWrittenWhole) {
    std::string file = write("hosts", "10.0.0.1 one\n");
    ASSERT_EQ(chmod(file.c_str(), 0644), 0);
    tree root{cnfmodule_parse_file(parser("hosts"), file.c_str())};
    ASSERT_TRUE(root);
    cnfnode_setval(at(root, "10.0.0.1/name"), "eins");
    errno = 7;
    EXPECT_EQ(cnfmodule_unparse_file(parser("hosts"), file.c_str(), root.get()), 0);
    EXPECT_EQ(cnfmodule_unparse_file(parser("hosts"), path("new").c_str(), root.get()), 0);
    EXPECT_EQ(errno, 7);
    EXPECT_EQ(read(file), "10.0.0.1 eins\n");
    struct stat status {};
    ASSERT_EQ(stat(path("new").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, mode_t{0600}) << "nobody else sees a file that is being made";
    cnf_add_branch(root.get(), "two\\ words");
    EXPECT_EQ(cnfmodule_unparse_file(parser("hosts"), file.c_str(), root.get()), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(cnf_error_text(), file + ": 'two words' cannot be stored in this file");
    EXPECT_EQ(read(file), "10.0.0.1 eins\n") << "refused before the first byte";
}

TEST_F(Modules, FailuresSayWhichFileAndWhy) {
    EXPECT_EQ(cnfmodule_parse_file(parser("hosts"), path("none").c_str()), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(cnf_error_text(), path("none") + ": No such file or directory");
    EXPECT_EQ(cnfmodule_parse_file(parser("hosts"), dir_.c_str()), nullptr);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(cnfmodule_parse_file(parser("hosts"), nullptr), nullptr) << "it has no default file";
    std::string file = write("broken", "ok: 1\nsection {\n");
    EXPECT_EQ(cnfmodule_parse_file(parser("tavconf"), file.c_str()), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(cnf_error_text(), file + ":2: section 'section' is not closed");
    tree root = parse(parser("lines"), "text\n");
    EXPECT_EQ(cnfmodule_unparse_file(parser("lines"), "/dev/full", root.get()), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_STREQ(cnf_error_text(), "/dev/full: No space left on device");
}

TEST_F(Modules, StreamsAndPipesWork) {
    tree root{};
    {
        std::unique_ptr<FILE, decltype(&pclose)> in{popen("seq 1 20000", "r"), pclose};
        root.reset(cnfmodule_parse(parser("lines"), in.get()));
    }
    ASSERT_TRUE(root);
    EXPECT_STREQ(at(root, "line[19999]")->value, "20000");
    cnfnode_setval(at(root, "line[5]"), "six");
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_NONBLOCK), 0);
    unique_fd reading{ends[0]};
    unique_fd writing{ends[1]};
    tree small = parse(parser("lines"), "x");
    EXPECT_EQ(cnfmodule_unparse_fd(parser("lines"), writing.get(), small.get()), 0);
    std::string file = path("out");
    std::unique_ptr<FILE, decltype(&fclose)> out{fopen(file.c_str(), "w"), fclose};
    EXPECT_EQ(cnfmodule_unparse(parser("lines"), out.get(), root.get()), 0);
    EXPECT_EQ(read(file).substr(0, 16), "1\n2\n3\n4\n5\nsix\n7\n");
}

TEST_F(Modules, AModuleSaysBeforehandWhatAFileCanHold) {
    tree root = parse(parser("hosts"), "10.0.0.1 one # x\n");
    tree outer = make_tree("outer");
    append_node(outer.get(), root.get());
    cnfnode *file = root.release();
    const cnfmodule *hosts = parser("hosts");
    cnfnode *entry = cnf_get_node(file, "10.0.0.1");
    EXPECT_EQ(cnfmodule_accepts(hosts, file, "10.0.0.2", nullptr), 1) << "the file's own root";
    EXPECT_EQ(cnfmodule_accepts(hosts, entry, "alias", "two"), 1);
    EXPECT_EQ(cnfmodule_accepts(hosts, file, "alias", "two"), 0);
    EXPECT_EQ(cnfmodule_accepts(hosts, entry, "alias", "a\nb"), 0);
    EXPECT_EQ(cnfmodule_accepts(hosts, file, ".comment", "some words"), 1);
    EXPECT_EQ(cnfmodule_accepts(hosts, entry, ".comment", "some words"), 0);
    EXPECT_EQ(cnfmodule_accepts(hosts, nullptr, "(root)", "value"), 0);
    EXPECT_EQ(cnfmodule_accepts_below(hosts, outer.get(), file, "10.0.0.2", nullptr), 0);
    EXPECT_EQ(cnfmodule_accepts_branch(hosts, nullptr, file, "10.0.0.2[name=b]/alias"), 1);
    EXPECT_EQ(cnfmodule_accepts_branch(hosts, nullptr, file, "10.0.0.2[name=b c]/alias"), 0);
    EXPECT_EQ(cnfmodule_accepts_branch(hosts, nullptr, file, "10.0.0.1/alias/deeper"), 0);
    EXPECT_EQ(show(file), "(root){10.0.0.1{name=one}}") << "nothing was created";
}

/* A library with these permissions, as the report about it. */
std::string load(const std::string &library, const char *name) {
    static std::string heard;
    heard.clear();
    llconf_set_report([](int, const char *text, void *) { heard = text; }, nullptr);
    int result = cnfmodule_register_plugin(name, library.c_str(), 0);
    llconf_set_report(nullptr, nullptr);
    return result == 0 ? "loaded" : heard;
}

TEST_F(Modules, PlugInsAddParsersUnlessOthersMayWriteThem) {
    std::string library = path("marks.so");
    fs::copy_file(SAMPLE_PLUGIN, library);
    chmod(library.c_str(), 0775);
    EXPECT_EQ(load(library, "marks"),
              "plug-in 'marks': " + library + ": others than root may write it");
    EXPECT_EQ(errno, EPERM);
    chmod(library.c_str(), 0755);
    chmod(dir_.c_str(), 0777);
    EXPECT_EQ(llconf_check_library(library.c_str()), -1) << "others may put another in its place";
    chmod(dir_.c_str(), 0755);
    EXPECT_EQ(load(library, "other"),
              "plug-in 'other': " + library + " has no cnfmodule_register_other");
    EXPECT_EQ(load(path("none.so"), "x"),
              "plug-in 'x': " + path("none.so") + ": No such file or directory");
    EXPECT_EQ(load(library, "marks"), "loaded");
    const cnfmodule *marks = find_cnfmodule("marks");
    ASSERT_NE(marks, nullptr);
    tree root = parse(marks, "!one\nwhat?\n!two\n");
    EXPECT_EQ(show(root.get()), "(root){one .unparsed=what? two}");
    cnfnode_setname(at(root, "one"), "eins");
    EXPECT_EQ(unparse(marks, root.get()), "!eins\nwhat?\n!two\n");
    /* Its format and accepts functions would let this through; reading it again does not. */
    cnfnode_setname(at(root, "two"), "");
    EXPECT_EQ(unparse(marks, root.get()), "marks: '' cannot be stored in this file");
}

TEST_F(Modules, AVeryLargeFileIsRefusedAndALongLineIsNot) {
    std::string text = "10.0.0.1 name";
    for (int i = 0; i < 200000; i++)
        text += " a" + std::to_string(i);
    tree root = parse(parser("hosts"), text);
    cnfnode_setval(at(root, "10.0.0.1/alias[199999]"), "last");
    std::string out = unparse(parser("hosts"), root.get());
    EXPECT_EQ(out.substr(out.size() - 13), " a199998 last");
    std::string file = path("sparse");
    write("sparse", "");
    fs::resize_file(file, (uintmax_t{256} << 20) + 1);
    EXPECT_EQ(cnfmodule_parse_file(parser("lines"), file.c_str()), nullptr);
    EXPECT_EQ(errno, EFBIG);
}

}  // namespace
