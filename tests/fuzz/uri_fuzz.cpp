// decodeURIComponent on anything, and on what encodeURIComponent made of it.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "torvane.h"

namespace {

void demand(bool holds) {
  if (!holds)
    abort();
}

// Bytes above 7f stand in groups as UTF-8 has them.
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
  auto *text = static_cast<char *>(malloc(size + 1));
  if (!text)
    abort();
  if (size > 0)
    memcpy(text, data, size);
  text[size] = '\0';

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
