#ifndef TESTS_TOY_SHELL_H
#define TESTS_TOY_SHELL_H

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "fake_daemon.h"
#include "ucfgsh/changes.h"
#include "ucfgsh/commands.h"
#include "ucfgsh/completion.h"
#include "ucfgsh/script.h"

using namespace ucfgsh;

// Parameters as wire paths; a node's children are what the paths say.
class toy_tree {
  public:
    std::map<std::string, std::string> values{{"net.name", "box"},
                                              {"net.mode", "dhcp"},
                                              {"hosts.a", "10.0.0.1"},
                                              {"hosts.my%2ehost", "10.0.0.2"},
                                              {"motd", "one%0atwo%0athree"}};
    unsigned hang_ups = 0;  // answers to swallow
    unsigned sets = 0;
    unsigned conflicts = 0;  // commits to refuse
    fake_reply ending;       // answers the next request, of a session that is gone then
    bool gone = false;
    bool no_actions = false;
    std::string last;
    std::map<std::string, fake_reply> nodes;  // of the management tree
    std::vector<std::string> commits;         // what stood in net.name at each

    fake_reply operator()(const fake_request &r) {
        size_t blank = std::min(r.args.find(' '), r.args.size());
        std::string path = r.args.substr(0, blank);
        std::string value = r.args.substr(std::min(blank + 1, r.args.size()));
        if (r.word == "LOGIN") return {".1 PERMS read write", ".1 SESSION 12ab", " OK"};
        if (r.word == "RESUME") return {gone ? " NO invalid session id" : " OK welcome back ann"};
        if (!ending.empty() && r.word == last)
            return values = committed, gone = true, std::exchange(ending, {});
        if (r.word[0] == 'M' && r.word != "MOVE")
            return nodes.contains(path) ? nodes[path] : fake_reply{" ERR no such node"};
        if (r.word == "ADMIN" && no_actions) return {" NO permission denied"};
        if (r.word == "INFO" || r.word == "ADMIN")
            return nodes.contains(path) ? nodes[path] : fake_reply{" ERR Success"};
        if (r.word == "REVERT") values = committed;
        if (r.word == "COMMIT") return commit();
        if (hang_ups > 0 && hang_ups-- > 0) return {"!close"};
        if (r.word == "LIST" || r.word == "LISTR") return list(path, r.word == "LISTR");
        if (r.word == "ATTR") return attr(path);
        if (r.word == "ACCESS") return {path.starts_with("net.secret") ? ".1 0" : ".1 1", " OK"};
        if (r.word == "HELP" && path == "hosts") return {".1 not+installed", " OK"};
        if (r.word == "GET")
            return value_at(path) == "dark" ? fake_reply{" ERR too dark"}
                   : values.contains(path)  ? fake_reply{".1 " + values[path], " OK"}
                   : path == "hosts.nosuch" ? fake_reply{".1 ", " OK"}
                                            : fake_reply{" ERR Success"};
        if (r.word == "SET") return set(path, value);
        for (const std::string &line : r.more) {  // of a batch: ".1 WORD args"
            size_t word = line.find(' ') + 1, args = line.find(' ', word) + 1;
            if (r.word == "SUBMIT")
                (*this)({r.tag, line.substr(word, args - word - 1), line.substr(args), {}});
        }
        if (r.word == "ADD") values[path + "." + value] = "";
        if (r.word == "DEL") values.erase(path + "." + value);
        if (r.word == "DIRTY") return {".dirty 1", " OK"};
        return {" OK"};
    }

  private:
    std::map<std::string, std::string> committed = values;

    std::string value_at(const std::string &path) const {
        return values.contains(path) ? values.at(path) : "";
    }

    fake_reply commit() {
        if (conflicts > 0 && conflicts-- > 0) return {" ERR commit conflict"};
        committed = values;
        commits.push_back(values["net.name"]);
        if (nodes.contains("commits.history")) nodes["commits.history"] = {".1 8", ".1 7", " OK"};
        return {" OK"};
    }

    fake_reply set(const std::string &path, const std::string &value) {
        sets++;
        if (value == "bad") return {".error error.bad", " ERR not that"};
        values[path] = value;
        return {" OK"};
    }

    fake_reply list(const std::string &path, bool all) {
        std::set<std::string> names;
        std::string prefix = path.empty() ? "" : path + ".";
        for (const auto &[name, value] : values) {
            if (!name.starts_with(prefix) || name.size() == prefix.size()) continue;
            std::string rest = name.substr(prefix.size());
            names.insert(rest.substr(0, rest.find('.')));
            if (all) names.insert(rest);
        }
        fake_reply reply;
        for (const std::string &name : names)
            reply.push_back(".1 " + name);
        reply.emplace_back(" OK");
        return reply;
    }

    fake_reply attr(const std::string &path) {
        bool entry = path.starts_with("hosts") && std::count(path.begin(), path.end(), '.') < 2;
        bool known = entry || path.starts_with("commits.") || list(path, false).size() > 1 ||
                     values.contains(path);
        if (!known || (path.starts_with("commits.") && nodes.empty())) return {" ERR no such node"};
        if (path == "makers") return {".ops l", ".flags.1 hidden", " OK"};
        bool children = list(path, false).size() > 1;
        if (path == "hosts") return {".ops adl", " OK"};
        if (path != "net.mode") return {children ? ".ops l" : ".ops gs", " OK"};
        return {".ops gs", ".choices.1 dhcp", ".choices.2 fixed+address", " OK"};
    }
};

// A shell that is logged in at a toy.
class ShellTest : public testing::Test {
  protected:
    toy_tree toy;
    fake_daemon daemon{[this](const fake_request &r) { return toy(r); }};
    options opts = [this] {
        options o;
        o.socket_path = daemon.path();
        o.user = "ann";
        o.complete_line = "";  // never asks for a password
        return o;
    }();
    output out{false, false, false, false};
    std::string told;
    session link{opts, [this](const std::string &text) { told += text + "\n"; }};
    change_log changes;
    shell sh{opts, link, out, changes, nullptr, "test: ", false, false, 0};

    void SetUp() override { ASSERT_EQ(link.open(0), k_exit_done); }

    std::vector<std::string> completed(const char *line) { return complete(sh, line).items; }

    // Runs a script; its output and complaints.
    std::pair<int, std::string> script(const std::string &text) {
        std::istringstream in{text};
        script_source source{in, "s"};
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        int status = run_script(sh, source);
        std::string said = testing::internal::GetCapturedStdout();
        return {status, said + testing::internal::GetCapturedStderr()};
    }
};

using strings = std::vector<std::string>;

#endif
