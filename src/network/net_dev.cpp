#include "network/net_dev.h"

#include <string.h>

namespace torvane {

void NetDev::read_line() {
  while (fgets(buffer_, sizeof(buffer_), file_.get())) {
    if (headings_left_ > 0) {
      headings_left_--;
      continue;
    }
    char *const name = buffer_ + strspn(buffer_, " \t\n\v\f\r");
    if (char *const colon = strchr(name, ':')) {
      line_ = {buffer_, name, colon};
      return;
    }
  }
  line_ = {};
}

} // namespace torvane
