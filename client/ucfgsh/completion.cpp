#include "ucfgsh/completion.h"

#include <algorithm>

#include "ucfgsh/commits.h"
#include "ucfgsh/usable.h"

namespace ucfgsh {

namespace {

/* More than anybody reads. */
constexpr size_t k_candidate_limit = 2000;

}  // namespace

typed_line read_line(std::string_view line) {
    typed_line typed;
    words split = split_words(line);
    if (split.fresh)
        typed.last.start = line.size();
    else {
        typed.last = split.list.back();
        split.list.pop_back();
    }
    if (split.list.empty()) return typed;
    typed.row = find_command(split.list[0].text);
    typed.position = 1;
    bool flags = true;
    for (size_t i = 1; i < split.list.size(); i++) {
        const word &w = split.list[i];
        flags = flags && w.raw.size() > 1 && w.raw[0] == '-';
        if (flags)
            typed.args.flags[w.text[1]] = "";
        else
            typed.args.words.push_back(w);
    }
    typed.position += typed.args.words.size();
    return typed;
}

char kind_of(const typed_line &typed) {
    if (typed.position == 0) return 'C';
    if (typed.row && typed.last.raw.starts_with('-')) return '-';
    if (!typed.row || typed.row->kinds.empty()) return 0;
    size_t at = std::min(typed.position, typed.row->kinds.size()) - 1;
    if (typed.position > typed.row->most) return 0;
    char kind = typed.row->kinds[at];
    return typed.args.has('m') && (kind == 'p' || kind == 'c') ? 'm' : kind;
}

namespace {

/* Where the last component of a typed path begins: behind the last dot outside of quotes. */
size_t last_component(std::string_view raw) {
    size_t start = 0;
    char quote = 0;
    for (size_t i = 0; i < raw.size(); i++) {
        char c = raw[i];
        if (c == '\\' && quote != '\'')
            i++;
        else if (quote != 0)
            quote = c == quote ? 0 : quote;
        else if (c == '"' || c == '\'')
            quote = c;
        else if (c == '.')
            start = i + 1;
    }
    return start;
}

std::vector<std::string> names_below(shell &sh, ucfg_tree tree, const std::string &path) {
    ucfg_strings *names = nullptr;
    sh.link.quietly([&](ucfg_conn *conn) { return ucfg_list(conn, tree, path.c_str(), &names); });
    owned_strings owner{names};
    return to_vector(names);
}

/* What was typed of a word so far, without its quotes. */
std::string unquoted(std::string_view raw) {
    words split = split_words(raw);
    return split.list.empty() ? "" : split.list[0].text;
}

/* Keeps the names that begin as typed, each as `quote` writes it behind `before`. */
template <class quoting>
void keep(candidates &found, const std::vector<std::string> &names, const std::string &typed,
          const std::string &before, quoting quote) {
    for (const std::string &name : names)
        if (name.starts_with(typed) && found.count++ < k_candidate_limit)
            found.items.push_back(before + quote(name));
}

std::string quote_component(const std::string &name) {
    return take_text(ucfg_path_quote(name.c_str()));
}

void complete_path(shell &sh, ucfg_tree tree, const typed_line &typed, candidates &found) {
    std::string_view raw = typed.last.raw;
    size_t cut = last_component(raw);
    auto parent =
        resolve_path(sh, cut == 1 ? raw.substr(0, 1) : raw.substr(0, cut - (cut > 0)), tree);
    if (!parent) return;
    std::string begun = unquoted(raw.substr(cut));
    std::vector<std::string> names = names_below(sh, tree, *parent);
    std::erase_if(names, [&](const std::string &name) { return !name.starts_with(begun); });
    std::string_view letters = letters_for(typed.row->name);
    owned_attr above = letters == "d" ? look_at(sh.link, tree, *parent) : nullptr;
    if (!above || !has_letter(*above, letters))
        names = usable_names(sh.link, tree, *parent, names, letters);
    found.tree = tree;
    found.above = *parent;
    found.shown = cut;
    keep(found, names, begun, std::string{raw.substr(0, cut)}, quote_component);
    if (found.items.size() != 1) return;
    auto path = resolve_path(sh, found.items[0], tree);
    owned_attr attr = path ? look_at(sh.link, tree, *path) : nullptr;
    bool leads_on = attr && has_letter(*attr, "l");
    if (attr && leads_on && !letters.empty()) {
        /* What the command can take is the end of the word, whatever is below it. */
        std::string_view itself = letters.substr(letters[0] == 'l' ? 1 : 0);
        leads_on = !has_letter(*attr, itself);
    }
    if (leads_on)
        found.items[0] += '.';
    else
        found.final = true;
}

void complete_value(shell &sh, const typed_line &typed, candidates &found) {
    auto path = resolve_path(sh, typed.args.words[0].raw);
    if (!path) return;
    owned_attr attr = look_at(sh.link, k_ucfg_parameters, *path);
    if (!attr) return;
    std::vector<std::string> values = to_vector(attr->choices);
    char *current = nullptr;
    if (values.empty() && typed.last.raw.empty() && strchr(attr->ops, 'g')) {
        sh.link.quietly([&](ucfg_conn *conn) { return ucfg_get(conn, path->c_str(), &current); });
        if (current && *current) values.emplace_back(current);
    }
    owned_str owner{current};
    keep(found, values, unquoted(typed.last.raw), "", quote_word);
    found.final = true;
}

void complete_entry(shell &sh, const typed_line &typed, candidates &found) {
    auto path = resolve_path(sh, typed.args.words[0].raw);
    if (!path || typed.row->name == "add") return;
    keep(found, names_below(sh, k_ucfg_parameters, *path), unquoted(typed.last.raw), "",
         quote_word);
    found.final = true;
}

void complete_command(const std::string &typed, candidates &found) {
    std::vector<std::string> names;
    for (const command &row : all_commands())
        names.emplace_back(row.name);
    keep(found, names, typed, "", quote_word);
    found.commands = found.items.size();
    found.final = true;
}

}  // namespace

candidates complete(shell &sh, std::string_view line) {
    typed_line typed = read_line(line);
    candidates found;
    found.start = typed.last.start;
    switch (kind_of(typed)) {
        case 'C':
            complete_command(typed.last.text, found);
            break;
        case 'p':
        case 'l':
            complete_path(sh, k_ucfg_parameters, typed, found);
            break;
        case 'm':
            complete_path(sh, k_ucfg_management, typed, found);
            break;
        case 'e':
            complete_entry(sh, typed, found);
            break;
        case 'v':
            complete_value(sh, typed, found);
            break;
        case 'n':
            keep(found, commit_numbers(sh.link), typed.last.text, "", quote_word);
            found.final = true;
            break;
        case '-':
            keep(found, flags_of(*typed.row), typed.last.text, "",
                 [](const std::string &flag) { return flag; });
            found.final = true;
            break;
        case 'r':
            keep(found, {"r", "w", "x", "rw"}, typed.last.text, "", quote_word);
            break;
        case 'c':
            complete_command(typed.last.text, found);
            complete_path(sh, k_ucfg_parameters, typed, found);
            break;
        default:
            break;
    }
    return found;
}

bool asks_for_help(std::string_view line) {
    words split = split_words(line);
    if (split.open) return false;
    constexpr std::string_view k_names = "Cplmc";
    char kind = kind_of(read_line(line));
    return split.fresh || (kind != 0 && k_names.find(kind) != std::string_view::npos);
}

std::string common_prefix(const std::vector<std::string> &items) {
    if (items.empty()) return "";
    std::string prefix = items[0];
    for (const std::string &item : items) {
        auto end = std::mismatch(prefix.begin(), prefix.end(), item.begin(), item.end()).first;
        /* Not in the middle of a character. */
        while (end != prefix.begin() && end != prefix.end() && (*end & '\xc0') == '\x80')
            end--;
        prefix.erase(end, prefix.end());
    }
    return prefix;
}

}  // namespace ucfgsh
