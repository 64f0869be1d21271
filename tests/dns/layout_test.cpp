// Programs and library share the record byte for byte, on every machine.
#include "support/record_layout.h"
#include "torvane.h"

RECORD_LAYOUT(DnsQuery, 3592, FIELD(servers, 0, 20), FIELD(names, 20, 2560), FIELD(stopOnMatch, 2580, 1),
              FIELD(timeoutSec, 2581, 1), FIELD(serverCount, 2582, 1), FIELD(nameCount, 2583, 1),
              FIELD(ipv4Count, 2584, 4), FIELD(ipv4Result, 2588, 200), FIELD(ipv6Count, 2788, 4),
              FIELD(ipv6Result, 2792, 800));
