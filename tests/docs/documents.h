#ifndef TESTS_DOCUMENTS_H
#define TESTS_DOCUMENTS_H

#include <string>
#include <string_view>
#include <vector>

#include "daemon_fixture.h"

/* The examples of the documents, as they stand there.
 *
 * In Markdown a code block says what it is behind its fence; in a manual page a comment in front of
 * the literal display does:
 *
 *     ```conf file=/etc/x    .\" file=/etc/x    the text is that file's
 *     ```console             .\" console        "$ COMMAND", and what it prints; "..." is anything
 *     ```conf ```tree        .\" parse          the daemon's syntax: it must parse
 */
struct example {
    std::string kind;
    std::string file;
    std::string text;
};

std::vector<example> examples_of(const std::string &document);

/* Whether a text is the expected one, where a line "..." stands for any lines. */
bool fits(std::string_view text, std::string_view expected);

/* A copy of the sample appliance, on which a document is followed as its reader would. */
class document_test : public daemon_test {
  protected:
    void prepare() override;

    /* Lays down the files and runs the commands of a document, in order. */
    void follow(const std::string &document);
    /* A command in the shell, in the directory of relative files, and all that it prints. The
     * programs are those of this build, and talk to the daemon under test. */
    std::string shell(std::string command) const;
    void run_console(const std::string &text);

    /* SIGHUP, up to the end of what it asks for. */
    void reload();

  private:
    void restart();
};

#endif
