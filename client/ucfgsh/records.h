/* Owners for the records of libucfg and of the JSON library. */
#ifndef UCFGSH_RECORDS_H
#define UCFGSH_RECORDS_H

#include <jansson.h>

#include <string>
#include <string_view>
#include <vector>

#include "ucfg/ucfg.h"
#include "ucfgd/owners.h"

namespace ucfgsh {

using owned_conn = owned<ucfg_conn, ucfg_destroy>;
using owned_strings = owned<ucfg_strings, ucfg_destroy_strings>;
using owned_attr = owned<ucfg_attr, ucfg_destroy_attr>;
using owned_batch = owned<ucfg_batch, ucfg_destroy_batch>;

/* json_decref() is inline in each file that uses it, so it cannot be part of a type's name. */
struct release_json {
    void operator()(json_t *value) const { json_decref(value); }
};
using owned_json = std::unique_ptr<json_t, release_json>;

/* The text, "" for null, which these calls answer when memory is exhausted. */
inline std::string take_text(char *text) {
    owned_str owner{text};
    return owner ? owner.get() : "";
}

inline std::vector<std::string> to_vector(const ucfg_strings *strings) {
    return strings ? std::vector<std::string>(strings->items, strings->items + strings->count)
                   : std::vector<std::string>{};
}

inline std::string print_path(const std::string &path) {
    return take_text(ucfg_path_print(path.c_str()));
}

/* One path below another; either may be empty. */
inline std::string join_path(const std::string &above, const std::string &below) {
    return above.empty() || below.empty() ? above + below : above + "." + below;
}

}  // namespace ucfgsh

#endif
