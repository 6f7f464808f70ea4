#include <libdaemon/dlog.h>
#include <stdio.h>
#include <sys/wait.h>
#include <tavevent/tavevent.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "backend/command.h"
#include "daemon/log.h"
#include "functions/line_splitter.h"
#include "functions/llmisc.h"

/* Functions that run programs or speak to the world. */

namespace {

fe_node *fail_overrun(const char *command) {
    return fe_fail(ETIME, command, "not run, since an earlier one took too long");
}

}  // namespace

/* A command that cannot be found or started by the shell is one that fails, too; only one that
 * could not be run at all, or not to its end, makes the call fail. */
fe_node *llmisc_system(const call_arguments &arguments) {
    if (command_request_overran()) return fail_overrun(arguments[0]);
    const std::string_view input{arguments[1]};
    const command_end end = run_command(arguments[0], {arguments.count() == 2 ? &input : nullptr});
    if (end.error == 0 || end.error == ENOENT || end.error == EACCES) return truth_node(end.well());
    return fe_fail(end.error, arguments[0], "%s", end.text().data());
}

/* The lines count whatever the exit status is: that of a search without a match, for one. */
fe_node *llmisc_readlinespipe(const call_arguments &arguments) {
    if (command_request_overran()) return fail_overrun(arguments[0]);
    std::string output;
    const command_end end = run_command(arguments[0], {nullptr, &output});
    if (end.error == 0 && !end.ran())
        daemon_log(LOG_WARNING, "readlinespipe: command '%s': %s", arguments[0], end.text().data());
    if (end.error != 0 || WIFSIGNALED(end.status))
        return fe_fail(end.error != 0 ? end.error : EIO, arguments[0], "%s", end.text().data());
    node_list lines;
    line_splitter splitter{lines};
    splitter.take(output);
    splitter.finish();
    return lines.release();
}

/* What an action prints is for its client, who gets all of it, however slowly he reads. In the
 * daemon itself it is a line of the log, which waits for nobody. */
fe_node *llmisc_print(const call_arguments &arguments) {
    std::string lines;
    for (const fe_node *text = arguments.first(); text != nullptr; text = text->next)
        lines.append(text->text).append(1, '\n');
    if (!command_may_wait()) {
        log_text(STDOUT_FILENO, lines.data(), lines.size());
        return truth_node(true);
    }
    fputs(lines.c_str(), stdout);
    return truth_node(fflush(stdout) == 0);
}

fe_node *llmisc_writeevt(const call_arguments &arguments) {
    std::vector<const char *> texts;
    for (const fe_node *text = arguments.first(); text != nullptr; text = text->next)
        texts.push_back(text->text);
    long number = 0;
    errno_guard keep;
    if (!read_whole_number(texts[0], number) || number != static_cast<int>(number)) {
        fe_fail(EINVAL, texts[0], "no number of an event");
        return truth_node(false);
    }
    return truth_node(
        writeevt_list(static_cast<int>(number), texts[1], texts.size() - 2, texts.data() + 2) == 0);
}
