// These tests run the resolver command, which asks a real DNS server.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "support/dnsmasq.h"
#include "support/example.h"
#include "support/sandbox.h"

namespace {

using sandbox::Outcome;

constexpr char configuration[] = R"(listen-address=127.0.0.1
host-record=both.test,192.0.2.1,2001:db8::1
host-record=four.test,192.0.2.4
cname=alias.test,both.test
)";

constexpr char usage[] =
    "usage: resolve [-1] [-t SECONDS] [-s ADDRESS]... [-f FILE] NAME...\n"
    "  -1          stop at the first address\n"
    "  -t SECONDS  wait so long after each reply for another one, 1 to 255 (2)\n"
    "  -s ADDRESS  IPv4 address of a server to ask, at most 5 times\n"
    "  -f FILE     without -s: ask the servers of its nameserver lines (/etc/resolv.conf)\n"
    "  NAME        at most 9\n";

Outcome run(const std::string &arguments) {
  return sandbox::run(sandbox::example("resolve") + " " + arguments);
}

class Resolve : public dns::WithDnsmasq<configuration> {};

} // namespace

TEST_F(Resolve, ShowsWhoAnswersWhat) {
  const Outcome outcome = run("-t 1 -s 127.0.0.1 -s 127.0.0.77 both.test four.test. alias.test no.test");
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ(
      "SERVER           NAME        A                AAAA\n"
      "127.0.0.1        both.test   192.0.2.1        2001:db8::1\n"
      "127.0.0.1        four.test   192.0.2.4        -\n"
      "127.0.0.1        alias.test  192.0.2.1        2001:db8::1\n"
      "127.0.0.1        no.test     -                -\n"
      "127.0.0.77       -           no reply\n",
      outcome.output);
}

TEST_F(Resolve, StopsAtTheFirstAddress) {
  const Outcome outcome = run("-1 -t 100 -s 127.0.0.77 -s 127.0.0.1 both.test");
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ(
      "SERVER           NAME       A                AAAA\n"
      "127.0.0.77       -          nothing yet\n"
      "127.0.0.1        both.test  192.0.2.1        2001:db8::1\n",
      outcome.output);
}

TEST_F(Resolve, TellsServersThatHaveNoneFromSilentOnes) {
  const Outcome outcome = run("-t 1 -s 127.0.0.1 no.test");
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ(
      "SERVER           NAME     A                AAAA\n"
      "127.0.0.1        -        has none\n",
      outcome.output);
}

TEST_F(Resolve, ReadsServersFromAFile) {
  sandbox::write_file("/run/resolv.conf",
                      "# comment\n"
                      "search test\n"
                      "nameserver 2001:db8::53\n"
                      "nameserver\n"
                      "nameserver 127.0.0.1 # the real one\n"
                      "nameserver\t127.0.0.77\n");
  const Outcome outcome = run("-1 -t 100 -f /run/resolv.conf both.test");
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ(
      "SERVER           NAME       A                AAAA\n"
      "127.0.0.1        both.test  192.0.2.1        2001:db8::1\n"
      "127.0.0.77       -          nothing yet\n",
      outcome.output);
}

TEST(ResolveUsage, IsShownForWhatItCannotTake) {
  for (const char *arguments :
       {"", "-x a.test", "-s", "-t 0 a.test", "-t 256 a.test", "-t 1s a.test", "-s 127.0.0.1 a b c d e f g h i j",
        "-s 1.1.1.1 -s 1.1.1.1 -s 1.1.1.1 -s 1.1.1.1 -s 1.1.1.1 -s 1.1.1.1 a.test"}) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(2, outcome.status) << arguments;
    EXPECT_NE(std::string::npos, outcome.output.find(usage)) << arguments;
  }
}

TEST(ResolveUsage, MistakesAreNamed) {
  Outcome outcome = run("-s localhost a.test");
  EXPECT_EQ(2, outcome.status);
  EXPECT_EQ("resolve: no IPv4 address: localhost\n", outcome.output);
  outcome = run("-f /run/no/such/file a.test");
  EXPECT_EQ(2, outcome.status);
  EXPECT_EQ("resolve: no IPv4 nameserver in /run/no/such/file\n", outcome.output);
  const std::string too_long(256, 'x');
  outcome = run("-s 127.0.0.1 " + too_long);
  EXPECT_EQ(2, outcome.status);
  EXPECT_EQ("resolve: name too long: " + too_long + "\n", outcome.output);
}
