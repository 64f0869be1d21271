// decodeURIComponent gets any text, and what encodeURIComponent made of it.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "input.h"
#include "torvane.h"

using fuzz::demand;

namespace {

// Returns whether the bytes above 0x7f stand in groups as in UTF-8.
bool is_grouped(const unsigned char *text) {
  while (*text) {
    const int lead = *text++;
    if (lead < 0x80)
      continue;
    if (lead < 0xc0)
      return false;
    for (int following = lead >= 0xf0 ? 3 : lead >= 0xe0 ? 2 : 1; following > 0; following--, text++)
      if ((*text & 0xc0) != 0x80)
        return false;
  }
  return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  char *text = fuzz::text_of(data, size);

  char *decoded = decodeURIComponent(text);
  demand(decoded && strlen(decoded) <= strlen(text));
  free(decoded);

  char *coded = encodeURIComponent(text);
  demand(coded && strlen(coded) <= 3 * strlen(text));
  for (const char *c = coded; *c; c++)
    demand(*c > ' ' && *c < 0x7f && !strchr("\"#$&+,/:;<=>?@[\\]^`{|}", *c));
  char *back = decodeURIComponent(coded);
  demand(back != nullptr);
  if (is_grouped(reinterpret_cast<unsigned char *>(text)))
    demand(strcmp(text, back) == 0);
  free(back);
  free(coded);
  free(text);
  return 0;
}
