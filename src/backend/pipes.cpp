/* Module instances whose source is a pair of commands: one that prints what is read, and one that
 * takes what is written. */

#include <errno.h>
#include <libdaemon/dlog.h>
#include <sys/wait.h>

#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "backend/command.h"
#include "backend/command_source.h"
#include "backend/file_io.h"
#include "backend/items.h"
#include "backend/prepared.h"
#include "backend/write_parts.h"
#include "llconf/modules.h"
#include "ucfgd/owners.h"

namespace {

/* 0 when what the command has printed is its answer, else an errno. One that prints nothing and
 * says that it has failed has no answer, which is not an empty one: that would be written back. */
int judge_output(const char *command, const command_end &end, bool printed) {
    if (end.well()) return 0;
    if (end.error == ECHILD) {
        daemon_log(LOG_ERR, "pclose %s failed: %s\n", command, end.text().data());
        return ECHILD;
    }
    if (end.error != 0 && end.error != ETIME && end.error != EFBIG) {
        daemon_log(LOG_ERR, "popen %s failed: %s\n", command, end.text().data());
        return end.error;
    }
    if (end.ran() && printed) {
        daemon_log(LOG_WARNING, "reading from %s: %s, its output is taken", command,
                   end.text().data());
        return 0;
    }
    daemon_log(LOG_ERR, "reading from %s failed: %s%s", command, end.text().data(),
               end.ran() ? " and no output" : "");
    if (end.error != 0) return end.error;
    return end.ran() ? ENOENT : EIO;
}

int fail_piping(const char *command, const char *text, int reason) {
    daemon_log(LOG_ERR, "piping to %s failed: %s", command, text);
    errno = reason;
    return -1;
}

}  // namespace

cnfnode *llconf_parse_pipe_in(llconf_item *lli, const char *command) {
    run_hook(lli, &llconf_item::func_pre_read);
    std::string text;
    const command_end end = run_command(command, {nullptr, &text});
    return parse_output(lli, command, end, text);
}

cnfnode *parse_output(llconf_item *lli, const char *command, const command_end &end,
                      const std::string &text) {
    int reason = judge_output(command, end, !text.empty());
    cnfnode *tree = nullptr;
    if (reason == 0) {
        tree = cnfmodule_parse_text(lli->module, nullptr, text.data(), text.size());
        reason = tree ? 0 : errno;
        if (tree) {
            run_hook(lli, &llconf_item::func_post_read);
        } else {
            daemon_log(LOG_WARNING, "parsing %s failed: %s\n", command, std::strerror(reason));
            daemon_log(LOG_ERR, "%s", cnf_error_text());
        }
    }
    run_hook(lli, &llconf_item::func_post_read);
    errno = reason;
    return tree;
}

/* The command is not even started for a tree that has no text: it would take that for an empty one.
 * One that reports a failure has not taken the data. */
int llconf_write_pipe_out(const llconf_item *lli) {
    const char *command = lli->pipe_out;
    shared_text text;
    int reason = text_of_tree(lli->module, lli->cn_root, text);
    if (reason != 0) {
        fail_piping(command, std::strerror(reason), reason);
        daemon_log(LOG_ERR, "%s", cnf_error_text());
        errno = reason;
        return -1;
    }
    reason = pipe_text(command, text->view());
    if (reason == 0) return 0;
    errno = reason;
    return -1;
}

int pipe_text(const char *command, std::string_view input) {
    const command_end end = run_command(command, {&input, nullptr});
    if (end.well()) return 0;
    int reason = end.error != 0 ? end.error : EIO;
    bool ran = end.error == 0 || end.error == ETIME;
    daemon_log(LOG_ERR, ran ? "piping to %s failed: %s" : "popen %s failed: %s", command,
               end.text().data());
    return reason;
}
