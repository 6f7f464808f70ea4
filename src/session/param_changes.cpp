#include "session/param_changes.h"

#include <cerrno>
#include <new>
#include <optional>
#include <set>
#include <vector>

#include "backend/ll_trns.h"
#include "session/query.h"
#include "tree/param_ops.h"
#include "tree/param_path.h"
#include "ucfgd/escape.h"
#include "ucfgd/owners.h"

namespace {

using owned_path = owned<param_path, destroy_param_path>;
using owned_lines = owned<line, destroy_line_list>;

/* What one side says of a parameter. */
struct answer {
    std::optional<std::string> value;
    unsigned long nodes = 0; /* of files that were found on the way to it */
};

/* On one line. */
std::string shown(std::string value) {
    for (size_t at = 0; (at = value.find_first_of("\n\\", at)) != std::string::npos; at += 2)
        value.replace(at, 1, value[at] == '\n' ? "\\n" : "\\\\");
    return value;
}

class comparison {
  public:
    comparison(ccd_session *session, trns_ctx *before, trns_ctx *after, long most)
        : session_(session), before_(before), after_(after), left_(most) {}

    void walk(const std::string &path, const ccdtree_node *node, bool was, bool is);
    bool complete() const { return left_ >= 0; }
    std::string text;

  private:
    answer ask(trns_ctx *ctx, const std::string &path);
    void compare_value(const std::string &path, bool was, bool is);
    void walk_list(const std::string &path, const ccdtree_node *node, bool was, bool is);
    void compare_order(const std::string &path, const std::vector<std::string> &before,
                       const std::vector<std::string> &after);
    void put(char side, const std::string &path, const std::string &value, bool readable);

    ccd_session *session_;
    trns_ctx *before_;
    trns_ctx *after_;
    long left_;
};

std::string below(const std::string &path, const std::string &name) {
    return path.empty() ? name : path + "." + name;
}

std::vector<std::string> names_below(trns_ctx *ctx, const std::string &path) {
    const owned_lines lines{ccd_param_list(g_ccdtree, ctx, path.c_str(), nullptr, 0)};
    std::vector<std::string> names;
    std::set<std::string> seen;
    for (const line *l = lines.get(); l; l = l->next)
        if (l->line && l->line[0] != '\0' && seen.insert(l->line).second)
            names.emplace_back(l->line);
    return names;
}

std::string joined(const std::vector<std::string> &names) {
    std::string text;
    for (const std::string &name : names)
        text += (text.empty() ? "" : " ") + name;
    return text;
}

answer comparison::ask(trns_ctx *ctx, const std::string &path) {
    left_--;
    const unsigned long nodes = ll_nodes_found();
    const owned_str value{ccd_param_get(g_ccdtree, ctx, path.c_str())};
    answer given;
    given.nodes = ll_nodes_found() - nodes;
    if (value) given.value = unescape_b(value.get(), value.get());
    return given;
}

void comparison::put(char side, const std::string &path, const std::string &value, bool readable) {
    text += std::string{side} + " " + path + (readable ? ": " + shown(value) : "") + "\n";
}

void comparison::compare_value(const std::string &path, bool was, bool is) {
    const answer old = was ? ask(before_, path) : answer{};
    const answer now = is ? ask(after_, path) : answer{};
    if (old.value == now.value && (!old.value || old.nodes == now.nodes)) return;
    const owned_path resolved{find_ccd_param(path.c_str(), g_ccdtree)};
    const bool readable = resolved && session_may_read(session_, resolved.get());
    const bool same = old.value == now.value;
    if (old.value && (!same || old.nodes > now.nodes)) put('-', path, *old.value, readable);
    if (now.value && (!same || old.nodes < now.nodes)) put('+', path, *now.value, readable);
}

/* Entries that both sides have stand in the same order, or else both orders are shown. */
void comparison::compare_order(const std::string &path, const std::vector<std::string> &before,
                               const std::vector<std::string> &after) {
    const std::set<std::string> old{before.begin(), before.end()};
    const std::set<std::string> fresh{after.begin(), after.end()};
    std::vector<std::string> kept_before;
    std::vector<std::string> kept_after;
    for (const std::string &name : before)
        if (fresh.contains(name)) kept_before.push_back(name);
    for (const std::string &name : after)
        if (old.contains(name)) kept_after.push_back(name);
    if (kept_before == kept_after) return;
    put('-', path, joined(kept_before), true);
    put('+', path, joined(kept_after), true);
}

void comparison::walk_list(const std::string &path, const ccdtree_node *node, bool was, bool is) {
    const std::vector<std::string> before =
        was ? names_below(before_, path) : std::vector<std::string>{};
    const std::vector<std::string> after =
        is ? names_below(after_, path) : std::vector<std::string>{};
    const std::set<std::string> old{before.begin(), before.end()};
    const std::set<std::string> fresh{after.begin(), after.end()};
    compare_order(path, before, after);
    const auto visit = [&](const std::string &name, bool in_old, bool in_new) {
        const owned_str plain{unescape(name.c_str())};
        if (!plain) throw std::bad_alloc{};
        const ccdtree_node *child = match_ccdtree_child(node, plain.get());
        if (!in_old || !in_new) text += (in_old ? "- " : "+ ") + below(path, name) + "\n";
        if (child) walk(below(path, name), child, in_old, in_new);
    };
    for (const std::string &name : before)
        if (!fresh.contains(name)) visit(name, true, false);
    for (const std::string &name : after)
        visit(name, old.contains(name), true);
}

void comparison::walk(const std::string &path, const ccdtree_node *node, bool was, bool is) {
    if (!complete()) return;
    if (node->func_get) compare_value(path, was, is);
    if (node->func_list) return walk_list(path, node, was, is);
    for (const ccdtree_node *child = node->first_child; child; child = child->next) {
        if (child->name[0] == '*') continue;
        const owned_str name{escape(child->name)};
        if (!name) throw std::bad_alloc{};
        walk(below(path, name.get()), child, was, is);
    }
}

}  // namespace

bool param_changes(ccd_session *session, trns_ctx *before, trns_ctx *after, long most,
                   std::string &text) {
    comparison both{session, before, after, most};
    both.walk("", g_ccdtree, true, true);
    text = std::move(both.text);
    return both.complete();
}
