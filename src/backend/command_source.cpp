/* What a program makes of its files, without running it for nothing.
 *
 * `sshd -T` and its like tell what is in effect: defaults, files that others include, the order in
 * which they count. Such a command takes longer than everybody may wait at each log-in, and its
 * answer is the same until one of the files changes that it reads. So an instance with "depends:"
 * is neither read when it is registered nor at a log-in. A revert looks at the files; where one is
 * not what it was, the tree is out of date, and the command is started and left to run. Its end is
 * an event of the loop. Only who reads the tree before that waits for it.
 *
 *      current --revert, a file has changed--> out of date, command runs ahead
 *      out of date --its end, or a read--> current
 *
 * Files are looked at before the command runs and behind it: what changed meanwhile, or so shortly
 * before that a further change would not show in its times, is run again at the next revert. The
 * command may tell of more files than the definition knows (those that others include): the
 * values of top nodes named "depends" count like those of the field. */

#include "backend/command_source.h"

#include <errno.h>
#include <fcntl.h>
#include <glob.h>
#include <libdaemon/dlog.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "backend/command.h"
#include "backend/file_io.h"
#include "backend/ll_trns.h"
#include "daemon/dirs.h"
#include "daemon/loop.h"
#include "daemon/place.h"
#include "llconf/nodes.h"
#include "ucfgd/owners.h"

namespace {

using name_list = std::vector<std::string>;

constexpr std::string_view k_blanks = " \t";

/* The files that were there, by name, and what they were. */
struct files_look {
    std::vector<std::pair<std::string, file_identity>> files;
    bool settled = true;

    bool same_as(const files_look &other) const {
        return std::equal(files.begin(), files.end(), other.files.begin(), other.files.end(),
                          [](const auto &a, const auto &b) {
                              return a.first == b.first && same_identity(a.second, b.second);
                          });
    }
};

name_list split(std::string_view text) {
    name_list words;
    for (size_t at = 0; (at = text.find_first_not_of(k_blanks, at)) != std::string_view::npos;) {
        const size_t end = std::min(text.find_first_of(k_blanks, at), text.size());
        words.emplace_back(text.substr(at, end - at));
        at = end;
    }
    return words;
}

/* The prefix is text and no pattern. */
std::string below_prefix(const std::string &pattern) {
    std::string whole;
    for (const char *at = g_filesprefix ? g_filesprefix : ""; *at; at++) {
        if (std::strchr("*?[\\", *at)) whole += '\\';
        whole += *at;
    }
    return whole + (g_filesprefix ? "/" : "") + pattern;
}

void look_at_files(const std::string &pattern, files_look &look) {
    glob_t found{};
    if (glob(below_prefix(pattern).c_str(), 0, nullptr, &found) == 0) {
        for (size_t i = 0; i < found.gl_pathc; i++) {
            file_look one;
            if (look_at(found.gl_pathv[i], one) != 0) continue;
            look.settled = look.settled && one.settled;
            look.files.emplace_back(found.gl_pathv[i], identity_of(one.st));
        }
    }
    globfree(&found);
}

}  // namespace

class command_source {
  public:
    explicit command_source(const char *patterns) : given_(split(patterns)) {}
    command_source(const command_source &) = delete;
    command_source &operator=(const command_source &) = delete;
    ~command_source() { stop_waiting(); }

    void revert(item_record *item);
    void read(item_record *item);

  private:
    files_look look() const;
    void run_ahead(item_record *item);
    void stop_waiting();
    void take_tree(item_record *item, cnfnode *tree);
    static int ended(int fd, void *item);

    name_list given_;
    name_list told_;  /* by the command, when it was run last */
    files_look seen_; /* of the tree */
    bool is_current_ = false;
    bool is_being_read_ = false; /* hooks may read it meanwhile */
    files_look started_;         /* of the command that runs */
    std::unique_ptr<command_ahead> running_;
    fd_callback *waiting_ = nullptr; /* the loop's */
};

files_look command_source::look() const {
    files_look now;
    for (const name_list *list : {&given_, &told_})
        for (const std::string &pattern : *list)
            look_at_files(pattern, now);
    return now;
}

void command_source::revert(item_record *item) {
    const bool is_whole = item->state == tree_state::read && !item->is_dirty;
    if (is_current_ && is_whole && seen_.settled && seen_.same_as(look())) return;
    if (std::exchange(is_current_, false)) trns_note_change(); /* a read makes another tree */
    item->is_dirty = 0;
    run_ahead(item);
}

/* Once the loop runs; a child that is forked for a commit or a job has nobody who waits. What
 * cannot be started ahead is run when it is read. */
void command_source::run_ahead(item_record *item) {
    if (command_may_wait() || g_cb_list == nullptr || loop_stopping() != 0) return;
    files_look now = look();
    const bool runs = running_ && running_->is_ours() && !running_->is_late();
    if (runs && now.same_as(started_)) return;
    stop_waiting();
    started_ = std::move(now);
    running_ = command_ahead::start(item->pipe_in);
    if (!running_ || running_->descriptor() < 0) return;
    unique_fd fd{fcntl(running_->descriptor(), F_DUPFD_CLOEXEC, 0)};
    fd_callback *record =
        fd ? create_fd_callback(fd.get(), FD_CALLBACK_READ, ended, item) : nullptr;
    if (!record) return;
    if (loop_add_callback(record) != 0) {
        std::free(record);
        return;
    }
    waiting_ = record;
    static_cast<void>(fd.release()); /* the loop closes it */
}

/* A loop that has stopped has freed what was registered. */
void command_source::stop_waiting() {
    const fd_callback *record = std::exchange(waiting_, nullptr);
    for (fd_callback *at = record ? g_cb_plain : nullptr; at; at = at->next_marked)
        if (at == record) at->state = FD_CALLBACK_FINISHED;
    running_.reset();
}

int command_source::ended(int /*fd*/, void *item) {
    command_source_read(static_cast<item_record *>(item));
    return 0;
}

void command_source::read(item_record *item) {
    if (is_current_ || std::exchange(is_being_read_, true)) return;
    const std::unique_ptr<bool, void (*)(bool *)> over{&is_being_read_,
                                                       [](bool *on) { *on = false; }};
    cnfnode *tree = nullptr;
    if (running_ && running_->is_ours()) {
        std::string text;
        const command_end end = running_->finish(text);
        tree = parse_output(item, item->pipe_in, end, text);
    } else {
        started_ = look();
        tree = llconf_parse_pipe_in(item, item->pipe_in);
    }
    stop_waiting();
    take_tree(item, tree);
    is_current_ = true;
}

/* The old tree tells what is not so any more: without a new one there is none. */
void command_source::take_tree(item_record *item, cnfnode *tree) {
    const bool failed = tree == nullptr;
    if (failed) tree = create_cnfnode("(root)");
    if (!tree) throw std::bad_alloc{};
    llconf_install_cnftree(item, tree);
    item->is_dirty = 0;
    item->serial = llconf_trns_ctx_serial();
    item_enter(item, failed ? tree_event::failed : tree_event::looked);
    told_.clear();
    for (const cnfnode *node = tree->first_child; node; node = node->next)
        if (std::strcmp(node->name, "depends") == 0 && node->value) told_.emplace_back(node->value);
    seen_ = look();
    seen_.settled = seen_.settled && seen_.same_as(started_);
}

std::shared_ptr<command_source> make_command_source(const char *patterns) {
    try {
        return std::make_shared<command_source>(patterns);
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}

int command_source_revert(item_record *item) {
    errno_guard keep;
    try {
        item->source->revert(item);
        return 0;
    } catch (const std::bad_alloc &) {
        return -1;
    }
}

void command_source_read(item_record *item) {
    errno_guard keep;
    try {
        item->source->read(item);
    } catch (const std::bad_alloc &) {
        daemon_log(LOG_ERR, "module '%s': %s", item->name, std::strerror(ENOMEM));
    }
}
