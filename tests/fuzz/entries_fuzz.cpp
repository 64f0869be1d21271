// data_2_entries gets any request. The first byte of the input is the capacity, the rest the request.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "input.h"
#include "torvane.h"

using fuzz::demand;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0)
    return 0;
  const int capacity = data[0] % 16;
  // The blocks have exactly their size, so that one byte too far is seen.
  auto *entries = static_cast<cgi_entry *>(calloc(capacity ? static_cast<size_t>(capacity) : 1, sizeof(cgi_entry)));
  demand(entries != nullptr);
  char *request = static_cast<char *>(fuzz::copy_of(data + 1, size - 1));

  const int count = data_2_entries(entries, capacity, static_cast<int>(size - 1), request);
  int separators = 0;
  for (size_t i = 1; i < size; i++)
    separators += data[i] == '&';
  demand(count == (separators < capacity ? separators + 1 : capacity));
  for (int i = 0; i < count; i++) {
    demand(entries[i].name[64] == '\0' && entries[i].value[512] == '\0');
    demand(get_entry_by_name(entries, count, entries[i].name) <= &entries[i]);
  }
  free(request);
  free(entries);
  return 0;
}
