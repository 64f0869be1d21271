// The callback of these timers waits for the test.
#pragma once

#include <stdint.h>

#include "controls.h"
#include "support/child_process.h"
#include "torvane.h"

namespace controls {

// The callback tells the test that it began, and goes on when the test lets it.
inline const sandbox::Handshake *began, *may_end;

inline void block(uint32_t arg1, uint32_t arg2) {
  began->give();
  may_end->take();
  fire(arg1, arg2);
}

inline TimerNode blocking_timer(uint32_t name, uint32_t expire) {
  TimerNode made = timer(name, expire);
  made.callback = block;
  return made;
}

inline void make_handshakes() {
  began = new sandbox::Handshake;
  may_end = new sandbox::Handshake;
}

} // namespace controls
