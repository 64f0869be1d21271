/*
 * Address conversions
 *
 * IPv4 addresses, endpoints and MAC addresses as numbers and as texts. Nothing here keeps state; any thread may call
 * it. Results: 0 success, 1 failure (also for null arguments), unless a function says otherwise.
 */
#ifndef TORVANE_ADDRESS_H
#define TORVANE_ADDRESS_H

#include <stdint.h>

#include "torvane/common.h"

TORVANE_BEGIN

/* An IPv4 endpoint, both fields in network byte order in memory, as in a struct sockaddr_in. Address 0 is "any". */
typedef struct ipport {
  uint32_t ip;
  uint16_t port;
} ipport;

/*
 * The number of leading one bits of a mask. `mask` is a number with the first octet in the top byte, so a mask from
 * get_mask_by_ifname goes through ntohl first.
 *
 * Returns 0 and a prefix of 0 to 32; or 1 and a prefix of 0 when ones follow a zero bit.
 */
int netmask_convert_prefix(uint32_t mask, uint8_t *prefix);

/*
 * Fill an endpoint with address and port just as they are given. Both do the same and neither changes the byte order:
 * pass the port through htons. The name of the second is from hosts where the orders are one.
 */
int ipport_convert_n2n(uint32_t ip, uint16_t port, ipport *out);
int ipport_convert_h2n(uint32_t ip, uint16_t port, ipport *out);

/*
 * Fill an endpoint from an address text, as string2ip reads it, and a port just as it is given (pass it through htons).
 * Both do the same. On a failure the port is left alone; the address is as string2ip leaves it.
 */
int ipport_string_convert_h2n(const char *text, uint16_t port, ipport *out);
int ipport_string_convert_n2n(const char *text, uint16_t port, ipport *out);

/*
 * Reads an address text as inet_addr(3) does: four numbers, or fewer (then the last one fills the rest), decimal,
 * octal with a leading 0 or hexadecimal with 0x; some C libraries do not look at text behind a blank. An empty text is
 * 0.0.0.0.
 *
 *   out  network byte order; 0xFFFFFFFF after a failure, untouched when `text` is null
 *
 * Returns 0; or 1 for any other text. All ones can be written as "255.255.255.255" alone: other spellings give 1.
 */
int string2ip(const char *text, uint32_t *out);

/*
 * Writes an address (network byte order) as four decimal numbers with dots, and a terminator.
 *
 *   size  bytes of `out`; below 16 nothing is written, whatever the address: traces "buffer size too small!!\n" (with
 *         the short header) and gives 1
 */
int ip2string(uint32_t ip, char *out, int size);

/*
 * Writes one byte for each piece of `text` between colons, read as hexadecimal (a piece that is no number is 0, the low
 * 8 bits of a larger one count; empty pieces are passed over).
 *
 *   text  cut in place: colons become terminators
 *   out   as many bytes as `text` has pieces. They are NOT counted: look at foreign text first
 *
 * Returns null, always. Nothing is done when an argument is null.
 */
void *change_mac_format_to_uchar6(char *text, uint8_t *out);

/*
 * Appends the pieces of `text` between colons to the text in `out` ("00:1a:2b" appends "001a2b").
 *
 *   text  cut in place: colons become terminators
 *   out   holds a text already, an empty one as a rule, and has room for `text` behind it
 *
 * Returns null, always. Nothing is done when an argument is null.
 */
void *change_mac_format_without_colon(char *text, char *out);

/* The decimal number that `text` starts with, cut to the range of an int; 0 for null and when there is none. */
int my_atoi(const char *text);

TORVANE_END

#endif
