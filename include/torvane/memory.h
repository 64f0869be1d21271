/*
 * Memory
 *
 * Allocations that a program can list, for finding what it does not give back: up to 256 live blocks, each zeroed, with
 * its size and a flag of the caller's, in one pool for the process.
 *
 * The pool lives from xmem_init until xfree frees its last block; then xmem_init makes the next. Any thread may call
 * the functions at any time, save xprint. They hold the pool's semaphore while they work, "pintakrel_mem" in its
 * traces: other processes that use the same key wait meanwhile, and a key of one's own spares them that. When it cannot
 * be taken or given back, downdown and upup say so and the work is done all the same. Nothing else is traced. A child
 * of fork(2) shares the semaphore, and its xfree of the last block deletes it for the parent too.
 *
 * A search of the table takes at most 256 steps.
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

/* Trace group of the module, 3 at first. For its callers; the library never reads it. */
extern int G_nTraceGroupVEMTA_MEM;

/*
 * Makes the pool, and with sem_create the semaphore of the key `semkey`, which that sets free: call it at start-up.
 *
 * Returns 0; -1 when memory runs out; -1 when the semaphore cannot be had (traced by sem_create): there is a pool then
 * and it hands out blocks, with every taking of its semaphore reported as failed, until another xmem_init succeeds; -1,
 * with nothing changed, when there is a pool with a semaphore already.
 */
int xmem_init(int semkey);

/*
 * A zeroed block of `size` bytes, to be given back with xfree and never with free.
 *
 *   flag  kept with the block for xprint
 *
 * Returns null when the size is 0, there is no pool, 256 blocks are live, or memory runs out.
 */
void *xmalloc(uint32_t size, uint32_t flag);

/*
 * A zeroed block of `count` elements of `size` bytes. Null as xmalloc, also when the count is 0 or the product is more
 * than can be addressed.
 */
void *xcalloc(uint32_t count, uint32_t size, uint32_t flag);

/*
 * Frees a block and returns a new one of `size` bytes in its record, ZEROED: nothing of the old contents is carried
 * over. Size and flag are the new ones, and the block keeps its place in the order of xprint.
 *
 * Returns null, with the block left alone, when the size is 0, there is no pool, or `block` is null or not tracked.
 * Also returns null when memory runs out: then the old block is freed and its record with it. That does not end the
 * pool, even when it was the last.
 */
void *xrealloc(void *block, uint32_t size, uint32_t flag);

/*
 * Frees a block of xmalloc, xcalloc or xrealloc; with null, EVERY live block. A block that is not tracked is left
 * alone.
 *
 * When no block is live afterwards (also when none was before) the pool ends: the semaphore is deleted, so that other
 * processes that use it fail from then on, and every function here returns null until xmem_init. Does nothing without a
 * pool.
 */
void xfree(void *block);

/*
 * Prints every live block on standard output, the newest first: a line of 51 asterisks, number from 0, address, flag,
 * size and members, and the bytes of each member in hexadecimal, eight to a line. Prints "POOL EMPTY\n" when there is
 * none. Takes no lock: no other thread may use the pool meanwhile.
 */
void xprint(void);

/* malloc(3) and realloc(3). */
void *j_malloc(size_t size);
void *j_realloc(void *block, size_t size);

TORVANE_END

#endif
