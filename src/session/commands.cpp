/* The command table.
 *
 * How to add a command:
 *
 *  1. Write its handler, int session_process_WORD(ccd_session *, const char *id, const char *args),
 *     in the file it belongs to and declare it in that file's header. It checks permission first,
 *     ends its reply with one line of OK, NO, BAD, ERR or INUSE, and returns 0.
 *  2. Add its row below: the word in upper case, the handler, whether it needs a login, whether it
 *     gets the rest of the line, and one line of help.
 *  3. Add it to docs/protocol.md; a test holds the two lists against each other.
 *  4. Build. A word that is not made of letters, or that stands there twice, does not compile.
 */
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>

#include "backend/command.h"
#include "session/change.h"
#include "session/chars.h"
#include "session/commit.h"
#include "session/input.h"
#include "session/login.h"
#include "session/protocol.h"
#include "session/query.h"
#include "tree/param_error.h"

namespace {

template <int (*handler)(ccd_session *, const char *, const char *, int), int option>
int with_option(ccd_session *session, const char *id, const char *args) {
    return handler(session, id, args, option);
}

constexpr session_command k_commands[] = {
    {"NOOP", session_process_noop, 0, 0, "does nothing, and keeps the session alive"},
    {"LOGIN", with_option<session_process_login, 0>, 0, 1, "user password: logs in"},
    {"LOGINFORCE", with_option<session_process_login, 1>, 0, 1,
     "user password: logs in and logs other writers out"},
    {"RESUME", session_process_resume, 0, 1,
     "session: goes on with a session that lost its "
     "connection"},
    {"LOGOUT", session_process_logout, 1, 0, "ends the session"},
    {"DIRTY", session_process_dirty, 1, 0, "tells whether there are uncommitted changes"},
    {"GET", session_process_get, 1, 1, "path: the value of a parameter"},
    {"SET", session_process_set, 1, 1, "path value: changes a parameter"},
    {"ADD", session_process_add, 1, 1, "path name: adds a list entry"},
    {"DEL", session_process_del, 1, 1, "path name: deletes a list entry"},
    {"MOVE", session_process_move, 1, 1, "path name where: moves a list entry"},
    {"SUBMIT", session_process_submit, 1, 1, "applies the collected changes, all or none"},
    {"LIST", with_option<session_process_list, 0>, 1, 1, "[path]: the names below a node"},
    {"LISTR", with_option<session_process_list, 1>, 1, 1, "[path]: everything below a node"},
    {"MLIST", with_option<session_process_mlist, 0>, 1, 1,
     "[path]: the names below a management node"},
    {"MLISTR", with_option<session_process_mlist, 1>, 1, 1,
     "[path]: everything below a management node"},
    {"HELP", session_process_help, 1, 1, "[path]: the help text of a parameter"},
    {"ATTR", session_process_attr, 1, 1, "path: the attributes of a parameter"},
    {"MATTR", session_process_mattr, 1, 1, "path: the attributes of a management node"},
    {"ACCESS", session_process_access, 1, 1,
     "path letters [argument ...]: what the access method of a parameter says"},
    {"MACCESS", session_process_maccess, 1, 1,
     "path letters [argument ...]: what the access method of a management node says"},
    {"REVERT", session_process_revert, 1, 0, "drops the uncommitted changes"},
    {"UPDATE", session_process_update, 1, 0, "takes over what others have committed"},
    {"COMMIT", session_process_commit, 1, 0, "writes the changes to the files"},
    {"ADMIN", session_process_admin, 1, 1, "path [argument ...]: runs a management action"},
    {"INFO", session_process_info, 1, 1, "path [argument ...]: the text of a management node"},
    {"CURRENT", session_process_current, 1, 0, "tells whether others have committed meanwhile"},
};

constexpr size_t k_slots = 64;
constexpr uint8_t k_no_command = 255;
constexpr ptrdiff_t k_longest_word = 255; /* from here on it is no command, logged in or not */

constexpr uint32_t add_to_hash(uint32_t hash, char c) {
    return (hash ^ static_cast<unsigned char>(c)) * 16777619U;
}

constexpr size_t slot_of(uint32_t hash) {
    return (hash >> 16) % k_slots;
}

constexpr size_t slot_of(std::string_view word, uint32_t seed) {
    uint32_t hash = seed;
    for (char c : word)
        hash = add_to_hash(hash, c);
    return slot_of(hash);
}

struct command_index {
    uint32_t seed;
    std::array<uint8_t, k_slots> row;
};

/* Looks for a seed that gives every word a slot of its own, so that a look-up is one comparison. */
constexpr command_index build_index() {
    for (uint32_t seed = 1; seed < 100000; ++seed) {
        command_index index{seed, {}};
        index.row.fill(k_no_command);
        bool collides = false;
        for (size_t i = 0; i < std::size(k_commands) && !collides; ++i) {
            uint8_t &row = index.row[slot_of(k_commands[i].word, seed)];
            collides = row != k_no_command;
            row = static_cast<uint8_t>(i);
        }
        if (!collides) return index;
    }
    return {0, {}};
}

constexpr bool words_are_upper_case_letters() {
    for (const session_command &command : k_commands) {
        const std::string_view word = command.word;
        if (word.empty() || !command.help) return false;
        for (char c : word) {
            if (capital(c) != c || c == '\0') return false;
        }
    }
    return true;
}

constexpr command_index k_index = build_index();
static_assert(k_index.seed != 0, "a word stands in the table twice");
static_assert(words_are_upper_case_letters());

constexpr session_command k_unknown = {"", session_process_invalid, 1, 1, ""};

/* The command whose word stands at the start of the text; *rest: behind the letters there. A
 * command without a word when there is none. */
const session_command &find_command(const char *text, const char **rest) {
    uint32_t hash = k_index.seed;
    const char *end = text;
    for (; capital(*end) != '\0'; ++end)
        hash = add_to_hash(hash, capital(*end));
    *rest = end;
    const uint8_t row = k_index.row[slot_of(hash)];
    if (row == k_no_command) return k_unknown;
    const char *word = k_commands[row].word;
    while (text < end && capital(*text) == *word) {
        ++text;
        ++word;
    }
    return text == end && *word == '\0' ? k_commands[row] : k_unknown;
}

}  // namespace

const session_command *session_commands(size_t *count) {
    *count = std::size(k_commands);
    return k_commands;
}

int session_process_command(ccd_session *session, const char *id, const char *cmdline) {
    if (session->state == k_session_logout) {
        session_writef_logout_reason(session, id);
        return -1;
    }
    const char *text = skip_blanks(cmdline + strlen(id));
    const char *rest = nullptr;
    const session_command &command = find_command(text, &rest);
    if (rest - text >= k_longest_word) return session_process_invalid(session, id, "");
    const char *args = command.takes_args ? skip_blanks(rest) : "";
    if (command.needs_login && session->state != k_session_logged) {
        return session_process_notlogged(session, id, args);
    }
    /* What a request has to say belongs to that request alone. */
    ccd_clear_error();
    errno = 0; /* nor does the shortage of memory that an earlier one met */
    const command_request commands;
    const int result = command.handler(session, id, args);
    ccd_clear_error();
    return result;
}

int session_is_login(const char *text) {
    while (is_tag_char(*text))
        ++text;
    if (*text != ' ') return 0;
    const char *rest = nullptr;
    return strncmp(find_command(skip_blanks(text), &rest).word, "LOGIN", 5) == 0;
}

int session_process_notimplemented(ccd_session *session, const char *id, const char *) {
    session_writef(session, "%s ERR not (yet) implemented\n", id);
    return 0;
}

int session_process_invalid(ccd_session *session, const char *id, const char *) {
    session_writef(session, "%s BAD invalid command\n", id);
    return 0;
}

int session_process_notlogged(ccd_session *session, const char *id, const char *) {
    session_writef(session, "%s NO login required\n", id);
    return 0;
}
