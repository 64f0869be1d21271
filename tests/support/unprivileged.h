// Pieces of a test that run without the rights of root, to whom the kernel refuses next to nothing.
#pragma once

#include <errno.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "support/child_process.h"

namespace sandbox {

// Runs `body` in a child that is still root but has no capability, so that permissions bind it as its files' owner.
// Returns the result of `body`, 100 if the child could not give its capabilities up.
template <typename Body>
int without_privilege(Body body) {
  return in_child([&] {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    const __user_cap_data_struct none[2] = {};
    return syscall(SYS_capset, &header, none) == 0 ? body() : 100;
  });
}

// Runs `body` in a child that belongs to another user than root, because the kernel limits the processes of every user
// but root. In a user namespace that knows only one user the child stays that user, who is not root outside. Returns
// the result of `body`, 100 if the child could not change its user.
template <typename Body>
int as_another_user(Body body) {
  return in_child([&] {
    constexpr uid_t another = 65534;
    if (getuid() == 0 && setresuid(another, another, another) != 0 && errno != EINVAL)
      return 100;
    return body();
  });
}

} // namespace sandbox
