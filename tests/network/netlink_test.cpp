// These tests read netlink messages about addresses: single ones, and datagrams of them up to the last.
#include <errno.h>
#include <gtest/gtest.h>
#include <linux/if_addr.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <stddef.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "netlink.h"
#include "support/record_layout.h"
#include "support/sandbox.h"
#include "torvane.h"

RECORD_LAYOUT(v6_ifaddr, 20, FIELD(addr, 0, 16), FIELD(info, 16, 4));

namespace {

using namespace network;
using sandbox::Captured;

// Hands one message to process_ifaddr_ip, in memory of exactly its size.
class Entry : public testing::Test {
 protected:
  int process(const Datagram &bytes, unsigned ifindex = 0, int found = 0) {
    const std::unique_ptr<unsigned char[]> exact(new unsigned char[bytes.size()]);
    memcpy(exact.get(), bytes.data(), bytes.size());
    return process_ifaddr_ip(reinterpret_cast<const nlmsghdr *>(exact.get()), ifindex, found, entries);
  }
  v6_ifaddr entries[4] = {};
};

} // namespace

TEST_F(Entry, IsFilledFromTheMessage) {
  EXPECT_EQ(1, process(ipv6_message("2001:db8::1")));
  EXPECT_EQ("2001:db8::1/64 2 1 4", shown(entries[1]));
  EXPECT_EQ(0x40000000u | 2u << 22 | 1u << 19 | 4u << 16, entries[1].info);
  EXPECT_EQ(1, process(address_message({AF_INET, 24, 0, RT_SCOPE_HOST, 7}, {attribute(1, address_bytes("192.0.2.9"))}),
                       7, 2));
  EXPECT_EQ("192.0.2.9/24 1 4 5", shown(entries[3]));
  EXPECT_EQ("::/0 0 0 0", shown(entries[0]));
  EXPECT_EQ("::/0 0 0 0", shown(entries[2]));
}

TEST_F(Entry, HasTheCodeOfEveryScope) {
  for (unsigned scope = 0; scope < 256; scope++) {
    EXPECT_EQ(1, process(address_message({AF_INET6, 1, 0, static_cast<unsigned char>(scope), 1}, {})));
    const unsigned code = scope == 0     ? 1
                          : scope == 200 ? 2
                          : scope == 253 ? 3
                          : scope == 254 ? 4
                          : scope == 255 ? 5
                                         : 0;
    EXPECT_EQ(code, entries[1].info >> 19 & 7) << scope;
  }
}

TEST_F(Entry, HasTheStateOfEveryCombinationOfFlags) {
  for (unsigned flags = 0; flags < 256; flags++) {
    EXPECT_EQ(1, process(address_message({AF_INET6, 1, static_cast<unsigned char>(flags), 0, 1}, {})));
    unsigned code = 5;
    if (flags & 0x80)
      code = 4;
    if (flags & 0x08)
      code = 3;
    if (flags & 0x40)
      code = 2;
    if (flags & 0x02)
      code = 0;
    EXPECT_EQ(code, entries[1].info >> 16 & 7) << flags;
  }
}

TEST_F(Entry, HasTheCodeOfEveryFamily) {
  for (unsigned family = 0; family < 256; family++) {
    memset(entries, 0, sizeof(entries));
    EXPECT_EQ(1, process(address_message({static_cast<unsigned char>(family), 128, 0, 0, 1},
                                         {attribute(IFA_ADDRESS, Datagram(16, 0xab))})));
    const unsigned code = family == 2 ? 1 : family == 10 ? 2 : 0;
    EXPECT_EQ(code, entries[1].info >> 22 & 3) << family;
    EXPECT_EQ(code == 1 ? 4 : code == 2 ? 16 : 0, std::count(entries[1].addr, entries[1].addr + 16, 0xab)) << family;
  }
}

TEST_F(Entry, LeavesTheSpareBits) {
  entries[1].info = 0xffffffffu;
  EXPECT_EQ(1, process(address_message({AF_INET6, 0, IFA_F_NODAD, 77, 1}, {})));
  EXPECT_EQ(2u << 22 | 0xffffu, entries[1].info);
}

TEST_F(Entry, IsOfTheInterfaceThatIsAskedFor) {
  EXPECT_EQ(0, process(ipv6_message("2001:db8::1", 5), 6));
  EXPECT_EQ(0u, entries[1].info);
  EXPECT_EQ(1, process(ipv6_message("2001:db8::1", 0x01000005), 0x01000005));
  EXPECT_EQ(1, process(ipv6_message("2001:db8::1", 5), 0));
}

TEST_F(Entry, IsOnlyWhatTheFilterKeeps) {
  struct Case {
    v6_ifaddr wanted;
    int kept;
    uint32_t left; // the codes that a rejected message leaves in the entry
  };
  // The message is of an IPv6 address with link scope and prefix 10, and permanent.
  const Case cases[] = {
      {filter(0, 0, 0), 1, 10u << 24 | 2u << 22 | 3u << 19 | 4u << 16},
      {filter(0, 2, 3), 1, 10u << 24 | 2u << 22 | 3u << 19 | 4u << 16},
      {filter(10, 2, 3), 1, 10u << 24 | 2u << 22 | 3u << 19 | 4u << 16},
      {filter(10, 0, 0), 1, 10u << 24 | 2u << 22 | 3u << 19 | 4u << 16},
      {filter(0, 1, 0), 0, 0},
      {filter(10, 1, 3), 0, 0},
      {filter(0, 0, 1), 0, 2u << 22},
      {filter(10, 2, 4), 0, 2u << 22},
      {filter(64, 0, 0), 0, 2u << 22 | 3u << 19},
      {filter(11, 2, 3), 0, 2u << 22 | 3u << 19},
  };
  for (const Case &row : cases) {
    memset(entries, 0, sizeof(entries));
    entries[0] = row.wanted;
    EXPECT_EQ(row.kept, process(address_message({AF_INET6, 10, IFA_F_PERMANENT, RT_SCOPE_LINK, 5},
                                                {attribute(IFA_ADDRESS, address_bytes("fe80::1"))})));
    EXPECT_EQ(row.left, entries[1].info);
    EXPECT_EQ(row.kept == 1, entries[1].addr[0] == 0xfe);
    EXPECT_EQ(row.wanted.info, entries[0].info);
  }
}

TEST_F(Entry, OfARejectedMessageIsTakenByTheNext) {
  entries[0] = filter(64, 0, 0);
  EXPECT_EQ(0, process(address_message({AF_INET6, 10, 0x80, RT_SCOPE_LINK, 5}, {})));
  EXPECT_EQ("::/0 2 3 0", shown(entries[1]));
  EXPECT_EQ(1, process(address_message({AF_INET, 64, 0, 77, 5}, {attribute(1, address_bytes("192.0.2.1"))})));
  EXPECT_EQ("192.0.2.1/64 1 0 5", shown(entries[1]));
}

TEST_F(Entry, HasTheLastOfSeveralAddresses) {
  const ifaddrmsg about = {AF_INET6, 64, 0, 0, 1};
  EXPECT_EQ(1, process(address_message(about, {attribute(IFA_LOCAL, address_bytes("2001:db8::2")),
                                               attribute(IFA_ADDRESS, address_bytes("2001:db8::3")),
                                               attribute(IFA_ADDRESS, address_bytes("2001:db8::4")),
                                               attribute(IFA_BROADCAST, address_bytes("2001:db8::5"))})));
  EXPECT_EQ("2001:db8::4/64 2 1 5", shown(entries[1]));
}

TEST_F(Entry, UnknownAttributesArePrinted) {
  Captured output(STDOUT_FILENO);
  sandbox::clear_console();
  std::vector<Datagram> attributes;
  for (const int type : {0, 2, 3, 4, 5, 6, 7, 8, 9, 11, 0x8001, 0xffff})
    attributes.push_back(attribute(static_cast<unsigned short>(type), Datagram(4)));
  attributes.push_back(attribute(IFA_ADDRESS, address_bytes("2001:db8::1")));
  EXPECT_EQ(1, process(address_message({AF_INET6, 64, 0, 0, 1}, attributes)));
  EXPECT_EQ(
      "unknown rta_type: 0\nunknown rta_type: 8\nunknown rta_type: 9\nunknown rta_type: 11\n"
      "unknown rta_type: 32769\nunknown rta_type: 65535\n",
      output.text());
  EXPECT_EQ("", sandbox::console_text());
  EXPECT_EQ("2001:db8::1/64 2 1 5", shown(entries[1]));
}

TEST_F(Entry, AttributesEndAtOneThatIsNotWhole) {
  Captured output(STDOUT_FILENO);
  const ifaddrmsg about = {AF_INET6, 64, 0x80, 0, 1};
  const Datagram good = attribute(IFA_ADDRESS, address_bytes("2001:db8::1"));
  const Datagram late = attribute(IFA_ADDRESS, address_bytes("2001:db8::2"));
  for (const size_t length : {0u, 1u, 3u, 48u, 100u, 0xffffu}) { // 44 bytes are left
    memset(entries, 0, sizeof(entries));
    EXPECT_EQ(1, process(address_message(about, {good, cut_attribute(length, 99, Datagram(20)), late}))) << length;
    EXPECT_EQ("2001:db8::1/64 2 1 4", shown(entries[1])) << length;
  }
  // The last attribute may end without its padding, and a rest shorter than a header is ignored.
  for (size_t rest = 0; rest < 4; rest++) {
    memset(entries, 0, sizeof(entries));
    EXPECT_EQ(1, process(address_message(about, {good, Datagram(rest, 0xff)})));
    EXPECT_EQ("2001:db8::1/64 2 1 4", shown(entries[1]));
    EXPECT_EQ(1, process(address_message(about, {late, cut_attribute(4 + rest, 3, Datagram(rest))})));
    EXPECT_EQ("2001:db8::2/64 2 1 4", shown(entries[1]));
  }
  EXPECT_EQ("", output.text());
}

TEST_F(Entry, StepsOverAttributesByMultiplesOf4) {
  for (const size_t odd : {1u, 2u, 3u, 4u, 5u}) {
    memset(entries, 0, sizeof(entries));
    EXPECT_EQ(1, process(address_message({AF_INET6, 64, 0, 0, 1}, {attribute(IFA_LABEL, Datagram(odd, 'x')),
                                                                   attribute(1, address_bytes("2001:db8::7"))})));
    EXPECT_EQ("2001:db8::7/64 2 1 5", shown(entries[1])) << odd;
  }
}

TEST_F(Entry, TakesNoAddressThatIsTooShort) {
  for (size_t size = 0; size < 16; size++) {
    EXPECT_EQ(1, process(address_message({AF_INET6, 64, 0, 0, 1}, {attribute(IFA_ADDRESS, Datagram(size, 0xff))})));
    EXPECT_EQ("::/64 2 1 5", shown(entries[1])) << size;
  }
  for (size_t size = 0; size < 4; size++) {
    EXPECT_EQ(1, process(address_message({AF_INET, 24, 0, 0, 1}, {attribute(IFA_ADDRESS, Datagram(size, 0xff))})));
    EXPECT_EQ("0.0.0.0/24 1 1 5", shown(entries[1])) << size;
  }
  EXPECT_EQ(1, process(address_message({AF_INET6, 64, 0, 0, 1}, {attribute(IFA_ADDRESS, Datagram(20, 0xff))})));
  EXPECT_EQ(16, std::count(entries[1].addr, entries[1].addr + 16, 0xff));
}

TEST_F(Entry, OfAMessageWithoutItsHeadersIsNotWritten) {
  const Datagram whole = ipv6_message("2001:db8::1");
  const v6_ifaddr before = entries[1];
  for (uint32_t length = 0; length < 24; length++) {
    Datagram cut = with_length(whole, length);
    cut.resize(std::max(length, 16u));
    EXPECT_EQ(0, process(cut)) << length;
    EXPECT_EQ(0, memcmp(&before, &entries[1], sizeof(before))) << length;
  }
  Datagram bare = with_length(whole, 24);
  bare.resize(24);
  EXPECT_EQ(1, process(bare));
  EXPECT_EQ("::/64 2 1 4", shown(entries[1]));
}

TEST_F(Entry, RefusesWhatIsNotThere) {
  EXPECT_EQ(0, process_ifaddr_ip(nullptr, 0, 0, entries));
  const Datagram bytes = ipv6_message("2001:db8::1");
  EXPECT_EQ(0, process_ifaddr_ip(reinterpret_cast<const nlmsghdr *>(bytes.data()), 0, 0, nullptr));
  EXPECT_EQ(0, process(bytes, 0, -1)); // the filter is not written
  EXPECT_EQ(0u, entries[0].info);
}

namespace {

// The arguments of one call of a handler.
struct Call {
  Datagram bytes;
  unsigned ifindex;
  int found;
  const v6_ifaddr *entries;
};
std::vector<Call> calls;
int handler_result;

int record(const nlmsghdr *bytes, unsigned ifindex, int found, v6_ifaddr *entries) {
  const auto *at = reinterpret_cast<const unsigned char *>(bytes);
  calls.push_back({Datagram(at, at + bytes->nlmsg_len), ifindex, found, entries});
  return handler_result;
}

// Runs read_ifc_results on one end of a pair of sockets that keeps datagrams apart.
class Reader : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends));
    const timeval long_enough = {10, 0}; // a reader that misses the end fails with a trace
    setsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &long_enough, sizeof(long_enough));
    calls.clear();
    handler_result = 1;
    sandbox::clear_console();
  }
  void TearDown() override {
    close(ends[0]);
    if (ends[1] != -1)
      close(ends[1]);
  }
  void send(const std::vector<Datagram> &datagrams) const {
    for (const Datagram &bytes : datagrams)
      EXPECT_EQ(static_cast<ssize_t>(bytes.size()), ::send(ends[1], bytes.data(), bytes.size(), 0));
  }
  // Closes the sending end.
  void hang_up() {
    close(ends[1]);
    ends[1] = -1;
  }
  std::vector<std::string> read(const std::vector<Datagram> &datagrams, int count = 10, int bufsize = 4096) {
    send(datagrams);
    std::vector<v6_ifaddr> entries(static_cast<size_t>(count));
    read_ifc_results(ends[0], bufsize, 0, entries.data(), count - 1, process_ifaddr_ip);
    std::vector<std::string> found;
    for (size_t i = 1; i < entries.size() && entries[i].info != 0; i++)
      found.push_back(shown(entries[i]));
    return found;
  }
  // Returns how many bytes wait to be read.
  ssize_t waiting() const {
    char bytes[8192];
    return recv(ends[0], bytes, sizeof(bytes), MSG_DONTWAIT);
  }
  static void expect_trace(const std::string &text) {
    expect_ipv6_trace("read_ifc_results", text);
  }
  int ends[2] = {-1, -1};
};

constexpr char incomplete[] = "received an uncomplete netlink packet\n";

} // namespace

TEST_F(Reader, EndsAtADoneInADatagramOfItsOwn) {
  const auto found = read({joined({ipv6_message("2001:db8::1"), ipv6_message("2001:db8::2")}),
                           ipv6_message("2001:db8::3"), done, ipv6_message("2001:db8::4")});
  EXPECT_EQ((Texts{"2001:db8::1/64 2 1 4", "2001:db8::2/64 2 1 4", "2001:db8::3/64 2 1 4"}), found);
  EXPECT_EQ("", sandbox::console_text());
  EXPECT_EQ(static_cast<ssize_t>(ipv6_message("2001:db8::4").size()), waiting());
}

TEST_F(Reader, EndsAtADoneBehindTheLastAddresses) {
  const auto found =
      read({ipv6_message("2001:db8::1"), joined({ipv6_message("2001:db8::2"), done, ipv6_message("2001:db8::3")}),
            ipv6_message("2001:db8::4")});
  EXPECT_EQ((Texts{"2001:db8::1/64 2 1 4", "2001:db8::2/64 2 1 4"}), found);
  EXPECT_EQ("", sandbox::console_text());
  EXPECT_LT(0, waiting());
}

TEST_F(Reader, EndsAtADoneWhateverItsLength) {
  for (const uint32_t length : {0u, 1u, 16u, 20u, 21u, 0xffffffffu}) {
    EXPECT_EQ(Texts{}, read({with_length(done, length)}));
    EXPECT_EQ(Texts{"2001:db8::1/64 2 1 4"}, read({joined({ipv6_message("2001:db8::1"), with_length(done, length)})}));
  }
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Reader, EndsAtTheDoneWhenTheArrayIsFull) {
  const Datagram many = joined({ipv6_message("2001:db8::1"), ipv6_message("2001:db8::2"), ipv6_message("2001:db8::3")});
  EXPECT_EQ((Texts{"2001:db8::1/64 2 1 4", "2001:db8::2/64 2 1 4"}), read({many, many, joined({many, done})}, 3));
  EXPECT_EQ(Texts{}, read({many, joined({many, done})}, 1));
  EXPECT_EQ((Texts{"2001:db8::1/64 2 1 4"}), read({joined({many, done})}, 2));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Reader, HandsMessagesOfAnyTypeButDoneToTheHandler) {
  const Datagram error = message(NLMSG_ERROR, Datagram(20, 0xff)), noop = message(NLMSG_NOOP, {}),
                 overrun = message(NLMSG_OVERRUN, Datagram(5, 1)), address = ipv6_message("2001:db8::1");
  send({joined({error, noop}), joined({overrun, address, done})});
  v6_ifaddr entries[3];
  read_ifc_results(ends[0], 4096, 42, entries, 100, record);
  ASSERT_EQ(4u, calls.size());
  EXPECT_EQ(error, calls[0].bytes);
  EXPECT_EQ(noop, calls[1].bytes);
  EXPECT_EQ(overrun, calls[2].bytes);
  EXPECT_EQ(address, calls[3].bytes);
  for (int i = 0; i < 4; i++) {
    EXPECT_EQ(42u, calls[static_cast<size_t>(i)].ifindex);
    EXPECT_EQ(i, calls[static_cast<size_t>(i)].found);
    EXPECT_EQ(entries, calls[static_cast<size_t>(i)].entries);
  }
}

TEST_F(Reader, AKernelsErrorIsAMessageLikeOthers) {
  Datagram body(20); // an error code where the family would be, and the request's length where its interface would be
  const int code = -EPERM;
  memcpy(body.data(), &code, sizeof(code));
  EXPECT_EQ(1u, read({message(NLMSG_ERROR, body), done}).size());
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Reader, CountsOnlyWhatTheHandlerTakes) {
  const Datagram one = message(20, {});
  for (const int result : {0, 2, -1}) {
    calls.clear();
    handler_result = result;
    send({joined({one, one, one, done})});
    read_ifc_results(ends[0], 4096, 0, nullptr, 1, record);
    ASSERT_EQ(3u, calls.size()) << result;
    EXPECT_EQ(0, calls[2].found);
  }
  handler_result = 1;
  for (const int max : {-1, 0, 1, 2}) {
    calls.clear();
    send({joined({one, one, one}), joined({one, done})});
    read_ifc_results(ends[0], 4096, 0, nullptr, max, record);
    EXPECT_EQ(static_cast<size_t>(std::max(max, 0)), calls.size()) << max;
  }
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Reader, StepsOverMessagesByMultiplesOf4) {
  for (size_t odd = 0; odd < 5; odd++) {
    calls.clear();
    send({joined({message(20, Datagram(odd, 0xee)), message(21, Datagram(odd, 0xdd))}), done});
    read_ifc_results(ends[0], 4096, 0, nullptr, 9, record);
    ASSERT_EQ(2u, calls.size()) << odd;
    EXPECT_EQ(message(21, Datagram(odd, 0xdd)), calls[1].bytes);
  }
}

TEST_F(Reader, AMessageThatIsNotWholeEndsItsDatagramAlone) {
  const Datagram first = ipv6_message("2001:db8::1"), second = ipv6_message("2001:db8::2");
  for (const uint32_t length : {0u, 1u, 15u, 49u, 1000u, 0x7fffffffu, 0xfffffffdu, 0xffffffffu}) {
    const auto found = read({joined({first, with_length(ipv6_message("2001:db8::bad"), length)}), second, done});
    EXPECT_EQ((Texts{"2001:db8::1/64 2 1 4", "2001:db8::2/64 2 1 4"}), found) << length;
  }
  for (size_t rest = 1; rest < 16; rest++) { // fewer bytes than a header stand behind the first message
    Datagram bytes = first;
    bytes.resize(bytes.size() + rest, 0xff);
    EXPECT_EQ(Texts{"2001:db8::1/64 2 1 4"}, read({bytes, done})) << rest;
  }
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Reader, ReportsADatagramWithoutAHeader) {
  for (size_t size = 1; size < 16; size++) {
    sandbox::clear_console();
    EXPECT_EQ(Texts{"2001:db8::1/64 2 1 4"}, read({ipv6_message("2001:db8::1"), Datagram(size, NLMSG_DONE)}));
    expect_trace(incomplete);
  }
  sandbox::clear_console();
  hang_up(); // reads as no bytes
  EXPECT_EQ(Texts{}, read({}));
  expect_trace(incomplete);
}

TEST_F(Reader, ReportsAFailedReceive) {
  read_ifc_results(-1, 4096, 0, nullptr, 1, record);
  expect_trace("recv(): Receive failed.\n");
  sandbox::clear_console();
  send({ipv6_message("2001:db8::1")});
  const timeval soon = {0, 1000};
  setsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &soon, sizeof(soon));
  EXPECT_EQ(Texts{"2001:db8::1/64 2 1 4"}, read({}));
  expect_trace("recv(): Receive failed.\n");
}

TEST_F(Reader, TakesABufferOfAnySize) {
  const Datagram bytes = ipv6_message("2001:db8::1"); // 44 bytes
  ASSERT_EQ(44u, bytes.size());
  for (const int size : {-1, 0}) {
    EXPECT_EQ(Texts{}, read({done}, 10, size));
    EXPECT_EQ(static_cast<ssize_t>(done.size()), waiting()) << size;
  }
  EXPECT_EQ("", sandbox::console_text());
  for (const int size : {1, 2, 15}) {
    sandbox::clear_console();
    EXPECT_EQ(Texts{}, read({bytes}, 10, size));
    expect_trace(incomplete);
  }
  sandbox::clear_console();
  for (const int size : {16, 17, 24, 43}) // the message is cut, so it is not whole
    EXPECT_EQ(Texts{}, read({bytes, done}, 10, size)) << size;
  for (const int size : {44, 45, 65536, 1000000})
    EXPECT_EQ(Texts{"2001:db8::1/64 2 1 4"}, read({bytes, done}, 10, size)) << size;
  EXPECT_EQ(Texts{"2001:db8::1/64 2 1 4"}, read({joined({bytes, ipv6_message("2001:db8::2")}), done}, 10, 87));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Reader, ReadsNothingWithoutMemoryOrHandler) {
  send({ipv6_message("2001:db8::1")});
  sandbox::fail_allocation(1);
  read_ifc_results(ends[0], 4096, 0, nullptr, 9, record);
  const bool failed = sandbox::allocation_failed();
  sandbox::fail_allocation(0);
  EXPECT_TRUE(failed);
  read_ifc_results(ends[0], 4096, 0, nullptr, 9, nullptr);
  EXPECT_TRUE(calls.empty());
  EXPECT_EQ("", sandbox::console_text());
  EXPECT_LT(0, waiting());
}

TEST_F(Reader, NothingOfAnEarlierDatagramStandsBehindALaterOne) {
  static int other_than_zero;
  other_than_zero = 0;
  const auto look_behind = [](const nlmsghdr *bytes, unsigned, int found, v6_ifaddr *) {
    const auto *at = reinterpret_cast<const unsigned char *>(bytes);
    if (found == 1)
      for (uint32_t i = bytes->nlmsg_len; i < 1024; i++)
        other_than_zero += at[i] != 0;
    return 1;
  };
  send({message(20, Datagram(1000, 0xff)), message(20, Datagram(4, 0xff)), done});
  read_ifc_results(ends[0], 4096, 0, nullptr, 9, look_behind);
  EXPECT_EQ(0, other_than_zero);
}

TEST_F(Reader, LeavesTheSocketOpenAndNothingElse) {
  const int before = sandbox::open_descriptors();
  read({done});
  EXPECT_EQ(before, sandbox::open_descriptors());
}
