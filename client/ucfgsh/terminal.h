/* What the program asks of a terminal besides line editing. */
#ifndef UCFGSH_TERMINAL_H
#define UCFGSH_TERMINAL_H

#include <csignal>
#include <optional>
#include <string>
#include <string_view>

namespace ucfgsh {

/* Asks on the controlling terminal without showing what is typed. Nothing when there is none, or
 * at its end of file. */
std::optional<std::string> ask_password(const std::string &prompt);

/* The first line of a file. Nothing, with a reason, when it cannot be read. */
std::optional<std::string> read_password_file(const std::string &path, std::string &reason);

/* Rows and columns of standard output's terminal; 24 and 80 when it is none. */
int terminal_rows();
int terminal_columns();

/* The text with control characters made visible, except newlines and tabs: nothing that a file or
 * a peer says may steer the terminal. */
std::string printable(std::string_view text);

/* Raised by Ctrl-C while a command runs, once catch_interrupts() was called. */
extern volatile sig_atomic_t g_interrupted;
void catch_interrupts();

}  // namespace ucfgsh

#endif
