/* What the daemon tells about commits, where it keeps an archive of them and has the nodes. */
#ifndef UCFGSH_COMMITS_H
#define UCFGSH_COMMITS_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ucfgsh/session.h"

namespace ucfgsh {

inline constexpr const char *k_history_node = "commits.history";
inline constexpr const char *k_trial_node = "commits.trial";
inline constexpr const char *k_changes_node = "commits.changes";
inline constexpr const char *k_diff_node = "commits.diff";
inline constexpr const char *k_confirm_node = "commits.confirm";
inline constexpr const char *k_cancel_node = "commits.cancel";
inline constexpr const char *k_watch_node = "commits.watch";
inline constexpr const char *k_comment_parameter = "commits.comment";
inline constexpr const char *k_trial_parameter = "commits.trial";
inline constexpr const char *k_load_parameter = "commits.load";
inline constexpr const char *k_undo_parameter = "commits.undo";

/* Whether setting the parameter is an order to the session, and no setting of the machine. */
bool is_commit_order(const std::string &path);

/* Without asking for more than what the session may see anyway; nothing is said of a failure. */
bool has_node(session &link, ucfg_tree tree, const char *path);

/* The newest first. */
std::vector<std::string> commit_numbers(session &link);

/* A line of the output of commits.changes and its like as it was meant: control characters do not
 * pass in the output of an action: "%09" stands for a tab, and "%25" for the "%" itself. */
std::string plain_output(std::string_view text);

/* Whether the next line goes on with this one, which is too long for a reply. */
bool output_goes_on(std::string_view text);

/* What "time", "user", "state", "comment", "files", "notes" or another part says; "" where that
 * cannot be had. */
std::string commit_part(session &link, const std::string &number, const char *part);

/* The seconds that are left of a commit on trial, whoever made it; nothing when there is none. */
std::optional<long> trial_left(session &link);

/* "4:05"; "1:00:00". */
std::string print_duration(long seconds);

/* The number of a commit; null when it is none. */
owned_json json_number(const std::string &number);

std::vector<std::string> split_lines(const std::string &text);

}  // namespace ucfgsh

#endif
