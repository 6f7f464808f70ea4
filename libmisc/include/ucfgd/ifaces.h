#ifndef UCFGD_IFACES_H
#define UCFGD_IFACES_H

/* The network interfaces of the machine and their IPv4 configuration, as the kernel tells them.
 *
 *  1. Lists and records are new and belong to the caller; a listing's nodes own their records.
 *  2. What goes wrong on the way to a listing is printed on standard error; errno carries the
 * cause.
 *  3. Addresses are in network order, as in every socket address.
 */

#include <net/if.h>
#include <sys/socket.h>

#ifdef __cplusplus
extern "C" {
#endif

/* One interface's configuration; freed with free(). */
typedef struct iface {
    short type;       /* hardware type, an ARPHRD_ number */
    short flags;      /* IFF_ bits */
    int metric;       /* 0 when it cannot be read */
    int mtu;          /* bytes; 0 when it cannot be read */
    int tx_queue_len; /* packets; -1 when it cannot be read */
    unsigned char hwaddr[6];
    struct sockaddr addr;
    struct sockaddr dstaddr; /* point-to-point peer */
    struct sockaddr broadaddr;
    struct sockaddr netmask;
} iface;

/* One entry of a listing. */
typedef struct iface_node {
    struct iface_node *next;
    char name[IF_NAMESIZE];
    struct iface *iface; /* owned; null until iface_get_all_cfg */
} iface_node;

/* The interfaces that have an IPv4 address, in the kernel's order, without those whose name begins
 * with "lo"; no configuration yet. Null when there is none, or on failure. */
iface_node *iface_get_list(void);

/* The configuration of the interface of that name; null (errno) when there is no such interface, or
 * when the name is too long to be one. Addresses that it does not have are all zero. */
iface *iface_get_cfg(const char *name);

/* Reads every listed interface's configuration afresh; null where the interface has gone. */
void iface_get_all_cfg(iface_node *list);

/* Frees the nodes and their configurations; null is accepted. */
void destroy_iface_list(iface_node *list);

#ifdef __cplusplus
}
#endif

#endif
