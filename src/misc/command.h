// Formatting a shell command within its bound.
#pragma once

#include <stdarg.h>

namespace torvane {

struct Command {
  char text[1024];
};

// The length of the formatted command; -1 when it does not fit or `format` is null, and then `command` must not run.
[[gnu::format(printf, 2, 0)]] int format_command(Command &command, const char *format, va_list values);

} // namespace torvane
