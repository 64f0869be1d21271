/*
 * Bandwidth monitor
 *
 * A thread that reads the byte counters of listed interfaces from "/proc/net/dev" once in every period. It keeps the
 * rates of each interface in bytes per second and, when asked to, a history of them.
 *
 *   static bm_head monitor;
 *   bm_sample rates;
 *   if (init_bm(&monitor, key, 2, 0) != 1 || add_bm_by_iface("eth0", &monitor) != 1 || bm_start(&monitor) != 0)
 *     return 1;
 *   ...
 *   if (query_bm_by_iface("eth0", &monitor, &rates) == 1)
 *     printf("%llu bytes per second received\n", (unsigned long long)rates.rx_rate);
 *
 * Life: init_bm comes first, then any number of adds, then bm_start, then queries, adds and deletes from any thread. At
 * last a program takes the semaphore and sets the exit bit. When its sleep is over the thread frees the interface
 * records and ends.
 *
 * Semaphore: it guards the monitor, every record and every history. The functions here take it themselves. Take it with
 * downdown(head->semid, ...) (torvane/ipc.h) to change `period`, `history` or `exit`, or to read a record or a history.
 * The thread holds it for a whole pass and never while it sleeps; a thread that is cancelled ends in its sleep. If a
 * signal interrupts a wait for it, downdown traces the first interruption and the wait begins again. When the semaphore
 * is gone, a function does nothing and returns 0, and the thread makes no passes; the exit bit ends the thread even
 * then.
 *
 * Signals: a signal that is handled on the thread cuts its sleep short, and the rates of that pass are still divided by
 * the whole period. The thread inherits the signal mask of the thread that calls bm_start, so block signals around that
 * call.
 *
 * Processes: with the monitor in shared memory, other processes may take the semaphore to change `period` and `history`
 * and to set the exit bit. Interface records come from the heap of the process that adds them. Add, delete, query and
 * follow the list only in the process that runs the thread.
 *
 * Results: most functions return 1 for success and 0 for failure, unlike most of the library. bm_start and
 * get_rxtx_by_ifname return 0 for success and 1 for failure. With a null argument a function fails and touches nothing.
 * All functions are safe from any thread.
 */
#ifndef TORVANE_MONITOR_H
#define TORVANE_MONITOR_H

#include <stdint.h>

#include "torvane/common.h"
#include "torvane/list.h"

TORVANE_BEGIN

/* A bandwidth monitor. init_bm fills it; take the semaphore to read or change any field but `semid` after that. */
typedef struct bm_head {
  list_node link;    /* the interfaces (bm_iface.link), in the order they were added */
  uint8_t count;     /* adds so far, modulo 256; a delete does not lower it */
  uint8_t history;   /* not 0: every rate goes into the interface's history */
  uint8_t period;    /* seconds from pass to pass, and the divisor of the rates: 1 to 255. A 0 is taken as 1 */
  uint8_t exit;      /* bit 0 ends the thread */
  int32_t semid;     /* semaphore, System V */
  uint32_t reserved; /* 0 */
} bm_head;

/* One interface of a monitor. The library makes and frees these records; read them with the semaphore taken. */
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

/* The rates of an interface at one pass: an entry of its history, or the answer of query_bm_by_iface. */
typedef struct bm_sample {
  list_node link;   /* in bm_iface.history; query_bm_by_iface does not write it */
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
 * Makes a monitor without interfaces; count, exit bit and reserved word are 0.
 *
 *   head     the caller's memory, whose contents do not matter. It must last until the thread has ended, or until the
 *            process ends
 *   semkey   key of the semaphore. sem_create (torvane/ipc.h) opens or makes it, and sets it free
 *   period   seconds from pass to pass, 1 to 255
 *   history  1 to keep a history, 0 for none
 *
 * Returns:
 *   1  the monitor is ready
 *   0  the semaphore cannot be had (sem_create traces why), or `head` is null
 *
 * The semaphore stays when the monitor ends. Remove it with sem_delete(head->semid) when nobody uses it any more.
 */
int init_bm(bm_head *head, int semkey, unsigned char period, unsigned char history);

/*
 * Starts the monitor's thread, bmThread, as a detached thread with the system's default stack.
 *
 *   head  a monitor that init_bm has made
 *
 * Returns:
 *   0  the thread runs; traces "main process get thread id=%d\n" with its handle (short header, no process id)
 *   1  the thread cannot be started, or `head` is null; nothing is traced
 */
int bm_start(bm_head *head);

/*
 * Runs the monitor until the exit bit is set. It is the thread of bm_start; a program may also start it on a thread of
 * its own, for example one that it can join. A monitor takes one such thread.
 *
 *   head  the bm_head; with null the function returns at once
 *
 * Traces "[%d|%d]Thread Create[%s]\n" with the process id, the thread id and "bmThread". Then it makes a pass, sleeps
 * for the period, and looks at the exit bit before the next pass.
 *
 * A pass goes through the interfaces in order and reads the counters of each, with one reading of the file for each:
 *   - The first pass that finds an interface takes its counts. Every further one sets its rates to the difference
 *     (modulo 2^64) divided by the period, without the remainder.
 *   - An interface that is not in the file keeps what it has. When it comes back the difference still counts as one
 *     period.
 *   - The period is read anew after each pass, for the sleep that follows and for the rates after it.
 *   - A history of 257 samples loses its oldest for the next. Without memory a sample is left out. Switching the
 *     history off keeps what is there.
 *
 * At the end it traces "bmThread Exit\n", frees the interface records, and returns null. It does NOT free the samples
 * of their histories: delete the interfaces first (del_bm_by_iface frees both), or keep hold of the samples and free(3)
 * each one. A program that has interfaces listed sees the end by taking the semaphore until list_empty(&head->link) is
 * true. From then on the thread touches neither monitor nor semaphore.
 */
void *bmThread(void *head);

/*
 * Adds an interface at the end of the monitor's list. The interface need not exist yet.
 *
 *   name  at most 31 characters; copied
 *   head  the monitor
 *
 * Returns:
 *   1  the interface is listed
 *   0  `name` is longer, memory is short, the semaphore is gone, or an argument is null
 *
 * An interface that is listed already is deleted first, so its rates and its history start again; when there is no
 * memory for the new record it is gone. Two threads that add the same name at once may list it twice.
 */
int add_bm_by_iface(const char *name, bm_head *head);

/*
 * Takes an interface off the monitor's list and frees its record and its history.
 *
 *   name  compared whole; of several records with this name only the first is deleted
 *   head  the monitor
 *
 * Returns:
 *   1  deleted
 *   0  the interface is not listed, the semaphore is gone, or an argument is null
 */
int del_bm_by_iface(const char *name, bm_head *head);

/*
 * Reads the rates of an interface as the last pass left them.
 *
 *   name  compared whole
 *   head  the monitor
 *   out   receives both rates; its link is not written
 *
 * Returns:
 *   1  `out` holds the rates; both are 0 after the first pass that found the interface
 *   0  the interface is not listed, no pass has found it yet, the semaphore is gone, or an argument is null; `out` is
 *      untouched
 */
int query_bm_by_iface(const char *name, bm_head *head, bm_sample *out);

/*
 * Reads the present counters of an interface from "/proc/net/dev". It needs neither monitor nor semaphore.
 *
 *   name  the first line in which this text occurs ANYWHERE is taken: for eth0 that of veth0 or eth0.1, if it is first
 *   out   receives the counters. A column that is not there is 0; a number too large for its field is the largest that
 *         fits
 *
 * Returns:
 *   0  `out` holds the counters
 *   1  the file cannot be opened, or an argument is null (`out` is untouched); or no line has the name (`out` is all 0)
 */
int get_rxtx_by_ifname(const char *name, rxtx_stats *out);

TORVANE_END

#endif
