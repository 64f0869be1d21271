// Makes random numbers and UUIDs.
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "base/owners.h"
#include "base/text_writer.h"
#include "base/trace.h"
#include "torvane/process.h"

using namespace torvane;

namespace {

constexpr const char *trace_module = "quorra_misc";

int seedings; // how often the process's generator was seeded

} // namespace

extern "C" {

int get_random(void) {
  if (seedings == 0) {
    unsigned seed = static_cast<unsigned>(time(nullptr));
    unsigned bytes;
    const Descriptor source(open("/dev/urandom", O_RDONLY | O_CLOEXEC));
    if (source && read(source.get(), &bytes, sizeof(bytes)) == static_cast<ssize_t>(sizeof(bytes)))
      seed = bytes;
    srand(seed);
    seedings++;
  }
  return rand(); // NOLINT(cert-msc30-c,cert-msc50-cpp): this generator is what the interface promises
}

int WscGenerateUUID(const unsigned char *mac, char *out) {
  constexpr size_t count = 4;
  constexpr size_t plain_size = 33;  // 32 digits and the terminator
  constexpr size_t dashed_size = 37; // 36 characters and the terminator

  if (!mac)
    return -1;
  for (size_t i = 0; i < count; i++) {
    const unsigned last = mac[5] + static_cast<unsigned>(i); // this is meant: it may need three digits

    char dashed_text[dashed_size], plain_text[plain_size];
    TextWriter dashed(dashed_text), plain(plain_text);
    dashed.append("bc329e00-1dd8-11b2-8601-%02x%02x%02x%02x%02x%02x", mac[0], mac[1], mac[2], mac[3], mac[4], last);
    // The text is cut to its field, so this never happens. The check guards the layout of `out` should the field ever
    // grow.
    if (dashed.length() > dashed_size)
      TRACE("ERROR:UUID String size too large!\n");

    plain.append("bc329e001dd811b28601%02x%02x%02x%02x%02x%02x", mac[0], mac[1], mac[2], mac[3], mac[4], last);

    if (out) {
      memcpy(out + plain_size * i, plain_text, plain_size);
      memcpy(out + plain_size * count + dashed_size * i, dashed_text, dashed_size);
    }
  }
  return 0;
}

} // extern "C"
