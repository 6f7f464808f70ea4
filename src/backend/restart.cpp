/* The service restart pass: what to do when files may have been changed behind the daemon's back.
 *
 * The pass reads every file again and takes over what differs from the tree in memory, with the
 * commit hooks of the item around it, as if the daemon had written the file itself: the hooks tell
 * the rest of the system. Then it goes through the services that the rc directory starts. A service
 * whose file was taken over is left to those hooks; one whose file has not changed is restarted
 * here; one that the rc directory does not name is stopped.
 *
 * The two deferred kinds of items come last, because their hooks may cut the connection over which
 * the pass was asked for. */

#include "backend/restart.h"

#include <dirent.h>
#include <libdaemon/dlog.h>

#include <array>
#include <bitset>
#include <cstring>
#include <string_view>
#include <utility>

#include "backend/command.h"
#include "backend/file_io.h"
#include "backend/items.h"
#include "backend/ll_trns.h"
#include "daemon/trace.h"
#include "llconf/nodes.h"
#include "ucfgd/owners.h"

const char *g_restart_rc_directory = "/etc/rc5.d";
void (*g_restart_run)(const char *command) = run_restart_command;

namespace {

using owned_tree = owned<cnfnode, destroy_cnftree>;
using owned_dir = owned<DIR, closedir>;

constexpr const char *k_set_time =
    "/usr/share/featuremodules/ntpclient/getntptime.sh $(grep -v \"#\" /etc/default/ntpclient | "
    "grep ntpserver=\\\" >/dev/null 2>&1; if [ $? = \"0\" ]; then grep -v \"#\" "
    "/etc/default/ntpclient | grep -o ntpserver.*[^\\\"] | sed "
    "'s/\\(ntpserver=\\\"\\)\\(.*\\)/\\2/'; else grep -v \"#\" /etc/default/ntpclient | grep "
    "ntpserver | sed 's/\\(ntpserver=\\)\\(.*\\)/\\2/'; fi)";

/* One service, in the order in which an entry of the rc directory is tested and in which services
 * are stopped. */
struct service {
    std::string_view rc_name;     /* text in the name of an rc entry */
    std::string_view module_name; /* text in the name of an item; empty: always restarted */
    const char *before_restart;
    const char *restart;
    const char *stop;
};

constexpr std::array<service, 4> k_services = {{
    {"ntpclient", "ntpclient", k_set_time, "/etc/init.d/ntpclient restart >/dev/null 2>&1",
     "/etc/init.d/ntpclient stop >/dev/null 2>&1"},
    {"snmpd", "snmp", nullptr, "/etc/init.d/snmpd restart >/dev/null 2>&1",
     "/etc/init.d/snmpd stop >/dev/null 2>&1"},
    {"ipsec", "ipsec", nullptr, "/etc/init.d/ipsec restart >/dev/null 2>&1",
     "/etc/init.d/ipsec stop >/dev/null 2>&1"},
    {"portmap", "", nullptr, "/etc/init.d/portmap restart >/dev/null 2>&1",
     "/etc/init.d/portmap stop >/dev/null 2>&1"},
}};

using service_set = std::bitset<k_services.size()>;

struct restart_state {
    service_set changed;
    llconf_item *rumex2 = nullptr;
    llconf_item *web_server = nullptr;
};

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

void take_over(llconf_item *lli, owned_tree fresh) {
    run_hook(lli, &llconf_item::func_pre_commit);
    llconf_install_cnftree(lli, fresh.release());
    run_hook(lli, &llconf_item::func_post_commit);
}

void handle_equal(llconf_item *lli, owned_tree fresh) {
    if (std::strcmp(lli->name, "event-notify") != 0) {
        lli->is_dirty = 0;
        return;
    }
    trace(4, "Post commit for module: '%s''\n", lli->name);
    take_over(lli, std::move(fresh));
}

void handle_different(llconf_item *lli, owned_tree fresh, restart_state &state) {
    std::string_view name{lli->name};
    for (size_t i = 0; i < k_services.size(); i++) {
        std::string_view part = k_services[i].module_name;
        if (!part.empty() && contains(name, part)) state.changed.set(i);
    }
    if (contains(name, "rumex2")) {
        state.rumex2 = lli;
    } else if (contains(name, "apache")) {
        lli->is_dirty = 1;
        state.web_server = lli;
    } else {
        take_over(lli, std::move(fresh));
    }
}

void examine_file(llconf_item *lli, restart_state &state) {
    owned_str path{prefix_llfilename(lli->file->filename)};
    if (!path) return;
    trace(4, "Module: '%s' filepath is '%s'\n", lli->name, path.get());
    owned_tree fresh{lli->pattern ? llconf_parse_file_pattern(lli, path.get(), lli->pattern)
                                  : llconf_parse_file(lli, path.get())};
    if (!fresh) return;
    if (compare_cnftree(lli->cn_root, fresh.get()) == 0) {
        handle_equal(lli, std::move(fresh));
    } else {
        handle_different(lli, std::move(fresh), state);
    }
}

/* Behind a shadow without a tree the walk goes on in the list of the item that it leads to. */
void examine_items(llconf_item *list, restart_state &state) {
    for (llconf_item *lli = list; lli; lli = lli->next) {
        while (!lli->cn_root && lli->item_orig)
            lli = lli->item_orig;
        trace(4, "module '%s'\n", lli->name);
        if (lli->file) {
            examine_file(lli, state);
        } else if (std::strcmp(lli->name, "sysvinit") == 0) {
            run_hook(lli, &llconf_item::func_post_read);
        }
    }
}

void restart_service(size_t index, const service_set &changed) {
    if (changed.test(index)) return;
    const service &which = k_services[index];
    if (which.before_restart) g_restart_run(which.before_restart);
    g_restart_run(which.restart);
}

void restart_services(const service_set &changed) {
    owned_dir directory{opendir(g_restart_rc_directory)};
    if (!directory) return;
    service_set present;
    while (const dirent *entry = readdir(directory.get())) {
        for (size_t i = 0; i < k_services.size(); i++) {
            if (!contains(entry->d_name, k_services[i].rc_name)) continue;
            present.set(i);
            restart_service(i, changed);
            break;
        }
    }
    directory.reset();
    for (size_t i = 0; i < k_services.size(); i++) {
        if (!present.test(i)) g_restart_run(k_services[i].stop);
    }
}

void reload_deferred(llconf_item *lli) {
    run_hook(lli, &llconf_item::func_pre_commit);
    llconf_install_cnftree(lli, nullptr);
    owned_str path{prefix_llfilename(lli->file->filename)};
    if (path) llconf_install_cnftree(lli, llconf_parse_file(lli, path.get()));
    run_hook(lli, &llconf_item::func_post_commit);
}

}  // namespace

void run_restart_command(const char *command) {
    const command_end end = run_command(command);
    if (!end.well()) daemon_log(LOG_WARNING, "%s failed: %s", command, end.text().data());
}

int llconf_restart_dirty_mods(void) {
    restart_state state;
    examine_items(lli_list_from_trns_ctx(g_trns_ctx), state);
    restart_services(state.changed);
    if (state.rumex2) reload_deferred(state.rumex2);
    if (state.web_server) {
        state.web_server->is_dirty = 0;
        reload_deferred(state.web_server);
    }
    if (trns_ctx_item *item = trns_find_ctx_byid(g_trns_ctx, k_ll_trns_id)) {
        ll_contexts_detach(item);
    }
    return 1;
}
