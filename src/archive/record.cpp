#include "archive/record.h"

#include <errno.h>
#include <stdio.h>

#include <charconv>
#include <iterator>
#include <new>
#include <string_view>

#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "ucfgd/owners.h"

namespace {

constexpr char k_record_name[] = "/record";
constexpr const char *k_states[] = {"open", "done", "trial", "undone", "failed"};
constexpr const char *k_kinds[] = {"absent", "file", "link"};
constexpr char k_time_format[] = "%Y-%m-%dT%H:%M:%SZ";

using owned_tree = owned<cnfnode, destroy_cnftree>;

const cnfmodule *syntax() {
    register_all();
    return find_cnfmodule("tavconf");
}

/* Writing: a node below parent; whoever is short of memory is told by an exception, since a record
 * with a gap is worse than none. */
cnfnode *add_section(cnfnode *parent, const char *name) {
    owned_tree node{create_cnfnode(name)};
    if (!node || append_node(parent, node.get()) != 0) throw std::bad_alloc{};
    return node.release();
}

void add_text(cnfnode *parent, const char *name, const std::string &value) {
    if (cnfnode_setval(add_section(parent, name), value.c_str()) != 0) throw std::bad_alloc{};
}

void add_optional(cnfnode *parent, const char *name, const std::string &value) {
    if (!value.empty()) add_text(parent, name, value);
}

template <class number>
void add_number(cnfnode *parent, const char *name, number value) {
    add_text(parent, name, std::to_string(value));
}

std::string time_text(time_t time) {
    char text[32] = "";
    struct tm parts {};
    if (gmtime_r(&time, &parts)) strftime(text, sizeof text, k_time_format, &parts);
    return text;
}

void add_file_state(cnfnode *parent, const char *name, const file_state &state) {
    cnfnode *node = add_section(parent, name);
    add_text(node, "kind:", k_kinds[static_cast<int>(state.kind)]);
    if (state.kind == file_kind::absent) return;
    char mode[16];
    snprintf(mode, sizeof mode, "%04o", static_cast<unsigned int>(state.mode));
    add_text(node, "mode:", mode);
    add_number(node, "uid:", state.uid);
    add_number(node, "gid:", state.gid);
    add_text(node, "sha256:", state.digest);
}

void add_file(cnfnode *parent, const archived_file &file) {
    cnfnode *node = add_section(parent, "file");
    add_text(node, "module:", file.module);
    add_optional(node, "path:", file.path);
    add_text(node, "change:", change_text(file));
    add_file_state(node, "before", file.before);
    add_file_state(node, "after", file.after);
}

void add_note(cnfnode *parent, const commit_note &note) {
    cnfnode *node = add_section(parent, "note");
    add_text(node, "what:", note.what);
    add_text(node, "status:", note.status);
    add_optional(node, "text:", note.text);
}

owned_tree tree_of(const commit_record &record) {
    owned_tree root{create_cnfnode("(root)")};
    if (!root) throw std::bad_alloc{};
    add_number(root.get(), "number:", record.number);
    add_text(root.get(), "state:", state_text(record.state));
    add_text(root.get(), "time:", time_text(record.time));
    add_text(root.get(), "user:", record.user);
    add_optional(root.get(), "listener:", record.listener);
    add_optional(root.get(), "peer:", record.peer);
    add_optional(root.get(), "session:", record.session);
    add_optional(root.get(), "comment:", record.comment);
    if (record.trial_seconds > 0) {
        cnfnode *trial = add_section(root.get(), "trial");
        add_number(trial, "seconds:", record.trial_seconds);
        add_number(trial, "end:", record.trial_end);
        add_text(trial, "boot:", record.trial_boot);
    }
    for (const archived_file &file : record.files)
        add_file(root.get(), file);
    for (const commit_note &note : record.notes)
        add_note(root.get(), note);
    return root;
}

/* Reading: what is missing is the empty text. */
std::string text_of(const cnfnode *parent, const char *name) {
    const cnfnode *node = parent ? find_node(parent->first_child, name) : nullptr;
    const char *value = node ? cnfnode_getval(node) : nullptr;
    return value ? value : "";
}

template <class number>
bool read_number(const cnfnode *parent, const char *name, number &value, int base = 10) {
    const std::string text = text_of(parent, name);
    const char *end = text.data() + text.size();
    auto [stop, error] = std::from_chars(text.data(), end, value, base);
    return error == std::errc{} && stop == end;
}

template <size_t count>
int index_in(const char *const (&names)[count], std::string_view text) {
    for (size_t i = 0; i < count; i++)
        if (text == names[i]) return static_cast<int>(i);
    return -1;
}

bool read_file_state(const cnfnode *parent, const char *name, file_state &state) {
    const cnfnode *node = find_node(parent->first_child, name);
    int kind = index_in(k_kinds, text_of(node, "kind:"));
    if (kind < 0) return false;
    state.kind = static_cast<file_kind>(kind);
    if (state.kind == file_kind::absent) return true;
    state.digest = text_of(node, "sha256:");
    return !state.digest.empty() && read_number(node, "mode:", state.mode, 8) &&
           read_number(node, "uid:", state.uid) && read_number(node, "gid:", state.gid);
}

bool read_file(const cnfnode *node, commit_record &record) {
    archived_file &file = record.files.emplace_back();
    file.module = text_of(node, "module:");
    file.path = text_of(node, "path:");
    return read_file_state(node, "before", file.before) &&
           read_file_state(node, "after", file.after);
}

bool read_note(const cnfnode *node, commit_record &record) {
    record.notes.push_back(
        {text_of(node, "what:"), text_of(node, "status:"), text_of(node, "text:")});
    return true;
}

bool read_trial(const cnfnode *node, commit_record &record) {
    record.trial_boot = text_of(node, "boot:");
    return read_number(node, "seconds:", record.trial_seconds) &&
           read_number(node, "end:", record.trial_end);
}

struct section_reader {
    const char *name;
    bool (*read)(const cnfnode *node, commit_record &record);
};

constexpr section_reader k_sections[] = {
    {"file", read_file}, {"note", read_note}, {"trial", read_trial}};

bool read_sections(const cnfnode *root, commit_record &record) {
    for (const cnfnode *node = root->first_child; node; node = node->next)
        for (const section_reader &section : k_sections)
            if (std::string_view{cnfnode_getname(node)} == section.name &&
                !section.read(node, record))
                return false;
    return true;
}

bool read_tree(const cnfnode *root, commit_record &record) {
    record = {};
    record.user = text_of(root, "user:");
    record.listener = text_of(root, "listener:");
    record.peer = text_of(root, "peer:");
    record.session = text_of(root, "session:");
    record.comment = text_of(root, "comment:");
    struct tm parts {};
    const std::string time = text_of(root, "time:");
    if (!strptime(time.c_str(), k_time_format, &parts)) return false;
    record.time = timegm(&parts);
    return read_number(root, "number:", record.number) &&
           read_state_text(text_of(root, "state:"), record.state) == 0 &&
           read_sections(root, record);
}

}  // namespace

const char *state_text(commit_state state) {
    return k_states[static_cast<int>(state)];
}

int read_state_text(const std::string &text, commit_state &state) {
    int index = index_in(k_states, text);
    if (index < 0) {
        errno = EINVAL;
        return -1;
    }
    state = static_cast<commit_state>(index);
    return 0;
}

const char *change_text(const archived_file &file) {
    if (file.before.kind == file_kind::absent) return "created";
    return file.after.kind == file_kind::absent ? "removed" : "replaced";
}

std::string attribute_changes(const std::string &name, const file_state &before,
                              const file_state &after) {
    if (before.kind == file_kind::absent && after.kind == file_kind::regular)
        return "# created: " + name + "\n";
    if (before.kind != file_kind::regular) return {};
    if (after.kind == file_kind::absent) return "# removed: " + name + "\n";
    if (after.kind != file_kind::regular) return {};
    const auto mode = [](const file_state &state) {
        char text[16];
        return std::string{
            text, static_cast<size_t>(snprintf(text, sizeof text, "%04o", unsigned{state.mode}))};
    };
    const auto owner = [](const file_state &state) {
        return std::to_string(state.uid) + ":" + std::to_string(state.gid);
    };
    std::string lines;
    if (before.mode != after.mode)
        lines += "# mode of " + name + ": " + mode(before) + " -> " + mode(after) + "\n";
    if (before.uid != after.uid || before.gid != after.gid)
        lines += "# owner of " + name + ": " + owner(before) + " -> " + owner(after) + "\n";
    return lines;
}

int read_record(const std::string &folder, commit_record &record) {
    owned_tree root{cnfmodule_parse_file(syntax(), (folder + k_record_name).c_str())};
    if (!root) return -1;
    if (read_tree(root.get(), record)) return 0;
    errno = EINVAL;
    return -1;
}

int write_record(const std::string &folder, const commit_record &record) {
    owned_tree root = tree_of(record);
    size_t length = 0;
    owned_str text{cnfmodule_unparse_text(syntax(), root.get(), &length)};
    if (!text || write_whole(folder + k_record_name, {text.get(), length}) != 0) return -1;
    return sync_directory(folder);
}

std::string before_name(const std::string &folder, size_t index) {
    return folder + "/" + std::to_string(index + 1) + ".before";
}

std::string after_name(const std::string &folder, size_t index) {
    return folder + "/" + std::to_string(index + 1) + ".after";
}
