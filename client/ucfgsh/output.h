/* What the program prints: text or JSON, with or without colours, through a pager when it is long
 * and somebody is reading. */
#ifndef UCFGSH_OUTPUT_H
#define UCFGSH_OUTPUT_H

#include <string>
#include <string_view>
#include <vector>

#include "ucfgsh/records.h"

namespace ucfgsh {

enum class style { plain, name, value, bad, good, faint, title };

class output {
  public:
    /* `pager` allows one; it is used for what does not fit the terminal. */
    output(bool json, bool color, bool tty, bool pager)
        : json_(json), color_(color), tty_(tty), pager_(pager) {}

    bool json() const { return json_; }
    bool tty() const { return tty_; }

    /* The text in its colour; on a terminal without what could steer it. */
    std::string paint(style look, std::string_view text) const;

    /* Text for flush(). */
    void line(std::string_view text);

    /* Prints at once, for output that arrives slowly. */
    void now(std::string_view text);

    /* In JSON a command answers with one object: its name, whether it went well, the members that
     * document() is given, and what add_error() is given. end_answer() puts it out; without a
     * begin_answer() and anything to tell it does nothing. */
    void begin_answer(std::string_view command);
    void document(owned_json members);
    void add_error(owned_json error);
    bool has_errors() const;
    void end_answer(bool ok);

    /* A line of output that arrives slowly, as an object of its own, at once. */
    void stream(const char *from, std::string_view text);

    /* Prints what was collected. False when standard output is gone. */
    bool flush();

    /* Standard error, at once. */
    void complain(std::string_view text);

  private:
    bool json_, color_, tty_, pager_;
    bool failed_ = false;
    std::string text_;
    std::string command_;
    owned_json answer_, errors_;
};

/* JSON strings and lists; bytes that are not UTF-8 become replacement characters. */
owned_json json_text(std::string_view text);
owned_json json_list(const std::vector<std::string> &items);

/* A text, or null for none. */
owned_json json_maybe(const char *text);

/* Puts a value into an object. */
void json_put(const owned_json &object, const char *key, owned_json value);

owned_json json_object_of(std::initializer_list<std::pair<const char *, std::string>> members);

}  // namespace ucfgsh

#endif
