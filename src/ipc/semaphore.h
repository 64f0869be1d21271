// A System V semaphore taken and given back in the name of the function that does so. No guard object: threads that
// are cancelled asynchronously take it too.
#pragma once

#include "torvane.h"

// Both give 0 for success, and trace their failures themselves.
#define SEMAPHORE_DOWN(id) downdown(id, trace_module, __LINE__, __func__, 0)
#define SEMAPHORE_UP(id) upup(id, trace_module, __LINE__, __func__, 0)
