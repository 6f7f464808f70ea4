#ifndef UCFGD_ARCHIVE_FILE_STATE_H
#define UCFGD_ARCHIVE_FILE_STATE_H

#ifndef __cplusplus
#    error "file_state.h is for the archive's own sources and its users in C++"
#endif

#include <sys/stat.h>
#include <sys/types.h>

#include <string>
#include <string_view>

/* What stands under one name of the file system: the part that a commit changes and that putting
 * back must bring back. Names are whole paths, prefix and all, and stand for the file that
 * daemon/place finds there: what a link leads to, if it leads anywhere.
 *
 * Functions return 0, or -1 with the errno of what failed; nothing is logged. They throw
 * std::bad_alloc when memory is exhausted.
 */

class place;

enum class file_kind { absent, regular, link };

struct file_state {
    file_kind kind = file_kind::absent;
    mode_t mode = 0; /* permission bits */
    uid_t uid = 0;
    gid_t gid = 0;
    std::string digest; /* of contents or link target: SHA-256, hexadecimal; empty when absent */
};

/* Behind the name of a file stands the one of its new contents, until they take its place. */
inline constexpr std::string_view k_temporary_suffix = ".ucfgd-tmp";

/* The name of the file that a module means by path: the module files prefix stands before it. */
std::string whole_path(const std::string &path);

/* The reverse. */
std::string name_in_module(const std::string &whole_path);

/* The path of a place without any link on the way; empty with errno. */
std::string real_path(const place &at);

/* Two states of which a reader of the file cannot tell one from the other. */
bool same_state(const file_state &a, const file_state &b);

/* The digest of a text, as in file_state; empty with errno ENOMEM, or that of load_crypto. */
std::string digest_of(std::string_view text);

/* Reads what stands under path, its contents (or link target) into text, which is empty for an
 * absent one. What is neither file nor link is EINVAL (EISDIR for a directory), what is larger than
 * 256 MiB EFBIG. */
int read_state(const std::string &path, file_state &state, std::string &text);

/* The same of a name in an open folder. */
int read_state_at(int folder, const std::string &name, file_state &state, std::string &text);

/* Makes path what state and text say, by one rename, on the disk when it returns: the temporary
 * name beside it is path with ".ucfgd-tmp". An absent state removes path; a path that is absent
 * already is no error. */
int write_state(const std::string &path, const file_state &state, const std::string &text);

/* Removes the temporary file that a commit which was cut off left beside the file at path, and logs
 * it. What is neither file nor link stays, and so does everything that cannot be removed now. */
void remove_temporary(const char *path);

/* The whole of a file that is no link. */
int read_whole(const std::string &path, std::string &text);

/* A new file of the daemon's own, mode 0600, on the disk when it returns; its directory is not
 * synced. A file of that name is replaced. */
int write_whole(const std::string &path, std::string_view text);

/* Syncs a directory of that name. */
int sync_directory(const std::string &directory);

#endif
