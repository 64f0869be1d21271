// Monitors bandwidth: a thread turns the byte counters of interfaces into rates, for callers of any process.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "base/detached_thread.h"
#include "base/fields.h"
#include "base/lock.h"
#include "base/owners.h"
#include "base/records.h"
#include "base/trace.h"
#include "torvane/ipc.h"
#include "torvane/list.h"
#include "torvane/monitor.h"

using namespace torvane;

namespace {

constexpr const char *trace_module = "quorra_network";

constexpr uint8_t exit_asked = 1;         // in bm_head.exit
constexpr uint16_t sampled = 1;           // in bm_iface.flags
constexpr uint16_t longest_history = 257; // entries of one interface; this is meant, and not 256

using Interfaces = Records<bm_iface, offsetof(bm_iface, link)>;
using Samples = Records<bm_sample, offsetof(bm_sample, link)>;

// All functions from here to the exported ones are called with the semaphore taken.

// Returns null when the monitor does not have the interface.
bm_iface *find(const char *name, bm_head *head) {
  for (bm_iface &iface : Interfaces(&head->link))
    if (strcmp(iface.name, name) == 0)
      return &iface;
  return nullptr;
}

void release(bm_iface *iface) {
  for (bm_sample &entry : Samples(&iface->history)) {
    list_del(&entry.link);
    free(&entry);
  }
  list_del(&iface->link);
  free(iface);
}

// Appends the current rates to the history. Once it is full the oldest entry makes room; without memory the sample is
// left out.
void remember_rates(bm_iface &iface) {
  bm_sample *entry;
  if (iface.history_count >= longest_history) {
    entry = record_of<bm_sample>(iface.history.next, offsetof(bm_sample, link));
    list_del(&entry->link);
    iface.history_count--;
  } else {
    entry = static_cast<bm_sample *>(malloc(sizeof(bm_sample)));
    if (!entry)
      return;
  }
  entry->rx_rate = iface.rx_rate;
  entry->tx_rate = iface.tx_rate;
  list_add_tail(&entry->link, &iface.history);
  iface.history_count++;
}

void sample_interfaces(bm_head *head, unsigned seconds) {
  for (bm_iface &iface : Interfaces(&head->link)) {
    rxtx_stats now;
    if (get_rxtx_by_ifname(iface.name, &now) != 0)
      continue;
    if (iface.flags & sampled) {
      iface.rx_rate = (now.rx_bytes - iface.prev_rx) / seconds;
      iface.tx_rate = (now.tx_bytes - iface.prev_tx) / seconds;
      if (head->history)
        remember_rates(iface);
    }
    iface.flags |= sampled;
    iface.prev_rx = now.rx_bytes;
    iface.prev_tx = now.tx_bytes;
  }
}

// Returns the seconds between two passes. A period of 0, which no caller may set, is neither divided by nor spun on.
unsigned period_of(const bm_head *head) {
  return std::max<unsigned>(head->period, 1);
}

} // namespace

extern "C" {

// This is meant: bm_start returns 0 for success, and the other functions of the monitor return 1.

int init_bm(bm_head *head, int semkey, unsigned char period, unsigned char history) {
  if (!head)
    return 0;
  list_make_empty(&head->link);
  head->count = 0;
  head->history = history;
  head->period = period;
  head->exit = 0;
  head->reserved = 0;
  return sem_create(semkey, &head->semid) == 0;
}

int bm_start(bm_head *head) {
  pthread_t thread;
  if (!head || !start_detached(&thread, default_stack, bmThread, head))
    return 1;
  // This is meant: the number is the thread's handle, cut to an int, and not its kernel id.
  TRACE_NO_PROCESS("main process get thread id=%d\n", static_cast<int>(thread));
  return 0;
}

int add_bm_by_iface(const char *name, bm_head *head) {
  if (!name || !head || strlen(name) >= sizeof(bm_iface::name))
    return 0;
  del_bm_by_iface(name, head);
  HeapBlock<bm_iface> iface(allocate_zeroed<bm_iface>());
  if (!iface)
    return 0;
  set_text(iface->name, name);
  list_make_empty(&iface->history);

  Lock lock;
  if (!TAKE_LOCK_OR_NOTHING(&lock, head->semid))
    return 0;
  list_add_tail(&iface.release()->link, &head->link);
  head->count++; // this is meant: it counts what was added, and is never lowered
  GIVE_LOCK(lock);
  return 1;
}

int del_bm_by_iface(const char *name, bm_head *head) {
  Lock lock;
  if (!name || !head || !TAKE_LOCK_OR_NOTHING(&lock, head->semid))
    return 0;
  bm_iface *iface = find(name, head);
  const bool listed = iface != nullptr;
  if (listed)
    release(iface);
  GIVE_LOCK(lock);
  return listed;
}

int query_bm_by_iface(const char *name, bm_head *head, bm_sample *out) {
  Lock lock;
  if (!name || !head || !out || !TAKE_LOCK_OR_NOTHING(&lock, head->semid))
    return 0;
  const bm_iface *iface = find(name, head);
  const bool known = iface && (iface->flags & sampled);
  if (known) {
    out->rx_rate = iface->rx_rate;
    out->tx_rate = iface->tx_rate;
  }
  GIVE_LOCK(lock);
  return known;
}

// When the semaphore is gone the thread makes no pass: it touches nothing that the semaphore guards, and gives nothing
// back that it has not taken. It still looks at the exit bit, so that such a monitor can be ended; then nobody else can
// have the list, and the thread frees it all the same. A thread that is cancelled ends while it sleeps, without the
// semaphore.
void *bmThread(void *head) {
  bm_head *const monitor = static_cast<bm_head *>(head);
  if (!monitor)
    return nullptr;
  TRACE_THREAD_START();

  Lock lock;
  bool held = TAKE_LOCK_OR_NOTHING(&lock, monitor->semid);
  unsigned period = period_of(monitor);
  while (!(__atomic_load_n(&monitor->exit, __ATOMIC_RELAXED) & exit_asked)) {
    if (held) {
      sample_interfaces(monitor, period);
      period = period_of(monitor);
      GIVE_LOCK(lock);
    }
    sleep(period);
    held = TAKE_LOCK_OR_NOTHING(&lock, monitor->semid);
  }
  if (held)
    GIVE_LOCK(lock);
  TRACE("bmThread Exit\n");

  held = TAKE_LOCK_OR_NOTHING(&lock, monitor->semid);
  for (bm_iface &iface : Interfaces(&monitor->link)) {
    list_del(&iface.link);
    free(&iface); // its history stays allocated: this is meant, callers may still read it
  }
  // A caller that finds the list empty under the semaphore may free the monitor, so this is the last use of it.
  if (held)
    GIVE_LOCK(lock);
  return nullptr;
}

} // extern "C"
