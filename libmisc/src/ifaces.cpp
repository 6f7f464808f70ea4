#include "ucfgd/ifaces.h"

#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstddef>
#include <new>
#include <vector>

#include "ucfgd/owners.h"
#include "ucfgd/strlcpy.h"

static_assert(offsetof(iface_node, next) == 0);

namespace {

constexpr size_t k_first_room = 30;
constexpr size_t k_more_room = 10;

/* Says on standard error what went wrong, unless its reader is behind: nothing here may wait for
 * it. Keeps errno. */
void complain(const char *what, const char *reason = "") {
    errno_guard keep;
    char text[128];
    snprintf(text, sizeof text, "%s%s\n", what, reason);
    pollfd out{STDERR_FILENO, POLLOUT, 0};
    if (poll(&out, 1, 0) != 1 || (out.revents & POLLOUT) == 0) return;
    if (write(STDERR_FILENO, text, strlen(text)) < 0) return;
}

unique_fd ipv4_socket() {
    return unique_fd{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
}

/* Asks the kernel about one interface; 0, or -1 and errno. */
int ask(int fd, const char *name, unsigned long what, ifreq &request) {
    request = {};
    strlcpy(request.ifr_name, name, sizeof request.ifr_name);
    request.ifr_addr.sa_family = AF_INET;
    return ioctl(fd, what, &request);
}

/* All request records that the kernel has. A full buffer may hold a list that was cut: it is asked
 * again with more room. */
bool read_records(int fd, std::vector<ifreq> &records) {
    for (size_t room = k_first_room;; room += k_more_room) {
        records.assign(room, {});
        ifconf conf{};
        conf.ifc_len = static_cast<int>(room * sizeof(ifreq));
        conf.ifc_req = records.data();
        if (ioctl(fd, SIOCGIFCONF, &conf) < 0) {
            complain("SIOCGIFCONF: ", strerror(errno));
            return false;
        }
        size_t used = static_cast<size_t>(conf.ifc_len) / sizeof(ifreq);
        if (used == room) continue;
        records.resize(used);
        return true;
    }
}

struct address_request {
    unsigned long what;
    sockaddr iface::*field;
};

/* Read only when the interface has an address of its own. */
constexpr address_request k_further_addresses[] = {
    {SIOCGIFDSTADDR, &iface::dstaddr},
    {SIOCGIFBRDADDR, &iface::broadaddr},
    {SIOCGIFNETMASK, &iface::netmask},
};

void read_addresses(int fd, const char *name, iface &cfg) {
    ifreq request;
    if (ask(fd, name, SIOCGIFADDR, request) < 0) return;
    cfg.addr = request.ifr_addr;
    for (const auto &[what, field] : k_further_addresses)
        if (ask(fd, name, what, request) == 0) cfg.*field = request.ifr_addr;
}

}  // namespace

iface_node *iface_get_list() {
    unique_fd fd = ipv4_socket();
    if (!fd) {
        complain("Failed to open socket: ", strerror(errno));
        return nullptr;
    }
    list_builder<iface_node> list;
    try {
        std::vector<ifreq> records;
        if (!read_records(fd.get(), records)) return nullptr;
        for (const ifreq &record : records) {
            if (strncmp(record.ifr_name, "lo", 2) == 0) continue;
            auto *node = static_cast<iface_node *>(calloc(1, sizeof(iface_node)));
            if (node == nullptr) throw std::bad_alloc{};
            strlcpy(node->name, record.ifr_name, sizeof node->name);
            list.append(node);
        }
    } catch (const std::bad_alloc &) {
        destroy_iface_list(list.release());
        complain("Out of memory");
        errno = ENOMEM;
    }
    return list.release();
}

iface *iface_get_cfg(const char *name) {
    if (name == nullptr || strlen(name) >= IFNAMSIZ) {
        errno = ENODEV;
        return nullptr;
    }
    unique_fd fd = ipv4_socket();
    ifreq request;
    if (!fd || ask(fd.get(), name, SIOCGIFFLAGS, request) < 0) return nullptr;
    auto *cfg = static_cast<iface *>(calloc(1, sizeof(iface)));
    if (cfg == nullptr) return nullptr;

    errno_guard keep;
    cfg->flags = request.ifr_flags;
    if (ask(fd.get(), name, SIOCGIFHWADDR, request) == 0)
        memcpy(cfg->hwaddr, request.ifr_hwaddr.sa_data, sizeof cfg->hwaddr);
    cfg->type = static_cast<short>(request.ifr_hwaddr.sa_family);
    cfg->metric = ask(fd.get(), name, SIOCGIFMETRIC, request) == 0 ? request.ifr_metric : 0;
    cfg->mtu = ask(fd.get(), name, SIOCGIFMTU, request) == 0 ? request.ifr_mtu : 0;
    cfg->tx_queue_len = ask(fd.get(), name, SIOCGIFTXQLEN, request) == 0 ? request.ifr_qlen : -1;
    read_addresses(fd.get(), name, *cfg);
    return cfg;
}

void iface_get_all_cfg(iface_node *list) {
    for (; list != nullptr; list = list->next) {
        free(list->iface);
        list->iface = iface_get_cfg(list->name);
    }
}

void destroy_iface_list(iface_node *list) {
    for (iface_node *node : removal_safe(list)) {
        free(node->iface);
        free(node);
    }
}
