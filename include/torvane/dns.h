/*
 * DNS client
 *
 * Asks up to five servers at once for the same names, over UDP to port 53, and files every address they answer with by
 * server and by name. It serves to resolve names, and to find out whether a server answers at all. It caches nothing,
 * and it uses neither the system's resolver nor its configuration.
 *
 *   static DnsQuery query; // 3592 bytes, all 0
 *   inet_pton(AF_INET, "192.0.2.53", &query.servers[0]);
 *   query.serverCount = 1;
 *   strcpy(query.names[0], "www.example.com");
 *   query.nameCount = 1;
 *   query.stopOnMatch = 1;
 *   query.timeoutSec = 2;
 *   dnsQuery4(&query);
 *   if (query.ipv4Result[0][0] != 0)
 *     use(query.ipv4Result[0][0]);
 *
 * Trust: the client takes a reply from anybody who sends it to the socket of a server. It does not compare id, flags,
 * response code, sender and question with what was asked. Ask only over networks, and servers, that you trust with the
 * answer.
 *
 * Threads: calls on different records may run at once in any threads. The calling thread needs about 12 KiB of stack.
 */
#ifndef TORVANE_DNS_H
#define TORVANE_DNS_H

#include <stdint.h>

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * Question and result in one block of 3592 bytes, the same on every machine. The caller fills the first six fields.
 * Addresses are in network byte order in memory.
 *
 * The slot of an answer is the index of a name: of those in use, the first that equals the owner name of the FIRST
 * answer in the same reply, byte for byte as with strcmp. (Servers usually repeat the name as it was asked, in its case
 * and without a dot at the end.) So the address behind an alias is in the slot of the alias when it comes in the same
 * reply. When no name equals the owner, the slot is `nameCount`, the one after the last name. With ten names that is
 * the first slot of the next server; for the fifth server there is none, and the address is counted but not stored. An
 * answer overwrites the one before it in its slot, also within one reply.
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
  int32_t ipv6Count;             /* AAAA answers, also those that were overwritten or not stored */
  uint8_t ipv6Result[5][10][16]; /* IPv6 addresses by server and slot; all 0: none */
} DnsQuery;

/*
 * Asks every server for the A addresses of every name, then for the AAAA addresses, with a call of dnsQuery4_main for
 * the type 1 and another for the type 28.
 *
 *   query  question and result. The counts and results are zeroed first
 *
 * Returns:
 *   1  at least one of the two calls returned 1. That does NOT mean that there is an address: look at the counts
 *   0  both returned 0, or `query` is null
 *
 * Traces "ipv4 result count = %d\n" and "ipv6 result count = %d\n" after each of the two calls.
 *
 * Time: each of the two calls waits until nothing has come for `timeoutSec`, unless stopOnMatch cuts that short;
 * aliases without an address make it up to four such waits. So this takes two to eight times `timeoutSec`, and 1 ms for
 * each query. With stopOnMatch the first name that is answered ends the wait for all names: ask for one name then.
 */
int dnsQuery4(DnsQuery *query);

/*
 * Finds out whether any server answers. It asks every server for the A addresses of every name, then for the AAAA
 * addresses.
 *
 *   query  question and result. The counts and results are zeroed first, and filled by the answers
 *
 * Returns:
 *   1  a reply was received from at least one server, even if it says no or cannot be understood
 *   0  no reply was received, or `query` is null
 *
 * It does not trace the counts. Time: two to eight times `timeoutSec`, unless stopOnMatch cuts a wait short, and 1 ms
 * for each query.
 */
int dnsQuery4_checkServerResponseOnly(DnsQuery *query);

/*
 * Asks all servers one type of question about all names.
 *
 *   query      question and result. Answers are added to the counts and results, which the caller has zeroed
 *   responded  set to 1 when a reply is received; never cleared
 *   qtype      1 for A, 28 for AAAA. Answers of both types are filed whichever was asked
 *
 * Returns:
 *   1  the record holds an address, or no alias is left to ask for: also when no server replied, and when all said no
 *   0  one of these:
 *        there still are only aliases after four passes
 *        a socket cannot be opened; the sockets that this pass has opened already STAY OPEN and are lost
 *        a query cannot be sent; writes "sendto failed: REASON" to standard error and closes the sockets. One server
 *        without a route thus ends the call for all, before any reply is read: ask doubtful servers alone
 *        select(2) fails, or a socket's number is 1024 (FD_SETSIZE) or above, which select cannot watch; closes the
 *        sockets
 *        `query` or `responded` is null
 *
 * Passes: a pass opens one UDP socket for each server and sends each server one query for each name, with a pause of
 * 1 ms after each query. Then it waits until `timeoutSec` seconds have gone by without a reply. Each reply and each
 * signal begins this time anew, so servers that keep sending keep it waiting. With `stopOnMatch` the pass ends when a
 * reply has an address for one of the names. A server that sends an empty datagram is not listened to any more in this
 * pass. If a reply cannot be received, the function writes "recvfrom failed: REASON" to standard error and the pass
 * goes on. Without a server or a name there is nothing to ask, and the call ends as if nobody replied.
 *
 * Aliases: the function notes the names that CNAME answers lead to, up to ten. Each further one is dropped, tracing
 * "cnamecnt reached limit %d\n" with 10. The list begins anew whenever one or more sockets have something to receive,
 * so it holds what came last. If a pass ends with such names and without any address in the record, not even from a
 * call before, the next pass asks for them, up to three times. What it finds goes to slot `nameCount`, unless the
 * alias's target is one of the names. A further pass that gets no reply leaves the list as it is, and the list is asked
 * again.
 *
 * Replies: one that cannot be understood is dropped whole, and nothing of it is filed or counted. These cannot be
 * understood:
 *   - a reply that runs past the bytes received (2048 are taken of a datagram)
 *   - a name whose labels take 256 bytes or more, or whose pointers form a loop
 *   - a name with a label that is longer than the rest of the name
 *   - an A answer of less than 4 bytes or an AAAA answer of less than 16; of longer ones the first bytes are taken
 * Only the first 20 answers are looked at. The data of answers of other types than 1 and 28 is read as a name, and the
 * next answer is taken to begin where that name ends.
 *
 * Queries have consecutive ids, from 301 at the start of the process; 65535 is followed by 0. Threads that ask at the
 * same time may send the same id.
 */
int dnsQuery4_main(DnsQuery *query, int *responded, uint16_t qtype);

/*
 * Writes a dotted name as the labels of a DNS message: for each label a byte with its length, then its text; after the
 * last one a zero byte. Does nothing when a pointer is null.
 *
 *   out   length of `name` plus 2 bytes
 *   name  dotted text. An empty one gives the zero byte alone. A dot at the end, or two in a row, gives an empty label
 *         there
 *
 * Nothing is refused: a label of more than 63 bytes, which servers do not understand, is written with the low 8 bits of
 * its length. Safe from any thread.
 */
void dnsNameToLabels(unsigned char *out, const char *name);

/*
 * Reads a name in a DNS message as dotted text without a dot at the end, following compression pointers.
 *
 *   at        where the name begins, inside the message
 *   message   start of the message
 *   consumed  receives the number of bytes that the name takes at `at`, up to and with its zero byte or its first
 *             pointer; 1 when the name cannot be read
 *
 * Returns:
 *   text  a new buffer of 256 bytes, which the caller frees
 *   null  one of these:
 *           memory runs out
 *           the labels take 256 bytes or more
 *           the pointers form a loop
 *           a label is longer than the rest of its name
 *           `at` lies before `message`, or an argument is null; `consumed` is then untouched
 *
 * The function does not know where the message ends. The name and everything that its pointers lead to (they reach
 * 16383 bytes into the message) must be readable memory. For messages from a network that is certain only when the
 * message stands at the start of a zeroed buffer of 16640 bytes. The function reads no more than 256 bytes of labels
 * and notices loops. Safe from any thread.
 */
char *dnsReadName(const unsigned char *at, const unsigned char *message, int *consumed);

TORVANE_END

#endif
