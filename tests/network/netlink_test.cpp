// IPv6 addresses: real ones in the program's own network, recorded and hostile netlink datagrams, address text.
#include <arpa/inet.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/if_addr.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/seccomp.h>
#include <net/if.h>
#include <stddef.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/proc_net_file.h"
#include "support/sandbox.h"
#include "torvane.h"

static_assert(sizeof(v6_ifaddr) == 20 && offsetof(v6_ifaddr, addr) == 0 && offsetof(v6_ifaddr, info) == 16);

namespace {

using sandbox::Captured;
using sandbox::ProcNetFile;
using sandbox::run;

using Address = std::array<unsigned char, 16>;
using Datagram = std::vector<unsigned char>;

Address address_of(const char *text) {
  Address address = {};
  EXPECT_EQ(1, inet_pton(strchr(text, ':') ? AF_INET6 : AF_INET, text, address.data())) << text;
  return address;
}

// "ADDRESS/PREFIX family scope state", as a person reads an entry.
std::string shown(const v6_ifaddr &entry) {
  char text[INET6_ADDRSTRLEN] = "";
  const unsigned family = entry.info >> 22 & 3;
  inet_ntop(family == 1 ? AF_INET : AF_INET6, entry.addr, text, sizeof(text));
  EXPECT_EQ(0u, entry.info & 0xffff);
  return std::string(text) + "/" + std::to_string(entry.info >> 24) + " " + std::to_string(family) + " " +
         std::to_string(entry.info >> 19 & 7) + " " + std::to_string(entry.info >> 16 & 7);
}

v6_ifaddr filter(unsigned prefix, unsigned family, unsigned scope) {
  v6_ifaddr entry = {};
  entry.info = prefix << 24 | family << 22 | scope << 19;
  return entry;
}

template <typename Record>
void append(Datagram &to, const Record &record) {
  const auto *bytes = reinterpret_cast<const unsigned char *>(&record);
  to.insert(to.end(), bytes, bytes + sizeof(record));
}

void pad(Datagram &to) {
  to.resize((to.size() + 3) / 4 * 4);
}

Datagram attribute(unsigned short type, const Datagram &value) {
  Datagram bytes;
  append(bytes, rtattr{static_cast<unsigned short>(sizeof(rtattr) + value.size()), type});
  bytes.insert(bytes.end(), value.begin(), value.end());
  return bytes;
}

// One whose length may be wrong.
Datagram cut_attribute(size_t length, unsigned short type, const Datagram &value) {
  Datagram bytes;
  append(bytes, rtattr{static_cast<unsigned short>(length), type});
  bytes.insert(bytes.end(), value.begin(), value.end());
  return bytes;
}

Datagram message(unsigned short type, const Datagram &body) {
  nlmsghdr header = {};
  header.nlmsg_len = static_cast<uint32_t>(sizeof(header) + body.size());
  header.nlmsg_type = type;
  Datagram bytes;
  append(bytes, header);
  bytes.insert(bytes.end(), body.begin(), body.end());
  return bytes;
}

Datagram with_length(Datagram bytes, uint32_t length) {
  memcpy(bytes.data(), &length, sizeof(length));
  return bytes;
}

Datagram joined(const std::vector<Datagram> &parts) {
  Datagram all;
  for (const Datagram &part : parts) {
    pad(all);
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

Datagram address_bytes(const char *text) {
  const Address address = address_of(text);
  return Datagram(address.begin(), address.begin() + (strchr(text, ':') ? 16 : 4));
}

Datagram address_message(const ifaddrmsg &about, const std::vector<Datagram> &attributes) {
  Datagram body;
  append(body, about);
  const Datagram rest = joined(attributes);
  body.insert(body.end(), rest.begin(), rest.end());
  return message(RTM_NEWADDR, body);
}

Datagram ipv6_message(const char *text, unsigned index = 5, unsigned char scope = RT_SCOPE_UNIVERSE) {
  return address_message({AF_INET6, 64, IFA_F_PERMANENT, scope, index}, {attribute(IFA_ADDRESS, address_bytes(text))});
}

const Datagram done = message(NLMSG_DONE, Datagram(4));

} // namespace

namespace {

// process_ifaddr_ip with one message, in memory of exactly its size.
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
    uint32_t left; // codes in the entry of a message that was rejected
  };
  // The message: IPv6, link scope, prefix 10, permanent.
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
  for (const size_t length : {0u, 1u, 3u, 48u, 100u, 0xffffu}) { // 44 are left
    memset(entries, 0, sizeof(entries));
    EXPECT_EQ(1, process(address_message(about, {good, cut_attribute(length, 99, Datagram(20)), late}))) << length;
    EXPECT_EQ("2001:db8::1/64 2 1 4", shown(entries[1])) << length;
  }
  // The last may end without its padding, and a rest of less than a header is nothing.
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

// What a handler was called with.
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

// read_ifc_results on one end of a pair of sockets that keeps datagrams apart.
class Reader : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends));
    const timeval long_enough = {10, 0}; // a reading that misses its end fails by a trace
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
  // No more comes.
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
  // How many bytes wait to be read.
  ssize_t waiting() const {
    char bytes[8192];
    return recv(ends[0], bytes, sizeof(bytes), MSG_DONTWAIT);
  }
  static void expect_trace(const std::string &text) {
    const auto traces = sandbox::console();
    ASSERT_EQ(1u, traces.size());
    EXPECT_TRUE(traces[0].has_process);
    EXPECT_EQ("sulnor_convert", traces[0].file);
    EXPECT_EQ("read_ifc_results", traces[0].func);
    EXPECT_EQ(text, traces[0].message);
  }
  int ends[2] = {-1, -1};
};

constexpr char incomplete[] = "received an uncomplete netlink packet\n";

using Texts = std::vector<std::string>;

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
  for (size_t rest = 1; rest < 16; rest++) { // less than a header behind the first
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
  for (const int size : {16, 17, 24, 43}) // cut: not whole
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

namespace {

// Two linked interfaces with addresses of every kind, and what the kernel says of them.
class Dump : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    const auto made =
        run("ip link add va type veth peer name vb && "
            "for i in va vb; do echo 0 >/proc/sys/net/ipv6/conf/$i/accept_dad; ip link set $i addrgenmode none; "
            "ip link set $i up; done && "
            "ip addr add 192.0.2.1/24 dev va && "
            "ip addr add 2001:db8::1/64 dev va && "
            "ip addr add 2001:db8::2/56 dev va nodad && "
            "ip addr add 2001:db8::3/64 dev va valid_lft 9000 preferred_lft 0 && "
            "ip addr add fe80::1/64 dev va && "
            "ip addr add 2001:db8:b::1/64 dev vb && "
            "ip addr add 192.0.2.65/26 dev vb && "
            // Addresses on a third link are looked at for so long that they stay tentative.
            "ip link add vc type veth peer name vd && echo 1000 >/proc/sys/net/ipv6/conf/vc/dad_transmits && "
            "ip link set vc addrgenmode none && ip link set vc up && ip link set vd addrgenmode none && "
            "ip link set vd up && ip addr add 2001:db8:c::1/64 dev vc");
    if (made.status != 0)
      refusal = made.output;
    // The kernel takes the mark from an address that it does not look at in its own time.
    for (int i = 0; i < 1000 && !run("ip addr show dev va tentative; ip addr show dev vb tentative").output.empty();
         i++)
      usleep(10000);
  }
  static void TearDownTestSuite() {
    run("ip link del va; ip link del vc");
  }
  void SetUp() override {
    if (!refusal.empty())
      GTEST_SKIP() << "no interfaces with addresses: " << refusal;
    sandbox::clear_console();
  }
  // Sorted. What the kernel's unknown attributes print is kept away.
  static Texts dump(const char *ifname, int family = 0, v6_ifaddr wanted = {}, int count = 100, int mode = 1) {
    std::vector<v6_ifaddr> entries(static_cast<size_t>(count));
    entries[0] = wanted;
    int result;
    {
      const Captured output(STDOUT_FILENO);
      result = getifaddr_netlink(ifname, family, mode, entries.data(), count);
    }
    EXPECT_EQ(0, result);
    EXPECT_EQ(0, memcmp(&wanted, &entries[0], sizeof(wanted)));
    Texts found;
    for (size_t i = 1; i < entries.size() && entries[i].addr[0] + entries[i].addr[15] != 0; i++)
      found.push_back(shown(entries[i]));
    std::sort(found.begin(), found.end());
    return found;
  }
  static std::string refusal;
};

std::string Dump::refusal;

const Texts all_of_va = {"192.0.2.1/24 1 1 4", "2001:db8::1/64 2 1 4", "2001:db8::2/56 2 1 0", "2001:db8::3/64 2 1 5",
                         "fe80::1/64 2 3 4"};
const Texts all_of_vb = {"192.0.2.65/26 1 1 4", "2001:db8:b::1/64 2 1 4"};
const Texts all_of_vc = {"2001:db8:c::1/64 2 1 2"};
const Texts all_of_lo = {"127.0.0.1/8 1 4 4", "::1/128 2 4 4"};

Texts together(const std::vector<Texts> &lists) {
  Texts all;
  for (const Texts &list : lists)
    all.insert(all.end(), list.begin(), list.end());
  std::sort(all.begin(), all.end());
  return all;
}

} // namespace

TEST_F(Dump, ListsTheAddressesOfAnInterface) {
  EXPECT_EQ(all_of_va, dump("va"));
  EXPECT_EQ(all_of_vb, dump("vb"));
  EXPECT_EQ(all_of_vc, dump("vc"));
  EXPECT_EQ(all_of_lo, dump("lo"));
  EXPECT_EQ(Texts{}, dump("vd"));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Dump, OfNoNameOrOfAnUnknownOneIsOfAllInterfaces) {
  const Texts all = together({all_of_va, all_of_vb, all_of_vc, all_of_lo});
  EXPECT_EQ(all, dump(""));
  EXPECT_EQ(all, dump("none0"));
  EXPECT_EQ(all, dump("a-name-that-no-interface-can-have"));
}

TEST_F(Dump, TakesTheLow16BitsOfTheFamily) {
  const Texts ipv4 = {"192.0.2.1/24 1 1 4"};
  const Texts ipv6(all_of_va.begin() + 1, all_of_va.end());
  EXPECT_EQ(ipv4, dump("va", 2));
  EXPECT_EQ(ipv4, dump("va", 0x70002));
  EXPECT_EQ(ipv6, dump("va", 10));
  EXPECT_EQ(ipv6, dump("va", static_cast<int>(0xffff000au)));
  for (const int other : {0, 1, 7, 0x102, 0xffff, -1})
    EXPECT_EQ(all_of_va, dump("va", other)) << other;
}

TEST_F(Dump, FiltersByTheFirstEntry) {
  EXPECT_EQ(Texts{"fe80::1/64 2 3 4"}, dump("va", 0, filter(0, 2, 3)));
  EXPECT_EQ(Texts{"192.0.2.1/24 1 1 4"}, dump("va", 0, filter(0, 1, 0)));
  EXPECT_EQ(Texts{"2001:db8::2/56 2 1 0"}, dump("va", 0, filter(56, 0, 0)));
  EXPECT_EQ(Texts{"2001:db8::2/56 2 1 0"}, dump("va", 10, filter(56, 2, 1)));
  EXPECT_EQ(all_of_lo, dump("", 0, filter(0, 0, 4)));
  EXPECT_EQ(Texts{}, dump("va", 0, filter(0, 0, 2)));
  EXPECT_EQ(Texts{}, dump("va", 2, filter(0, 2, 0)));
}

TEST_F(Dump, HasNoMoreThanItsEntries) {
  EXPECT_EQ(Texts{}, dump("", 0, {}, 1));
  EXPECT_EQ(1u, dump("va", 0, {}, 2).size());
  EXPECT_EQ(4u, dump("va", 0, {}, 5).size());
  EXPECT_EQ(all_of_va, dump("va", 0, {}, 6));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Dump, OfAnotherModeAsksNothing) {
  for (const int mode : {0, 2, -1, 257})
    EXPECT_EQ(Texts{}, dump("va", 0, {}, 10, mode)) << mode;
}

TEST_F(Dump, PrintsTheAttributesThatItDoesNotKnow) {
  Captured output(STDOUT_FILENO);
  v6_ifaddr entries[10] = {};
  EXPECT_EQ(0, getifaddr_netlink("vc", 10, 1, entries, 10));
  const std::string text = output.text();
  EXPECT_EQ(0u, text.find("unknown rta_type: 8\n")) << text; // the long form of the flags
}

TEST_F(Dump, FailsWithoutAnArray) {
  v6_ifaddr entries[2] = {};
  EXPECT_EQ(1, getifaddr_netlink("va", 0, 1, nullptr, 10));
  EXPECT_EQ(1, getifaddr_netlink("va", 0, 1, entries, 0));
  EXPECT_EQ(1, getifaddr_netlink("va", 0, 1, entries, -5));
  EXPECT_EQ(1, getifaddr_netlink(nullptr, 0, 1, entries, 2));
  EXPECT_EQ(0u, entries[1].info);
  EXPECT_EQ("", sandbox::console_text());
}

// The result of a body in a process of which the kernel refuses the calls of one number; no_refusal where it cannot be
// made to.
constexpr int no_refusal = 77;

// send() and recv() have calls of their own on some machines.
#ifdef SYS_send
constexpr unsigned send_call = SYS_send, recv_call = SYS_recv;
#else
constexpr unsigned send_call = SYS_sendto, recv_call = SYS_recvfrom;
#endif

template <typename Body>
int without_call(unsigned number, Body body) {
  return sandbox::in_child([&] {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EACCES),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog calls_refused = {4, program};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &calls_refused) != 0)
      return no_refusal;
    return body();
  });
}

void expect_dump_trace(const std::string &text) {
  const auto traces = sandbox::console();
  ASSERT_EQ(1u, traces.size());
  EXPECT_TRUE(traces[0].has_process);
  EXPECT_EQ("sulnor_convert", traces[0].file);
  EXPECT_EQ("getifaddr_netlink", traces[0].func);
  EXPECT_EQ(text, traces[0].message);
}

TEST_F(Dump, FailsWithoutASocket) {
  for (const int mode : {1, 0}) {
    sandbox::clear_console();
    const int result = without_call(SYS_socket, [mode] {
      v6_ifaddr entries[2] = {};
      return getifaddr_netlink("va", 0, mode, entries, 2);
    });
    if (result == no_refusal)
      GTEST_SKIP() << "the kernel cannot be made to refuse calls here";
    EXPECT_EQ(1, result);
    expect_dump_trace("socket(): Create failed.\n");
  }
}

TEST_F(Dump, FailsWhenTheRequestCannotBeSent) {
  const int result = without_call(send_call, [] {
    v6_ifaddr entries[2] = {};
    const int before = sandbox::open_descriptors();
    const int failed = getifaddr_netlink("va", 0, 1, entries, 2);
    return sandbox::open_descriptors() == before ? failed : 2;
  });
  if (result == no_refusal)
    GTEST_SKIP() << "the kernel cannot be made to refuse calls here";
  EXPECT_EQ(1, result);
  expect_dump_trace("socket(): Send packet failed.\n");
}

TEST_F(Dump, EndsQuietlyForTheCallerWhenReceivingFails) {
  const int result = without_call(recv_call, [] {
    v6_ifaddr entries[2] = {};
    return getifaddr_netlink("va", 0, 1, entries, 2);
  });
  if (result == no_refusal)
    GTEST_SKIP() << "the kernel cannot be made to refuse calls here";
  EXPECT_EQ(0, result);
  EXPECT_EQ(Texts{"recv(): Receive failed.\n"}, sandbox::console_messages());
}

TEST_F(Dump, LeavesNoDescriptorOpen) {
  const int before = sandbox::open_descriptors();
  dump("va");
  dump("va", 0, {}, 10, 0);
  dump("none0");
  EXPECT_EQ(before, sandbox::open_descriptors());
}

TEST_F(Dump, OfThousandsIsComplete) {
  constexpr unsigned count = 3000;
  std::string batch;
  for (unsigned i = 1; i <= count; i++) {
    char line[64];
    snprintf(line, sizeof(line), "addr add 2001:db8:1::%x/128 dev many\n", i);
    batch += line;
  }
  sandbox::write_file("/run/batch", batch);
  const auto made =
      run("ip link add many type veth peer name manyb && ip link set many addrgenmode none arp off && "
          "ip link set many up && ip -batch /run/batch");
  unlink("/run/batch");
  if (made.status != 0) {
    run("ip link del many");
    GTEST_SKIP() << "not so many addresses: " << made.output.substr(0, 200);
  }

  std::vector<v6_ifaddr> entries(count + 100);
  int result;
  {
    const Captured output(STDOUT_FILENO);
    result = getifaddr_netlink("many", 10, 1, entries.data(), static_cast<int>(entries.size()));
  }
  EXPECT_EQ(0, result);
  std::set<unsigned> seen;
  const Address first = address_of("2001:db8:1::");
  for (const v6_ifaddr &entry : entries)
    if (memcmp(entry.addr, first.data(), 14) == 0) {
      seen.insert(entry.addr[14] * 256u + entry.addr[15]);
      EXPECT_EQ(128u << 24 | 2u << 22 | 1u << 19, entry.info & ~(7u << 16)); // not all are past being looked at
    }
  EXPECT_EQ(count, seen.size());
  EXPECT_EQ(count, seen.empty() ? 0 : *seen.rbegin());
  EXPECT_EQ(99u, dump("many", 10).size()); // no more than fit; the others are read all the same
  EXPECT_EQ("", sandbox::console_text());
  run("ip link del many");
}

namespace {

using Groups = std::array<unsigned short, 8>;

constexpr Groups untouched = {1, 2, 3, 4, 5, 6, 7, 8};

class IfInet6 : public testing::Test {
 protected:
  // The address that was found, as text, or "".
  static std::string found(const char *ifname, int which) {
    Groups groups = untouched;
    const int result = get_ip6_by_ifname(ifname, which, groups.data());
    if (result != 0) {
      EXPECT_EQ(1, result);
      EXPECT_EQ(untouched, groups);
      return "";
    }
    std::string text;
    for (const unsigned short group : groups) {
      char digits[8];
      snprintf(digits, sizeof(digits), "%x:", group);
      text += digits;
    }
    text.pop_back();
    return text;
  }
};

} // namespace

TEST_F(IfInet6, GivesTheFirstTheLinkLocalAndTheSecond) {
  const ProcNetFile file("if_inet6");
  file.set(
      "00000000000000000000000000000001 01 80 10 80       lo\n"
      "fe80000000000000021122fffe334455 02 40 20 80     eth0\n"
      "20010db8000000000000000000000099 03 40 00 80    eth01\n"
      "20010db80123456789abcdef0000ffff 02 40 00 80     eth0\n"
      "fe800000000000000000000000000002 02 40 20 80     eth0\n"
      "20010db8000000000000000000000002 02 40 00 80     eth0\n"
      "20010db8000000000000000000000003 02 40 00 80     eth0\n"
      "fec00000000000000000000000000001 04 40 40 80     site\n");
  EXPECT_EQ("2001:db8:123:4567:89ab:cdef:0:ffff", found("eth0", 0));
  EXPECT_EQ("fe80:0:0:0:211:22ff:fe33:4455", found("eth0", 1));
  EXPECT_EQ("2001:db8:0:0:0:0:0:2", found("eth0", 2));
  for (const int which : {3, -1, 0x20, 256})
    EXPECT_EQ("", found("eth0", which)) << which;
  EXPECT_EQ("2001:db8:0:0:0:0:0:99", found("eth01", 0));
  EXPECT_EQ("", found("eth01", 1));
  EXPECT_EQ("", found("eth01", 2));
  for (const char *name : {"lo", "site", "eth", "eth", "th0", "eth02", ""})
    for (const int which : {0, 1, 2})
      EXPECT_EQ("", found(name, which)) << name;
}

TEST_F(IfInet6, ReadsTheFirst12CharactersOfAName) {
  const ProcNetFile file("if_inet6");
  file.set(
      "20010db8000000000000000000000001 02 40 00 80 abcdefghijklmno\n"
      "20010db8000000000000000000000002 03 40 00 80 eth0\n");
  EXPECT_EQ("", found("abcdefghijklmno", 0));
  EXPECT_EQ("2001:db8:0:0:0:0:0:1", found("abcdefghijkl", 0));
  EXPECT_EQ("2001:db8:0:0:0:0:0:2", found("eth0", 0)); // the rest of that name disturbs no other record
}

TEST_F(IfInet6, PassesOverRecordsThatAreNotAsExpected) {
  const ProcNetFile file("if_inet6");
  file.set(
      "20010db8000000000000000000000001 100 40 00 80 eth0\n" // an index of three digits
      "\n"
      "20010db8\n"
      "zz\n"
      "20010db8000000000000000000000001 xx 40 00 80 eth0\n"
      "20010db8000000000000000000000002 02 40 00 80\n" +
      std::string(1000, 'x') +
      "\n"
      "20010db8000000000000000000000007 02 40 00 80 eth0");
  EXPECT_EQ("2001:db8:0:0:0:0:0:7", found("eth0", 0));
  EXPECT_EQ("", found("eth0", 2));
  file.set("");
  EXPECT_EQ("", found("eth0", 0));
}

TEST_F(IfInet6, FailsWithoutTheFile) {
  {
    const ProcNetFile other("dev");
    EXPECT_EQ("", found("lo", 0));
  }
  Groups groups = untouched;
  EXPECT_EQ(1, get_ip6_by_ifname(nullptr, 0, groups.data()));
  EXPECT_EQ(1, get_ip6_by_ifname("lo", 0, nullptr));
  EXPECT_EQ(untouched, groups);
}

TEST_F(IfInet6, LeavesNoDescriptorOpen) {
  const ProcNetFile file("if_inet6");
  file.set("20010db8000000000000000000000001 02 40 00 80 eth0\n");
  const int before = sandbox::open_descriptors();
  found("eth0", 0);
  found("eth1", 0);
  EXPECT_EQ(before, sandbox::open_descriptors());
}

TEST_F(IfInet6, ReadsTheKernelsOwn) {
  const auto made =
      run("ip link add via type veth peer name vib && ip link set via addrgenmode none && ip link set via up && "
          "ip addr add fe80::77/64 dev via nodad && ip addr add 2001:db8::77/64 dev via nodad");
  if (made.status == 0) {
    EXPECT_EQ("fe80:0:0:0:0:0:0:77", found("via", 1));
    EXPECT_EQ("2001:db8:0:0:0:0:0:77", found("via", 0));
    EXPECT_EQ("", found("via", 2));
    run("ip addr add 2001:db8:1::77/64 dev via nodad");
    EXPECT_NE("", found("via", 2));
    EXPECT_NE(found("via", 0), found("via", 2));
  }
  run("ip link del via");
  if (made.status != 0)
    GTEST_SKIP() << "no interface with addresses: " << made.output;
}

namespace {

// The functions that ask the ip tool.
class Tool : public testing::Test {
 protected:
  void SetUp() override {
    sandbox::clear_console();
  }
  // The address, as text, or "" when there was none.
  template <typename Ask>
  static std::string asked(Ask ask) {
    Address address;
    address.fill(0xff);
    const int result = ask(address.data());
    if (result != 0) {
      EXPECT_EQ(1, result);
      EXPECT_EQ(Address{}, address);
      return "";
    }
    char text[INET6_ADDRSTRLEN];
    return inet_ntop(AF_INET6, address.data(), text, sizeof(text));
  }
  static std::string address(const char *ifname, int which) {
    return asked([=](unsigned char *out) { return j_get_ip6_by_ifname(ifname, which, out); });
  }
  static std::string gateway(const char *ifname) {
    return asked([=](unsigned char *out) { return get_gw6_by_ifname(ifname, out); });
  }
  // What a stand-in of a pipeline was called with. Each has a file of its own, as they run at the same time.
  static void record_calls() {
    for (const char *tool : {"ip", "grep", "awk"})
      sandbox::write_file(std::string("/run/stand-in/") + tool,
                          "#!/bin/sh\n{ for a; do printf '[%s]' \"$a\"; done; echo; } >>\"$0\".calls\n");
  }
  static Texts recorded_calls() {
    Texts lines;
    for (const char *tool : {"ip", "grep", "awk"})
      lines.push_back(sandbox::read_file(std::string("/run/stand-in/") + tool + ".calls"));
    return lines;
  }
  // From now on the ip tool says this.
  static void let_ip_say(const std::string &text) {
    sandbox::write_file("/run/stand-in/ip", "#!/bin/sh\ncat <<'END'\n" + text + "END\n");
  }
};

} // namespace

TEST_F(Tool, RunsExactlyTheseCommands) {
  const struct {
    int which;
    const char *word;
  } cases[] = {{0, "global"}, {1, "link"}, {2, "global"}, {3, "global"}, {-1, "global"}};
  for (const auto &row : cases) {
    const sandbox::StandIns tools({"ip", "grep", "awk"});
    record_calls();
    EXPECT_EQ("", address("eth0.7", row.which));
    EXPECT_EQ((Texts{"[-6][address][show][dev][eth0.7]\n", std::string("[") + row.word + "]\n", "[{print $2}]\n"}),
              recorded_calls());
  }
  const sandbox::StandIns tools({"ip", "grep", "awk"});
  record_calls();
  EXPECT_EQ("", gateway("ppp0"));
  EXPECT_EQ((Texts{"[-6][route][show][match][::/0][dev][ppp0]\n", "[default via]\n", "[{print $3$2}]\n"}),
            recorded_calls());
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Tool, ReadsAddressesFromTheOutput) {
  const sandbox::StandIns tools({"ip"});
  let_ip_say(
      "4: eth0: <BROADCAST,MULTICAST,UP> mtu 1500 state UP qlen 1000\n"
      "    inet6 2001:DB8::1/64 scope global dynamic\n"
      "       valid_lft 86000sec preferred_lft 14000sec\n"
      "    inet6 fd00::2/128 scope global\n"
      "    inet6 2001:db8::3/64 scope global\n"
      "    inet6 fe80::4/64 scope link\n"
      "    inet6 fe80::5/64 scope link\n");
  EXPECT_EQ("2001:db8::1", address("eth0", 0));
  EXPECT_EQ("fe80::4", address("eth0", 1));
  EXPECT_EQ("fd00::2", address("eth0", 2));
  EXPECT_EQ("2001:db8::1", address("eth0", 3));
}

TEST_F(Tool, AMissingLineIsNoAddress) {
  const sandbox::StandIns tools({"ip"});
  let_ip_say("    inet6 2001:db8::1/64 scope global\n");
  EXPECT_EQ("", address("eth0", 1));
  EXPECT_EQ("", address("eth0", 2));
  EXPECT_EQ("2001:db8::1", address("eth0", 0));
  let_ip_say("");
  EXPECT_EQ("", address("eth0", 0));
}

TEST_F(Tool, AnAddressThatCannotBeReadIsZeroAndFound) {
  const sandbox::StandIns tools({"ip"});
  let_ip_say("    inet6 nonsense/64 scope global\n");
  EXPECT_EQ("::", address("eth0", 0));
  let_ip_say("    inet6 2001:db8::1 peer 2001:db8::2/64 scope global\n"); // no "/" behind the first: the newline stays
  EXPECT_EQ("::", address("eth0", 0));
  let_ip_say("    inet6 " + std::string(63, '1') + "/64 scope global\n");
  EXPECT_EQ("::", address("eth0", 0));
}

TEST_F(Tool, ReadsTheGatewayFromTheOutput) {
  const sandbox::StandIns tools({"ip"});
  let_ip_say("default via fe80::1 metric 1024 pref medium\ndefault via fe80::2 metric 2048 pref medium\n");
  EXPECT_EQ("fe80::1", gateway("eth0"));
  let_ip_say("2001:db8::/32 metric 256\n::/0 via fe80::7\n");
  EXPECT_EQ("", gateway("eth0"));
  let_ip_say("default via 0:0:0:0:0:0:0:0 metric 1\n");
  EXPECT_EQ("", gateway("eth0"));
  let_ip_say("default via :: metric 1\n");
  EXPECT_EQ("::", gateway("eth0")); // that text alone is none
}

TEST_F(Tool, RefusesNamesThatMakeTheCommandTooLong) {
  const std::string name(1024, 'x');
  EXPECT_EQ("", address(name.c_str(), 0));
  EXPECT_EQ("", gateway(name.c_str()));
  EXPECT_EQ((Texts{"command too long\n", "command too long\n"}), sandbox::console_messages());
}

TEST_F(Tool, RefusesNulls) {
  Address out;
  out.fill(0xff);
  const Address before = out;
  EXPECT_EQ(1, j_get_ip6_by_ifname(nullptr, 0, out.data()));
  EXPECT_EQ(1, get_gw6_by_ifname(nullptr, out.data()));
  EXPECT_EQ(1, j_get_ip6_by_ifname("lo", 0, nullptr));
  EXPECT_EQ(1, get_gw6_by_ifname("lo", nullptr));
  EXPECT_EQ(before, out);
}

TEST_F(Tool, FindsNothingWhenItCannotBeRun) {
  const sandbox::NoDescriptors none;
  EXPECT_EQ("", address("lo", 0));
  EXPECT_EQ("", gateway("lo"));
}

TEST_F(Tool, LeavesNoDescriptorOpenAndNoChild) {
  const sandbox::StandIns tools({"ip"});
  const int before = sandbox::open_descriptors();
  let_ip_say("    inet6 2001:db8::1/64 scope global\ndefault via fe80::1 metric 1024\n");
  address("eth0", 0);
  address("eth0", 1);
  address("eth0", 2);
  gateway("eth0");
  EXPECT_EQ(before, sandbox::open_descriptors());
  EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG));
}

TEST_F(Tool, AsksTheRealOne) {
  const auto made =
      run("ip link add via type veth peer name vib && ip link set via addrgenmode none && ip link set via up && "
          "ip link set vib up && ip addr add fe80::77/64 dev via nodad && ip addr add 2001:db8::77/64 dev via nodad && "
          "ip -6 route add default via fe80::1 dev via");
  if (made.status == 0) {
    EXPECT_EQ("2001:db8::77", address("via", 0));
    EXPECT_EQ("fe80::77", address("via", 1));
    EXPECT_EQ("", address("via", 2));
    EXPECT_EQ("fe80::1", gateway("via"));
    EXPECT_EQ("", gateway("vib"));
    EXPECT_EQ("", address("vib", 0));
    run("ip addr add 2001:db8::78/64 dev via nodad");
    EXPECT_NE("", address("via", 2));
    EXPECT_NE(address("via", 0), address("via", 2));
  }
  run("ip link del via");
  if (made.status != 0)
    GTEST_SKIP() << "no interface with a route: " << made.output;
}

namespace {

// "RESULT ADDRESS", with the output buffer full of other bytes before.
std::string converted(const std::string &text) {
  Address address;
  address.fill(0xff);
  const int result = StringToV6Addr(text.c_str(), address.data());
  char shown_text[INET6_ADDRSTRLEN];
  inet_ntop(AF_INET6, address.data(), shown_text, sizeof(shown_text));
  return std::to_string(result) + " " + shown_text;
}

} // namespace

TEST(StringToV6Addr, FollowsEveryRule) {
  const struct {
    const char *text, *result;
  } cases[] = {
      {"1:2:3:4:5:6:7:8", "0 1:2:3:4:5:6:7:8"},
      {"2001:DB8:aBcD:EF01:2345:6789:a:ffff", "0 2001:db8:abcd:ef01:2345:6789:a:ffff"},
      {"0:0:0:0:0:0:0:0", "0 ::"},
      {"::1", "0 ::1"},
      {"::", "0 ::"},
      {"1::", "0 1::"},
      {"fe80::", "0 fe80::"},
      {"1::8", "0 1::8"},
      {"1:2::7:8", "0 1:2::7:8"},
      {"1:2:3:4:5:6:7::", "0 1:2:3:4:5:6:7:0"},
      {"::2:3:4:5:6:7:8", "0 0:2:3:4:5:6:7:8"},
      // A run of no zeros.
      {"1:2:3:4::5:6:7:8", "0 1:2:3:4:5:6:7:8"},
      {"::1:2:3:4:5:6:7:8", "0 1:2:3:4:5:6:7:8"},
      {"1:2:3:4:5:6:7:8::", "0 1:2:3:4:5:6:7:8"},
      // A colon at the end.
      {"1:2:3:4:5:6:7:8:", "0 1:2:3:4:5:6:7:8"},
      {"1::2:", "0 1::2"},
      {"1:", "1 ::"},
      // A single colon at the start.
      {":", "1 ::"},
      {":1", "1 ::"},
      {":1:2:3:4:5:6:7:8", "1 ::"},
      // Two runs.
      {":::", "1 ::"},
      {":::1", "1 ::"},
      {"1:::2", "1 ::"},
      {"1::2::3", "1 ::"},
      {"::1::", "1 ::"},
      // Groups.
      {"::ffff", "0 ::ffff"},
      {"::10000", "1 ::"},
      {"::12345", "1 ::"},
      {"12345::", "1 ::"},
      {"::fffff:1", "1 ::"},
      {"::00001", "0 ::1"},
      {"::0000000000000abcd", "0 ::abcd"},
      {"::1.2.3.4:10000", "0 ::1"}, // not looked at behind the dot
      // Too many bytes, or too few.
      {"1:2:3:4:5:6:7:8:9", "1 ::"},
      {"1:2:3:4:5:6:7:8:9:", "1 ::"},
      {"::1:2:3:4:5:6:7:8:9", "1 ::"},
      {"", "1 ::"},
      {"1", "1 ::"},
      {"1:2:3:4:5:6:7", "1 ::"},
      // An IPv4 tail.
      {"::ffff:192.0.2.1", "0 ::"},
      {"::1.2.3.4", "0 ::"},
      {"1.2.3.4", "0 ::"},
      {"1:2:3:4:5:6:1.2.3.4", "0 ::"},
      {"::255.255.255.255", "0 ::"},
      {"::0.0.0.0", "0 ::"},
      {"::001.002.003.004", "0 ::"},
      {"1:2:1.2.3.4", "0 ::"}, // however few bytes stand before it
      // One that is not well-formed: its digits before the dot are a group.
      {"::1.2.3", "0 ::1"},
      {"::1.2.3.", "0 ::1"},
      {"::1.2.3.4.", "0 ::1"},
      {"::1.2.3.4.5", "0 ::1"},
      {"::1.2.3.256", "0 ::1"},
      {"::256.2.3.4", "0 ::256"},
      {"::1..2.3", "0 ::1"},
      {"::a.2.3.4", "0 ::a"},
      {"::1.2.3.a", "0 ::1"},
      {"::1.2.3.4/64", "0 ::1"},
      {"::1. 2.3.4", "0 ::1"},
      {"::.1.2.3.4", "0 ::"},
      {"fe80::7:.", "0 fe80::7"},
      {"1.2.3", "1 ::"},
      {".", "1 ::"},
      {"1:2:3:4:5:6:1.2.3", "1 ::"}, // 14 bytes
      // No room for one.
      {"1:2:3:4:5:6:7:1.2.3.4", "0 ::"},
      {"1:2:3:4:5:6:7:1.2", "0 ::"},
      {"1:2:3:4:5:6:7:8:1.2.3.4", "0 ::"},
      {"::2:3:4:5:6:7:8:1.2.3.4", "0 ::"},
      // Other characters.
      {"fe80::1/64", "0 ::"},
      {"fe80::1%eth0", "0 ::"},
      {"fe80::1\n", "0 ::"},
      {" fe80::1", "0 ::"},
      {"fe80::1 ", "0 ::"},
      {"g::", "0 ::"},
      {"::G", "0 ::"},
      {"-1::", "0 ::"},
      {"0x1::", "0 ::"},
      {"::1\xff", "0 ::"},
      {"1::2::/", "1 ::"}, // what comes first decides
      {"/1::2::", "0 ::"},
      {"::10000/", "1 ::"},
  };
  for (const auto &row : cases)
    EXPECT_EQ(row.result, converted(row.text)) << row.text;
}

TEST(StringToV6Addr, OfNothingOrIntoNothingFails) {
  Address address;
  address.fill(0xff);
  EXPECT_EQ(1, StringToV6Addr(nullptr, address.data()));
  EXPECT_EQ(Address{}, address);
  EXPECT_EQ(1, StringToV6Addr("::1", nullptr));
}

// Groups of random values and digits, with a run of zeros written as "::" or not.
TEST(StringToV6Addr, ReadsValidTextsAsTheCLibraryDoes) {
  std::mt19937 random(6);
  const auto below = [&random](unsigned limit) { return static_cast<unsigned>(random() % limit); };
  for (int i = 0; i < 20000; i++) {
    const unsigned run_length = below(9), run_at = below(9 - run_length);
    std::string text;
    for (unsigned group = 0; group < 8; group++) {
      if (run_length > 0 && group == run_at) {
        text += "::";
        group += run_length - 1;
        continue;
      }
      char digits[8];
      snprintf(digits, sizeof(digits), "%0*x", static_cast<int>(1 + below(4)), below(0x10000) >> below(4) * 4);
      if (below(2))
        j_toupper(digits);
      if (!text.empty() && text.back() != ':')
        text += ':';
      text += digits;
    }
    Address expected = {}, address;
    ASSERT_EQ(1, inet_pton(AF_INET6, text.c_str(), expected.data())) << text;
    ASSERT_EQ(0, StringToV6Addr(text.c_str(), address.data())) << text;
    ASSERT_EQ(expected, address) << text;
  }
}

// Whatever the C library takes, this reads alike; what it does not take is nowhere worse than a result.
TEST(StringToV6Addr, SurvivesAnyText) {
  std::mt19937 random(66);
  const std::string characters = "0123456789abcdefABCDEF::::::./%g\xff";
  for (int i = 0; i < 50000; i++) {
    std::string text;
    for (size_t length = random() % 24; length > 0; length--)
      text += characters[random() % characters.size()];
    const std::unique_ptr<char[]> exact(new char[text.size() + 1]);
    memcpy(exact.get(), text.c_str(), text.size() + 1);
    Address expected = {}, address;
    address.fill(0xff);
    const int result = StringToV6Addr(exact.get(), address.data());
    ASSERT_TRUE(result == 0 || (result == 1 && address == Address{})) << text;
    if (text.find('.') == std::string::npos && inet_pton(AF_INET6, text.c_str(), expected.data()) == 1) {
      ASSERT_EQ(0, result) << text;
      ASSERT_EQ(expected, address) << text;
    }
  }
}

TEST(V6AddrToString, WritesEightGroupsWithoutATerminator) {
  const struct {
    Groups groups;
    const char *text;
  } cases[] = {
      {{0, 0, 0, 0, 0, 0, 0, 1}, "0:0:0:0:0:0:0:1"},
      {{0, 0, 0, 0, 0, 0, 0, 0}, "0:0:0:0:0:0:0:0"},
      {{0x2001, 0xdb8, 0, 0xa, 0xab, 0xabc, 0xabcd, 0x10}, "2001:db8:0:a:ab:abc:abcd:10"},
      {{0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff}, "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
  };
  for (const auto &row : cases) {
    char text[48];
    memset(text, '#', sizeof(text));
    EXPECT_EQ(0, V6AddrToString(row.groups.data(), text));
    EXPECT_EQ(row.text + std::string(sizeof(text) - strlen(row.text), '#'), std::string(text, sizeof(text)));
  }
  const std::unique_ptr<char[]> exact(new char[39]); // the longest, without room for more
  EXPECT_EQ(0, V6AddrToString(cases[3].groups.data(), exact.get()));
}

TEST(V6AddrToString, FailsForNulls) {
  char text[48] = "#";
  const Groups groups = {};
  EXPECT_EQ(1, V6AddrToString(nullptr, text));
  EXPECT_EQ(1, V6AddrToString(groups.data(), nullptr));
  EXPECT_STREQ("#", text);
}
