#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <string.h>

#include <array>
#include <memory>

#include "daemon/trace.h"
#include "fe/fe.h"
#include "functions/functions.h"
#include "tree/arguments.h"
#include "ucfgd/ifaces.h"
#include "ucfgd/owners.h"

/* The machine's interfaces, for the methods of the management tree. Every failure, a wrong number
 * of arguments among them, is one node with the empty text. */

namespace {

constexpr char k_if_inet6[] = "/proc/net/if_inet6";

using owned_iface = std::unique_ptr<iface, free_memory>;
using owned_file = std::unique_ptr<FILE, release_with<fclose>>;

/* Which of an interface's addresses a function answers: its definition's user data says it. */
struct address_row {
    const char *param;
    sockaddr iface::*field;
};

constexpr std::array k_addresses{
    address_row{"addr", &iface::addr},
    address_row{"dstaddr", &iface::dstaddr},
    address_row{"broadaddr", &iface::broadaddr},
    address_row{"netmask", &iface::netmask},
};

fe_node *ipv4_node(const sockaddr &address) {
    sockaddr_in in;
    memcpy(&in, &address, sizeof in);
    std::array<char, INET_ADDRSTRLEN> text;
    return const_node(inet_ntop(AF_INET, &in.sin_addr, text.data(), text.size()));
}

fe_node *fe_func_adm_ifparam(fe_context *ctx, fe_node *call) {
    trace(4, "%s\n", __func__);
    const auto *param = static_cast<const char *>(call->fed->user_data);
    trace(4, "param=%s\n", param);
    memory_watch memory;
    call_arguments arguments{ctx, call};
    if (arguments.count() != 1) return answer_wrong_count(memory, arguments);
    owned_iface cfg{iface_get_cfg(arguments[0])};
    if (cfg)
        for (const auto &[name, field] : k_addresses)
            if (strcmp(name, param) == 0) return ipv4_node((*cfg).*field);
    return answer_unless_short(memory, "");
}

fe_node *fe_func_adm_hwaddr(fe_context *ctx, fe_node *call) {
    trace(4, "%s\n", __func__);
    memory_watch memory;
    call_arguments arguments{ctx, call};
    if (arguments.count() != 1) return answer_wrong_count(memory, arguments);
    owned_iface cfg{iface_get_cfg(arguments[0])};
    if (!cfg) return answer_unless_short(memory, "");
    const unsigned char *a = cfg->hwaddr;
    std::array<char, sizeof "00:00:00:00:00:00"> text;
    snprintf(text.data(), text.size(), "%02x:%02x:%02x:%02x:%02x:%02x", a[0], a[1], a[2], a[3],
             a[4], a[5]);
    return const_node(text.data());
}

fe_node *fe_func_admgetip6(fe_context *ctx, fe_node *call) {
    trace(4, "%s\n", __func__);
    memory_watch memory;
    call_arguments arguments{ctx, call};
    if (arguments.count() != 1) return answer_wrong_count(memory, arguments);
    owned_file file{fopen(k_if_inet6, "re")};
    if (!file && errno != ENOENT) return fail_about(k_if_inet6);
    if (!file) return answer_unless_short(memory, "");

    node_list addresses;
    char g[8][5];
    char name[33];
    unsigned int skip[4];
    while (fscanf(file.get(), "%4s%4s%4s%4s%4s%4s%4s%4s %02x %02x %02x %02x %32s\n", g[0], g[1],
                  g[2], g[3], g[4], g[5], g[6], g[7], &skip[0], &skip[1], &skip[2], &skip[3],
                  name) == 13) {
        if (strcmp(name, arguments[0]) != 0) continue;
        char text[40];
        snprintf(text, sizeof text, "%s:%s:%s:%s:%s:%s:%s:%s", g[0], g[1], g[2], g[3], g[4], g[5],
                 g[6], g[7]);
        addresses.append(text);
    }
    if (ferror(file.get()) != 0 || memory.ran_out()) return fail_about(k_if_inet6);
    return addresses.release();
}

fe_node *fe_func_adm_ifacelist(fe_context *ctx, fe_node *call) {
    trace(4, "%s\n", __func__);
    memory_watch memory;
    call_arguments arguments{ctx, call};
    if (arguments.count() != 1) return answer_wrong_count(memory, arguments);
    std::unique_ptr<iface_node, release_with<destroy_iface_list>> list{iface_get_list()};
    if (!list) return answer_unless_short(memory, "");
    node_list names;
    for (const iface_node *entry = list.get(); entry != nullptr; entry = entry->next) {
        const int matches = fe_match_wildcards(arguments[0], entry->name, 1);
        if (matches < 0) return nullptr;
        if (matches == 1) names.append(entry->name);
    }
    return names.release();
}

struct function_row {
    const char *name;
    fe_node *(*function)(fe_context *, fe_node *);
    const char *param;
};

constexpr std::array k_functions{
    function_row{"admgetip", fe_func_adm_ifparam, "addr"},
    function_row{"admgetip6", fe_func_admgetip6, nullptr},
    function_row{"admgetptp", fe_func_adm_ifparam, "dstaddr"},
    function_row{"admgetbroadcast", fe_func_adm_ifparam, "broadaddr"},
    function_row{"admgetnetmask", fe_func_adm_ifparam, "netmask"},
    function_row{"admgethwaddr", fe_func_adm_hwaddr, nullptr},
    function_row{"admifacelist", fe_func_adm_ifacelist, nullptr},
};

}  // namespace

fe_def *fe_register_adm_network_funcs(fe_def *list) {
    for (const auto &row : k_functions)
        list = fe_register_func(list, row.name, row.function, const_cast<char *>(row.param));
    return list;
}
