/*
 * IPv6 addresses
 *
 * Three ways to the addresses of an interface, and address text. getifaddr_netlink asks the kernel for everything it
 * knows, IPv4 addresses too; get_ip6_by_ifname reads one address from "/proc/net/if_inet6"; j_get_ip6_by_ifname and
 * get_gw6_by_ifname run the ip tool, with the interface's name as it stands in a shell command.
 *
 * An address is 16 bytes in network order, or eight 16-bit groups, each a number of the host's, the first one first.
 *
 * Results: 0 success, 1 failure. Null arguments give 1 with nothing touched, unless a function says otherwise. No
 * shared state: any thread may call these functions.
 */
#ifndef TORVANE_IPV6_H
#define TORVANE_IPV6_H

#include <stdint.h>

#include "torvane/common.h"

TORVANE_BEGIN

struct nlmsghdr; /* <linux/netlink.h>, for those who handle messages themselves */

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
 * Handles one message of a dump for read_ifc_results.
 *
 *   msg      a whole message: at least 16 bytes, and as many as its nlmsg_len says
 *   ifindex  as passed to read_ifc_results
 *   found    how many messages were taken before
 *   entries  as passed to read_ifc_results
 *
 * Returns 1 when it took the message, which then counts towards the maximum.
 */
typedef int (*ifc_entry_handler)(const struct nlmsghdr *msg, unsigned ifindex, int found, v6_ifaddr *entries);

/*
 * Has the kernel list its addresses, in its order, from entry 1 on.
 *
 *   ifname   "" for all interfaces; a name that no interface has means all of them TOO
 *   family   low 16 bits: 2 IPv4, 10 IPv6, anything else both
 *   mode     1; with any other value nothing is asked and the result is 0
 *   entries  zeroed by the caller. Entry 0 is the filter and is not written: a prefix length, family or scope in it
 *            that is not 0 keeps only addresses with that value
 *   count    entries in the array, so at most `count` - 1 addresses; the others are read and dropped
 *
 * How many there were is not told: walk the entries from 1 on and stop at the first with a zero address. An address
 * that the filter rejects may have left codes, and no address, in the entry behind the last one.
 *
 * Prints on standard output "unknown rta_type: %d\n" for each attribute of a kind that it does not know: today's
 * kernels send one (8) with every address, and another (11) with some.
 *
 * Returns 0, also when reading ended early (as read_ifc_results says); or 1 when `count` is 0 or less, after
 * "socket(): Create failed.\n" or after "socket(): Send packet failed.\n", traced. The socket is closed in every case.
 */
int getifaddr_netlink(const char *ifname, int family, int mode, v6_ifaddr *entries, int count);

/*
 * Reads the datagrams of a dump and hands its messages to a handler.
 *
 *   sock     netlink socket with the request sent; stays open
 *   bufsize  bytes of the largest datagram; what is longer is cut by the kernel. 0 or less reads nothing
 *   ifindex, entries  for the handler
 *   max      how many messages the handler may take; it is not called any more after that
 *
 * Ends at the NLMSG_DONE message, wherever in a datagram it stands; otherwise it waits for the next datagram, for ever
 * if the socket has no time-out. A message whose length is below 16 or beyond its datagram ends that datagram. The
 * kernel's error messages are messages like others: a refused request has no end either. Ends early, tracing
 * "recv(): Receive failed.\n", also when a signal interrupts it; tracing "received an uncomplete netlink packet\n" at a
 * datagram of less than 16 bytes; and with nothing traced when there is no memory for the buffer.
 */
void read_ifc_results(int sock, int bufsize, unsigned ifindex, v6_ifaddr *entries, int max, ifc_entry_handler handler);

/*
 * The handler of getifaddr_netlink: puts the address of a message into entry `found` + 1 unless the filter in entry 0
 * rejects it or `ifindex` is neither 0 nor its interface. The type of the message does not count.
 *
 * An address attribute is taken when it is at least as long as an address of the family, the last of several; the
 * attributes end at one whose length is below 4 or beyond the message. Prints as getifaddr_netlink says.
 *
 * Returns 1 when the address was taken. Else 0: a message shorter than 24 bytes, a negative `found` and null write
 * nothing; a rejected message has written the codes that passed (in the order family, scope, prefix length).
 */
int process_ifaddr_ip(const struct nlmsghdr *msg, unsigned ifindex, int found, v6_ifaddr *entries);

/*
 * One IPv6 address of an interface from "/proc/net/if_inet6".
 *
 *   ifname  compared with the first 12 characters of the names in the file: a longer one is not found
 *   which   0 the first global address, 1 the first link-local address, 2 the second global address; others find none
 *   groups  receives the address; not written when there is none
 *
 * Of an interface whose index is above 255 nothing is found: the file's columns are read as two digits. Global is what
 * the kernel calls so: unique local addresses (fc00::/7) are among them.
 *
 * Returns 0; or 1 when there is no such address or no such file.
 */
int get_ip6_by_ifname(const char *ifname, int which, unsigned short groups[8]);

/*
 * One IPv6 address of an interface, from the output of "ip -6 address show dev IFNAME" (with grep and awk): what stands
 * second in the lines with the word "link" or "global", the tool's own heading among them when it holds that word, as
 * for an interface whose name does.
 *
 *   ifname  goes into a shell command as it stands
 *   which   1 the first link-local address, 2 the second global address, any other value the first global one
 *   addr    16 bytes; zeroed when there is none
 *
 * Returns 0 when the tool named one, even if StringToV6Addr cannot read it (then `addr` is zero); else 1. A command
 * that is too long is refused and traced by _system_read.
 */
int j_get_ip6_by_ifname(const char *ifname, int which, unsigned char addr[16]);

/*
 * The gateway of the first default IPv6 route through an interface, from the output of "ip -6 route show match ::/0 dev
 * IFNAME" (with grep and awk). Parameters and results as j_get_ip6_by_ifname; the text "0:0:0:0:0:0:0:0" is no gateway.
 */
int get_gw6_by_ifname(const char *ifname, unsigned char addr[16]);

/*
 * Reads the text of an IPv6 address. Cut it first at whatever follows the address ("/64", "%eth0", a newline): with
 * those at its end the result is 0 and the address zero.
 *
 *   text  null gives 1
 *   addr  16 bytes, zeroed first; null gives 1
 *
 * Returns 0 for an address; and 0 with `addr` all zero for a text with a character that belongs to none, for one with a
 * well-formed IPv4 address as its tail ("::ffff:192.0.2.1") and for a dot after more than 12 bytes. Any other dot ends
 * the address, whatever follows it: the digits before it are the last group.
 * Returns 1 with `addr` all zero for a single ":" at the start, a group above ffff (leading zeros do not count), a
 * second "::", more than 16 bytes, and fewer without a "::". A single ":" at the end is not seen; a "::" may stand for
 * no group at all.
 */
int StringToV6Addr(const char *text, unsigned char addr[16]);

/*
 * Writes an address as eight groups in lower-case hexadecimal, without leading zeros and without "::".
 *
 *   text  at least 40 bytes, zeroed by the caller: NO terminator is written
 *
 * Returns 0; 1 when an argument is null.
 */
int V6AddrToString(const unsigned short groups[8], char *text);

TORVANE_END

#endif
