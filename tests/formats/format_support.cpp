#include "format_support.h"

namespace formats {

bool plugin_built() {
#ifdef AUGEAS_PLUGIN
    return true;
#else
    return false;
#endif
}

module_ptr open_module(const std::string &parser, const std::string &options) {
    register_all();
#ifdef AUGEAS_PLUGIN
    if (parser == "augeas" && find_cnfmodule("augeas") == nullptr) {
        cnfmodule_register_plugin("augeas", AUGEAS_PLUGIN, 0);
    }
#endif
    const cnfmodule *found = find_cnfmodule(parser.c_str());
    tree_ptr parsed(parse_options(options.c_str()));
    if (found == nullptr || parsed == nullptr) return nullptr;
    return module_ptr(clone_cnfmodule(found, nullptr, nullptr, parsed.get()));
}

tree_ptr parse(const cnfmodule *module, const std::string &text) {
    return tree_ptr(cnfmodule_parse_text(module, "FILE", text.data(), text.size()));
}

std::optional<std::string> write(const cnfmodule *module, const cnfnode *tree) {
    std::size_t length = 0;
    owned_str text(cnfmodule_unparse_text(module, tree, &length));
    if (text == nullptr) return std::nullopt;
    return std::string(text.get(), length);
}

}  // namespace formats
