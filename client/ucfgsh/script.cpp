#include "ucfgsh/script.h"

#include <fstream>
#include <iostream>

#include "ucfgsh/terminal.h"

namespace ucfgsh {

namespace {

constexpr size_t k_script_line_limit = 1U << 20U;
constexpr int k_script_depth = 8;

}  // namespace

bool script_source::physical_line(std::string &line) {
    line.clear();
    char c = 0;
    bool any = false;
    while (in_.get(c)) {
        any = true;
        if (c == '\n') break;
        if (line.size() < k_script_line_limit)
            line += c;
        else
            too_long_ = true;
    }
    if (!any) return false;
    count_++;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return true;
}

bool script_source::next(std::string &line, const std::string &prompt) {
    if (!physical_line(line)) return false;
    first_ = count_;
    /* Inside a value or a batch, lines are taken as they are. */
    if (!prompt.empty()) return true;
    std::string more;
    while (!line.empty() && line.back() == '\\' && line.size() < k_script_line_limit &&
           physical_line(more)) {
        line.pop_back();
        line += more;
    }
    return true;
}

std::string script_source::place() const {
    return name_ + ":" + std::to_string(first_) + ": ";
}

int run_script(shell &sh, script_source &source) {
    line_source *outer_lines = sh.lines;
    std::string outer_prefix = sh.prefix;
    bool outer_interactive = sh.interactive;
    std::string outer_here = sh.here;
    script_place outer_place = sh.place;
    sh.lines = &source;
    sh.interactive = false;
    int worst = k_exit_done;
    std::string line;
    while (!sh.quit && !g_interrupted && source.next(line, "")) {
        sh.prefix = source.place();
        sh.place = {source.name(), source.line()};
        words split = split_words(line);
        int status = k_exit_done;
        if (!split.list.empty()) sh.out.begin_answer(split.list.front().text);
        if (source.too_long())
            status = complain_usage(sh, "the line is too long");
        else if (split.open)
            status = complain_usage(sh, "a quote is not closed");
        else
            status = run_command(sh, split.list);
        sh.out.end_answer(status == k_exit_done);
        if (!sh.out.flush()) status = k_exit_failed;
        if (worst == k_exit_done) worst = status;
        if (status != k_exit_done && (!sh.opts.go_on || !sh.link.logged_in())) break;
    }
    if (g_interrupted) worst = k_exit_interrupted;
    sh.lines = outer_lines;
    sh.prefix = outer_prefix;
    sh.interactive = outer_interactive;
    sh.here = outer_here;
    sh.place = outer_place;
    return worst;
}

int run_script_file(shell &sh, const std::string &name) {
    if (sh.depth >= k_script_depth) return complain_usage(sh, "scripts call each other too deeply");
    std::ifstream file;
    if (name != "-") {
        file.open(name, std::ios::binary);
        if (!file.is_open()) return complain_usage(sh, name + " cannot be read");
    }
    script_source source{name == "-" ? std::cin : static_cast<std::istream &>(file),
                         name == "-" ? "stdin" : name};
    sh.depth++;
    int status = run_script(sh, source);
    sh.depth--;
    return status;
}

}  // namespace ucfgsh
