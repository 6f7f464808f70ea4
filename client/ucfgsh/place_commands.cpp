/* Where parameters' paths begin. */
#include <cstring>

#include "ucfgsh/commands.h"
#include "ucfgsh/teach.h"

namespace ucfgsh {

namespace {

std::string above(const std::string &path) {
    size_t dot = path.rfind('.');
    return dot == std::string::npos ? "" : path.substr(0, dot);
}

}  // namespace

std::optional<std::string> resolve_path(const shell &sh, std::string_view typed, ucfg_tree tree,
                                        const char **problem) {
    if (typed == ".") return std::string{};
    bool below = tree == k_ucfg_parameters && !typed.starts_with('.');
    if (typed == ".." && tree == k_ucfg_parameters) return above(sh.here);
    if (typed.starts_with('.')) typed.remove_prefix(1);
    /* As Tab leaves it behind a section. */
    bool ends = typed.size() > 1 && typed.ends_with('.');
    char last = ends ? typed[typed.size() - 2] : '.';
    if (last != '.' && last != '\\') typed.remove_suffix(1);
    owned_str path{ucfg_path_parse(std::string{typed}.c_str(), problem)};
    if (!path) return std::nullopt;
    return below ? join_path(sh.here, path.get()) : path.get();
}

int run_cd(shell &sh, const arguments &args) {
    auto path = args.words.empty() ? std::string{} : take_path(sh, args.words[0]);
    if (!path) return k_exit_usage;
    if (!path->empty()) {
        ucfg_attr *found = nullptr;
        int code = sh.link.call(after_loss::repeat, [&](ucfg_conn *conn) {
            return ucfg_attr_of(conn, k_ucfg_parameters, path->c_str(), &found);
        });
        owned_attr attr{found};
        if (code != k_ucfg_ok)
            return report_failure(sh, print_path(*path), code, {'l', k_ucfg_parameters, *path});
        int status = refuse_stray(sh, k_ucfg_parameters, *path);
        if (status != k_exit_done) return status;
        if (!strpbrk(attr->ops, "la"))
            return complain_usage(sh, print_path(*path) + " has nothing below it");
    }
    sh.here = *path;
    return report_done(sh, "", json_object_of({{"path", print_path(*path)}}));
}

int run_up(shell &sh, const arguments &) {
    sh.here = above(sh.here);
    return report_done(sh, "", json_object_of({{"path", print_path(sh.here)}}));
}

}  // namespace ucfgsh
