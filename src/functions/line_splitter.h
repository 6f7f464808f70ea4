#ifndef UCFGD_FUNCTIONS_LINE_SPLITTER_H
#define UCFGD_FUNCTIONS_LINE_SPLITTER_H

/* Cuts bytes that arrive in pieces into lines, one node a line, without line ends (LF or CRLF). */

#ifndef __cplusplus
#    error "line_splitter.h is for C++ sources"
#endif

#include <string>
#include <string_view>

#include "tree/arguments.h"

class line_splitter {
  public:
    explicit line_splitter(node_list &lines) : lines_(lines) {}

    void take(std::string_view bytes) {
        for (size_t end; (end = bytes.find('\n')) != std::string_view::npos;) {
            rest_.append(bytes.substr(0, end));
            bytes.remove_prefix(end + 1);
            emit();
        }
        rest_.append(bytes);
    }

    /* What is left is a line, too, though its end is missing. */
    void finish() {
        if (!rest_.empty()) emit();
    }

  private:
    void emit() {
        if (!rest_.empty() && rest_.back() == '\r') rest_.pop_back();
        lines_.append(rest_.c_str());
        rest_.clear();
    }

    node_list &lines_;
    std::string rest_;
};

#endif
