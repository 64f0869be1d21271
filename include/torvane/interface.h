/*
 * Interfaces
 *
 * These functions ask the kernel about its IPv4 interfaces by name: addresses, flags, hardware addresses, and the list
 * of names.
 *
 *     uint32_t address;
 *     char text[16];
 *
 *     if (get_ip_by_ifname("eth0", &address) == 0 && ip2string(address, text, sizeof(text)) == 0)
 *       printf("%s\n", text);
 *
 * All functions return 0 for success and 1 for failure, also for null arguments. On failure they write nothing unless
 * their description says otherwise. None of them keeps state, and any thread may call them. Traces of this service have
 * the short header of torvane/trace.h, without the process id.
 *
 * Addresses and masks are IPv4 in network byte order in memory, as in a struct in_addr; ip2string of torvane/address.h
 * makes text of them.
 *
 * Each query by name opens a raw socket for itself and closes it again. The process needs the right to do so
 * (CAP_NET_RAW); without it, or without a free descriptor, every query fails. Names are cut to the 15 characters that a
 * request to the kernel holds. The name "eth0:1" stands for the address with that label.
 */
#ifndef TORVANE_INTERFACE_H
#define TORVANE_INTERFACE_H

#include <stdint.h>

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * Returns the interface's first IPv4 address.
 *
 *   ifname  name of the interface
 *   out     receives the address, network byte order
 *
 * Returns:
 *   0  the address is in `out`
 *   1  there is no such interface, it has no address, or the kernel cannot be asked
 */
int get_ip_by_ifname(const char *ifname, uint32_t *out);

/*
 * Returns the netmask of the interface's first IPv4 address.
 *
 *   ifname  name of the interface
 *   out     receives the mask, network byte order
 *
 * Returns:
 *   0  the mask is in `out`
 *   1  there is no such interface, it has no address, or the kernel cannot be asked
 */
int get_mask_by_ifname(const char *ifname, uint32_t *out);

/*
 * Returns the broadcast address of the interface's first IPv4 address.
 *
 *   ifname  name of the interface
 *   out     receives the broadcast address, network byte order; 0.0.0.0 when it was never set
 *
 * Returns:
 *   0  the broadcast address is in `out`
 *   1  there is no such interface, it has no address, or the kernel cannot be asked
 */
int get_bcast_by_ifname(const char *ifname, uint32_t *out);

/*
 * Returns an address for an alias of the interface: the next host address above the interface's own. The search wraps
 * around inside the subnet and skips the network's address and the broadcast address. It does not find out whether
 * another machine has the address.
 *
 *   ifname  name of the interface
 *   out     receives the address, network byte order. Each address that is tried is written here
 *
 * Returns:
 *   0  the address is in `out`
 *   1  the interface's address or mask cannot be had, or an argument is null: traces "CHECK!!\n"
 *
 * NEVER RETURNS for a subnet without two host addresses, that is for the masks 255.255.255.254 and 255.255.255.255.
 * Check the mask with get_mask_by_ifname first.
 */
int get_aliasIp_by_ifname(const char *ifname, uint32_t *out);

/*
 * Returns the interface's flags: IFF_UP and its kin.
 *
 *   ifname  name of the interface
 *   out     receives the kernel's 16 bits of flags, with their sign extended
 *
 * Returns:
 *   0  the flags are in `out`
 *   1  there is no such interface, or the kernel cannot be asked
 */
int get_flag_by_ifname(const char *ifname, int32_t *out);

/*
 * Returns the channel of a wireless interface.
 *
 *   ifname  name of the interface
 *   out     receives the channel
 *
 * Returns:
 *   0  the channel is in `out`
 *   1  there is no such interface, its driver refuses the request, or the kernel cannot be asked
 *
 * It sends the driver's private request 0x8BE1 (SIOCIWFIRSTPRIV + 1) with length 1, flags 0x712, and a pointer to 4
 * zeroed bytes that the driver fills. Other drivers may take that request for anything, so use it only on interfaces
 * whose driver has it.
 */
int get_chan_by_ifname(const char *ifname, int32_t *out);

/*
 * Returns the first 6 bytes of the interface's hardware address. On interfaces other than Ethernet that may not be all
 * of it.
 *
 *   ifname  name of the interface
 *   out     receives the 6 bytes
 *   size    bytes of `out`, 6 or more
 *
 * Returns:
 *   0  the address is in `out`
 *   1  `size` is below 6 (the kernel is not asked then), there is no such interface, or the kernel cannot be asked
 */
int get_mac_by_ifname(const char *ifname, uint8_t *out, int size);

/*
 * Gives an Ethernet interface a hardware address.
 *
 *   ifname  name of the interface
 *   mac     6 bytes
 *
 * Returns:
 *   0  the interface has the address
 *   1  nothing was changed: there is no such interface, it is not Ethernet, or the kernel refuses (the process lacks
 *      CAP_NET_ADMIN; some drivers refuse while the interface is up)
 */
int set_mac_by_ifname(const char *ifname, const uint8_t *mac);

/*
 * Always returns 1. This library does not set the interface's IPv4 address: the function looks at no argument and
 * changes nothing. It is kept for programs that call it.
 */
int set_ip_by_ifname(const char *ifname, uint32_t value);

/*
 * Always returns 1. This library does not set the interface's netmask: the function looks at no argument and
 * changes nothing. It is kept for programs that call it.
 */
int set_mask_by_ifname(const char *ifname, uint32_t value);

/*
 * Always returns 1. This library does not set the interface's broadcast address: the function looks at no argument and
 * changes nothing. It is kept for programs that call it.
 */
int set_bcast_by_ifname(const char *ifname, uint32_t value);

/*
 * Always returns 1. This library does not set the interface's MTU: the function looks at no argument and
 * changes nothing. It is kept for programs that call it.
 */
int set_mtu_by_ifname(const char *ifname, uint32_t value);

/*
 * Always returns 1. This library does not tell the interface's MTU: the function looks at no argument and writes
 * nothing. It is kept for programs that call it.
 */
int get_mtu_by_ifname(const char *ifname, uint32_t *out);

/*
 * Should return the name of the interface that has an IPv4 address, but finds only interfaces whose names have exactly
 * 15 characters. Use getifaddrs(3) instead.
 *
 *   ip    address, network byte order
 *   out   receives the rest of the interface's line in "/proc/net/dev", from the name on, with a line feed in place of
 *         the colon and with the counters behind it
 *   size  bytes of `out`; 256 are always enough
 *
 * Returns:
 *   0  found
 *   1  no interface is found, the text does not fit `size`, `out` is null, or "/proc/net/dev" cannot be opened
 *
 * It asks the kernel about an interface whose name is that whole rest of the line, and the kernel cuts the name after
 * 15 characters. So only a name that fills all 15 is asked for as it is.
 */
int get_ifname_by_ip(uint32_t ip, char *out, int size);

/*
 * Returns the names of all interfaces, up or not, in the order of "/proc/net/dev", joined by ",".
 *
 *   out   receives the names; an empty text when there is no interface
 *   size  bytes of `out`, all of which are cleared first. The list and its terminator may fill them exactly. A negative
 *         size is taken for 0
 *
 * Returns:
 *   0  all names are in `out`
 *   1  "/proc/net/dev" cannot be opened, or `out` is null and `size` is not 0: `out` is left alone
 *   1  the list does not fit, as with size 0: traces "buffer too small!!\n". `out` then holds the names that fit,
 *      terminated, unless its size is 0; the last of them may have its comma
 */
int get_netdev_name(char *out, int size);

/*
 * Should tell whether a name is one of the kernel's interfaces, but always returns 1 ("it is not"), also for a name
 * that is. Its test for an empty list is the wrong way round. The function is kept for callers that are built on that
 * answer; use if_nametoindex(3) instead.
 *
 *   name  name to look for; null is allowed
 *
 * It reads the list with get_netdev_name into 1024 bytes, which traces "buffer too small!!\n" when the list does not
 * fit.
 */
int check_netdev_name(const char *name);

TORVANE_END

#endif
