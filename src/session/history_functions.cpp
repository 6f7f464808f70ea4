/* What the archive tells about earlier commits, and what hooks add to the one that runs. */

#include "session/history_functions.h"

#include <sys/stat.h>
#include <time.h>

#include <cerrno>
#include <string>
#include <string_view>

#include "archive/archive.h"
#include "archive/journal.h"
#include "archive/merge.h"
#include "archive/record.h"
#include "session/commit_number.h"
#include "tree/arguments.h"
#include "tree/param_error.h"
#include "tree/param_failure.h"

namespace {

/* A difference of more than this is not made while others wait. */
constexpr off_t k_quick_difference = 256 * 1024;

std::string shown_name(const archived_file &file) {
    return file.path.empty() ? "module " + file.module : file.path;
}

std::string line_of(const std::string &text) {
    return text + "\n";
}

std::string time_of(const commit_record &record) {
    struct tm parts {};
    char text[32];
    gmtime_r(&record.time, &parts);
    return {text, strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S UTC", &parts)};
}

std::string origin_of(const commit_record &record) {
    return record.listener + (record.peer.empty() ? "" : ", " + record.peer) + ", session " +
           record.session;
}

std::string files_of(const commit_record &record) {
    std::string text;
    for (const archived_file &file : record.files)
        text += line_of(std::string{change_text(file)} + " " + shown_name(file));
    return text;
}

std::string notes_of(const commit_record &record) {
    std::string text;
    for (const commit_note &note : record.notes)
        text +=
            line_of(note.what + ": " + note.status + (note.text.empty() ? "" : ": ") + note.text);
    return text;
}

off_t size_of(const std::string &name) {
    struct stat st {};
    return lstat(name.c_str(), &st) == 0 ? st.st_size : 0;
}

/* Whether the difference of a commit is made in a moment. */
bool is_quick(const commit_record &record, const std::string &folder) {
    off_t size = 0;
    for (size_t i = 0; i < record.files.size(); i++)
        size += size_of(before_name(folder, i)) + size_of(after_name(folder, i));
    return size <= k_quick_difference;
}

/* The contents of a file of the archive; an absent one has none. */
bool kept_text(const file_state &state, const std::string &name, std::string &text) {
    return state.kind == file_kind::absent || read_whole(name, text) == 0;
}

std::string label_of(const char *side, const file_state &state, const archived_file &file) {
    if (state.kind == file_kind::absent) return "/dev/null";
    return side + (file.path.empty() ? "/" + file.module : file.path);
}

/* What find_commit has found out. */
fe_node *fail_unfound() {
    return fe_fail(EINVAL, nullptr, "%s", ccd_get_error()->msg);
}

struct text_row {
    std::string_view what;
    std::string (*text)(const commit_record &record);
};

constexpr text_row k_texts[] = {
    {"time", time_of},
    {"user", [](const commit_record &record) { return record.user; }},
    {"from", origin_of},
    {"state", [](const commit_record &record) { return std::string{state_text(record.state)}; }},
    {"comment", [](const commit_record &record) { return record.comment; }},
    {"files", files_of},
    {"notes", notes_of},
};

fe_node *text_node(std::string text) {
    if (text.ends_with('\n')) text.pop_back();
    return const_node(text.c_str());
}

fe_node *fe_func_commits(fe_context * /*ctx*/, fe_node * /*call*/) {
    node_list names;
    if (!archive_is_on()) return names.release();
    const std::vector<long> numbers = archive_numbers();
    for (auto number = numbers.rbegin(); number != numbers.rend(); ++number)
        names.append(std::to_string(*number).c_str());
    return names.release();
}

fe_node *fe_func_commitfound(fe_context *ctx, fe_node *call) {
    const call_arguments args{ctx, call};
    commit_record record;
    return truth_node(find_commit(args[0], record));
}

fe_node *fe_func_commitinfo(fe_context *ctx, fe_node *call) {
    const call_arguments args{ctx, call};
    commit_record record;
    if (args.count() != 2) return fail_count(args);
    if (!find_commit(args[0], record)) return fail_unfound();
    for (const text_row &row : k_texts)
        if (row.what == args[1]) return text_node(row.text(record));
    return fe_fail(EINVAL, args[1], "nothing of that name is known of a commit");
}

/* The second argument is for an action: it may take its time. */
fe_node *fe_func_commitdifference(fe_context *ctx, fe_node *call) {
    const call_arguments args{ctx, call};
    commit_record record;
    if (!find_commit(args[0], record)) return fail_unfound();
    const std::string folder = archive_folder(record.number);
    if (args.count() < 2 && !is_quick(record, folder))
        return fe_fail(EINVAL, nullptr, "too large for INFO: ADMIN on the same node shows it");
    std::string all;
    for (size_t i = 0; i < record.files.size(); i++) {
        const archived_file &file = record.files[i];
        std::string before;
        std::string after;
        if (!kept_text(file.before, before_name(folder, i), before) ||
            !kept_text(file.after, after_name(folder, i), after))
            return fail_about(args[0]);
        std::string one;
        if (unified_diff(before, after, label_of("a", file.before, file),
                         label_of("b", file.after, file), one) != 0)
            return fail_about(args[0]);
        all += one;
        if (one.empty() ||
            (file.before.kind != file_kind::absent && file.after.kind != file_kind::absent))
            all += attribute_changes(file.path, file.before, file.after);
    }
    return text_node(all);
}

/* Before the record of the commit is there, the journal takes the notes along; where no commit runs
 * there is nothing to note. */
fe_node *fe_func_commitnote(fe_context *ctx, fe_node *call) {
    const call_arguments args{ctx, call};
    if (args.failed()) return nullptr;
    commit_note note{args[0], args[1], args[2]};
    commit_record &author = commit_author();
    if (!archive_is_on() || (author.number == 0 && author.session.empty())) return truth_node(true);
    if (author.number != 0) return truth_node(journal_note(author.number, note) == 0);
    author.notes.push_back(std::move(note));
    return truth_node(true);
}

struct native_function {
    const char *name;
    fe_function function;
};

constexpr native_function k_functions[] = {
    {"commits", guarded<fe_func_commits>},
    {"commitfound", guarded<fe_func_commitfound>},
    {"commitinfo", guarded<fe_func_commitinfo>},
    {"commitdifference", guarded<fe_func_commitdifference>},
    {"commitnote", guarded<fe_func_commitnote>},
};

}  // namespace

bool find_commit(const char *number, commit_record &record) {
    char *end = nullptr;
    const long value = std::strtol(number, &end, 10);
    if (archive_is_on() && value > 0 && number == std::to_string(value) &&
        read_record(archive_folder(value), record) == 0)
        return true;
    const std::string text =
        archive_is_on() ? "there is no commit " + std::string{number}
                        : std::string{"no archive of commits is kept: 'commits:' is not set"};
    ccd_set_error(text.c_str(), "error.commit.number");
    ccd_add_error_arg(number);
    ccd_set_failure_reason(text.c_str());
    return false;
}

fe_def *fe_register_history_functions(fe_def *list) {
    for (const native_function &function : k_functions)
        list = fe_register_func(list, function.name, function.function, nullptr);
    return list;
}
