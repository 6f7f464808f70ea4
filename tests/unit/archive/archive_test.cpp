#include "archive/archive.h"

#include <gtest/gtest.h>
#include <libdaemon/dlog.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "archive/journal.h"
#include "archive/put_back.h"
#include "archive/trials.h"
#include "daemon/dirs.h"
#include "daemon/loop.h"

namespace fs = std::filesystem;

namespace {

/* A root with some files and an archive beside it. */
class Archive : public testing::Test {
  protected:
    void SetUp() override {
        daemon_log_use = DAEMON_LOG_STDERR;
        std::string pattern = testing::TempDir() + "archiveXXXXXX";
        root = mkdtemp(pattern.data());
        g_filesprefix = root.data();
        put("/replaced", "old\n");
        put("/removed", "gone\n");
        fs::create_symlink("nowhere/file", root + "/link");
        fs::permissions(root + "/removed", fs::perms::owner_read);
        ASSERT_EQ(archive_configure(root + "/archive", 3, 1 << 20), 0);
    }
    void TearDown() override {
        archive_forget();
        g_filesprefix = nullptr;
        fs::remove_all(root);
    }

    void put(const std::string &name, const std::string &text) const {
        std::ofstream(root + name) << text;
    }
    std::string get(const std::string &name) const {
        if (!fs::exists(root + name)) return "(absent)";
        std::ifstream file(root + name);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static file_state regular() {
        file_state state;
        state.kind = file_kind::regular;
        state.mode = 0644;
        state.uid = getuid();
        state.gid = getgid();
        return state;
    }

    /* Changes all four names, as a commit does, and leaves the journal as it is then. */
    void commit(commit_journal &journal) const {
        const file_state file = regular();
        EXPECT_EQ(journal.add("m", "/replaced", file, "new\n"), 0);
        EXPECT_EQ(journal.add("m", "/created", file, "made\n"), 0);
        EXPECT_EQ(journal.add("m", "/link", file, "a file\n"), 0);
        EXPECT_EQ(journal.add("m", "/removed", {}, ""), 0);
        EXPECT_EQ(journal.seal(), 0);
        for (const archived_file &one : journal.record().files) {
            std::string text = one.path == "/replaced"  ? "new\n"
                               : one.path == "/created" ? "made\n"
                                                        : "a file\n";
            EXPECT_EQ(write_state(root + one.path, one.after, text), 0);
        }
    }
    void expect_old() const {
        EXPECT_EQ(get("/replaced"), "old\n");
        EXPECT_EQ(get("/removed"), "gone\n");
        EXPECT_EQ(fs::status(root + "/removed").permissions(), fs::perms::owner_read);
        EXPECT_EQ(get("/created"), "(absent)");
        EXPECT_EQ(fs::read_symlink(root + "/link"), "nowhere/file");
    }
    static commit_record author() {
        commit_record record;
        record.user = "admin";
        record.comment = "two\nlines { of: \"text\" }";
        return record;
    }

    std::string root;
};

TEST_F(Archive, TheRecordSaysWhoAndWhatAndIsReadAsItWasWritten) {
    commit_journal journal{author()};
    commit(journal);
    EXPECT_EQ(journal.finish(), 0);
    EXPECT_EQ(archive_numbers(), std::vector<long>{1});
    commit_record record;
    ASSERT_EQ(read_record(archive_folder(1), record), 0);
    EXPECT_EQ(record.state, commit_state::done);
    EXPECT_EQ(record.comment, author().comment);
    ASSERT_EQ(record.files.size(), 4u);
    EXPECT_STREQ(change_text(record.files[0]), "replaced");
    EXPECT_STREQ(change_text(record.files[1]), "created");
    EXPECT_STREQ(change_text(record.files[3]), "removed");
    EXPECT_TRUE(same_state(record.files[2].before, journal.record().files[2].before));
    EXPECT_EQ(fs::status(root + "/archive/1/record").permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(Archive, AnInterruptedCommitIsPutBackAndAFinishedOneIsNot) {
    commit_journal journal{author()};
    commit(journal);
    put("/replaced.ucfgd-tmp", "half");
    fs::create_directory(root + "/archive/2");
    EXPECT_EQ(archive_recover(0), 0);
    expect_old();
    EXPECT_EQ(get("/replaced.ucfgd-tmp"), "(absent)");
    EXPECT_EQ(archive_numbers(), std::vector<long>{1});
    commit_record record;
    ASSERT_EQ(read_record(archive_folder(1), record), 0);
    EXPECT_EQ(record.state, commit_state::failed);

    commit_journal second{author()};
    commit(second);
    EXPECT_EQ(second.finish(), 0);
    EXPECT_EQ(archive_recover(0), 0);
    EXPECT_EQ(get("/replaced"), "new\n");
}

TEST_F(Archive, WhatOthersChangedMeanwhileIsMergedOrKeptAside) {
    put("/replaced", "one\ntwo\nthree\nfour\n");
    commit_journal journal{author()};
    EXPECT_EQ(journal.add("m", "/replaced", regular(), "ONE\ntwo\nthree\nfour\n"), 0);
    EXPECT_EQ(journal.add("m", "/created", regular(), "made\n"), 0);
    EXPECT_EQ(journal.seal(), 0);
    put("/replaced", "ONE\ntwo\nthree\nFOUR\n");
    put("/created", "made by others\n");
    put_back_report report;
    EXPECT_EQ(put_back(journal.record(), report), 0);
    EXPECT_EQ(get("/replaced"), "one\ntwo\nthree\nFOUR\n");
    EXPECT_EQ(get("/created"), "made by others\n");
    EXPECT_EQ(report.merged.size() + report.kept_aside.size(), 2u);
    put("/replaced", "eins\ntwo\nthree\nfour\n");
    EXPECT_EQ(put_back(journal.record(), report), 0);
    EXPECT_EQ(get("/replaced"), "eins\ntwo\nthree\nfour\n");
    EXPECT_EQ(get("/replaced.ucfgd-1"), "one\ntwo\nthree\nfour\n");
    commit_record record = journal.record();
    EXPECT_EQ(end_commit(record, commit_state::undone), 0);
    ASSERT_EQ(read_record(archive_folder(1), record), 0);
    EXPECT_EQ(record.notes.at(1).what + record.notes[1].status + record.notes[1].text,
              "/replacedstayschanged by others meanwhile; what it was before is kept in "
              "/replaced.ucfgd-1");
    fs::remove(root + "/replaced");
    fs::create_directory(root + "/replaced");
    EXPECT_EQ(put_back(journal.record(), report), 0);
    put("/archive/1/1.before", "damaged");
    EXPECT_EQ(put_back(journal.record(), report), 0);
    EXPECT_EQ(get("/replaced.ucfgd-1"), "one\ntwo\nthree\nfour\n");

    fs::create_directory(root + "/folder");
    put("/folder/file", "old\n");
    commit_journal second{author()};
    EXPECT_EQ(second.add("m", "/folder/file", {}, ""), 0);
    EXPECT_EQ(second.seal(), 0);
    fs::remove_all(root + "/folder");
    EXPECT_EQ(put_back(second.record(), report), 0);
}

TEST_F(Archive, OldCommitsGoButNeverAnOpenOneATrialOrTheNewest) {
    for (int i = 0; i < 6; i++) {
        commit_record record = author();
        record.trial_seconds = i == 1 ? 60 : 0;
        commit_journal journal{record};
        EXPECT_EQ(journal.add("m", "/replaced", regular(), std::to_string(i)), 0);
        EXPECT_EQ(journal.seal(), 0);
        EXPECT_EQ(i == 0 ? 0 : journal.finish(), 0);
        put("/replaced", std::to_string(i));
    }
    EXPECT_EQ(archive_trim(), 0);
    EXPECT_EQ(archive_numbers(), (std::vector<long>{1, 2, 6}));
    EXPECT_EQ(fs::hard_link_count(root + "/archive/6/1.before"), 1u);
    for (char c : {'a', 'b', 'c'}) { /* of 3000 bytes each, which the next one shares */
        commit_journal journal{author()};
        const std::string text(3000, c);
        EXPECT_EQ(journal.add("m", "/replaced", regular(), text), 0);
        EXPECT_EQ(journal.seal() + journal.finish(), 0);
        put("/replaced", text);
    }
    EXPECT_EQ(fs::hard_link_count(root + "/archive/9/1.before"), 2u);
    ASSERT_EQ(archive_configure(root + "/archive", 100, 8000), 0);
    EXPECT_EQ(archive_trim(), 0);
    EXPECT_EQ(archive_numbers(), (std::vector<long>{1, 2, 9}));
    put("/archive/3", "no folder");
    fs::create_directories(root + "/archive/4/folder");
    put("/archive/4/1.after", "");
    ASSERT_EQ(archive_configure(root + "/archive", 1, 8000), 0);
    EXPECT_EQ(archive_trim(), -1);
    EXPECT_FALSE(fs::exists(root + "/archive/4/1.after"));
    EXPECT_EQ(archive_recover(0), 0); /* the first is no longer open then */
    EXPECT_EQ(archive_numbers(), (std::vector<long>{2, 3, 4, 9}));

    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    fs::remove_all(root + "/archive/1");
    setrlimit(RLIMIT_NOFILE, &none);
    long number = 0;
    EXPECT_EQ(archive_new_folder(number), -1);
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_FALSE(fs::exists(root + "/archive/1")); /* whose number would be used twice */

    fs::create_symlink("/inside", root + "/way");
    fs::create_directory(root + "/inside");
    EXPECT_EQ(archive_configure(root + "/way/to/archive/", 100, 0), 0);
    EXPECT_TRUE(fs::exists(root + "/inside/to/archive"));
    EXPECT_EQ(archive_configure(root + "/removed", 100, 0), -1);
    EXPECT_TRUE(archive_is_on());
    EXPECT_FALSE(archive_lock{0}.held());
}

int64_t g_now = 5000;

TEST_F(Archive, ATrialEndsWithItsNewestCommitAndHalfUndoneItCannotBeKept) {
    g_loop_clock = [] { return g_now; };
    put("/file60", "old");
    for (const long seconds : {60L, 10L}) {
        commit_record record = author();
        trial_begin(record, seconds);
        commit_journal journal{record};
        EXPECT_EQ(journal.add("m", "/file" + std::to_string(seconds), regular(), "new"), 0);
        EXPECT_EQ(journal.seal() + journal.finish(), 0);
        put("/file" + std::to_string(seconds), "new");
    }
    EXPECT_EQ(trial_left(), 10'000);
    g_now += 3000;
    EXPECT_EQ(trial_left(), 7000);
    EXPECT_EQ(trial_extend(20), 0);
    EXPECT_EQ(trial_left(), 20'000);
    g_now = 0; /* as behind a reboot whose boot has no name */
    EXPECT_EQ(trial_left(), 0);
    g_now = 8000;
    fs::remove(root + "/archive/1/1.after");
    fs::create_directory(root + "/archive/1/1.after"); /* cannot be read now */
    put("/file60", "others'");
    std::vector<commit_record> undone;
    EXPECT_EQ(trial_undo(undone), -1);
    EXPECT_EQ(undone.size(), 1u);
    EXPECT_EQ(get("/file10"), "(absent)");
    EXPECT_EQ(trial_left(), 0);
    EXPECT_EQ(trial_confirm(), -1);
    EXPECT_EQ(errno, EALREADY);
    EXPECT_EQ(trial_put_back_files(0), -1);
    put("/file60", "new");
    fs::remove(root + "/archive/1/1.after");
    put("/archive/1/1.after", "new");
    EXPECT_EQ(trial_undo(undone), 0);
    EXPECT_EQ(get("/file60"), "old");
    EXPECT_EQ(trial_left(), -1);
    EXPECT_EQ(trial_confirm(), -1);
    EXPECT_EQ(errno, ENOENT);
    g_loop_clock = nullptr;
}

}  // namespace
