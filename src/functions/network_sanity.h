#ifndef UCFGD_FUNCTIONS_NETWORK_SANITY_H
#define UCFGD_FUNCTIONS_NETWORK_SANITY_H

/* Predicates on addresses, masks and names, which "sanity:" methods and types call under the same
 * names.
 *
 *  1. Each answers 1 for accepted, 0 for anything else; a null text is refused. errno is kept.
 *  2. Nothing is looked up: the text alone decides.
 *  3. Texts are in the locale's encoding; letters of other alphabets count in host names.
 */

#ifdef __cplusplus
extern "C" {
#endif

/* An IPv4 address in dotted decimal; an IPv6 address. */
int isip(const char *s);
int isip6(const char *s);

/* An IPv4 netmask: ones, then zeros. The topmost bit is not looked at, so 0.0.0.0 passes, and
 * 127.255.255.0 does as well. */
int isnetmask(const char *s);

/* "address/length" of an IPv4 network whose host bits are zero. Length 0 goes with 0.0.0.0 alone.
 */
int iscidr(const char *s);

/* "address/netmask"; the address may have host bits, and what follows the mask is not read. */
int isnetwork(const char *s);

/* "address/length" of IPv6, 0 to 128; what follows the number is not read. */
int isnetwork6(const char *s);

/* 1 when ip belongs to the network of net and mask. Texts that are no addresses count as 0.0.0.0.
 */
int isinnetwork(const char *net, const char *mask, const char *ip);

/* 1 when ip belongs to the network of "address/length"; both are IPv4, or both IPv6. */
int isinsubnet(const char *subnet, const char *ip);

/* Six pairs of hexadecimal digits separated by colons. */
int ishwaddr(const char *s);

/* One label: alphanumeric at both ends, alphanumeric or "-" between. ishostname also wants fewer
 * than 64 characters. */
int _ishostname(const char *s);
int ishostname(const char *s);

/* Labels separated by dots, 63 characters each and 255 in all at most; one dot may end the name. */
int isdomainname(const char *s);

#ifdef __cplusplus
}
#endif

#endif
