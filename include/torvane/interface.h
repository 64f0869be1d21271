/*
 * Interfaces
 *
 * What the kernel knows about its IPv4 interfaces. Nothing here keeps state; any thread may call it. Results: 0
 * success, 1 failure; on a failure nothing is written unless the function says otherwise. Traces here have the short
 * header, without the process id.
 *
 * Addresses and masks are IPv4 in network byte order in memory, as in a struct in_addr; for text see ip2string.
 *
 * Every query by name opens a raw socket for itself and closes it again: the process needs the right to do so
 * (CAP_NET_RAW), and without it, as without a free descriptor, every query gives 1. Names are cut to the 15 characters
 * that a request to the kernel holds; "eth0:1" names the address with that label.
 */
#ifndef TORVANE_INTERFACE_H
#define TORVANE_INTERFACE_H

#include <stdint.h>

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * The interface's first IPv4 address; its netmask; its broadcast address. 1 when there is no such interface or it has
 * no address; a broadcast address that was never set is 0.0.0.0, and a success.
 */
int get_ip_by_ifname(const char *ifname, uint32_t *out);
int get_mask_by_ifname(const char *ifname, uint32_t *out);
int get_bcast_by_ifname(const char *ifname, uint32_t *out);

/*
 * A free address for an alias: the next host address above the interface's own, wrapping inside its subnet, neither the
 * network's nor the broadcast address. Whether another machine has it is not looked at.
 *
 * NEVER RETURNS for a subnet without two host addresses: masks 255.255.255.254 and 255.255.255.255 (get_mask_by_ifname
 * tells). Each address that it tries is written to `out`.
 *
 * Returns 0; or 1, tracing "CHECK!!\n", when address or mask cannot be had.
 */
int get_aliasIp_by_ifname(const char *ifname, uint32_t *out);

/* The interface's flags (IFF_UP and its kin), the kernel's 16 bits with their sign extended. */
int get_flag_by_ifname(const char *ifname, int32_t *out);

/*
 * The channel of a wireless interface, by its driver's private request 0x8BE1 (SIOCIWFIRSTPRIV + 1): length 1, flags
 * 0x712, and a pointer to 4 bytes, 0 before, that the driver fills. What other drivers take that request for is their
 * affair: ask only interfaces of the driver that has it.
 */
int get_chan_by_ifname(const char *ifname, int32_t *out);

/*
 * The first 6 bytes of the interface's hardware address. On other than Ethernet interfaces that may not be all of it.
 *
 *   size  bytes of `out`; below 6 gives 1, and the kernel is not asked
 */
int get_mac_by_ifname(const char *ifname, uint8_t *out, int size);

/*
 * Gives an Ethernet interface the hardware address `mac` (6 bytes). 1, with nothing changed, when there is no such
 * interface, it is not Ethernet, or the kernel refuses (no CAP_NET_ADMIN; some drivers while the interface is up).
 */
int set_mac_by_ifname(const char *ifname, const uint8_t *mac);

/* Not implemented, kept for programs that call them: they look at nothing, do nothing and return 1. */
int set_ip_by_ifname(const char *ifname, uint32_t value);
int set_mask_by_ifname(const char *ifname, uint32_t value);
int set_bcast_by_ifname(const char *ifname, uint32_t value);
int set_mtu_by_ifname(const char *ifname, uint32_t value);
int get_mtu_by_ifname(const char *ifname, uint32_t *out);

/*
 * Meant to give the name of the interface with the address `ip`; finds only interfaces whose names have exactly 15
 * characters. The name that it asks for is the rest of the interface's line in "/proc/net/dev", with a line feed in
 * place of the colon, and the kernel cuts that after 15 characters. That whole rest, counters included, is also what
 * `out` receives. getifaddrs(3) does what one wants.
 *
 *   size  bytes of `out`; a line and its terminator have up to 255
 *
 * Returns 0; or 1 when no interface is found, the text does not fit `size`, or "/proc/net/dev" cannot be opened.
 */
int get_ifname_by_ip(uint32_t ip, char *out, int size);

/*
 * The names of all interfaces, up or not, in the order of "/proc/net/dev", joined by ",".
 *
 *   out   always terminated; an empty text when there is no interface
 *   size  bytes of `out`, all of which are cleared first; the list and its terminator may fill them exactly
 *
 * Returns 0; 1 when "/proc/net/dev" cannot be opened or `size` is 0 or less (`out` is left alone); 1, tracing "buffer
 * too small!!\n", when the list does not fit: then `out` holds the names that do, the last of them perhaps with its
 * comma.
 */
int get_netdev_name(char *out, int size);

/*
 * Always 1, "not one of the kernel's interfaces", also for those that are: its test for an empty list is the wrong way
 * round. Kept for callers built on that answer; if_nametoindex(3) does what one wants. Reads the list by
 * get_netdev_name into 1024 bytes, with its trace when it does not fit.
 */
int check_netdev_name(const char *name);

TORVANE_END

#endif
