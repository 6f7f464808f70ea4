/* Commands from a file or from standard input. */
#ifndef UCFGSH_SCRIPT_H
#define UCFGSH_SCRIPT_H

#include <istream>
#include <string>

#include "ucfgsh/commands.h"

namespace ucfgsh {

/* The lines of a stream, numbered. A backslash at the end of a line joins the next one to it. */
class script_source : public line_source {
  public:
    script_source(std::istream &in, std::string name) : in_(in), name_(std::move(name)) {}
    bool next(std::string &line, const std::string &prompt) override;

    /* "NAME:LINE: " of the line that next() gave last; of a joined one its first. */
    std::string place() const;
    const std::string &name() const { return name_; }
    unsigned long line() const { return first_; }
    bool too_long() const { return too_long_; }

  private:
    bool physical_line(std::string &line);

    std::istream &in_;
    std::string name_;
    unsigned long count_ = 0, first_ = 0;
    bool too_long_ = false;
};

/* Runs the commands; stops at the first failure, unless told to go on. Returns the status of the
 * first failure. */
int run_script(shell &sh, script_source &source);

/* The same for a file; "-" is standard input. */
int run_script_file(shell &sh, const std::string &name);

}  // namespace ucfgsh

#endif
