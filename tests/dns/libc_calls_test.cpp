// These tests make a call of the kernel fail or be interrupted, or give a socket that select cannot take.
#include "dns/libc_calls.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "dns/client_test.h"
#include "support/child_process.h"
#include "support/interposed.h"

INTERPOSED(select);
INTERPOSED(recvfrom);
INTERPOSED(ioctl);
INTERPOSED(usleep);

namespace dns {

LibcCalls libc_calls;

namespace {

// Returns whether this call is one of those that are to fail.
bool take_one(std::atomic<int> &left) {
  int count = left;
  while (count > 0) {
    if (left.compare_exchange_weak(count, count - 1))
      return true;
  }
  return false;
}

int watched_select(int count, fd_set *in, fd_set *out, fd_set *except, timeval *timeout) {
  libc_calls.selects++;
  if (!take_one(libc_calls.passing_selects) && take_one(libc_calls.failing_selects))
    return interposed::fail(libc_calls.select_error);
  if (timeout) {
    const long wait = static_cast<long>(timeout->tv_sec) * 1000000 + static_cast<long>(timeout->tv_usec);
    if (wait > libc_calls.longest_timeout)
      libc_calls.longest_timeout = wait;
  }
  const int result = interposed::select_call.real(count, in, out, except, timeout);
  if (result == -1 && errno == EINTR)
    libc_calls.interrupted_selects++;
  return result;
}

ssize_t watched_recvfrom(int fd, void *buffer, size_t size, int flags, sockaddr *from, socklen_t *from_size) {
  if (take_one(libc_calls.failing_receives))
    return interposed::fail(libc_calls.receive_error);
  return interposed::recvfrom_call.real(fd, buffer, size, flags, from, from_size);
}

int watched_ioctl(int fd, unsigned long request, void *argument) {
  return take_one(libc_calls.failing_ioctls) ? interposed::fail(EIO)
                                             : interposed::ioctl_call.real(fd, request, argument);
}

int watched_usleep(useconds_t time) {
  libc_calls.pauses++;
  libc_calls.paused += time;
  return libc_calls.skip_pauses ? 0 : interposed::usleep_call.real(time);
}

} // namespace

} // namespace dns

INTERPOSE(select, 5, dns::watched_select);
INTERPOSE(recvfrom, 6, dns::watched_recvfrom);
INTERPOSE_VARIADIC(ioctl, 2, dns::watched_ioctl);
INTERPOSE(usleep, 1, dns::watched_usleep);

namespace {

using namespace dns;

class KernelCalls : public dns::ClientTest {
 protected:
  void TearDown() override {
    EXPECT_TRUE(query_.intact());
    ClientTest::TearDown();
  }

  const Server::Answer say_yes = dns::with_address("192.0.2.1");
  Query query_{{here}, {"www.test"}};
};

} // namespace

TEST_F(KernelCalls, AnUnreachableServerEndsTheCall) {
  Query query({"192.0.2.53", here}, {"www.test"});
  const dns::Mailbox box(here);
  const int before = sandbox::open_descriptors();
  sandbox::Captured errors(STDERR_FILENO);
  const int with_capture = sandbox::open_descriptors();
  EXPECT_EQ(0, dnsQuery4_main(query.get(), &responded_, 1));
  EXPECT_EQ("sendto failed: Network is unreachable\n", errors.text());
  EXPECT_EQ(with_capture, sandbox::open_descriptors());
  EXPECT_GE(with_capture, before);
  EXPECT_TRUE(box.queries().empty());
  EXPECT_EQ(0, responded_);
}

TEST_F(KernelCalls, AnUnreachableServerEndsTheCallAfterTheQueriesBeforeIt) {
  Query query({here, "192.0.2.53"}, {"www.test", "ftp.test"});
  const dns::Mailbox box(here);
  sandbox::Captured errors(STDERR_FILENO);
  libc_calls.pauses = 0;
  EXPECT_EQ(0, dnsQuery4(query.get()));
  EXPECT_EQ("sendto failed: Network is unreachable\nsendto failed: Network is unreachable\n", errors.text());
  EXPECT_EQ(4u, box.queries().size());
  EXPECT_EQ(4, libc_calls.pauses); // none after a query that was not sent
}

TEST_F(KernelCalls, DescriptorZeroServesAsAnyOther) {
  Server server(here, say_yes);
  EXPECT_EQ(0, sandbox::in_child([&] {
              close(STDIN_FILENO);
              if (dnsQuery4_main(query_.get(), &responded_, 1) != 1)
                return 1;
              if (query_.filed() != Texts{"A 0 0 192.0.2.1"})
                return 2;
              return fcntl(STDIN_FILENO, F_GETFD) == -1 ? 0 : 3;
            }));
}

TEST_F(KernelCalls, EverySentQueryIsFollowedByAMillisecond) {
  Query query({here, "127.0.0.2"}, {"a.test", "b.test", "c.test"});
  query->timeoutSec = 0;
  libc_calls.pauses = 0;
  libc_calls.paused = 0;
  EXPECT_EQ(1, dnsQuery4_main(query.get(), &responded_, 1));
  EXPECT_EQ(6, libc_calls.pauses);
  EXPECT_EQ(6000u, libc_calls.paused);
}

TEST_F(KernelCalls, WaitsForTheTimeOfTheRecord) {
  Server server(here, say_yes);
  query_->timeoutSec = 255;
  libc_calls.longest_timeout = -1;
  EXPECT_EQ(1, dnsQuery4_main(query_.get(), &responded_, 1));
  EXPECT_EQ(255 * 1000000l, libc_calls.longest_timeout);
}

TEST_F(KernelCalls, NoSocketIsNoAnswer) {
  const dns::Mailbox box(here);
  {
    const sandbox::NoDescriptors none;
    EXPECT_EQ(0, dnsQuery4_main(query_.get(), &responded_, 1));
    EXPECT_EQ(0, dnsQuery4(query_.get()));
    EXPECT_EQ(0, dnsQuery4_checkServerResponseOnly(query_.get()));
  }
  EXPECT_TRUE(box.queries().empty());
}

TEST_F(KernelCalls, SocketsBeforeTheOneThatFailsStayOpen) {
  EXPECT_EQ(0, sandbox::in_child([] {
              Query query({here, "127.0.0.2", "127.0.0.3"}, {"www.test"});
              const dns::Mailbox box(here);
              const int before = sandbox::open_descriptors();
              const int lowest_free = dup(0);
              close(lowest_free);
              const int also_free = lowest_free + 1;
              if (fcntl(also_free, F_GETFD) != -1 || fcntl(also_free + 1, F_GETFD) != -1)
                return 1;
              rlimit usual;
              getrlimit(RLIMIT_NOFILE, &usual);
              const rlimit two_more = {static_cast<rlim_t>(lowest_free) + 2, usual.rlim_max};
              setrlimit(RLIMIT_NOFILE, &two_more);
              int responded = 0;
              const int result = dnsQuery4_main(query.get(), &responded, 1);
              setrlimit(RLIMIT_NOFILE, &usual);
              if (result != 0 || !box.queries().empty())
                return 2;
              return sandbox::open_descriptors() == before + 2 ? 0 : 3;
            }));
}

TEST_F(KernelCalls, AFailedSelectEndsTheCall) {
  Server server(here, say_yes);
  const int before = sandbox::open_descriptors();
  for (const int error : {ENOMEM, EBADF, EINVAL}) {
    libc_calls.select_error = error;
    libc_calls.failing_selects = 1;
    EXPECT_EQ(0, dnsQuery4_main(query_.get(), &responded_, 1)) << error;
    EXPECT_EQ(before, sandbox::open_descriptors());
    EXPECT_EQ(0, query_->ipv4Count);
    EXPECT_EQ(0, responded_);
  }
}

TEST_F(KernelCalls, AnInterruptedSelectIsTriedAgain) {
  Server server(here, say_yes);
  for (const int error : {EINTR, EAGAIN}) {
    query_->ipv4Count = 0;
    libc_calls.select_error = error;
    libc_calls.failing_selects = 3;
    EXPECT_EQ(1, dnsQuery4_main(query_.get(), &responded_, 1));
    EXPECT_EQ(0, libc_calls.failing_selects);
    EXPECT_EQ(1, query_->ipv4Count);
  }
}

TEST_F(KernelCalls, SignalsDoNotEndTheWait) {
  struct sigaction quiet = {}, usual;
  quiet.sa_handler = [](int) {};
  sigaction(SIGUSR1, &quiet, &usual);
  libc_calls.interrupted_selects = 0;
  const pthread_t caller = pthread_self();
  // The server does not answer before the wait was interrupted three times.
  Server server(here, [this, caller](const Bytes &query) {
    while (libc_calls.interrupted_selects < 3) {
      pthread_kill(caller, SIGUSR1);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return say_yes(query);
  });
  EXPECT_EQ(1, dnsQuery4_main(query_.get(), &responded_, 1));
  EXPECT_LE(3, libc_calls.interrupted_selects);
  EXPECT_EQ(std::vector<std::string>{"A 0 0 192.0.2.1"}, query_.filed());
  server.queries();
  sigaction(SIGUSR1, &usual, nullptr);
}

TEST_F(KernelCalls, AReplyThatCannotBeReceivedIsToldAndThePassGoesOn) {
  Server server(here, say_yes);
  sandbox::Captured errors(STDERR_FILENO);
  libc_calls.receive_error = EIO;
  libc_calls.failing_receives = 2;
  EXPECT_EQ(1, dnsQuery4_main(query_.get(), &responded_, 1));
  EXPECT_EQ("recvfrom failed: Input/output error\nrecvfrom failed: Input/output error\n", errors.text());
  EXPECT_EQ(std::vector<std::string>{"A 0 0 192.0.2.1"}, query_.filed());
  EXPECT_EQ(1, responded_);
}

TEST_F(KernelCalls, AnUnknownNumberOfWaitingBytesIsNone) {
  Server server(here, say_yes);
  query_->timeoutSec = 1;
  libc_calls.failing_ioctls = 1;
  EXPECT_EQ(1, dnsQuery4_main(query_.get(), &responded_, 1));
  EXPECT_EQ(0, libc_calls.failing_ioctls);
  EXPECT_EQ(0, responded_);
  EXPECT_EQ(0, query_->ipv4Count);
}

TEST_F(KernelCalls, ASocketThatSelectCannotTakeIsAFailedSelect) {
  constexpr int too_few = 77;
  const int result = sandbox::in_child([] {
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < FD_SETSIZE + 32)
      return too_few;
    limit.rlim_cur = FD_SETSIZE + 32;
    setrlimit(RLIMIT_NOFILE, &limit);
    // The first server's socket gets the highest number that a set has room for.
    int highest = -1;
    while (highest < FD_SETSIZE - 1)
      highest = dup(0);
    close(FD_SETSIZE - 1);
    Query query({here, "127.0.0.2"}, {"www.test"});
    const int before = sandbox::open_descriptors();
    int responded = 0;
    if (dnsQuery4_main(query.get(), &responded, 1) != 0)
      return 1;
    if (sandbox::open_descriptors() != before)
      return 2;
    query->serverCount = 1;
    query->timeoutSec = 0;
    return dnsQuery4_main(query.get(), &responded, 1) == 1 ? 0 : 3;
  });
  if (result == too_few)
    GTEST_SKIP() << "this machine does not let a process have more than " << FD_SETSIZE << " descriptors";
  EXPECT_EQ(0, result);
}

TEST_F(KernelCalls, AllocationsThatFailChangeNothing) {
  // The server runs in a process of its own, so that its allocations do not fail.
  const sandbox::Handshake ready, done;
  const pid_t process = sandbox::start_child([&] {
    Server server(here, [](const Bytes &query) {
      return std::vector<Bytes>{dns::reply(query, 3,
                                           dns::cname(dns::to_question(), dns::labels("host.test")) +
                                               dns::a(dns::labels("host.test"), "192.0.2.1") +
                                               dns::aaaa(dns::labels("host.test"), "2001:db8::1"))};
    });
    ready.give();
    done.take();
    return 0;
  });
  ready.take();
  sandbox::fail_each_allocation(
      [&] { return dnsQuery4(query_.get()); },
      [&](int result, bool) {
        EXPECT_EQ(1, result);
        EXPECT_EQ(2, query_->ipv4Count);
        EXPECT_EQ(2, query_->ipv6Count);
        EXPECT_EQ((std::vector<std::string>{"A 0 0 192.0.2.1", "AAAA 0 0 2001:db8::1"}), query_.filed());
      });
  done.give();
  EXPECT_EQ(0, sandbox::end_of_child(process));
}
