#include "backend/directory.h"

#include <errno.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <glob.h>
#include <libdaemon/dlog.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <span>
#include <string_view>

#include "backend/file_io.h"
#include "backend/items.h"
#include "backend/others.h"
#include "backend/prepared.h"
#include "backend/write_parts.h"
#include "daemon/place.h"
#include "llconf/modules.h"

namespace {

using owned_tree = owned<cnfnode, destroy_cnftree>;

/* Members that are gone and remembered for their mode, so that a directory whose names change for
 * years does not grow without end. */
constexpr size_t k_most_gone = 256;

/* glob tells its error function no more than this. */
int g_unreadable = 0;

int note_unreadable(const char * /*path*/, int reason) {
    if (reason != ENOENT && reason != ENOTDIR) g_unreadable = reason;
    return 0;
}

/* The files below a directory that match a pattern, in glob's order. The pattern with its directory
 * has 255 characters; more is cut. */
class directory_glob {
  public:
    directory_glob(const char *directory, const char *pattern);
    directory_glob(const directory_glob &) = delete;
    directory_glob &operator=(const directory_glob &) = delete;
    ~directory_glob() { globfree(&matches_); }

    std::span<char *const> paths() const { return {matches_.gl_pathv, count_}; }
    /* 0 when all of the pattern was used and every directory could be read. Otherwise a file that
     * is not among the matches may well exist. */
    int reason() const { return reason_; }

  private:
    glob_t matches_{};
    size_t count_ = 0;
    int reason_ = 0;
};

directory_glob::directory_glob(const char *directory, const char *pattern) {
    char text[256];
    int length = std::snprintf(text, sizeof(text), "%s/%s", directory, pattern);
    matches_.gl_opendir = [](const char *path) -> void * { return place_opendir(path); };
    matches_.gl_readdir = [](void *stream) { return readdir(static_cast<DIR *>(stream)); };
    matches_.gl_closedir = [](void *stream) { closedir(static_cast<DIR *>(stream)); };
    matches_.gl_stat = place_stat;
    matches_.gl_lstat = place_lstat;
    g_unreadable = 0;
    int status = glob(text, GLOB_ALTDIRFUNC, note_unreadable, &matches_);
    if (status == 0) count_ = matches_.gl_pathc;
    reason_ = g_unreadable;
    if (status != 0 && status != GLOB_NOMATCH) reason_ = status == GLOB_NOSPACE ? ENOMEM : EIO;
    if (length < 0 || static_cast<size_t>(length) >= sizeof(text)) reason_ = ENAMETOOLONG;
}

/* What follows "directory/" in path, or null when path does not begin with that. */
const char *name_below(const char *directory, const char *path) {
    size_t length = std::strlen(directory);
    if (std::strncmp(path, directory, length) != 0 || path[length] != '/') return nullptr;
    return path + length + 1;
}

/* Its file is written under a longer one first. */
constexpr size_t k_longest_name = NAME_MAX - k_temporary_suffix.size();

/* Not empty, not absolute, no "." or ".." in it, and not too long. */
bool is_name_below(std::string_view rest) {
    while (true) {
        std::string_view component = rest.substr(0, rest.find('/'));
        if (component.empty() || component == "." || component == "..") return false;
        if (component.size() > k_longest_name) return false;
        if (component.size() == rest.size()) return true;
        rest.remove_prefix(component.size() + 1);
    }
}

/* Looks at the members of a directory, which is looked up once for all of them. */
class directory_look {
  public:
    explicit directory_look(const char *directory)
        : fd_(place_open(directory, O_PATH | O_DIRECTORY)) {}

    /* identity_at of a path whose name below the directory is that. */
    file_identity at(const char *path, const char *name) const {
        struct stat st {};
        const bool is_found = fd_ && !std::strchr(name, '/') &&
                              fstatat(fd_.get(), name, &st, AT_SYMLINK_NOFOLLOW) == 0;
        return is_found && !S_ISLNK(st.st_mode) ? identity_of(st) : identity_at(path);
    }

  private:
    unique_fd fd_;
};

/* Reads one member into a tree, and its record; null with errno. */
owned_tree read_member(const cnfmodule *module, const char *path, const char *name,
                       member_record &member) {
    file_look look;
    owned_tree tree{read_file(module, path, look)};
    const int reason = errno;
    member.attributes = {look.st.st_uid, look.st.st_gid, look.st.st_mode & 07777U};
    member.seen = seen_in(look, tree.get());
    errno = reason;
    if (tree && cnfnode_setname(tree.get(), name) != 0) tree.reset();
    return tree;
}

/* The same without reading, where the item's tree has what the file certainly still holds; else
 * null. */
owned_tree keep_member(const item_record *item, const char *name, const file_identity &now,
                       member_record &member) {
    const member_record *known = item->record ? item->record->named(name) : nullptr;
    if (!known || known->state != member_state::read || !known->seen.is_still(now)) return {};
    const cnfnode *first = item->cn_root ? item->cn_root->first_child : nullptr;
    const cnfnode *node = first ? find_node(first, name) : nullptr;
    if (!node || cnfnode_is_changed(node) || cnfnode_source(node) != known->source) return {};
    member = *known;
    return owned_tree{clone_cnftree(node)};
}

void remember_gone(const directory_record *earlier, directory_record &record) {
    if (!earlier) return;
    size_t gone = 0;
    for (const auto &[name, member] : earlier->members) {
        if (member.state == member_state::unread || gone == k_most_gone) continue;
        auto [at, is_new] = record.members.try_emplace(name, member);
        if (!is_new) continue;
        at->second.state = member_state::gone;
        at->second.source = 0;
        at->second.seen = {};
        gone++;
    }
}

}  // namespace

directory_write::directory_write(const llconf_item *lli, const directory_record *record)
    : lli_(lli), record_(record ? *record : directory_record{}) {}

int directory_write::refuse(const char *name, int reason) const {
    daemon_log(LOG_ERR, "writing to %s/%s failed: %s", lli_->file->filename, name,
               std::strerror(reason));
    refuse_file(path_of(name), reason);
    return reason;
}

std::string directory_write::path_of(const std::string &name) const {
    return directory_ + "/" + name;
}

bool directory_write::is_changed(const cnfnode *member) const {
    if (cnfnode_is_changed(member)) return true;
    const std::string *name = record_.name_of(cnfnode_source(member));
    return !name || *name != member->name;
}

/* A name that was not there when the directory was read must be free; two new files are not one
 * with the lines of both. */
int directory_write::check_new(const char *name) const {
    if (!is_member_name(lli_->pattern, name)) return refuse(name, EINVAL);
    const member_record *known = record_.named(name);
    if (known && known->state == member_state::unread) return refuse(name, EEXIST);
    struct stat st {};
    if (place_lstat(path_of(name).c_str(), &st) == 0)
        return refuse_for_others(path_of(name), "it has been added");
    return errno == ENOENT ? 0 : refuse(name, errno);
}

int directory_write::take_in(cnfnode *&member, member_record &known) {
    others_work work;
    const int reason =
        look_for_others(lli_->module, path_of(member->name), known.seen, member, work);
    if (reason != 0 || !work.now) return reason;
    if (work.merged) {
        if (cnfnode_setname(work.merged.get(), member->name) != 0 ||
            insert_node_before(member, work.merged.get()) != 0) {
            return ENOMEM;
        }
        doubt_prepared_texts();
        destroy_cnftree(member);
        member = work.merged.release();
    }
    known.seen = std::move(*work.now);
    return 0;
}

int directory_write::check(cnfnode *&member) {
    int reason = 0;
    const bool is_written = is_changed(member);
    auto known = record_.members.find(member->name);
    const bool was_read =
        known != record_.members.end() && known->second.state == member_state::read;
    if (names_.contains(member->name)) return refuse(member->name, EEXIST);
    if (is_written) reason = was_read ? take_in(member, known->second) : check_new(member->name);
    if (reason == 0) names_.insert(member->name);
    return reason;
}

bool directory_write::is_removed(const std::string &name, const member_record &member) const {
    return member.state == member_state::read && !names_.contains(name);
}

int directory_write::look_at_removed() {
    int refused = 0;
    for (auto &[name, member] : record_.members) {
        if (!is_removed(name, member)) continue;
        others_work work;
        const int reason = look_for_others(lli_->module, path_of(name), member.seen, nullptr, work);
        if (reason != 0) refused = reason;
        if (reason == 0 && work.now) member.seen = std::move(*work.now);
    }
    return refused;
}

int directory_write::write(const cnfnode *member, file_batch &batch) {
    file_attributes attributes = attributes_of(record_of(lli_), member->name);
    const std::string *origin = record_.name_of(cnfnode_source(member));
    const member_record *known = record_.named(origin ? *origin : member->name);
    if (!attributes.earlier && known && known->state != member_state::unread) {
        attributes.earlier = known->attributes;
        attributes.earlier_counts_first = origin && *origin != member->name;
    }
    const member_record *replaced = record_.named(member->name);
    const bool was_read = replaced && replaced->state == member_state::read;
    const file_identity expected = was_read ? replaced->seen.identity : file_identity{};
    return batch.write(lli_->module, path_of(member->name).c_str(), member, attributes, &expected);
}

void directory_write::note_written(const cnfnode *member) {
    uint64_t source = cnfnode_source(member);
    const std::string *origin = record_.name_of(source);
    const member_record *known = record_.named(origin ? *origin : member->name);
    owner_and_mode attributes = known ? known->attributes : owner_and_mode{};
    const file_identity written = identity_at(path_of(member->name).c_str());
    record_.members[member->name] = {
        member_state::read, source, attributes, {written, true, nullptr}};
    if (source != 0 && (!origin || !names_.contains(*origin)))
        record_.sources[source] = member->name;
}

int directory_write::look() {
    owned_str prefixed{prefix_llfilename(lli_->file->filename)};
    if (!prefixed) throw std::bad_alloc{};
    directory_ = prefixed.get();
    names_.clear();
    if (record_.blocked != 0) return refuse(lli_->pattern, record_.blocked);
    int refused = 0;
    for (cnfnode *member = lli_->cn_root->first_child; member; member = member->next) {
        int reason = check(member);
        if (reason != 0) refused = reason;
    }
    return refused != 0 ? refused : look_at_removed();
}

int directory_write::prepare(file_batch &batch) {
    const int refused = look();
    if (refused != 0) return refused;
    int failed = 0;
    for (const cnfnode *member = lli_->cn_root->first_child; member; member = member->next) {
        int reason = is_changed(member) ? write(member, batch) : 0;
        if (reason != 0) failed = reason;
    }
    for (const auto &[name, member] : record_.members)
        if (is_removed(name, member))
            batch.remove(lli_->module, path_of(name).c_str(), &member.seen.identity);
    return failed;
}

shared_record directory_write::done() {
    for (const cnfnode *member = lli_->cn_root->first_child; member; member = member->next)
        if (is_changed(member)) note_written(member);
    for (auto &[name, member] : record_.members)
        if (is_removed(name, member)) member.state = member_state::gone;
    return std::make_shared<const directory_record>(std::move(record_));
}

const member_record *directory_record::named(const std::string &name) const {
    auto found = members.find(name);
    return found == members.end() ? nullptr : &found->second;
}

const std::string *directory_record::name_of(uint64_t source) const {
    auto found = sources.find(source);
    return found == sources.end() ? nullptr : &found->second;
}

bool is_member_name(const char *pattern, const char *name) {
    return is_name_below(name) && !is_temporary_name(name) &&
           fnmatch(pattern, name, FNM_PATHNAME | FNM_PERIOD) == 0;
}

int read_directory(const item_record *item, const char *dirpath, const char *pattern,
                   owned_tree &tree, shared_record &record) {
    try {
        auto made = std::make_shared<directory_record>();
        owned_tree root{create_cnfnode("(root)")};
        directory_glob matches(dirpath, pattern);
        const directory_look look(dirpath);
        if (!root || matches.reason() == ENOMEM) return ENOMEM;
        made->blocked = matches.reason();
        for (const char *path : matches.paths()) {
            const char *name = name_below(dirpath, path);
            if (!name || is_temporary_name(name)) continue;
            member_record &member = made->members[name];
            owned_tree file = keep_member(item, name, look.at(path, name), member);
            if (!file) file = read_member(item->module, path, name, member);
            if (!file && errno == ENOMEM) return ENOMEM;
            if (!file) continue;
            if (append_node(root.get(), file.get()) != 0) return ENOMEM;
            member.state = member_state::read;
            member.source = cnfnode_source(file.release());
            made->sources[member.source] = name;
        }
        remember_gone(item->record.get(), *made);
        record = std::move(made);
        tree = std::move(root);
        return 0;
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    }
}

bool same_members(const char *dirpath, const char *pattern, const directory_record &record) {
    directory_glob matches(dirpath, pattern);
    if (record.blocked != 0 || matches.reason() != 0) return false;
    const directory_look look(dirpath);
    size_t same = 0;
    try {
        for (const char *path : matches.paths()) {
            const char *name = name_below(dirpath, path);
            if (!name || is_temporary_name(name)) continue;
            const member_record *known = record.named(name);
            if (!known || known->state != member_state::read) return false;
            if (!known->seen.is_still(look.at(path, name))) return false;
            same++;
        }
    } catch (const std::bad_alloc &) {
        return false;
    }
    for (const auto &[name, member] : record.members)
        same -= member.state == member_state::read ? 1 : 0;
    return same == 0;
}

int merge_members(const llconf_item *lli, shared_record &record) {
    directory_write writing{lli, record.get()};
    const int reason = writing.look();
    if (reason == 0) record = writing.looked();
    return reason;
}

int write_directory(const llconf_item *lli, shared_record &record) {
    directory_write writing{lli, record.get()};
    file_batch batch;
    int reason = writing.prepare(batch);
    if (reason == 0) reason = check_candidates(record_of(lli), batch, 0);
    if (reason == 0) reason = batch.install();
    batch.log_merged();
    if (reason == 0) record = writing.done();
    return reason;
}

void remove_member_temporaries(const char *dirpath, const char *pattern,
                               const directory_record *record) {
    try {
        std::string directory = std::string{dirpath} + "/";
        if (record)
            for (const auto &[name, member] : record->members)
                remove_temporary((directory + name).c_str());
        std::string left = pattern + std::string{k_temporary_suffix};
        directory_glob matches(dirpath, left.c_str());
        for (const char *path : matches.paths()) {
            std::string file{path};
            remove_temporary(file.substr(0, file.size() - k_temporary_suffix.size()).c_str());
        }
    } catch (const std::bad_alloc &) {
        return; /* the next start comes */
    }
}
