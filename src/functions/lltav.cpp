/* Device functions: the view entries of the SNMP agent, and secrets kept encrypted in files.
 *
 * The encryption hides secrets from a glance at a file, not from whoever has this program: the key
 * is fixed, the vector is zero, and equal texts give equal results. Files in the field hold such
 * values, so cipher, key and mode stay. */

#include <libdaemon/dlog.h>

#include <array>
#include <cstring>
#include <string>
#include <string_view>

#include "backend/contexts.h"
#include "daemon/crypto.h"
#include "daemon/trace.h"
#include "functions/functions.h"
#include "llconf/nodes.h"
#include "tree/arguments.h"
#include "ucfgd/escape.h"
#include "ucfgd/guaranteed_memset.h"
#include "ucfgd/owners.h"

namespace {

constexpr std::string_view k_key = "Tiqaeb7uRoskel4u";

/* Runs the bytes of text through the cipher, in place; it keeps their number. Without the library
 * nothing is left. */
void run_cipher(std::string &text, int direction) {
    const crypto_library *crypto = load_crypto();
    if (!crypto) return text.clear();
    BF_KEY schedule;
    crypto->blowfish_key(&schedule, static_cast<int>(k_key.size()),
                         reinterpret_cast<const unsigned char *>(k_key.data()));
    std::array<unsigned char, 8> vector{};
    int position = 0;
    auto *bytes = reinterpret_cast<unsigned char *>(text.data());
    crypto->blowfish(bytes, bytes, static_cast<long>(text.size()), &schedule, vector.data(),
                     &position, direction);
    guaranteed_memset(&schedule, 0, sizeof(schedule));
}

std::string encrypt(const char *plain) {
    std::string text{plain};
    run_cipher(text, BF_ENCRYPT);
    std::string digits(2 * text.size() + 1, '\0');
    hexencode(text.data(), digits.data(), text.size(), digits.size());
    return digits;
}

std::string decrypt(const char *digits) {
    std::string text(std::strlen(digits), '\0');
    size_t length = 0;
    if (!text.empty() && !hexdecode(digits, text.data(), text.size(), &length)) {
        daemon_log(LOG_ERR, "tav_decrypt: the text is not made of pairs of hexadecimal digits");
        length = 0;
    }
    text.resize(length);
    run_cipher(text, BF_DECRYPT);
    return text;
}

fe_node *transform(fe_context *ctx, const fe_node *call, std::string (*function)(const char *)) {
    memory_watch memory;
    const call_arguments arguments{ctx, call};
    if (arguments.count() == 0) return answer_wrong_count(memory, arguments);
    return const_node(function(arguments[0]).c_str());
}

bool has_subtree(const cnfnode *view) {
    const cnfnode *subtree = find_node(view->first_child, "subtree");
    return subtree && subtree->value && subtree->value[0] != '\0';
}

fe_node *fe_func_tav_llfixsnmpdview(fe_context *ctx, fe_node *call) {
    trace(4, "%s\n", __func__);
    memory_watch memory;
    const call_arguments arguments{ctx, call};
    llconf_item *list = lli_list_from_trns_ctx(static_cast<trns_ctx *>(ctx->user_data));
    llconf_item *lli = arguments.count() > 0 ? find_llconf_item(list, arguments[0]) : nullptr;
    cnfnode *root = lli ? llconf_get_cnftree_write(lli) : nullptr;
    if (!root) return answer_unless_short(memory, "1");
    for (cnfnode *node : removal_safe(root->first_child)) {
        if (std::strcmp(node->name, "view") != 0 || has_subtree(node)) continue;
        destroy_cnftree(node);
        lli->is_dirty = 1;
    }
    return const_node("1");
}

fe_node *fe_func_tav_encrypt(fe_context *ctx, fe_node *call) {
    trace(4, "%s\n", __func__);
    return transform(ctx, call, encrypt);
}

fe_node *fe_func_tav_decrypt(fe_context *ctx, fe_node *call) {
    trace(4, "%s\n", __func__);
    return transform(ctx, call, decrypt);
}

}  // namespace

fe_def *fe_register_lltavfuncs(fe_def *list) {
    list = fe_register_func(list, "tav_llfixsnmpdview", fe_func_tav_llfixsnmpdview, nullptr);
    list = fe_register_func(list, "tav_encrypt", guarded<fe_func_tav_encrypt>, nullptr);
    return fe_register_func(list, "tav_decrypt", guarded<fe_func_tav_decrypt>, nullptr);
}
