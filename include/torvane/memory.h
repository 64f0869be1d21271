/*
 * Memory
 *
 * Tracked memory: allocations that a program can list, to find what it does not give back. One pool in the process
 * tracks up to 256 live blocks, each zeroed, with its size and a flag of the caller's. xmalloc, xcalloc and xrealloc
 * hand blocks out, xfree takes them back, and xprint lists them. j_malloc and j_realloc stand apart: they are plain
 * malloc(3) and realloc(3), and nothing tracks their blocks.
 *
 *   if (xmem_init(key) != 0)
 *     return 1;
 *   char *line = (char *)xmalloc(80, 1);
 *   xprint();    // lists this block with the flag 1
 *   xfree(line); // frees the last block, and so ends the pool
 *
 * Life: the pool lives from xmem_init until xfree frees its last block. Then xmem_init makes the next pool.
 *
 * Threads and processes: any thread may call the functions at any time, except xprint. While they work, xmalloc,
 * xcalloc, xrealloc and xfree hold the pool's semaphore. Other processes that use the same key wait meanwhile; a key of
 * one's own spares them that. If the semaphore cannot be taken or given back, downdown or upup (torvane/ipc.h) traces
 * that in the name of "pintakrel_mem", and the work is done all the same; what the kernel refused to take is not given
 * back. If a signal interrupts a wait, downdown traces the first interruption and the wait begins again. A thread that
 * waits while another one ends the pool hears from downdown that the semaphore is gone, and finds no pool. Nothing else
 * is traced.
 *
 * fork: a child of fork(2) has a copy of the table, which is whole at any time, and shares the semaphore. Its xfree of
 * the last block deletes the semaphore for the parent too.
 *
 * Time: a search of the table takes at most 256 steps.
 */
#ifndef TORVANE_MEMORY_H
#define TORVANE_MEMORY_H

#include <stddef.h>
#include <stdint.h>

#include "torvane/common.h"
#include "torvane/list.h"

TORVANE_BEGIN

/* The pool. The functions keep it to themselves; it is here for debuggers. */
typedef struct XmemPool {
  int32_t semid;    /* of sem_create; -1 when it could not be had */
  list_node blocks; /* live records (XmemRecord.node), the newest first */
} XmemPool;

/* One of the 256 places of the table. */
typedef struct XmemRecord {
  void *ptr;        /* the block; null: the record is free */
  uint32_t size;    /* bytes; of one element for xcalloc */
  uint32_t members; /* elements: 1, or the count of xcalloc */
  uint32_t flag;    /* the caller's */
  list_node node;   /* in XmemPool.blocks while the block is live */
} XmemRecord;

/* The trace group of tracked memory, 3 at first. It is for the callers; the library never reads it. */
extern int G_nTraceGroupVEMTA_MEM;

/*
 * Makes the pool and its semaphore. Call it at start-up, because the semaphore is set free by it.
 *
 *   semkey  key of the semaphore, which sem_create (torvane/ipc.h) opens or makes
 *
 * Returns:
 *    0  the pool is ready
 *   -1  one of these:
 *         memory runs out
 *         the semaphore cannot be had; sem_create traces why. There is a pool then, and it hands out blocks, but every
 *         taking of its semaphore is reported as failed until another xmem_init succeeds
 *         there is a pool with a semaphore already, or another thread is just making it; nothing is changed
 *
 * Safe from any thread.
 */
int xmem_init(int semkey);

/*
 * Returns a new zeroed block, tracked by the pool. Give it back with xfree and never with free.
 *
 *   size  bytes
 *   flag  any number; kept with the block for xprint
 *
 * Returns:
 *   block  the caller's until xfree
 *   null   `size` is 0, there is no pool, 256 blocks are live, or memory runs out
 *
 * Safe from any thread.
 */
void *xmalloc(uint32_t size, uint32_t flag);

/*
 * Returns a new zeroed block for an array, tracked by the pool. Give it back with xfree and never with free.
 *
 *   count  elements
 *   size   bytes of one element
 *   flag   any number; kept with the block for xprint
 *
 * Returns:
 *   block  the caller's until xfree
 *   null   `count` or `size` is 0, their product is more than can be addressed, there is no pool, 256 blocks are live,
 *          or memory runs out
 *
 * Safe from any thread.
 */
void *xcalloc(uint32_t count, uint32_t size, uint32_t flag);

/*
 * Frees a tracked block and returns a new one in its record, ZEROED: nothing of the old contents is carried over.
 *
 *   block  a block of xmalloc, xcalloc or xrealloc
 *   size   bytes of the new block
 *   flag   any number; kept with the new block for xprint
 *
 * Returns:
 *   block  the caller's until xfree. It has the place of the old one in the order of xprint
 *   null   one of these:
 *            `size` is 0, there is no pool, or `block` is null or not tracked; `block` is left alone
 *            memory runs out; the old block is freed, and its record with it. That does not end the pool, even if the
 *            block was the last
 *
 * Safe from any thread.
 */
void *xrealloc(void *block, uint32_t size, uint32_t flag);

/*
 * Frees a tracked block, or all of them.
 *
 *   block  a block of xmalloc, xcalloc or xrealloc. Null frees EVERY live block; a block that is not tracked is left
 *          alone
 *
 * When no block is live afterwards (also when none was before), the pool ends and its semaphore is deleted. Other
 * processes that use the semaphore fail from then on. Until the next xmem_init the functions that allocate return null.
 * Does nothing without a pool. Safe from any thread.
 */
void xfree(void *block);

/*
 * Prints every live block on standard output, the newest first; or "POOL EMPTY\n" when there is none.
 *
 * For each block it prints a line of 51 asterisks, then number (from 0), address, flag, size and members, then the
 * bytes of each member in hexadecimal, eight to a line.
 *
 * It takes no lock: no other thread may use the pool meanwhile.
 */
void xprint(void);

/*
 * Returns a block of malloc(3), which the pool does not track. Give it back with free(3).
 *
 *   size  bytes; with 0 the C library decides what comes back
 *
 * Returns:
 *   block  the caller's; its contents are undefined
 *   null   memory runs out
 *
 * Safe from any thread.
 */
void *j_malloc(size_t size);

/*
 * Changes the size of a block with realloc(3); its contents are kept, and the pool does not track it.
 *
 *   block  a block of malloc(3), j_malloc or j_realloc, never one of xmalloc; null for a new block
 *   size   bytes; with 0 the C library decides, and may free `block` and return null
 *
 * Returns:
 *   block  the caller's; the pointer passed in is no longer valid
 *   null   memory runs out, and `block` is still the caller's
 *
 * Safe from any thread.
 */
void *j_realloc(void *block, size_t size);

TORVANE_END

#endif
