// The reader of address dumps gets datagrams of any contents through a socket pair, as from a netlink socket.
//
// The input begins with five bytes: the interface index, the filter's prefix length, its family (bits 0 and 1) and
// scope (bits 2 to 4), the number of entries less one, and the buffer's size in units of 16 bytes (0: a page).
// Datagrams follow, each after two bytes with its length, the high one first. The last may be shorter than that.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "torvane.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  constexpr size_t settings = 5;
  if (size < settings)
    return 0;
  const uint8_t *const set = data;
  data += settings;
  size -= settings;

  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
    abort();
  while (size >= 2) {
    size_t length = static_cast<size_t>(data[0] << 8 | data[1]);
    data += 2;
    size -= 2;
    if (length > size)
      length = size;
    if (send(ends[1], data, length, MSG_DONTWAIT) < 0)
      break; // the socket holds no more
    data += length;
    size -= length;
  }
  close(ends[1]); // the reader gets an empty datagram at the end

  // The block is exactly as large as its count, so that the address sanitizer sees an access past it.
  const int count = set[3] % 16 + 1;
  auto *entries = static_cast<v6_ifaddr *>(calloc(static_cast<size_t>(count), sizeof(v6_ifaddr)));
  const uint32_t filter = static_cast<uint32_t>(set[1]) << 24 | (set[2] & 3u) << 22 | (set[2] >> 2 & 7u) << 19;
  entries[0].info = filter;
  read_ifc_results(ends[0], set[4] == 0 ? 4096 : set[4] * 16, set[0], entries, count - 1, process_ifaddr_ip);
  close(ends[0]);

  const v6_ifaddr untouched = {{}, filter};
  if (memcmp(entries, &untouched, sizeof(untouched)) != 0)
    abort();
  for (int i = 1; i < count; i++)
    if ((entries[i].info & 0xffff) != 0)
      abort();
  free(entries);
  return 0;
}
