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
bool being_made;         // a thread is making a pool with its semaphore

// The semaphore ends with the pool, and may be gone before. So a lock of its own keeps the table of this process and
// the pool itself whole. It is taken behind the semaphore and only for the work on the table: whoever waits for the
// semaphore must not hold it, because a child that is forked meanwhile would never get it.
pthread_mutex_t table_lock = PTHREAD_MUTEX_INITIALIZER;

void lock_table() {
  pthread_mutex_lock(&table_lock);
}

void unlock_table() {
  pthread_mutex_unlock(&table_lock);
}

// A child of fork must not inherit the table in the middle of a change, or a pool that no thread of its own goes on
// making. So the thread that forks holds the table meanwhile.
void free_table_in_child() {
  being_made = false;
  unlock_table();
}

pthread_once_t fork_handlers = PTHREAD_ONCE_INIT;
int fork_handlers_result;

void install_fork_handlers() {
  fork_handlers_result = pthread_atfork(lock_table, unlock_table, free_table_in_child);
}

// Tells whether there is a pool, and its semaphore.
bool find_pool(int *semid) {
  const int cancellability = hold_cancellation();
  lock_table();
  const bool found = pool != nullptr;
  if (found)
    *semid = pool->semid;
  unlock_table();
  restore_cancellation(cancellability);
  return found;
}

// Takes the library's lock and the table. Returns false, with nothing taken, when there is no pool, or when it ends
// before its semaphore is taken.
bool enter(Lock *lock, const char *func) {
  int semid;
  while (find_pool(&semid)) {
    *lock = TAKE_LOCK_AS(func, semid);
    lock_table();
    if (pool && pool->semid == semid)
      return true;
    // The pool has ended meanwhile, and its semaphore with it. There may be a new one.
    unlock_table();
    give_lock_silently(*lock);
  }
  return false;
}

void leave(const Lock &lock, const char *func) {
  unlock_table();
  GIVE_LOCK_AS(func, lock);
}

// Begins to make a pool, or the semaphore of one that could not get it before. A pool that works is left alone.
bool begin_making() {
  lock_table();
  const bool begun = !being_made && (!pool || pool->semid == no_semaphore);
  if (begun)
    being_made = true;
  unlock_table();
  return begun;
}

// Gives the semaphore to the pool that is there, or else to `made`. Frees `made` if it is not needed.
void end_making(XmemPool *made, int semid) {
  lock_table();
  if (!pool && made) {
    list_make_empty(&made->blocks);
    pool = made;
    made = nullptr;
  }
  if (pool)
    pool->semid = semid;
  being_made = false;
  unlock_table();
  free(made);
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
  Lock lock;
  if (size == 0 || count == 0 || !enter(&lock, func))
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
  leave(lock, func);
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
  pthread_once(&fork_handlers, install_fork_handlers);
  const int cancellability = hold_cancellation();
  int result = -1;
  if (fork_handlers_result == 0 && begin_making()) {
    // Making the semaphore may be traced, and the console may block. Nothing is locked meanwhile.
    auto *made = static_cast<XmemPool *>(malloc(sizeof(XmemPool)));
    int semid = no_semaphore;
    if (made)
      result = sem_create(semkey, &semid) == 0 ? 0 : -1;
    end_making(made, result == 0 ? semid : no_semaphore);
  }
  restore_cancellation(cancellability);
  return result;
}

void *xmalloc(uint32_t size, uint32_t flag) {
  return allocate(1, size, flag, __func__);
}

void *xcalloc(uint32_t count, uint32_t size, uint32_t flag) {
  return allocate(count, size, flag, __func__);
}

void *xrealloc(void *block, uint32_t size, uint32_t flag) {
  Lock lock;
  if (size == 0 || !block || !enter(&lock, __func__))
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
  leave(lock, __func__);
  return renewed;
}

void xfree(void *block) { // cppcheck-suppress constParameter ; the block is freed
  Lock lock;
  if (!enter(&lock, __func__))
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
    leave(lock, __func__);
    return;
  }
  // This is meant: a pool without blocks ends here, even when the block that was to be freed is not tracked. Its
  // semaphore is deleted and not given back.
  sem_delete(pool->semid);
  free(pool);
  pool = nullptr;
  unlock_table();
  restore_cancellation(lock.cancellability);
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
