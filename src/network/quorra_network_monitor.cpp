// Bandwidth monitor: a thread that turns the byte counters of interfaces into rates, for callers of any process.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "base/detached_thread.h"
#include "base/lock.h"
#include "base/records.h"
#include "base/trace.h"
#include "network/net_dev.h"
#include "torvane/ipc.h"
#include "torvane/list.h"
#include "torvane/monitor.h"

namespace {

constexpr char trace_module[] = "quorra_network";

constexpr uint8_t exit_asked = 1;         // in bm_head.exit
constexpr uint16_t sampled = 1;           // in bm_iface.flags
constexpr uint16_t longest_history = 257; // entries of one interface

using Interfaces = torvane::Records<bm_iface, offsetof(bm_iface, link)>;
using Samples = torvane::Records<bm_sample, offsetof(bm_sample, link)>;

// The columns of a line, from left to right. One that is not there is 0.
class Columns {
 public:
  explicit Columns(const char *text) : at_(text) {}
  uint64_t next() {
    char *end;
    const uint64_t value = strtoull(at_, &end, 10);
    at_ = end;
    return value;
  }
  // The kernel counts in 64 bits what the record holds in 32.
  uint32_t next32() {
    return static_cast<uint32_t>(std::min<uint64_t>(next(), UINT32_MAX));
  }

 private:
  const char *at_;
};

void parse_counters(const char *text, rxtx_stats *out) {
  Columns columns(text);
  out->rx_bytes = columns.next();
  out->rx_packets = columns.next();
  out->rx_errors = columns.next32();
  out->rx_drops = columns.next32();
  out->rx_fifo = columns.next32();
  out->rx_frame = columns.next32();
  out->rx_compressed = columns.next32();
  out->rx_multicast = columns.next32();
  out->tx_bytes = columns.next();
  out->tx_packets = columns.next();
  out->tx_errors = columns.next32();
  out->tx_drops = columns.next32();
  out->tx_fifo = columns.next32();
  out->tx_collisions = columns.next32();
  out->tx_carrier = columns.next32();
  out->tx_compressed = columns.next32();
}

// Null when there is none. With the semaphore taken, as everything below.
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

// The oldest entry makes room once the history is full. Without memory this sample is left out.
void remember_rates(bm_iface &iface) {
  bm_sample *entry;
  if (iface.history_count >= longest_history) {
    entry = torvane::record_of<bm_sample>(iface.history.next, offsetof(bm_sample, link));
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

// A period of 0, which no caller may set, is neither divided by nor spun on.
unsigned period_of(const bm_head *head) {
  return std::max<unsigned>(head->period, 1);
}

} // namespace

extern "C" {

int get_rxtx_by_ifname(const char *name, rxtx_stats *out) {
  FILE *file = name && out ? torvane::open_net_dev() : nullptr;
  if (!file)
    return 1;
  *out = {};
  int result = 1;
  char line[torvane::net_dev_line];
  while (result != 0 && fgets(line, sizeof(line), file)) {
    const char *colon = strstr(line, name) ? strchr(line, ':') : nullptr;
    if (colon) {
      parse_counters(colon + 1, out);
      result = 0;
    }
  }
  fclose(file);
  return result;
}

int init_bm(bm_head *head, int semkey, unsigned char period, unsigned char history) {
  if (!head)
    return 0;
  torvane::list_make_empty(&head->link);
  head->count = 0;
  head->history = history;
  head->period = period;
  head->exit = 0;
  head->reserved = 0;
  return sem_create(semkey, &head->semid) == 0;
}

int bm_start(bm_head *head) {
  pthread_t thread;
  if (!head || !torvane::start_detached(&thread, torvane::default_stack, bmThread, head))
    return 1;
  TRACE_NO_PROCESS("main process get thread id=%d\n", static_cast<int>(thread));
  return 0;
}

int add_bm_by_iface(const char *name, bm_head *head) {
  if (!name || !head || strlen(name) >= sizeof(bm_iface::name))
    return 0;
  del_bm_by_iface(name, head);
  bm_iface *iface = static_cast<bm_iface *>(calloc(1, sizeof(bm_iface)));
  if (!iface)
    return 0;
  strcpy(iface->name, name); // NOLINT(clang-analyzer-security.insecureAPI.strcpy): its length was looked at
  torvane::list_make_empty(&iface->history);

  if (!TAKE_SEMAPHORE(head->semid)) {
    free(iface);
    return 0;
  }
  list_add_tail(&iface->link, &head->link);
  head->count++;
  GIVE_SEMAPHORE(head->semid);
  return 1;
}

int del_bm_by_iface(const char *name, bm_head *head) {
  if (!name || !head || !TAKE_SEMAPHORE(head->semid))
    return 0;
  bm_iface *iface = find(name, head);
  const bool listed = iface != nullptr;
  if (listed)
    release(iface);
  GIVE_SEMAPHORE(head->semid);
  return listed;
}

int query_bm_by_iface(const char *name, bm_head *head, bm_sample *out) {
  if (!name || !head || !out || !TAKE_SEMAPHORE(head->semid))
    return 0;
  const bm_iface *iface = find(name, head);
  const bool known = iface && (iface->flags & sampled);
  if (known) {
    out->rx_rate = iface->rx_rate;
    out->tx_rate = iface->tx_rate;
  }
  GIVE_SEMAPHORE(head->semid);
  return known;
}

// When the semaphore is gone no pass is made: what it guards is not touched without it, and it is not given back without
// having been taken. Only the exit bit is looked at anyway, so that such a monitor can still be ended; then nobody else
// can have the list, and it is freed all the same.
void *bmThread(void *head) {
  bm_head *const monitor = static_cast<bm_head *>(head);
  if (!monitor)
    return nullptr;
  TRACE_THREAD_START();

  bool held = TAKE_SEMAPHORE(monitor->semid);
  unsigned period = period_of(monitor);
  while (!(__atomic_load_n(&monitor->exit, __ATOMIC_RELAXED) & exit_asked)) {
    if (held) {
      sample_interfaces(monitor, period);
      period = period_of(monitor);
      GIVE_SEMAPHORE(monitor->semid);
    }
    sleep(period);
    held = TAKE_SEMAPHORE(monitor->semid);
  }
  if (held)
    GIVE_SEMAPHORE(monitor->semid);
  TRACE("bmThread Exit\n");

  held = TAKE_SEMAPHORE(monitor->semid);
  for (bm_iface &iface : Interfaces(&monitor->link)) {
    list_del(&iface.link);
    free(&iface); // its history stays allocated, for callers that still read it
  }
  // From here on the monitor may be gone: whoever finds the list empty under the semaphore knows that this is the end.
  if (held)
    GIVE_SEMAPHORE(monitor->semid);
  return nullptr;
}

} // extern "C"
