#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <numeric>
#include <set>
#include <thread>
#include <vector>

#include "backend_fixture.h"
#include "session/limits.h"

namespace {

/* The errors that these system calls answer next, the first one first. */
std::vector<int> g_fchmod_errors, g_folder_sync_errors;

int answer(std::vector<int> &errors, long number, int fd, unsigned int argument) {
    if (errors.empty()) return static_cast<int>(syscall(number, fd, argument));
    errno = errors.front();
    errors.erase(errors.begin());
    return -1;
}

}  // namespace

extern "C" int fchmod(int fd, mode_t mode) {
    return answer(g_fchmod_errors, SYS_fchmod, fd, mode);
}
extern "C" int fsync(int fd) {
    struct stat st {};
    static std::vector<int> none;
    bool is_folder = fstat(fd, &st) == 0 && S_ISDIR(st.st_mode);
    return answer(is_folder ? g_folder_sync_errors : none, SYS_fsync, fd, 0);
}

namespace {

class file_io : public backend_test {
  protected:
    llconf_item *lines(const std::string &name, const std::string &fields) const {
        modules(name + " {\n module: lines\n" + fields + "}\n");
        return item(name.c_str());
    }
    /* Sets the first line of an instance and writes it. */
    static int write_line(llconf_item *lli, const std::string &text) {
        if (!lli->cn_root->first_child) append_node(lli->cn_root, create_cnfnode("line"));
        cnfnode_setval(lli->cn_root->first_child, text.c_str());
        lli->is_dirty = 1;
        return llconf_write_cnftree(lli);
    }
    std::string files(const std::string &directory) const {
        std::set<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(path(directory)))
            names.insert(entry.path().filename().string() + " ");
        return std::accumulate(names.begin(), names.end(), std::string{});
    }
    unsigned int mode(const char *name) const {
        return static_cast<unsigned int>(std::filesystem::status(path(name)).permissions());
    }
};

TEST_F(file_io, AFailedWriteLeavesTheOldFileAndTheReason) {
    std::filesystem::create_directories(path("d/f.ucfgd-tmp"));
    put("d/f", "old\n");
    llconf_item *lli = lines("f", " file: d/f\n");
    llconf_item *good = lines("g", " file: g\n flags: create\n");
    EXPECT_NE(write_line(lli, "new"), 0);
    EXPECT_EQ(get("d/f"), "old\n");
    std::filesystem::remove_all(path("d"));
    lli->is_dirty = good->is_dirty = 1;
    EXPECT_NE(llconf_write_all_cnftrees(lli_list_from_trns_ctx(g_trns_ctx)), 0);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(unlogged({"writing to " + root + "/d/f.ucfgd-tmp failed: No such file"}), "");
}

TEST_F(file_io, AFileThatItsCheckRefusesIsNeverThere) {
    put("f", "old\n");
    llconf_item *lli = lines("f", " file: f\n check: system('grep -q good ' .. $file)\n");
    EXPECT_NE(write_line(lli, "bad"), 0);
    EXPECT_EQ(errno, ECANCELED);
    EXPECT_EQ(get("f") + ccd_get_error()->id, "old\nerror.commit.check");
    EXPECT_EQ(write_line(lli, "good"), 0);
    EXPECT_EQ(get("f"), "good\n");
    lli = lines("g", " file: f\n check: system('false')\n check: system('true')\n");
    EXPECT_NE(write_line(lli, "first says no"), 0);
    lli = lines("h", " file: f\n check: nosuch($file)\n");
    EXPECT_NE(write_line(lli, "unreadable"), 0);
    EXPECT_EQ(get("f"), "good\n");
}

TEST_F(file_io, EditsThatNoFileCanHoldAreKnownBefore) {
    put("f", "old\n");
    lines("f", " file: f\n");
    owned_ctx session{trns_copy_ctx(g_trns_ctx)};
    EXPECT_EQ(eval("llset('f', 'line', 'new')", session.get()), "1");
    EXPECT_EQ(llconf_try_ctx(session.get()), 0);
    cnfnode_setval(item("f", session.get())->cn_root->first_child, "two\nlines");
    EXPECT_EQ(llconf_try_ctx(session.get()), EINVAL);
    EXPECT_STREQ(ccd_get_error()->id, "error.commit.text");
    EXPECT_STREQ(ccd_get_error()->args->line, "f");
}

TEST_F(file_io, WhatACommitHasWrittenIsNotReadAgainUnlessSomethingElseStandsThere) {
    put("f", "a\nb\n");
    lines("f", " file: f\n");
    for (const char *others : {"true", "echo c >>", "sed -i s/b/d/", "sleep 0.02; touch"}) {
        owned_ctx session{trns_copy_ctx(g_trns_ctx)};
        eval("llset('f', 'line', 'new ' .. llget('f', 'line'))", session.get());
        ASSERT_EQ(llconf_try_ctx(session.get()), 0);
        const pid_t pid = fork();
        trns_submit_ctx(session.get());
        if (pid == 0) {
            llconf_use_tried();
            const bool well = trns_commit_ctx(session.get()) == 0;
            _exit(well ? system((others + (" " + path("f"))).c_str()) : 1);
        }
        int status = 0;
        waitpid(pid, &status, 0);
        ASSERT_EQ(status, 0);
        const cnfnode *written = item("f")->cn_root;
        trns_inc_ctx_serial(session.get());
        trns_revert_ctx(session.get());
        llconf_forget_tried();
        EXPECT_EQ(item("f")->cn_root == written, others == std::string{"true"}) << others;
        EXPECT_EQ(item("f")->is_dirty + cnfnode_is_changed(item("f")->cn_root), 0);
        const owned_str text{
            cnfmodule_unparse_text(item("f")->module, item("f")->cn_root, nullptr)};
        EXPECT_EQ(text.get(), get("f"));
    }
}

TEST_F(file_io, AFileThatCannotKeepItsModeIsNotReplacedAndOneThatMayNotLastIsNoSuccess) {
    put("f", "a\n");
    llconf_item *lli = lines("f", " file: f\n");
    g_fchmod_errors = {EPERM};
    EXPECT_NE(write_line(lli, "b"), 0);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(get("f"), "a\n");
    g_folder_sync_errors = {EINTR, EIO};
    EXPECT_NE(write_line(lli, "b"), 0);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(get("f"), "b\n");
    g_folder_sync_errors = {EINTR};
    EXPECT_EQ(write_line(lli, "c"), 0);
}

TEST_F(file_io, ALinkedFolderLeadsNowhereOutOfThePrefix) {
    for (const char *name : {"real", "real/deep"})
        std::filesystem::create_directory(path(name));
    put("real/f", "a\n");
    put("real/deep/a.c", "a\n");
    std::filesystem::create_symlink("/real", path("absolute"));
    std::filesystem::create_symlink("../../../../../real/deep", path("relative"));
    EXPECT_EQ(write_line(lines("f", " file: /absolute/deep/../f\n"), "b"), 0);
    EXPECT_EQ(get("real/f"), "b\n");
    lines("d", " dir: relative\n pattern: *.c\n");
    EXPECT_EQ(eval("llset('d', 'a.c/line', 'b')"), "1");
    EXPECT_EQ(llconf_write_cnftree(item("d")), 0);
    EXPECT_EQ(get("real/deep/a.c"), "b\n");
    EXPECT_EQ(eval("isfile('absolute/f') .. readlines('relative/a.c') .. unlink('absolute/f')"),
              "1b1");
    EXPECT_FALSE(std::filesystem::exists(path("real/f")));
}

TEST_F(file_io, LinksSurviveAndAPlantedTemporaryLinkIsNotFollowed) {
    for (const char *name : {"run", "inner"})
        std::filesystem::create_directory(path(name));
    put("run/real", "a\n");
    put("victim", "v\n");
    std::filesystem::create_symlink("run/real", path("f"));
    std::filesystem::create_symlink(path("victim"), path("run/real.ucfgd-tmp"));
    EXPECT_EQ(write_line(lines("f", " file: f\n"), "b"), 0);
    EXPECT_EQ(get("run/real"), "b\n");
    EXPECT_TRUE(std::filesystem::is_symlink(path("f")));
    std::filesystem::create_symlink(path("victim"), path("inner/out"));
    std::string inner = path("inner");
    char *outer = std::exchange(g_filesprefix, inner.data());
    EXPECT_EQ(write_line(lines("out", " file: out\n"), "b"), 0);
    g_filesprefix = outer;
    EXPECT_EQ(get("victim"), "v\n");
}

TEST_F(file_io, ARevertParsesAgainOnlyWhenTimeAndInodeDifferOrTheItemAsksForIt) {
    const struct {
        bool new_inode, new_time, dirty;
        unsigned int flags;
        bool parses;
    } rows[] = {
        {false, false, false, 0, false}, {true, false, false, 0, false},
        {false, true, false, 0, false},  {true, true, false, 0, true},
        {false, false, true, 0, true},   {false, false, false, LLI_FLAG_ALWAYS_REVERT, true}};
    llconf_item *lli = lines("f", " file: f\n flags: create\n");
    for (const auto &row : rows) {
        put("f", "old\n");
        std::filesystem::last_write_time(path("f"), {});
        lli->is_dirty = 1;
        llconf_revert_cnftree(lli);
        put(row.new_inode ? "f2" : "f", "new\n");
        if (row.new_inode) std::filesystem::rename(path("f2"), path("f"));
        if (!row.new_time) std::filesystem::last_write_time(path("f"), {});
        lli->is_dirty = row.dirty;
        lli->flags = row.flags;
        llconf_revert_cnftree(lli);
        EXPECT_EQ(eval("llget('f', 'line')"), row.parses ? "new" : "old") << (&row - rows);
    }
}

TEST_F(file_io, AWriterThatHadTheFileOpenLosesNothing) {
    put("f", "a\nz\n");
    std::filesystem::create_directory(path("d"));
    put("d/a.c", "a\n");
    llconf_item *lli = lines("f", " file: f\n");
    lines("d", " dir: /d\n pattern: *.c\n");
    eval("lldel('d', '', 'a.c')");
    /* Writes a line into the file that it has opened, once that file has lost its name. */
    auto late = [&](const std::string &name) {
        unique_fd writer{open(path(name).c_str(), O_WRONLY | O_APPEND | O_CLOEXEC)};
        return std::thread{[file = path(name), fd = std::move(writer)] {
            struct stat old {};
            struct stat now {};
            fstat(fd.get(), &old);
            while (stat(file.c_str(), &now) == 0 && now.st_ino == old.st_ino)
                std::this_thread::yield();
            usleep(2000);
            EXPECT_EQ(::write(fd.get(), "late\n", 5), 5);
        }};
    };
    std::thread writer = late("f");
    EXPECT_NE(write_line(lli, "b"), 0);
    EXPECT_EQ(errno, ESTALE);
    writer.join();
    EXPECT_EQ(get("f"), "a\nz\nlate\n");
    EXPECT_EQ(write_line(lli, "b"), 0);
    EXPECT_EQ(get("f"), "b\nz\nlate\n");
    writer = late("d/a.c");
    EXPECT_NE(llconf_write_cnftree(item("d")), 0);
    writer.join();
    EXPECT_EQ(get("d/a.c"), "a\nlate\n");
}

TEST_F(file_io, AFileThatCouldNeverBeReadIsNotReplacedByNothing) {
    put("t", "section {\n");
    modules("t {\n module: tavconf\n file: t\n}\n");
    EXPECT_EQ(unlogged({"parsing " + path("t") + " failed: Invalid argument\n", "/t:"}), "");
    trns_commit_ctx(g_trns_ctx);
    EXPECT_EQ(errno, 0);
    append_node(item("t")->cn_root, create_cnfnode("lost"));
    trns_commit_ctx(g_trns_ctx);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(get("t"), "section {\n");
    lines("l", " file: late\n");
    put("late", "made by others\n");
    trns_commit_ctx(g_trns_ctx);
    EXPECT_EQ(get("late"), "made by others\n");
    std::filesystem::create_symlink("loop", path("loop"));
    llconf_item *unreached = lines("u", " file: loop/f\n flags: create\n");
    EXPECT_EQ(unlogged({"stat('" + path("loop/f") + "') failed: Too many levels"}), "");
    std::filesystem::remove(path("loop"));
    std::filesystem::create_directory(path("loop"));
    put("loop/f", "kept\n");
    EXPECT_NE(write_line(unreached, "new"), 0);
    EXPECT_EQ(get("loop/f"), "kept\n");
}

TEST_F(file_io, ADirectoryIsReadAndWrittenFileByFile) {
    std::filesystem::create_directory(path("d"));
    for (std::string name : {"a.c", "b.c", "bad.c", "stale.c.ucfgd-tmp", "b.c.ucfgd-tmp"})
        put("d/" + name, name == "bad.c" ? "x {\n" : "k: 1\n");
    std::filesystem::create_symlink("b.c", path("d/a.c.ucfgd-tmp"));
    const std::string longest = std::string(244, 'x') + ".c";
    modules("d {\n module: tavconf\n dir: /d\n pattern: *.c*\n}\n");
    EXPECT_EQ(files("d"), "a.c b.c bad.c ");
    EXPECT_EQ(eval("lllist('d', '')"), "a.c b.c");
    EXPECT_EQ(eval("llset('d', 'a.c/k:', '2') .. lldel('d', '', 'b.c')"), "11");
    EXPECT_EQ(eval("lladd('d', '', 'new.c/k:') .. llset('d', 'new.c/k:', '3')"), "11");
    for (const char *name : {"..\\/..\\/victim", "e.c.ucfgd-tmp", "e.d", ".c", "a.c", "bad.c",
                             "bad.c\\/k", longest.c_str()})
        EXPECT_EQ(eval("lladd('d', '', '" + std::string{name} + "')"), "0") << name;
    EXPECT_EQ(eval("llrename('d', 'a.c', 'bad.c') .. llcopy('d', '', 'a.c', '', 'new.c')"), "00");
    EXPECT_EQ(llconf_write_cnftree(item("d")), 0);
    EXPECT_EQ(get("d/a.c") + get("d/new.c") + get("d/bad.c"), "k: 2\nk: 3\nx {\n");
    EXPECT_EQ(files("d"), "a.c bad.c new.c ");
    append_node(item("d")->cn_root, create_cnfnode("bad.c"));
    append_node(item("d")->cn_root, create_cnfnode("a.c"));
    item("d")->is_dirty = 1;
    EXPECT_NE(llconf_write_cnftree(item("d")), 0);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(get("d/a.c") + get("d/bad.c"), "k: 2\nx {\n");
}

TEST_F(file_io, ACommitTouchesOnlyThoseMembersThatWereChangedInItsSession) {
    std::filesystem::create_directory(path("d"));
    for (std::string name : {"a.c", "b.c", "c.c", "gone.c"})
        put("d/" + name, name + "\n");
    chmod(path("d/b.c").c_str(), 0600);
    lines("d", " dir: /d\n pattern: *.c\n");
    owned_ctx session{trns_copy_ctx(g_trns_ctx)};
    EXPECT_EQ(eval("llset('d', 'a.c/line', 'new') .. llrename('d', 'b.c', 'm.c')", session.get()),
              "11");
    EXPECT_EQ(
        eval("llcopy('d', '', 'm.c', '', 'copy.c') .. lladd('d', '', 'late.c')", session.get()),
        "11");
    put("d/c.c", "edited\n");
    put("d/added.c", "added\n");
    std::filesystem::remove(path("d/gone.c"));
    trns_revert_ctx(g_trns_ctx);
    put("d/late.c", "late\n");
    trns_commit_ctx(session.get());
    EXPECT_EQ(errno, ESTALE);
    EXPECT_STREQ(ccd_get_error()->msg,
                 "/d/late.c: others have changed it meanwhile: it has been added");
    EXPECT_EQ(files("d") + get("d/a.c"), "a.c added.c b.c c.c late.c a.c\n") << "all or nothing";
    std::filesystem::remove(path("d/late.c"));
    llconf_write_cnftree(item("d"));
    item("d")->is_dirty = 1;
    EXPECT_EQ(llconf_write_cnftree(item("d")), 0);
    EXPECT_EQ(files("d"), "a.c added.c c.c copy.c late.c m.c ");
    EXPECT_EQ(get("d/a.c") + get("d/c.c") + get("d/m.c"), "new\nedited\nb.c\n");
    EXPECT_EQ(mode("d/m.c") + mode("d/copy.c") + mode("d/a.c"), 0600U + 0600U + 0644U);
    for (const char *step : {"lldel('d', '', 'm.c')", "lladd('d', '', 'm.c')"}) {
        EXPECT_EQ(eval(step), "1");
        EXPECT_EQ(llconf_write_cnftree(item("d")), 0);
        trns_revert_ctx(g_trns_ctx);
    }
    EXPECT_EQ(mode("d/m.c"), 0600U) << "it has come back";
}

TEST_F(file_io, OnlyMembersThatHaveChangedAreReadAgain) {
    std::filesystem::create_directory(path("d"));
    for (std::string name : {"a.c", "b.c", "c.c"})
        put("d/" + name, name + "\n");
    usleep(30'000); /* so that they count as settled */
    llconf_item *lli = lines("d", " dir: /d\n pattern: *.c\n");
    const auto source = [lli](const char *name) {
        return cnfnode_source(find_node(lli->cn_root->first_child, name));
    };
    const uint64_t before[] = {source("a.c"), source("b.c"), source("c.c")};
    put("d/b.c", "edited\n");
    EXPECT_EQ(eval("llset('d', 'c.c/line', 'lost')"), "1");
    trns_revert_ctx(g_trns_ctx);
    EXPECT_EQ(source("a.c"), before[0]);
    EXPECT_TRUE(source("b.c") != before[1] && source("c.c") != before[2]);
    EXPECT_EQ(eval("list(llget('d', 'a.c/line'), llget('d', 'b.c/line'), llget('d', 'c.c/line'))"),
              "a.c edited c.c");
    EXPECT_EQ(lli->is_dirty, 0);
}

TEST_F(file_io, NoMemberGoesBehindAFailedWriteNorComesBeforeOneThatCannotGo) {
    std::filesystem::create_directories(path("d/m.c.ucfgd-tmp"));
    for (std::string name : {"a.c", "b.c"})
        put("d/" + name, name + "\n");
    llconf_item *lli = lines("d", " dir: /d\n pattern: *.c\n");
    EXPECT_EQ(eval("llset('d', 'a.c/line', 'new') .. llrename('d', 'b.c', 'm.c')"), "11");
    EXPECT_NE(llconf_write_cnftree(lli), 0);
    EXPECT_EQ(get("d/a.c") + get("d/b.c"), "a.c\nb.c\n");
    std::filesystem::remove(path("d/m.c.ucfgd-tmp"));
    std::filesystem::remove(path("d/b.c"));
    std::filesystem::create_directory(path("d/b.c"));
    lli->is_dirty = 1;
    EXPECT_NE(llconf_write_cnftree(lli), 0);
    EXPECT_EQ(unlogged({"looking at /d/b.c failed: Is a directory"}), "");
    EXPECT_EQ(get("d/m.c"), "");
}

TEST_F(file_io, ADirectoryWhosePathIsCutIsNeverWritten) {
    std::string deep = "d/" + std::string(250 - root.size(), 'x');
    std::filesystem::create_directories(path(deep));
    put(deep + "/file.conf", "a\n");
    EXPECT_NE(write_line(lines("d", " dir: " + deep + "\n pattern: *.conf\n"), "b"), 0);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(get(deep + "/file.conf"), "a\n");
}

TEST_F(file_io, CommandsAreReadAndWrittenAndStayDirty) {
    llconf_item *lli = lines("c", " pipe-in: echo one\n pipe-out: cat >" + path("out") + "\n");
    EXPECT_EQ(eval("llget('c', 'line')"), "one");
    EXPECT_EQ(write_line(lli, "two"), 0);
    EXPECT_EQ(get("out"), "two\n");
    EXPECT_EQ(lli->is_dirty, 1);
    llconf_item *failing = lines("f", " pipe-in: echo one\n pipe-out: exit 3\n");
    EXPECT_NE(write_line(failing, std::string(200000, 'x')), 0);
    EXPECT_EQ(unlogged({"piping to exit 3 failed: "}), "");
    cnfnode_setval(lli->cn_root->first_child, "two\nlines");
    EXPECT_NE(llconf_write_cnftree(lli), 0);
    EXPECT_EQ(get("out"), "two\n") << "a command is not fed with what cannot be written";
}

TEST_F(file_io, ACommandThatFailsIsNoEmptySourceAndItsOppositeIsNotFedWithOne) {
    const struct {
        const char *command, *flags, *report;
        bool is_written;
    } rows[] = {{"exit 3", "", " failed: exit status 3 and no output", false},
                {"echo a; nosuchcommand", "", " failed: exit status 127", false},
                {"echo a; kill -9 $$", " flags: create\n", " failed: signal 9", false},
                {"sleep 60", " flags: create\n", " failed: Timer expired", false},
                {"exit 3", " flags: create\n", " failed: exit status 3 and no output", true},
                {"echo a; exit 3", "", ": exit status 3, its output is taken", true}};
    limit_set(k_limit_command_time, 1);
    for (const auto &row : rows) {
        put("out", "kept\n");
        std::string name = "c" + std::to_string(&row - rows);
        llconf_item *lli = lines(name, std::string(" pipe-in: ") + row.command +
                                           "\n pipe-out: cat >" + path("out") + "\n" + row.flags);
        EXPECT_EQ(unlogged({std::string(row.command) + row.report + "\n"}), "");
        EXPECT_EQ(write_line(lli, "b") == 0, row.is_written) << name;
        EXPECT_EQ(get("out"), row.is_written ? "b\n" : "kept\n") << name;
    }
    limit_set(k_limit_command_time, 10);
}

TEST_F(file_io, ACommandWithDependsRunsWhenItIsReadAndAgainOnceAFileHasChanged) {
    put("a.conf", "one\n");
    llconf_item *lli =
        lines("e", " module: keyvalue\n depends: ?.conf\n pipe-in: echo >>" + path("runs") +
                       "; cd " + root + "; echo depends /told; echo value $(cat ?.conf told)\n");
    EXPECT_EQ(get("runs"), "") << "nobody has asked yet";
    /* The first run tells of a file that nobody had looked at before: once more, then. */
    const struct {
        const char *file, *text, *value, *runs;
    } rows[] = {{"told", "x\n", "one x", "1"},
                {"", "", "one x", "2"},
                {"", "", "one x", "2"},
                {"told", "yy\n", "one yy", "3"},
                {"b.conf", "b\n", "one b yy", "4"}};
    for (const auto &row : rows) {
        if (*row.file) put(row.file, row.text);
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        EXPECT_EQ(llconf_revert_cnftree(lli), 0);
        for (int i = 0; i < 2; i++)
            EXPECT_EQ(eval("llget('e', 'value')"), row.value);
        EXPECT_EQ(std::to_string(get("runs").size()), row.runs) << row.value;
    }
    EXPECT_EQ(write_line(lli, "b"), 0) << "it is only read";
}

TEST_F(file_io, HooksRunAroundReadingAndWritingAndTwiceAfterACommandIsRead) {
    std::string hooks;
    for (std::string name : {"pre-read", "post-read", "pre-commit", "post-commit"})
        hooks += " " + name + ": lladd('log', '', '" + name + "')\n";
    put("f", "a\n");
    modules("log {\n module: virtual\n}\n");
    llconf_item *file = lines("f", " file: f\n flags: readonly\n" + hooks);
    lines("c", " pipe-in: cat\n pipe-out: true\n" + hooks);
    llconf_write_cnftree(file);
    EXPECT_EQ(eval("lllist('log', '')"), "pre-read post-read pre-read post-read post-read");
    llconf_install_cnftree(item("log"), create_cnfnode("(root)"));
    EXPECT_EQ(write_line(file, "b"), 0);
    EXPECT_EQ(eval("lllist('log', '')"), "pre-commit post-commit");
    EXPECT_EQ(get("f"), "a\n");
}

}  // namespace
