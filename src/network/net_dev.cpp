#include "network/net_dev.h"

#include <string.h>

namespace torvane {

NetDev::NetDev() : file_(fopen("/proc/net/dev", "re")) {
  constexpr int headings = 2;
  for (int i = 0; file_ && i < headings; i++)
    if (!fgets(buffer_, sizeof(buffer_), file_.get()))
      break;
}

void NetDev::read_line() {
  while (fgets(buffer_, sizeof(buffer_), file_.get())) {
    char *const name = buffer_ + strspn(buffer_, " \t\n\v\f\r");
    if (char *const colon = strchr(name, ':')) {
      line_ = {buffer_, name, colon};
      return;
    }
  }
  line_ = {};
}

} // namespace torvane
