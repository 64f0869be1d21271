// Records allocations in a table of fixed size, so that a program can list its live blocks.
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include "base/cancellation.h"
#include "base/lock.h"
#include "base/records.h"
#include "base/trace.h"
#include "torvane/ipc.h"
#include "torvane/list.h"
#include "torvane/memory.h"

using namespace torvane;

namespace {

constexpr const char *trace_module = "pintakrel_mem";

constexpr int no_semaphore = -1;

XmemPool *pool;
XmemRecord records[256]; // a record is free while its ptr is null; without a pool all are free

// The semaphore ends with the pool, and may be gone before. So a lock of its own keeps the table of this process and
// the pool itself whole; the semaphore is taken inside it.
pthread_mutex_t table_lock = PTHREAD_MUTEX_INITIALIZER;
int cancellability; // the state of the thread that has the table's lock, before it took it
Lock semaphore;     // as that thread took it

void lock_table() {
  const int before = hold_cancellation();
  pthread_mutex_lock(&table_lock);
  cancellability = before;
}

void unlock_table() {
  const int before = cancellability;
  pthread_mutex_unlock(&table_lock);
  restore_cancellation(before);
}

// Takes the table and the library's lock. Returns false, with nothing taken, when there is no pool.
bool enter(const char *func) {
  lock_table();
  if (!pool) {
    unlock_table();
    return false;
  }
  semaphore = TAKE_LOCK_AS(func, pool->semid); // the table's lock holds cancellation off before it and after it
  return true;
}

void leave(const char *func) {
  GIVE_LOCK_AS(func, semaphore);
  unlock_table();
}

using Blocks = Records<XmemRecord, offsetof(XmemRecord, node)>;

Blocks live_blocks() {
  return Blocks(&pool->blocks);
}

XmemRecord *free_record() {
  for (XmemRecord &record : records)
    if (!record.ptr)
      return &record;
  return nullptr;
}

void describe(XmemRecord &record, uint32_t members, uint32_t size, uint32_t flag) {
  record.members = members;
  record.size = size;
  record.flag = flag;
}

// Makes the record free. Its block is the caller's affair.
void forget(XmemRecord &record) {
  list_del(&record.node);
  record.ptr = nullptr;
  describe(record, 0, 0, 0);
}

void *allocate(uint32_t count, uint32_t size, uint32_t flag, const char *func) {
  if (size == 0 || count == 0 || !enter(func))
    return nullptr;
  void *block = nullptr;
  if (XmemRecord *record = free_record()) {
    block = calloc(count, size);
    if (block) {
      record->ptr = block;
      describe(*record, count, size, flag);
      list_add(&record->node, &pool->blocks, pool->blocks.next);
    }
  }
  leave(func);
  return block;
}

void print_block(const XmemRecord &record, int number) {
  puts("***************************************************");
  printf("No.\t\t:%d\n", number);
  printf("Addr\t\t:%p\n", record.ptr);
  printf("Flag\t\t:%lu\n", static_cast<unsigned long>(record.flag));
  printf("Alloc size\t:%u\n", record.size);
  printf("Members\t\t:%u\n", record.members);
  puts("Data map \t:");
  printf("-00|01|02|03|04|05|06|07-");
  const unsigned char *byte = static_cast<const unsigned char *>(record.ptr);
  for (uint32_t member = 0; member < record.members; member++)
    for (uint32_t at = 0; at < record.size; at++) {
      if (at % 8 == 0)
        printf("\n ");
      printf("%2x|", *byte++);
    }
  printf("\n");
}

} // namespace

extern "C" {

// This is meant: programs read and set it, and nothing here does.
int G_nTraceGroupVEMTA_MEM = 3;

int xmem_init(int semkey) {
  int result = -1;
  lock_table();
  if (!pool) {
    pool = static_cast<XmemPool *>(malloc(sizeof(XmemPool)));
    if (pool) {
      pool->semid = no_semaphore;
      list_make_empty(&pool->blocks);
    }
  }
  // A pool that works is left alone. A pool that could not get its semaphore before gets it now.
  if (pool && pool->semid == no_semaphore) {
    if (sem_create(semkey, &pool->semid) == 0)
      result = 0;
    else
      pool->semid = no_semaphore;
  }
  unlock_table();
  return result;
}

void *xmalloc(uint32_t size, uint32_t flag) {
  return allocate(1, size, flag, __func__);
}

void *xcalloc(uint32_t count, uint32_t size, uint32_t flag) {
  return allocate(count, size, flag, __func__);
}

void *xrealloc(void *block, uint32_t size, uint32_t flag) {
  if (size == 0 || !block || !enter(__func__))
    return nullptr;
  void *renewed = nullptr;
  for (XmemRecord &record : live_blocks()) {
    if (record.ptr != block)
      continue;
    // This is meant: the new block is zero, and the old contents are gone.
    free(block);
    renewed = calloc(1, size);
    record.ptr = renewed;
    if (renewed)
      describe(record, 1, size, flag);
    else
      forget(record);
    break;
  }
  leave(__func__);
  return renewed;
}

void xfree(void *block) { // cppcheck-suppress constParameter ; the block is freed
  if (!enter(__func__))
    return;
  for (XmemRecord &record : live_blocks()) {
    // This is meant: a null pointer frees every block.
    if (block && record.ptr != block)
      continue;
    free(record.ptr);
    forget(record);
    if (block)
      break;
  }
  if (!list_empty(&pool->blocks)) {
    leave(__func__);
    return;
  }
  // This is meant: a pool without blocks ends here, even when the block that was to be freed is not tracked.
  sem_delete(pool->semid);
  free(pool);
  pool = nullptr;
  unlock_table();
}

void xprint(void) {
  if (!pool || list_empty(&pool->blocks)) {
    puts("POOL EMPTY");
    return;
  }
  int number = 0;
  for (const XmemRecord &record : live_blocks())
    print_block(record, number++);
}

} // extern "C"
