#include "interposed.h"

#include <gtest/gtest.h>

INTERPOSE(accept, 3);
INTERPOSE(fopen, 2);
INTERPOSE(if_nametoindex, 1);
INTERPOSE_VARIADIC(ioctl, 2);
INTERPOSE(pthread_create, 4);
INTERPOSE(pthread_setcanceltype, 2);
INTERPOSE(read, 3);
INTERPOSE(recv, 4);
INTERPOSE(recvfrom, 6);
INTERPOSE(select, 5);
INTERPOSE(semget, 3);
INTERPOSE(semop, 3, sandbox::ordered_semop);
INTERPOSE(send, 4);
INTERPOSE(sendto, 6);
INTERPOSE(setsockopt, 5);
INTERPOSE(sleep, 1);
INTERPOSE(socket, 3);
INTERPOSE(usleep, 1);

// Tests that count calls would pass with none if the library did not reach the stand-in.
TEST(Interposed, ReachesTheLibrary) {
  static int asked;
  asked = 0;
  const interposed::StandIn hook(interposed::ioctl_call, [](int, unsigned long, void *) { return ++asked, -1; });
  EXPECT_EQ(1, ioctl(0, FIONREAD, nullptr) + 2);
  EXPECT_EQ(1, asked);
}
