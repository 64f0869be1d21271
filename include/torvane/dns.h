/*
 * DNS client
 *
 * The same names asked of up to five servers at once, over UDP to port 53, and every address they answer with filed by
 * server and by name. For resolving names, and for finding out whether a server answers at all. Nothing is cached and
 * neither the system's resolver nor its configuration is used.
 *
 * A reply is taken from whoever sends it to the socket of a server: id, flags, response code, sender and question are
 * not compared with what was asked. Ask only over networks, and servers, that you trust with the answer.
 *
 * Calls on different records may run at once in any threads. The thread needs about 12 KiB of stack.
 */
#ifndef TORVANE_DNS_H
#define TORVANE_DNS_H

#include <stdint.h>

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * Question and result in one block of 3592 bytes, the same on every machine. Fill the first six fields; addresses are
 * in network byte order in memory.
 *
 * The slot of an answer is the index of the first name, of those in use, that equals the owner name of the FIRST
 * answer in the same reply, byte for byte (as strcmp: servers usually repeat the name as it was asked, in its case and
 * without a dot at the end). So the address behind an alias is in the slot of the alias when it comes in the same
 * reply. When no name equals it, the slot is `nameCount`, the one after the last name: with ten names that is the first
 * slot of the next server, and for the fifth server it is none, the address is then counted and not stored. An answer
 * overwrites the one before it in its slot, also within one reply.
 */
typedef struct DnsQuery {
  uint32_t servers[5];           /* IPv4 addresses of the servers */
  char names[10][256];           /* dotted text, no dot at the end; 256 bytes need no terminator */
  uint8_t stopOnMatch;           /* not 0: stop waiting when a reply has an address for one of the names */
  uint8_t timeoutSec;            /* seconds that each wait for a reply lasts; 0 takes what is there already */
  uint8_t serverCount;           /* servers in use, 1 to 5; more are taken as 5 */
  uint8_t nameCount;             /* names in use, 1 to 10; more are taken as 10 */
  int32_t ipv4Count;             /* A answers, also those that were overwritten or not stored */
  uint32_t ipv4Result[5][10];    /* IPv4 addresses by server and slot; 0: none */
  int32_t ipv6Count;             /* AAAA answers, likewise */
  uint8_t ipv6Result[5][10][16]; /* IPv6 addresses by server and slot; all 0: none */
} DnsQuery;

/*
 * Asks every server for the A, then the AAAA addresses of every name: zeroes the counts and results, calls
 * dnsQuery4_main with the types 1 and 28, and traces "ipv4 result count = %d\n" and "ipv6 result count = %d\n" after
 * each.
 *
 * Time: each call waits for at least one silence of `timeoutSec`, unless stopOnMatch cuts it short, and aliases without
 * an address make it up to four; so two to eight times `timeoutSec`, and 1 ms for each query. With stopOnMatch the
 * first name that is answered ends the wait for all: ask for one name then.
 *
 * Returns 1 when one of the two calls gave 1, which is NOT to say that there is an address (look at the counts); else
 * 0, also for null.
 */
int dnsQuery4(DnsQuery *query);

/*
 * As dnsQuery4, without the traces of the counts, to see whether anybody is there. Returns 1 when any reply was
 * received from any server, also one that says no or cannot be understood; else 0, also for null.
 */
int dnsQuery4_checkServerResponseOnly(DnsQuery *query);

/*
 * One type of question to all servers. Adds to the counts and results of `query`, which the caller has zeroed.
 *
 *   responded  set to 1 when a reply is received; never cleared
 *   qtype      1 for A, 28 for AAAA. Answers of both types are filed whichever was asked
 *
 * It runs in passes. A pass opens one UDP socket per server and sends one query for each name to each server, with a
 * pause of 1 ms after each; then it waits until `timeoutSec` seconds have gone by without a reply, beginning anew with
 * each one that comes (servers that keep sending keep it waiting) and after a signal. With `stopOnMatch` it ends when a
 * reply has an address for one of the names. A server that sends an empty datagram is not listened to any more in this
 * pass.
 *
 * The names that CNAME answers lead to are noted, up to ten; each further one is dropped, and traces "cnamecnt reached
 * limit %d\n" with 10. Whenever one or more sockets have something to receive, the list begins anew, so it holds what
 * came last. When a pass ends and the record holds no address at all, not even from a call before, while there are such
 * names, the next pass asks for them; up to three times. (What it finds goes to slot `nameCount`, unless the alias's
 * target is one of the names.) A further pass that gets no reply leaves the list as it is, and it is asked again.
 *
 * A reply that cannot be understood is dropped whole, nothing of it is filed or counted: one that runs past the bytes
 * received (2048 are taken of a datagram), a name whose labels take 256 bytes or more, pointers that form a loop, a
 * label longer than the rest of its name, an A answer of less than 4 or an AAAA answer of less than 16 bytes (of longer
 * ones the first bytes are taken). Only the first 20 answers are looked at. The data of answers of other types than 1
 * and 28 is read as a name, and the next answer is taken to begin where that name ends.
 *
 * Queries have consecutive ids, from 301 at the start of the process, 65535 followed by 0. Threads that ask at the same
 * time may send the same id.
 *
 * Returns 1 when the record holds an address or there is no alias left to ask for: also when no server replied, and
 * when all said no. Returns 0:
 *   when there still are only aliases after four passes;
 *   when a socket cannot be opened: the sockets that this pass has opened already STAY OPEN and are lost;
 *   when a query cannot be sent: writes "sendto failed: REASON" to standard error (perror), closes its sockets. One
 *   server without a route thus ends the call for all, before any reply is read: ask doubtful servers alone;
 *   when select(2) fails, or a socket's number is 1024 (FD_SETSIZE) or above, which select cannot watch: closes them;
 *   when `query` or `responded` is null.
 * A reply that cannot be received is told on standard error ("recvfrom failed: REASON") and the pass goes on. Without a
 * server or a name there is nothing to ask, and the call ends as if nobody replied.
 */
int dnsQuery4_main(DnsQuery *query, int *responded, uint16_t qtype);

/*
 * Writes a dotted name as labels: for each a byte with its length, then its text; then a zero byte.
 *
 *   out   length of `name` plus 2 bytes
 *   name  an empty one gives the zero byte alone; a dot at the end, or two in a row, gives an empty label there.
 *         Nothing is refused: labels over 63 bytes, which servers do not understand, are written with the low 8 bits
 *         of their length
 *
 * Does nothing when either is null. Any thread.
 */
void dnsNameToLabels(unsigned char *out, const char *name);

/*
 * Reads a name in a DNS message, following compression pointers, as dotted text without a dot at the end.
 *
 *   at        where the name begins, inside the message
 *   message   start of the message
 *   consumed  receives the bytes that the name takes at `at`: up to its zero byte, or its first pointer, inclusive; 1
 *             when null is returned
 *
 * The end of the message is not known here. The name and everything that its pointers lead to (they reach 16383 bytes
 * into the message) must be readable memory; for messages from a network that is only so when the message stands at the
 * start of a zeroed buffer of 16640 bytes. No more than 256 bytes of labels are read, and loops are noticed.
 *
 * Returns a new 256-byte buffer that the caller frees; or null when memory runs out, the labels take 256 bytes or more,
 * the pointers form a loop, a label is longer than the rest of its name, `at` lies before `message`, or a pointer is
 * null (then nothing is stored). Any thread.
 */
char *dnsReadName(const unsigned char *at, const unsigned char *message, int *consumed);

TORVANE_END

#endif
