/*
 * Bandwidth monitor
 *
 * A thread that reads the byte counters of listed interfaces from "/proc/net/dev" every period and keeps their rates,
 * bytes per second, and when asked a history of them.
 *
 * Life: init_bm, any number of adds, bm_start, then queries, adds and deletes from any thread; at last the exit bit,
 * set under the semaphore: when its sleep is over the thread frees the interface records and ends.
 *
 * The semaphore (downdown(head->semid, ...)) guards the monitor, every record and every history; the functions here
 * take it themselves. Take it to change `period`, `history` or `exit`, or to read a record or a history. The thread
 * holds it for a whole pass and never while it sleeps. A wait for it that a signal interrupts is told by downdown and
 * begun again. When it is gone a function does nothing and returns 0, and the thread makes no passes; the exit bit ends
 * the thread even then.
 *
 * Signals that are handled on the thread cut its sleep short, and the rates of that pass are still divided by the whole
 * period. It inherits the signal mask of the thread that calls bm_start: block them there meanwhile.
 *
 * Between processes: with the monitor in shared memory others may, under the semaphore, change `period` and `history`
 * and set the exit bit. Interface records come from the heap of the process that adds them: add, delete, query and
 * follow the list in the process that runs the thread alone.
 *
 * Results: 1 done, 0 not, unlike most of the library; bm_start and get_rxtx_by_ifname return 0 for success. Null
 * arguments make a function fail with nothing touched. Any thread may call these functions.
 */
#ifndef TORVANE_MONITOR_H
#define TORVANE_MONITOR_H

#include <stdint.h>

#include "torvane/common.h"
#include "torvane/list.h"

TORVANE_BEGIN

typedef struct bm_head {
  list_node link;    /* the interfaces (bm_iface.link), in the order they were added */
  uint8_t count;     /* adds so far, modulo 256; a delete does not lower it */
  uint8_t history;   /* not 0: every rate goes into the interface's history */
  uint8_t period;    /* seconds from pass to pass, and the divisor of the rates: 1 to 255. A 0 is taken as 1 */
  uint8_t exit;      /* bit 0 ends the thread */
  int32_t semid;     /* semaphore, System V */
  uint32_t reserved; /* 0 */
} bm_head;

typedef struct bm_iface {
  list_node link;   /* in bm_head.link */
  char name[32];    /* at most 31 characters, always terminated */
  uint64_t prev_rx; /* bytes received and sent at the last pass */
  uint64_t prev_tx;
  uint64_t rx_rate; /* bytes per second */
  uint64_t tx_rate;
  uint16_t flags;         /* bit 0: a pass has found the interface */
  list_node history;      /* its samples (bm_sample.link), the oldest first */
  uint16_t history_count; /* how many there are: at most 257 */
} bm_iface;

typedef struct bm_sample {
  list_node link;
  uint64_t rx_rate; /* bytes per second */
  uint64_t tx_rate;
} bm_sample;

/* Counters of one interface, in the order of their columns in "/proc/net/dev". */
typedef struct rxtx_stats {
  uint64_t rx_bytes;
  uint64_t rx_packets;
  uint32_t rx_errors;
  uint32_t rx_drops;
  uint32_t rx_fifo;
  uint32_t rx_frame;
  uint32_t rx_compressed;
  uint32_t rx_multicast;
  uint64_t tx_bytes;
  uint64_t tx_packets;
  uint32_t tx_errors;
  uint32_t tx_drops;
  uint32_t tx_fifo;
  uint32_t tx_collisions;
  uint32_t tx_carrier;
  uint32_t tx_compressed;
} rxtx_stats;

/*
 * Makes a monitor of memory whose contents do not count: no interfaces, count, exit bit and reserved word 0.
 *
 *   head     the caller's; it must last until the thread has ended, or until the process does
 *   semkey   key of the semaphore, which is opened or made, and set free (sem_create). It stays when the monitor ends:
 *            sem_delete(head->semid) when nobody uses it any more
 *   period   seconds, 1 to 255
 *   history  0 or 1
 *
 * Returns 1; or 0 when the semaphore cannot be had (traced by sem_create).
 */
int init_bm(bm_head *head, int semkey, unsigned char period, unsigned char history);

/*
 * Starts bmThread as a detached thread and traces, with the short header, "main process get thread id=%d\n" with its
 * handle.
 *
 * Returns 0; or 1, with nothing traced, when there is no thread.
 */
int bm_start(bm_head *head);

/*
 * The monitor's thread, for bm_start or a thread of the caller's own (to be joined, say). One for each monitor.
 *
 *   head  the bm_head; with null it returns at once
 *
 * Traces "[%d|%d]Thread Create[%s]\n" with the process id, the thread id and "bmThread", then passes until the exit
 * bit. A pass goes through the interfaces in order and reads each one's counters (one reading of the file each). The
 * first that finds an interface takes its counts; every further one sets its rates to the difference, modulo 2^64,
 * divided by the period, without the remainder. An interface that is not in the file keeps what it has, and the
 * difference when it comes back still counts as one period. After a pass the period is read anew for the sleep that
 * follows and the rates after it. Without memory a sample is left out of the history. A history of 257 samples loses
 * its oldest for the next; switching the history off keeps what is there.
 *
 * At the end it traces "bmThread Exit\n", frees the interface records and returns null. The samples of their
 * histories are NOT freed: delete the interfaces first (del_bm_by_iface frees them), or keep hold of them and free(3)
 * each one. A program that has interfaces listed sees the end by taking the semaphore until list_empty(&head->link):
 * from then on the thread touches neither monitor nor semaphore.
 */
void *bmThread(void *head);

/*
 * Lists an interface, at the end. One that is listed already is deleted first: its rates and its history start again,
 * and when there is no memory for the new record it is gone. The interface need not exist (yet).
 *
 *   name  at most 31 characters
 *
 * Returns 1; or 0 for a longer name, or without memory. Two threads that add one name at once may list it twice.
 */
int add_bm_by_iface(const char *name, bm_head *head);

/* Unlinks and frees the first record of exactly this name, and its history. Returns 1, or 0 when there is none. */
int del_bm_by_iface(const char *name, bm_head *head);

/*
 * The rates of an interface.
 *
 *   out  receives both rates; its link is not written, nor anything on failure
 *
 * Returns 1; or 0 when it is not listed or no pass has found it yet. After the first pass that did both rates are 0.
 */
int query_bm_by_iface(const char *name, bm_head *head, bm_sample *out);

/*
 * The counters of an interface now, read from the first line of "/proc/net/dev" in which its name occurs ANYWHERE: eth0
 * takes the line of veth0 or eth0.1 when that comes first. Columns that are not there are 0; a number too large for its
 * field is the largest that fits.
 *
 * Returns 0; or 1 when the file cannot be opened (`out` stays as it was) or has no such line (`out` is zeroed).
 */
int get_rxtx_by_ifname(const char *name, rxtx_stats *out);

TORVANE_END

#endif
