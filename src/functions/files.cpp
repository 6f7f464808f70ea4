#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "backend/file_io.h"
#include "backend/files.h"
#include "daemon/place.h"
#include "functions/line_splitter.h"
#include "functions/llmisc.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"

/* Files beside those that have a backend module. Their names go through the module files prefix;
 * the target of a symbolic link is a text like any other and does not. */

namespace {

constexpr size_t k_longest_file = 64UL << 20; /* bytes of a file that is read as lines */

/* The answer of a change: the reason is told, though the answer is only "0". */
fe_node *change_node(int result, const char *path) {
    if (result == 0) return const_node("1");
    errno_guard keep;
    fail_about(path);
    return keep.saved() == ENOMEM ? nullptr : const_node("0");
}

using stat_call = int (*)(const char *, struct stat *);

/* That a file is not there is an answer like any other; that it could not be looked at is told. */
fe_node *has_type(const char *name, stat_call look, mode_t type) {
    owned_str path{prefix_llfilename(name)};
    if (!path) return nullptr;
    const int before = errno;
    struct stat st;
    const bool found = look(path.get(), &st) == 0;
    if (!found && errno == ENOMEM) return nullptr;
    if (!found && errno != ENOENT && errno != ENOTDIR) fail_about(path.get());
    errno = before;
    return truth_node(found && (st.st_mode & S_IFMT) == type);
}

/* Opens a regular file, null with errno for anything else. Even to open a device may do something,
 * or wait; what has taken the file's place in between is not waited for at least. */
unique_fd open_regular(const char *path) {
    struct stat st;
    if (place_stat(path, &st) != 0) return unique_fd{};
    unique_fd fd;
    if (S_ISREG(st.st_mode)) {
        fd.reset(place_open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY));
        if (!fd || fstat(fd.get(), &st) < 0) return unique_fd{};
    }
    if (S_ISREG(st.st_mode)) return fd;
    errno = S_ISDIR(st.st_mode) ? EISDIR : EINVAL;
    return unique_fd{};
}

}  // namespace

fe_node *llmisc_isfile(const call_arguments &arguments) {
    return has_type(arguments[0], place_stat, S_IFREG);
}

fe_node *llmisc_issymlink(const call_arguments &arguments) {
    return has_type(arguments[0], place_lstat, S_IFLNK);
}

fe_node *llmisc_isdir(const call_arguments &arguments) {
    return has_type(arguments[0], place_stat, S_IFDIR);
}

/* Whether the owner may write it, by its mode: root may write any file, but for those of the kernel
 * the mode says what the kernel takes. */
fe_node *llmisc_iswritable(const call_arguments &arguments) {
    owned_str path{prefix_llfilename(arguments[0])};
    if (!path) return nullptr;
    errno_guard keep;
    struct stat st;
    const bool found = place_stat(path.get(), &st) == 0;
    return truth_node(found && (st.st_mode & S_IWUSR) != 0);
}

fe_node *llmisc_readlink(const call_arguments &arguments) {
    owned_str path{prefix_llfilename(arguments[0])};
    if (!path) return nullptr;
    errno_guard keep;
    std::string target;
    return const_node(place_readlink(path.get(), target) == 0 ? target.c_str() : "");
}

fe_node *llmisc_unlink(const call_arguments &arguments) {
    owned_str path{prefix_llfilename(arguments[0])};
    return path ? change_node(place_unlink(path.get()), path.get()) : nullptr;
}

fe_node *llmisc_symlink(const call_arguments &arguments) {
    owned_str path{prefix_llfilename(arguments[1])};
    return path ? change_node(place_symlink(arguments[0], path.get()), path.get()) : nullptr;
}

fe_node *llmisc_setlink(const call_arguments &arguments) {
    owned_str path{prefix_llfilename(arguments[1])};
    return path ? change_node(place_relink(arguments[0], path.get()), path.get()) : nullptr;
}

fe_node *llmisc_fnmatch(const call_arguments &arguments) {
    const int matches = fe_match_wildcards(arguments[0], arguments[1], 0);
    return matches < 0 ? nullptr : truth_node(matches == 1);
}

fe_node *llmisc_readlines(const call_arguments &arguments) {
    owned_str path{prefix_llfilename(arguments[0])};
    if (!path) return nullptr;
    unique_fd fd = open_regular(path.get());
    if (!fd) return fail_about(path.get());
    node_list lines;
    line_splitter splitter{lines};
    char chunk[4096];
    size_t total = 0;
    for (;;) {
        ssize_t n = read(fd.get(), chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return fail_about(path.get());
        if (n == 0) break;
        total += static_cast<size_t>(n);
        if (total > k_longest_file) {
            errno = EFBIG;
            return fail_about(path.get());
        }
        splitter.take({chunk, static_cast<size_t>(n)});
    }
    splitter.finish();
    return lines.release();
}

/* The parser for plain lines knows what a line can hold, and the backend how a file is replaced. */
fe_node *llmisc_writelines(const call_arguments &arguments) {
    owned_str path{prefix_llfilename(arguments[0])};
    const cnfmodule *lines = find_cnfmodule("lines");
    owned<cnfnode, destroy_cnftree> tree{create_cnfnode("(root)")};
    if (!path || !tree) return nullptr;
    if (lines == nullptr) return fe_fail(ENOENT, "lines", "no such parser");
    for (const fe_node *text = arguments.first()->next; text != nullptr; text = text->next) {
        cnfnode *line = create_cnfnode("line");
        if (line == nullptr || cnfnode_setval(line, text->text) < 0) {
            destroy_cnftree(line);
            return nullptr;
        }
        if (append_node(tree.get(), line) != 0) {
            destroy_cnftree(line);
            return nullptr;
        }
    }
    const file_attributes k_as_it_was;
    errno = replace_file(lines, path.get(), tree.get(), k_as_it_was);
    return change_node(errno == 0 ? 0 : -1, path.get());
}
