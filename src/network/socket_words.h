// Numbers the words of LogStrMap, from which the endpoint calls and the select service make their traces. Programs read
// the table too, so it also has words that nothing here uses.
#pragma once

#include <stdint.h>

#include "torvane/map.h"
#include "torvane/socket.h"

namespace torvane {

enum SocketWord : uint32_t {
  word_malloc_fail = 0,
  word_error_args = 1,
  word_socket = 2,
  word_error = 3,
  word_open_error = 4,
  word_listen_error = 5,
  word_bind_error = 6,
  word_accept_error = 7,
  word_option_error = 8,
  word_thread_error = 9,
  word_handler_error = 10,
  word_send_error = 11,
  word_recv_error = 12,
};

inline const char *text_of(SocketWord word) {
  return TxtMapById(LogStrMap, word);
}

} // namespace torvane
