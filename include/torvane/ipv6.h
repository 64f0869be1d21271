/*
 * IPv6 addresses
 *
 * Three ways to the addresses of an interface, the way to its gateway, and functions for address text:
 *   - getifaddr_netlink asks the kernel for all its addresses, IPv4 addresses too
 *   - get_ip6_by_ifname reads one address from "/proc/net/if_inet6"
 *   - j_get_ip6_by_ifname and get_gw6_by_ifname run the ip tool; the interface's name goes into a shell command as it
 *     stands
 *
 * An address is either 16 bytes in network order, or eight 16-bit groups. A group is a number in the host's byte order,
 * and the first group comes first.
 *
 * This lists the global IPv6 addresses of an interface. Scope 1 and family 2 in entry 0 are the filter:
 *
 *   v6_ifaddr entries[33] = {{{0}, 0}};
 *   entries[0].info = 2u << 22 | 1u << 19;
 *   if (if_nametoindex("eth0") != 0 && getifaddr_netlink("eth0", AF_INET6, 1, entries, 33) == 0)
 *     for (int i = 1; i < 33 && memcmp(entries[i].addr, in6addr_any.s6_addr, 16) != 0; i++)
 *       print_address(entries[i].addr);
 *
 * Results: 0 for success and 1 for failure. A null argument gives 1 and nothing is touched, unless a function says
 * otherwise. The functions share no state, so all of them are safe from any thread.
 */
#ifndef TORVANE_IPV6_H
#define TORVANE_IPV6_H

#include <stdint.h>

#include "torvane/common.h"

TORVANE_BEGIN

struct nlmsghdr; /* <linux/netlink.h>, for programs that handle messages themselves */

/* An address of an interface, or the filter in the first entry of an array. */
typedef struct v6_ifaddr {
  uint8_t addr[16]; /* an IPv4 address is in the first 4 bytes */
  uint32_t info;    /* numbers, from the most significant bit:
                     *   info >> 24      prefix length
                     *   info >> 22 & 3  family: 1 IPv4, 2 IPv6, 0 another
                     *   info >> 19 & 7  scope: 1 universe, 2 site, 3 link, 4 host, 5 nowhere, 0 another
                     *   info >> 16 & 7  state: 0 without duplicate address detection, 2 tentative, 3 found duplicate,
                     *                   4 permanent, 5 none of these (an address with a lifetime); the first that holds
                     *   info & 0xffff   0 in an array that was zeroed */
} v6_ifaddr;

/*
 * Handles one message of a netlink dump for read_ifc_results.
 *
 *   msg      a whole message: at least 16 bytes, and as many as its nlmsg_len says
 *   ifindex  as passed to read_ifc_results
 *   found    number of messages that the handler has taken before
 *   entries  as passed to read_ifc_results
 *
 * Returns:
 *   1      the handler took the message, which then counts towards the maximum
 *   other  it did not
 */
typedef int (*ifc_entry_handler)(const struct nlmsghdr *msg, unsigned ifindex, int found, v6_ifaddr *entries);

/*
 * Asks the kernel for the addresses of one interface or of all, and stores them from entry 1 on in the kernel's order.
 *
 *   ifname   "" for all interfaces. A name that no interface has means all of them TOO
 *   family   low 16 bits: 2 IPv4, 10 IPv6, anything else both
 *   mode     1; with any other value the kernel is not asked and the result is 0
 *   entries  array that the caller has zeroed. Entry 0 is the filter and is not written: if its prefix length, family
 *            or scope is not 0, only addresses with that value are stored
 *   count    entries in the array. At most `count` - 1 addresses are stored; further ones are read and dropped. With a
 *            negative number none is stored
 *
 * Returns:
 *   0  done, also when the reading ended early (see read_ifc_results)
 *   1  one of these:
 *        `entries` is null or `count` is 0; nothing is traced. A null `ifname` is refused likewise, once there is a
 *        socket and with mode 1 alone
 *        the socket cannot be opened, or the one on which the C library asks for the interface's index; traces
 *        "socket(): Create failed.\n"
 *        the request cannot be sent; traces "socket(): Send packet failed.\n"
 *
 * The function does not tell how many addresses there were: walk the entries from 1 on and stop at the first whose
 * address is zero. An address that the filter rejects may have left codes, but no address, in the entry behind the last
 * one. The socket is closed in every case.
 *
 * Prints "unknown rta_type: %d\n" on standard output for each attribute of an unknown kind in a message that it takes:
 * today's kernels send one (8) with every address, and another (11) with some.
 */
int getifaddr_netlink(const char *ifname, int family, int mode, v6_ifaddr *entries, int count);

/*
 * Reads the datagrams of a netlink dump and hands each message to a handler, up to the message NLMSG_DONE.
 *
 *   sock     netlink socket on which the request was sent; it stays open
 *   bufsize  bytes of the largest datagram; the kernel cuts longer ones. With 0 or less nothing is read
 *   ifindex  for the handler
 *   entries  for the handler
 *   max      number of messages that the handler may take; it is not called after that
 *   handler  called for each message but NLMSG_DONE; with null nothing is read
 *
 * NLMSG_DONE ends the reading wherever in a datagram it stands. Until it comes the function waits for the next
 * datagram, for ever if the socket has no time-out. The kernel's error messages are messages like others, so a refused
 * request has no end either. A message whose length is below 16 or beyond its datagram ends that datagram.
 *
 * Reading ends early in these cases:
 *   receiving fails, also when a signal interrupts it; traces "recv(): Receive failed.\n"
 *   a datagram has less than 16 bytes; traces "received an uncomplete netlink packet\n"
 *   there is no memory for the buffer; nothing is traced
 */
void read_ifc_results(int sock, int bufsize, unsigned ifindex, v6_ifaddr *entries, int max, ifc_entry_handler handler);

/*
 * Stores the address of a netlink message in entry `found` + 1, unless the filter rejects it. It is the handler of
 * getifaddr_netlink.
 *
 *   msg      message of as many bytes as its nlmsg_len says; its type does not matter
 *   ifindex  index of the only interface whose addresses are taken; 0 for any interface
 *   found    number of addresses stored so far
 *   entries  array whose entry 0 is the filter (see getifaddr_netlink)
 *
 * Returns:
 *   1  the message passed the filter: its codes and, if it has one, its address are in the entry
 *   0  the message was not taken:
 *        it has less than 24 bytes, it is of another interface, `found` is negative, or a pointer is null: nothing is
 *        written
 *        the filter rejects it: the codes that passed before are written, in the order family, scope, prefix length
 *
 * An address attribute is taken if it is at least as long as an address of the family; of several the last one counts.
 * The attributes end at one whose length is below 4 or beyond the message. For each attribute of an unknown kind in a
 * message that passed the filter, prints "unknown rta_type: %d\n" on standard output.
 */
int process_ifaddr_ip(const struct nlmsghdr *msg, unsigned ifindex, int found, v6_ifaddr *entries);

/*
 * Reads one IPv6 address of an interface from "/proc/net/if_inet6".
 *
 *   ifname  name of the interface. Only the first 12 characters of the names in the file are compared with it, so a
 *           longer name is not found
 *   which   0 the first global address, 1 the first link-local address, 2 the second global address; with any other
 *           value none is found
 *   groups  receives the address
 *
 * Returns:
 *   0  `groups` holds the address
 *   1  there is no such address or no such file, or an argument is null; `groups` is untouched
 *
 * Global is what the kernel calls global; that includes unique local addresses (fc00::/7). No address is found for an
 * interface whose index is above 255, because the columns of the file are read as two digits.
 */
int get_ip6_by_ifname(const char *ifname, int which, unsigned short groups[8]);

/*
 * Reads one IPv6 address of an interface from the output of "ip -6 address show dev IFNAME", which goes through grep
 * and awk.
 *
 *   ifname  name of the interface; it goes into the shell command as it stands
 *   which   1 the first link-local address, 2 the second global address, any other value the first global address
 *   addr    receives the 16 bytes of the address; all 0 when there is none
 *
 * Returns:
 *   0  the tool named an address; `addr` is all 0 if StringToV6Addr cannot read it
 *   1  the tool named none, it cannot be run, or an argument is null
 *
 * An address is the second word of a line with the word "link" or "global". The tool's own heading counts as such a
 * line when it holds that word, as for an interface whose name does. _system_read refuses a command that is too long
 * and traces "command too long\n".
 */
int j_get_ip6_by_ifname(const char *ifname, int which, unsigned char addr[16]);

/*
 * Reads the gateway of the first default IPv6 route through an interface from the output of "ip -6 route show match
 * ::/0 dev IFNAME", which goes through grep and awk.
 *
 *   ifname  name of the interface; it goes into the shell command as it stands
 *   addr    receives the 16 bytes of the gateway; untouched when the tool named none
 *
 * Returns:
 *   0  the tool named a gateway; `addr` is all 0 if StringToV6Addr cannot read it
 *   1  the tool named none, it named "0:0:0:0:0:0:0:0", which is no gateway, it cannot be run, or an argument is null
 *
 * _system_read refuses a command that is too long and traces "command too long\n".
 */
int get_gw6_by_ifname(const char *ifname, unsigned char addr[16]);

/*
 * Reads the text of an IPv6 address.
 *
 *   text  the address alone. Cut off first whatever follows it ("/64", "%eth0", a newline): with such an end the
 *         result is 0 and the address all 0
 *   addr  receives 16 bytes; all 0 unless the text is an address
 *
 * Returns:
 *   0  `addr` holds the address; or it is all 0, because the text
 *        has a character that belongs to no address,
 *        ends in a well-formed IPv4 address ("::ffff:192.0.2.1"), or
 *        has a dot after more than 12 bytes
 *   1  `addr` is all 0, because the text
 *        begins with a single ":",
 *        has a group above ffff (leading zeros do not count),
 *        has a second "::",
 *        stands for more than 16 bytes, or for fewer without a "::", or
 *        is null; a null `addr` also gives 1
 *
 * Any other dot ends the address, whatever follows it; the digits before the dot are the last group. A single ":" at
 * the end is not noticed. A "::" may stand for no group at all.
 */
int StringToV6Addr(const char *text, unsigned char addr[16]);

/*
 * Writes an address as eight groups in lower-case hexadecimal, without leading zeros and without "::".
 *
 *   groups  the address
 *   text    at least 40 bytes that the caller has zeroed: NO terminator is written
 *
 * Returns 0, always; with a null argument nothing is written.
 */
int V6AddrToString(const unsigned short groups[8], char *text);

TORVANE_END

#endif
