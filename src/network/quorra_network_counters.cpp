// Reads the counters of an interface.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "network/net_dev.h"
#include "torvane/monitor.h"

using namespace torvane;

namespace {

// Reads the columns of a line from left to right. A column that is not there is 0.
class Columns {
 public:
  explicit Columns(const char *text) : at_(text) {}
  uint64_t next() {
    char *end;
    const uint64_t value = strtoull(at_, &end, 10);
    at_ = end;
    return value;
  }
  // The kernel counts in 64 bits. A count that does not fit the 32 bits of the record becomes the largest that does.
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

} // namespace

extern "C" int get_rxtx_by_ifname(const char *name, rxtx_stats *out) {
  if (!name || !out)
    return 1;
  NetDev net_dev;
  if (!net_dev)
    return 1;
  *out = {};
  for (const NetDevLine &line : net_dev) {
    // This is meant: the name may stand anywhere in the line, so "eth1" also finds "eth10" if that comes first.
    if (strstr(line.text, name)) {
      parse_counters(line.colon + 1, out);
      return 0;
    }
  }
  return 1;
}
