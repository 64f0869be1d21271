/*
 * Addresses
 *
 * These functions convert IPv4 addresses, endpoints, masks and MAC addresses between numbers and texts:
 *
 *     ipport server;
 *     char text[16];
 *
 *     if (ipport_string_convert_h2n("192.168.1.1", htons(80), &server) == 0 &&
 *         ip2string(server.ip, text, sizeof(text)) == 0)
 *       printf("%s port %d\n", text, ntohs(server.port));
 *
 * Functions that return int give 0 for success and 1 for failure, except my_atoi. None of them keeps state, and any
 * thread may call them.
 */
#ifndef TORVANE_ADDRESS_H
#define TORVANE_ADDRESS_H

#include <stdint.h>

#include "torvane/common.h"

TORVANE_BEGIN

/* An IPv4 endpoint. Both fields are in network byte order in memory, as in a struct sockaddr_in. */
typedef struct ipport {
  uint32_t ip;   /* address; 0 is "any" */
  uint16_t port; /* pass a number through htons first */
} ipport;

/*
 * Returns the number of leading one bits of a mask: its prefix length.
 *
 *   mask    a number with the first octet in the top byte, so a mask of get_mask_by_ifname goes through ntohl first
 *   prefix  receives 0 to 32
 *
 * Returns:
 *   0  converted
 *   1  ones follow a zero bit, and the prefix is 0; or `prefix` is null
 */
int netmask_convert_prefix(uint32_t mask, uint8_t *prefix);

/*
 * Fills an endpoint with an address and a port. It changes no byte order: pass the port through htons first.
 *
 *   ip    address, network byte order
 *   port  port, network byte order
 *   out   receives both, just as they are given
 *
 * Returns:
 *   0  filled
 *   1  `out` is null
 */
int ipport_convert_n2n(uint32_t ip, uint16_t port, ipport *out);

/*
 * Fills an endpoint with an address and a port. Despite its name it changes no byte order: pass the port through htons
 * first. The name comes from hosts whose byte order is that of the network.
 *
 *   ip    address, network byte order
 *   port  port, network byte order
 *   out   receives both, just as they are given
 *
 * Returns:
 *   0  filled
 *   1  `out` is null
 */
int ipport_convert_h2n(uint32_t ip, uint16_t port, ipport *out);

/*
 * Fills an endpoint with an address text and a port. Despite its name it changes no byte order of the port: pass it
 * through htons first.
 *
 *   text  address, as string2ip reads it
 *   port  port, network byte order
 *   out   receives the address, and the port just as it is given
 *
 * Returns:
 *   0  filled
 *   1  `text` is no address or is null, or `out` is null
 *
 * On failure the port is left alone. The address is 0xFFFFFFFF then, but untouched when `text` is null.
 */
int ipport_string_convert_h2n(const char *text, uint16_t port, ipport *out);

/*
 * Fills an endpoint with an address text and a port. It does not change the byte order of the port: pass it through
 * htons first.
 *
 *   text  address, as string2ip reads it
 *   port  port, network byte order
 *   out   receives the address, and the port just as it is given
 *
 * Returns:
 *   0  filled
 *   1  `text` is no address or is null, or `out` is null
 *
 * On failure the port is left alone. The address is 0xFFFFFFFF then, but untouched when `text` is null.
 */
int ipport_string_convert_n2n(const char *text, uint16_t port, ipport *out);

/*
 * Reads an address text, as inet_addr(3) does.
 *
 *   text  four numbers with dots between them, or fewer (the last one then fills the rest). A number is decimal, octal
 *         with a leading 0, or hexadecimal with 0x. An empty text is 0.0.0.0
 *   out   receives the address in network byte order. On failure it is 0xFFFFFFFF, but untouched when `text` is null
 *
 * Returns:
 *   0  read
 *   1  `text` is no address, or an argument is null
 *
 * The address of all ones can be written only as "255.255.255.255"; other spellings of it give 1. Some C libraries do
 * not look at text behind a blank.
 */
int string2ip(const char *text, uint32_t *out);

/*
 * Writes an address as text: four decimal numbers with dots, and a terminator.
 *
 *   ip    address, network byte order
 *   out   receives the text
 *   size  bytes of `out`, 16 or more
 *
 * Returns:
 *   0  written
 *   1  `size` is below 16, whatever the address and `out`: traces "buffer size too small!!\n" with the short header of
 *      torvane/trace.h, and nothing is written
 *   1  `out` is null: nothing is traced
 */
int ip2string(uint32_t ip, char *out, int size);

/*
 * Converts a MAC text to bytes: it writes one byte for each piece of the text between colons, read as hexadecimal.
 *
 *   text  MAC text. It is cut in place: the colons become terminators
 *   out   has room for as many bytes as the text has pieces. The pieces are NOT counted: check text from outside first
 *
 * Returns null, always. Nothing is done when an argument is null.
 *
 * A piece that is no number gives 0, a number above 255 gives its low 8 bits, and empty pieces are passed over.
 */
void *change_mac_format_to_uchar6(char *text, uint8_t *out);

/*
 * Removes the colons of a MAC text: it appends the pieces of the text between colons to another text. For "00:1a:2b" it
 * appends "001a2b".
 *
 *   text  MAC text. It is cut in place: the colons become terminators
 *   out   holds a text already, usually an empty one, and has room for `text` behind it
 *
 * Returns null, always. Nothing is done when an argument is null.
 */
void *change_mac_format_without_colon(char *text, char *out);

/*
 * Returns the decimal number that a text starts with, limited to the range of an int. It returns 0 when there is none
 * or `text` is null.
 */
int my_atoi(const char *text);

TORVANE_END

#endif
