// What the client sends, and where it files what it gets back.
#include <gtest/gtest.h>
#include <poll.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "dns/libc_calls.h"
#include "dns/records.h"
#include "support/child_process.h"
#include "support/dns_message.h"
#include "support/dns_server.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace {

using dns::a;
using dns::aaaa;
using dns::Bytes;
using dns::cname;
using dns::labels;
using dns::Mailbox;
using dns::name_asked;
using dns::Query;
using dns::reply;
using dns::Server;
using dns::to_question;
using dns::type_asked;

using Texts = std::vector<std::string>;

constexpr const char *addresses[] = {"127.0.0.1", "127.0.0.2", "127.0.0.3", "127.0.0.4", "127.0.0.5"};
constexpr const char *here = addresses[0];

// Waits until it is told to send the first queries of its process, as this program is too old for by then.
class FirstQueries : public testing::Environment {
 public:
  void SetUp() override {
    if (used_ || pipe(go_) != 0)
      return;
    child_ = sandbox::start_child([] {
      close(go_[1]);
      char token;
      if (read(go_[0], &token, 1) != 1)
        return 0;
      Query query({here}, {"a.test", "b.test"});
      query->timeoutSec = 0;
      int responded = 0;
      return dnsQuery4(query.get()) == 1 && dnsQuery4_main(query.get(), &responded, 1) == 1 ? 0 : 1;
    });
    close(go_[0]);
  }
  void TearDown() override {
    if (child_ != -1) {
      close(go_[1]);
      if (!used_)
        sandbox::end_of_child(child_);
      child_ = -1;
    }
  }
  // The exit status of the process that has sent them; -1 when it has ended before.
  static int send() {
    if (used_ || write(go_[1], "", 1) != 1)
      return -1;
    used_ = true;
    return sandbox::end_of_child(child_);
  }

 private:
  static inline bool used_;
  static inline int go_[2];
  static inline pid_t child_ = -1;
};

const testing::Environment *const first_queries = testing::AddGlobalTestEnvironment(new FirstQueries);

class Dns : public testing::Test {
 protected:
  void SetUp() override {
    sandbox::clear_console();
    descriptors_ = sandbox::open_descriptors();
  }
  void TearDown() override {
    EXPECT_EQ(descriptors_, sandbox::open_descriptors());
  }
  // Asks for one type and expects 1.
  void ask(const Query &query, uint16_t type = 1) {
    EXPECT_EQ(1, dnsQuery4_main(query.get(), &responded_, type));
    EXPECT_TRUE(query.intact());
  }

  int responded_ = 0;

 private:
  int descriptors_;
};

class QueryPacket : public Dns {};
class Filing : public Dns {};
class Passes : public Dns {};
class Results : public Dns {};

// What is sent for one name, without its id.
Bytes sent_for(const std::string &name, uint16_t type = 1) {
  const Mailbox box(here);
  Query query({here}, {name});
  query->timeoutSec = 0;
  memset(query->names[1], 'n', sizeof(query->names[1])); // what follows the name is not part of it
  int responded = 0;
  EXPECT_EQ(1, dnsQuery4_main(query.get(), &responded, type));
  const auto queries = box.queries();
  EXPECT_EQ(1u, queries.size());
  return queries.empty() ? "" : queries[0].substr(2);
}

const Bytes fixed("\1\0\0\1\0\0\0\0\0\0", 10); // from the flags on

Server::Answer with(const Bytes &answers, unsigned count) {
  return [=](const Bytes &query) { return std::vector<Bytes>{reply(query, count, answers)}; };
}

// Says yes to one name, and nothing else.
Bytes yes(const Bytes &query, const char *address) {
  return reply(query, 1, a(to_question(), address));
}

// A reply that ends a call: an answer to the name at slot 0.
Bytes last_for(const Bytes &query, const std::string &name) {
  return reply(query, 1, a(labels(name), "203.0.113.99"));
}

} // namespace

TEST_F(QueryPacket, IdsBeginAt301) {
  const Mailbox box(here);
  if (const int status = FirstQueries::send(); status == -1)
    GTEST_SKIP() << "the first queries of this program have been sent already";
  else
    ASSERT_EQ(0, status);
  const auto queries = box.queries();
  ASSERT_EQ(6u, queries.size());
  EXPECT_EQ(Bytes("\1\055\1\0\0\1\0\0\0\0\0\0\1a\4test\0\0\1\0\1", 24), queries[0]);
  EXPECT_EQ(Bytes("\1\056\1\0\0\1\0\0\0\0\0\0\1b\4test\0\0\1\0\1", 24), queries[1]);
  EXPECT_EQ(Bytes("\1\057\1\0\0\1\0\0\0\0\0\0\1a\4test\0\0\034\0\1", 24), queries[2]);
  EXPECT_EQ(Bytes("\1\060\1\0\0\1\0\0\0\0\0\0\1b\4test\0\0\034\0\1", 24), queries[3]);
  EXPECT_EQ(Bytes("\1\061\1\0\0\1\0\0\0\0\0\0\1a\4test\0\0\1\0\1", 24), queries[4]);
  EXPECT_EQ(306u, dns::id_of(queries[5]));
}

TEST_F(QueryPacket, IdsWrap) {
  const Mailbox box("127.0.0.9");
  Query counting({here}, Texts(10, "x"));
  counting->timeoutSec = 0;
  Query query({"127.0.0.9"}, {"x", "x"});
  query->timeoutSec = 0;
  dns::libc_calls.skip_pauses = true;
  ask(query);
  unsigned id = dns::id_of(box.queries().back());
  while (id < 0xFFFF - 10) {
    ask(counting);
    id += 10;
  }
  std::vector<unsigned> ids;
  do {
    ask(query);
    for (const Bytes &packet : box.queries())
      ids.push_back(dns::id_of(packet));
  } while (ids.back() > 2);
  dns::libc_calls.skip_pauses = false;
  for (const unsigned sent : ids)
    EXPECT_EQ(++id & 0xFFFF, sent);
}

TEST_F(QueryPacket, IsExact) {
  EXPECT_EQ(fixed + Bytes("\3www\7example\3com\0\0\1\0\1", 21), sent_for("www.example.com"));
  EXPECT_EQ(fixed + Bytes("\3www\7example\3com\0\0\034\0\1", 21), sent_for("www.example.com", 28));
  EXPECT_EQ(fixed + Bytes("\1x\0\377\376\0\1", 7), sent_for("x", 0xFFFE));
}

TEST_F(QueryPacket, OddNames) {
  EXPECT_EQ(fixed + Bytes("\0\0\1\0\1", 5), sent_for(""));
  EXPECT_EQ(fixed + Bytes("\7example\3com\0\0\0\1\0\1", 18), sent_for("example.com."));
  EXPECT_EQ(fixed + Bytes("\0\0\0\0\1\0\1", 7), sent_for("."));
  EXPECT_EQ(fixed + Bytes("\1a\0\1b\0\0\1\0\1", 10), sent_for("a..b"));
  EXPECT_EQ(fixed + Bytes("\100") + Bytes(64, 'x') + Bytes("\0\0\1\0\1", 5), sent_for(std::string(64, 'x')));
}

TEST_F(QueryPacket, ANameMayFillItsField) {
  const std::string dotted = std::string(127, 'x') + "." + std::string(127, 'y');
  EXPECT_EQ(fixed + Bytes("\177") + Bytes(127, 'x') + Bytes("\177") + Bytes(127, 'y') + Bytes("\0\0\1\0\1", 5),
            sent_for(dotted));
  const std::string longest = dotted + "z"; // 256 bytes: no terminator
  EXPECT_EQ(fixed + Bytes("\177") + Bytes(127, 'x') + Bytes("\200") + Bytes(127, 'y') + Bytes("z\0\0\1\0\1", 6),
            sent_for(longest));
  EXPECT_EQ(fixed + Bytes("\0", 1) + Bytes(256, 'x') + Bytes("\0\0\1\0\1", 5), sent_for(std::string(256, 'x')));
  EXPECT_EQ(fixed + Bytes(257, '\0') + Bytes("\0\0\1\0\1", 5), sent_for(std::string(256, '.')));
}

TEST_F(QueryPacket, AllNamesGoToAllServersInOrder) {
  std::vector<std::unique_ptr<Mailbox>> boxes;
  Texts names;
  for (const char *address : addresses)
    boxes.push_back(std::make_unique<Mailbox>(address));
  for (int i = 0; i < 10; i++)
    names.push_back("host" + std::to_string(i) + ".test");
  Query query({addresses, addresses + 5}, names);
  query->timeoutSec = 0;
  ask(query, 28);
  unsigned id = 0;
  for (const auto &box : boxes) {
    const auto queries = box->queries();
    ASSERT_EQ(10u, queries.size());
    for (size_t i = 0; i < 10; i++) {
      EXPECT_EQ(names[i], name_asked(queries[i]));
      EXPECT_EQ(28u, type_asked(queries[i]));
      if (id != 0) {
        EXPECT_EQ((id + 1) & 0xFFFF, dns::id_of(queries[i]));
      }
      id = dns::id_of(queries[i]);
    }
  }
}

TEST_F(QueryPacket, AsManyServersAndNamesAsTheCountsSay) {
  const Mailbox first(addresses[0]), second(addresses[1]);
  Query query({addresses[0], addresses[1]}, {"a.test", "b.test", "c.test"});
  query->timeoutSec = 0;
  query->serverCount = 1;
  query->nameCount = 2;
  ask(query);
  EXPECT_EQ(2u, first.queries().size());
  EXPECT_TRUE(second.queries().empty());
}

TEST_F(QueryPacket, CountsAboveTheRecordsAreCut) {
  std::vector<std::unique_ptr<Mailbox>> boxes;
  for (const char *address : addresses)
    boxes.push_back(std::make_unique<Mailbox>(address));
  Query query({addresses, addresses + 5}, Texts(10, "a.test"));
  query->timeoutSec = 0;
  query->serverCount = 255;
  query->nameCount = 255;
  ask(query);
  for (const auto &box : boxes)
    EXPECT_EQ(10u, box->queries().size());
}

TEST_F(QueryPacket, WithoutServersOrNamesNothingIsAsked) {
  const Mailbox box(here);
  Query query({here}, {"a.test"});
  query->timeoutSec = 0;
  query->nameCount = 0;
  ask(query);
  query->nameCount = 1;
  query->serverCount = 0;
  ask(query);
  EXPECT_TRUE(box.queries().empty());
  EXPECT_EQ(0, responded_);
}

TEST_F(Results, BothTypesAreAskedAndTraced) {
  Server server(here, [](const Bytes &query) {
    return std::vector<Bytes>{
        reply(query, 1, type_asked(query) == 1 ? a(to_question(), "192.0.2.1") : aaaa(to_question(), "2001:db8::1"))};
  });
  Query query({here}, {"www.test"});
  query->ipv4Count = 5; // what is left of a call before is cleared
  query->ipv6Count = 5;
  memset(query->ipv4Result, 0xEE, sizeof(query->ipv4Result));
  memset(query->ipv6Result, 0xEE, sizeof(query->ipv6Result));
  EXPECT_EQ(1, dnsQuery4(query.get()));
  EXPECT_EQ((Texts{"A 0 0 192.0.2.1", "AAAA 0 0 2001:db8::1"}), query.filed());
  EXPECT_EQ(1, query->ipv4Count);
  EXPECT_EQ(1, query->ipv6Count);
  EXPECT_TRUE(query.intact());

  EXPECT_EQ((Texts{"ipv4 result count = 1\n", "ipv6 result count = 0\n", "ipv4 result count = 1\n",
                   "ipv6 result count = 1\n"}),
            sandbox::console_messages());
  for (const sandbox::Trace &trace : sandbox::console()) {
    EXPECT_TRUE(trace.has_process);
    EXPECT_EQ("quorra_dns", trace.file);
    EXPECT_EQ("dnsQuery4", trace.func);
  }
  ASSERT_EQ(2u, server.queries().size());
  EXPECT_EQ(1u, type_asked(server.queries()[0]));
  EXPECT_EQ(28u, type_asked(server.queries()[1]));
}

TEST_F(Results, OneOfTheTwoCallsIsEnough) {
  // The first call has no way to the server, the second one has.
  Server server(here, [](const Bytes &query) { return std::vector<Bytes>{yes(query, "192.0.2.1")}; });
  Query query({here}, {"www.test"});
  dns::libc_calls.select_error = ENOMEM;
  dns::libc_calls.failing_selects = 1;
  EXPECT_EQ(1, dnsQuery4(query.get()));
  EXPECT_EQ((Texts{"ipv4 result count = 0\n", "ipv6 result count = 0\n", "ipv4 result count = 1\n",
                   "ipv6 result count = 0\n"}),
            sandbox::console_messages());
  dns::libc_calls.passing_selects = 1; // and the other way round
  dns::libc_calls.failing_selects = 1;
  EXPECT_EQ(1, dnsQuery4(query.get()));
  EXPECT_EQ(0, dns::libc_calls.failing_selects);
  dns::libc_calls.failing_selects = 2;
  EXPECT_EQ(0, dnsQuery4(query.get()));
}

TEST_F(Results, TheCheckTracesNothingAndFilesAsUsual) {
  Server server(here, [](const Bytes &query) { return std::vector<Bytes>{yes(query, "192.0.2.1")}; });
  Query query({here}, {"www.test"});
  query->ipv4Count = 5;
  memset(query->ipv4Result, 0xEE, sizeof(query->ipv4Result));
  memset(query->ipv6Result, 0xEE, sizeof(query->ipv6Result));
  EXPECT_EQ(1, dnsQuery4_checkServerResponseOnly(query.get()));
  EXPECT_EQ("", sandbox::console_text());
  EXPECT_EQ(2, query->ipv4Count);
  EXPECT_EQ(Texts{"A 0 0 192.0.2.1"}, query.filed());
  ASSERT_EQ(2u, server.queries().size());
  EXPECT_EQ(28u, type_asked(server.queries()[1]));
}

TEST_F(Results, TheCheckCountsWhatSaysNoAndWhatMakesNoSense) {
  // Silence tells the end, so the three wait at the same time.
  Server refusing(addresses[0], with("", 0));
  Server babbling(addresses[1], [](const Bytes &) { return std::vector<Bytes>{"?"}; });
  const Mailbox silent(addresses[2]), ignored(addresses[3]);
  int results[4] = {-1, -1, -1, -1};
  std::vector<std::thread> threads;
  threads.emplace_back([&] {
    Query query({addresses[3]}, {"www.test"});
    query->timeoutSec = 1;
    results[3] = dnsQuery4_main(query.get(), &responded_, 1);
    EXPECT_EQ(Texts{}, query.filed());
  });
  for (int i = 0; i < 3; i++)
    threads.emplace_back([i, &results] {
      Query query({addresses[i]}, {"www.test"});
      query->timeoutSec = 1;
      results[i] = dnsQuery4_checkServerResponseOnly(query.get());
      EXPECT_EQ(Texts{}, query.filed());
    });
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(1, results[0]);
  EXPECT_EQ(1, results[1]);
  EXPECT_EQ(0, results[2]);
  EXPECT_EQ(1, results[3]); // silence is no failure
  EXPECT_EQ(0, responded_);
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Results, NullGives0) {
  Query query({here}, {"www.test"});
  EXPECT_EQ(0, dnsQuery4(nullptr));
  EXPECT_EQ(0, dnsQuery4_checkServerResponseOnly(nullptr));
  EXPECT_EQ(0, dnsQuery4_main(nullptr, &responded_, 1));
  EXPECT_EQ(0, dnsQuery4_main(query.get(), nullptr, 1));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Results, WithoutAConsoleToo) {
  const sandbox::UnopenableConsole away;
  Server server(here, [](const Bytes &query) { return std::vector<Bytes>{yes(query, "192.0.2.1")}; });
  Query query({here}, {"www.test"});
  EXPECT_EQ(1, dnsQuery4(query.get()));
  EXPECT_EQ(2, query->ipv4Count);
}

TEST_F(Results, RespondedIsSetAndNeverCleared) {
  Query query({here}, {"www.test"});
  query->timeoutSec = 0;
  responded_ = 42;
  ask(query);
  EXPECT_EQ(42, responded_);
  query->timeoutSec = 20;
  Server server(here, [](const Bytes &query_bytes) { return std::vector<Bytes>{yes(query_bytes, "192.0.2.1")}; });
  ask(query);
  EXPECT_EQ(1, responded_);
}

TEST_F(Results, TheMainPartAddsToWhatThereIs) {
  Server server(here, [](const Bytes &query) { return std::vector<Bytes>{yes(query, "192.0.2.1")}; });
  Query query({here}, {"www.test"});
  query->ipv4Count = 5;
  query->ipv6Count = 7;
  query->ipv4Result[3][3] = dns::address("192.0.2.33");
  ask(query);
  EXPECT_EQ(6, query->ipv4Count);
  EXPECT_EQ(7, query->ipv6Count);
  EXPECT_EQ((Texts{"A 0 0 192.0.2.1", "A 3 3 192.0.2.33"}), query.filed());
}

TEST_F(Filing, EveryServerAndEverySlot) {
  // The third number of an address is the server, the fourth the name.
  std::vector<std::unique_ptr<Server>> servers;
  for (int i = 0; i < 5; i++)
    servers.push_back(std::make_unique<Server>(addresses[i], [i](const Bytes &query) {
      const std::string number = name_asked(query).substr(4, 1);
      const std::string v4 = "10.0." + std::to_string(i) + "." + std::to_string(1 + std::stoi(number));
      const std::string v6 = "2001:db8::" + std::to_string(i) + ":" + std::to_string(1 + std::stoi(number));
      return std::vector<Bytes>{
          reply(query, 1, type_asked(query) == 1 ? a(to_question(), v4.c_str()) : aaaa(to_question(), v6.c_str()))};
    }));
  Texts names, filed;
  for (int i = 0; i < 10; i++)
    names.push_back("host" + std::to_string(i) + ".test");
  Query query({addresses, addresses + 5}, names);
  query->stopOnMatch = 0;
  query->timeoutSec = 1;
  EXPECT_EQ(1, dnsQuery4(query.get()));
  EXPECT_EQ(50, query->ipv4Count);
  EXPECT_EQ(50, query->ipv6Count);
  for (int i = 0; i < 5; i++) {
    for (int k = 0; k < 10; k++) {
      EXPECT_EQ(dns::address(("10.0." + std::to_string(i) + "." + std::to_string(1 + k)).c_str()),
                query->ipv4Result[i][k]);
      const Bytes expected = dns::ipv6(("2001:db8::" + std::to_string(i) + ":" + std::to_string(1 + k)).c_str());
      EXPECT_EQ(expected, Bytes(reinterpret_cast<const char *>(query->ipv6Result[i][k]), 16));
    }
  }
  EXPECT_TRUE(query.intact());
}

TEST_F(Filing, WhoAnswersIsTold) {
  const Mailbox silent(addresses[0]);
  Server knows(addresses[1], [](const Bytes &query) { return std::vector<Bytes>{yes(query, "192.0.2.2")}; });
  Server denies(addresses[2], with("", 0));
  Server lies(addresses[3], [](const Bytes &query) { return std::vector<Bytes>{yes(query, "198.51.100.3")}; });
  Query query({addresses, addresses + 5}, {"www.test"});
  query->stopOnMatch = 0;
  query->timeoutSec = 1;
  ask(query);
  EXPECT_EQ((Texts{"A 1 0 192.0.2.2", "A 3 0 198.51.100.3"}), query.filed());
  EXPECT_EQ(2, query->ipv4Count);
}

TEST_F(Filing, TheFirstMatchEndsThePass) {
  const Mailbox silent(addresses[0]);
  Server knows(addresses[1], [](const Bytes &query) { return std::vector<Bytes>{yes(query, "192.0.2.2")}; });
  Query query({addresses[0], addresses[1]}, {"www.test"});
  query->stopOnMatch = 200; // anything but 0
  query->timeoutSec = 100;  // would be the end of this test
  ask(query);
  EXPECT_EQ(Texts{"A 1 0 192.0.2.2"}, query.filed());
}

TEST_F(Filing, OnlyAnAddressForAKnownNameIsAMatch) {
  Server server(here, [](const Bytes &query) {
    return std::vector<Bytes>{reply(query, 0, ""), reply(query, 1, a(labels("other.test"), "192.0.2.7")),
                              reply(query, 1, cname(to_question(), labels("host.test"))),
                              reply(query, 1, dns::record(to_question(), dns::type_ns, labels("ns.test"))),
                              last_for(query, "www.test")};
  });
  Query query({here}, {"www.test"});
  ask(query);
  EXPECT_EQ((Texts{"A 0 0 203.0.113.99", "A 0 1 192.0.2.7"}), query.filed());
  EXPECT_EQ(2, query->ipv4Count);
}

TEST_F(Filing, AnAnswerToAnotherNameGoesBehindTheLast) {
  Server server(here, [](const Bytes &query) {
    return std::vector<Bytes>{
        reply(query, 2, a(labels("other.test"), "192.0.2.7") + aaaa(to_question(), "2001:db8::7")),
        last_for(query, "a.test")};
  });
  Query query({here}, {"a.test", "b.test", "c.test"});
  query->nameCount = 1;
  ask(query);
  EXPECT_EQ((Texts{"A 0 0 203.0.113.99", "A 0 1 192.0.2.7", "AAAA 0 1 2001:db8::7"}), query.filed());
  EXPECT_EQ(2, query->ipv4Count);
  EXPECT_EQ(1, query->ipv6Count);
}

// Names behind those in use are not looked at, whatever is left there.
TEST_F(Filing, OnlyNamesInUseAreLookedAt) {
  Server server(here, [](const Bytes &query) {
    return std::vector<Bytes>{reply(query, 1, a(labels("c.test"), "192.0.2.7")), last_for(query, "a.test")};
  });
  Query query({here}, {"a.test", "b.test", "c.test"});
  query->nameCount = 2;
  ask(query);
  EXPECT_EQ((Texts{"A 0 0 203.0.113.99", "A 0 2 192.0.2.7"}), query.filed());
}

TEST_F(Filing, WithTenNamesThatIsTheNextServersFirst) {
  Server server(addresses[1], [](const Bytes &query) {
    if (name_asked(query) != "j.test")
      return std::vector<Bytes>{};
    return std::vector<Bytes>{
        reply(query, 2, a(labels("other.test"), "192.0.2.7") + aaaa(labels("other.test"), "2001:db8::7")),
        last_for(query, "j.test")};
  });
  Query query({addresses[0], addresses[1]},
              {"a.test", "b.test", "c.test", "d.test", "e.test", "f.test", "g.test", "h.test", "i.test", "j.test"});
  ask(query);
  EXPECT_EQ((Texts{"A 1 9 203.0.113.99", "A 2 0 192.0.2.7", "AAAA 2 0 2001:db8::7"}), query.filed());
}

TEST_F(Filing, WithTenNamesTheFifthServerHasNoSuchSlot) {
  Server server(addresses[4], [](const Bytes &query) {
    if (name_asked(query) != "j.test")
      return std::vector<Bytes>{};
    return std::vector<Bytes>{
        reply(query, 2, a(labels("other.test"), "192.0.2.7") + aaaa(labels("other.test"), "2001:db8::7")),
        last_for(query, "j.test")};
  });
  Query query({addresses, addresses + 5},
              {"a.test", "b.test", "c.test", "d.test", "e.test", "f.test", "g.test", "h.test", "i.test", "j.test"});
  ask(query);
  EXPECT_EQ(Texts{"A 4 9 203.0.113.99"}, query.filed());
  EXPECT_EQ(2, query->ipv4Count);
  EXPECT_EQ(1, query->ipv6Count);
}

TEST_F(Filing, TheFirstAnswersOwnerFindsTheSlotOfAll) {
  Server server(here, [](const Bytes &query) {
    return std::vector<Bytes>{reply(query, 4,
                                    cname(labels("b.test"), labels("a.test")) + a(labels("a.test"), "192.0.2.7") +
                                        aaaa(labels("other.test"), "2001:db8::7") +
                                        aaaa(labels("a.test"), "2001:db8::8"))};
  });
  Query query({here}, {"a.test", "b.test"});
  ask(query);
  EXPECT_EQ((Texts{"A 0 1 192.0.2.7", "AAAA 0 1 2001:db8::8"}), query.filed());
  EXPECT_EQ(1, query->ipv4Count);
  EXPECT_EQ(2, query->ipv6Count);
}

TEST_F(Filing, TheFirstOfEqualNamesGetsTheAnswer) {
  Server server(here, [](const Bytes &query) { return std::vector<Bytes>{yes(query, "192.0.2.1")}; });
  Query query({here}, {"a.test", "a.test"});
  ask(query);
  EXPECT_EQ(Texts{"A 0 0 192.0.2.1"}, query.filed());
}

TEST_F(Filing, NamesAreComparedByteForByte) {
  Server server(here, [](const Bytes &query) {
    return std::vector<Bytes>{reply(query, 1, a(labels("WWW.test"), "192.0.2.7")), last_for(query, "www.test")};
  });
  Query query({here}, {"www.test"});
  ask(query);
  EXPECT_EQ((Texts{"A 0 0 203.0.113.99", "A 0 1 192.0.2.7"}), query.filed());
}

// Its question holds a second zero byte, and what follows the first one makes no sense.
TEST_F(Filing, ARepeatedQuestionWithADotAtItsEndIsDropped) {
  Server server(here, [](const Bytes &query) { return std::vector<Bytes>{yes(query, "192.0.2.7")}; });
  Query query({here}, {"a.test.", "b.test"});
  ask(query);
  EXPECT_EQ(Texts{"A 0 1 192.0.2.7"}, query.filed());
  EXPECT_EQ(1, query->ipv4Count);
}

TEST_F(Filing, TheRootIsAName) {
  Server server(here, [](const Bytes &query) { return std::vector<Bytes>{yes(query, "192.0.2.1")}; });
  Query query({here}, {""});
  ask(query);
  EXPECT_EQ(Texts{"A 0 0 192.0.2.1"}, query.filed());
}

TEST_F(Filing, ANameThatFillsItsFieldMatchesNothing) {
  const std::string label(63, 'x');
  const std::string longest = label + "." + label + "." + label + "." + std::string(62, 'y'); // 254 bytes
  Server server(here, [&](const Bytes &query) {
    return std::vector<Bytes>{reply(query, 1, a(labels(longest), "192.0.2.7")), last_for(query, "b.test")};
  });
  Query query({here}, {longest + "zz", "b.test"});
  query->nameCount = 2;
  ask(query);
  EXPECT_LE(2, query->ipv4Count);
  EXPECT_EQ(0u, query->ipv4Result[0][0]);
  EXPECT_EQ(dns::address("192.0.2.7"), query->ipv4Result[0][2]);
}

TEST_F(Filing, TheLongestName) {
  const std::string label(63, 'x');
  const std::string longest = label + "." + label + "." + label + "." + std::string(62, 'y');
  Server server(here, [&](const Bytes &query) { return std::vector<Bytes>{yes(query, "192.0.2.7")}; });
  Query query({here}, {longest});
  ask(query);
  EXPECT_EQ(Texts{"A 0 0 192.0.2.7"}, query.filed());
}

TEST_F(Filing, LaterAnswersOverwriteEarlierOnes) {
  Server server(here, with(a(to_question(), "192.0.2.1") + a(to_question(), "192.0.2.2"), 2));
  Query query({here}, {"www.test"});
  ask(query);
  EXPECT_EQ(Texts{"A 0 0 192.0.2.2"}, query.filed());
  EXPECT_EQ(2, query->ipv4Count);
}

TEST_F(Filing, LaterRepliesOverwriteEarlierOnes) {
  Server server(here, [](const Bytes &query) {
    return std::vector<Bytes>{yes(query, "192.0.2.1"), yes(query, "192.0.2.2"), yes(query, "192.0.2.3")};
  });
  Query query({here}, {"www.test"});
  query->stopOnMatch = 0;
  query->timeoutSec = 1;
  ask(query);
  EXPECT_EQ(Texts{"A 0 0 192.0.2.3"}, query.filed());
  EXPECT_EQ(3, query->ipv4Count);
}

TEST_F(Filing, BothTypesAreFiledWhicheverWasAsked) {
  Server server(here, with(aaaa(to_question(), "2001:db8::1") + a(to_question(), "192.0.2.1"), 2));
  for (const uint16_t type : {uint16_t{1}, uint16_t{28}, uint16_t{16}}) {
    Query query({here}, {"www.test"});
    ask(query, type);
    EXPECT_EQ((Texts{"A 0 0 192.0.2.1", "AAAA 0 0 2001:db8::1"}), query.filed());
  }
}

TEST_F(Filing, LongerDataIsCut) {
  Server server(here, with(dns::record(to_question(), dns::type_a, dns::ipv4("192.0.2.1") + Bytes(100, 'x')) +
                               dns::record(to_question(), dns::type_aaaa, dns::ipv6("2001:db8::1") + "xxx"),
                           2));
  Query query({here}, {"www.test"});
  ask(query);
  EXPECT_EQ((Texts{"A 0 0 192.0.2.1", "AAAA 0 0 2001:db8::1"}), query.filed());
  EXPECT_EQ(1, query->ipv4Count);
}

TEST_F(Filing, IdFlagsAndResponseCodeAreNotLookedAt) {
  Server server(here, [](const Bytes &query) {
    Bytes answer = yes(query, "192.0.2.1");
    return std::vector<Bytes>{Bytes("\377\377\0\3", 4) + answer.substr(4)};
  });
  Query query({here}, {"www.test"});
  ask(query);
  EXPECT_EQ(Texts{"A 0 0 192.0.2.1"}, query.filed());
}

TEST_F(Filing, WhoSendsIsNotLookedAt) {
  const Mailbox asked(here), other("127.0.0.2");
  Query query({here}, {"www.test"});
  std::thread stranger([&] {
    pollfd wait = {asked.fd(), POLLIN, 0};
    poll(&wait, 1, -1);
    std::string question;
    sockaddr_in from;
    asked.next(question, from);
    const Bytes answer = yes(question, "192.0.2.1");
    sendto(other.fd(), answer.data(), answer.size(), 0, reinterpret_cast<const sockaddr *>(&from), sizeof(from));
  });
  ask(query);
  stranger.join();
  EXPECT_EQ(Texts{"A 0 0 192.0.2.1"}, query.filed());
}

TEST_F(Filing, CallsInSeveralThreadsAtOnce) {
  std::vector<std::unique_ptr<Server>> servers;
  for (const char *address : addresses)
    servers.push_back(std::make_unique<Server>(
        address, [address](const Bytes &query) { return std::vector<Bytes>{yes(query, address)}; }));
  std::vector<std::thread> threads;
  for (const char *address : addresses)
    threads.emplace_back([address] {
      for (int i = 0; i < 20; i++) {
        Query query({address}, {"www.test"});
        EXPECT_EQ(1, dnsQuery4(query.get()));
        EXPECT_EQ(Texts{"A 0 0 " + std::string(address)}, query.filed());
      }
    });
  for (std::thread &thread : threads)
    thread.join();
}

namespace {

// One call whose passes end by silence. They take whole seconds, so many of them run side by side.
struct Chain {
  const char *address;
  Server::Answer answer;
  int result;                          // of the call
  std::vector<std::string> asked = {}; // by the call
  std::vector<std::string> filed = {};
  uint8_t stop_on_match = 0;
};

// The number in a name such as "n3.test".
int number_in(const Bytes &query) {
  return std::stoi(name_asked(query).substr(1));
}

std::string numbered(int number) {
  return "n" + std::to_string(number) + ".test";
}

Bytes alias_to(const Bytes &query, int number) {
  return reply(query, 1, cname(to_question(), labels(numbered(number))));
}

void run(const std::vector<Chain> &chains) {
  std::vector<std::thread> threads;
  for (const Chain &chain : chains)
    threads.emplace_back([&chain] {
      Server server(chain.address, chain.answer);
      Query query({chain.address}, {"n0.test"});
      query->timeoutSec = 1;
      query->stopOnMatch = chain.stop_on_match;
      int responded = 0;
      EXPECT_EQ(chain.result, dnsQuery4_main(query.get(), &responded, 1)) << chain.address;
      EXPECT_EQ(1, responded) << chain.address;
      EXPECT_EQ(chain.filed, query.filed()) << chain.address;
      EXPECT_TRUE(query.intact()) << chain.address;
      Texts asked;
      for (const Bytes &packet : server.queries())
        asked.push_back(name_asked(packet));
      EXPECT_EQ(chain.asked, asked) << chain.address;
    });
  for (std::thread &thread : threads)
    thread.join();
}

} // namespace

TEST_F(Passes, FollowAliases) {
  run({
      // An endless chain: four passes, and no more.
      {"127.0.1.1",
       [](const Bytes &query) { return std::vector<Bytes>{alias_to(query, number_in(query) + 1)}; },
       0,
       {"n0.test", "n1.test", "n2.test", "n3.test"}},
      // An alias of itself is as endless.
      {"127.0.1.2",
       [](const Bytes &query) { return std::vector<Bytes>{alias_to(query, 0)}; },
       0,
       {"n0.test", "n0.test", "n0.test", "n0.test"}},
      // The end is found in the last pass. No name equals it, so it goes behind the last.
      {"127.0.1.3",
       [](const Bytes &query) {
         const int number = number_in(query);
         return std::vector<Bytes>{number < 3 ? alias_to(query, number + 1) : yes(query, "192.0.2.3")};
       },
       1,
       {"n0.test", "n1.test", "n2.test", "n3.test"},
       {"A 0 1 192.0.2.3"}},
      // The end has no address: no alias is left, and that is a success.
      {"127.0.1.4",
       [](const Bytes &query) {
         return std::vector<Bytes>{number_in(query) == 0 ? alias_to(query, 1) : reply(query, 0, "")};
       },
       1,
       {"n0.test", "n1.test"}},
      // Nobody answers for the alias: it is asked for again.
      {"127.0.1.5",
       [](const Bytes &query) {
         return number_in(query) == 0 ? std::vector<Bytes>{alias_to(query, 1)} : std::vector<Bytes>{};
       },
       0,
       {"n0.test", "n1.test", "n1.test", "n1.test"}},
      // What comes after the alias empties the list.
      {"127.0.1.6",
       [](const Bytes &query) {
         return std::vector<Bytes>{alias_to(query, 1), reply(query, 0, "")};
       },
       1,
       {"n0.test"}},
      // Only the last reply's aliases are asked for.
      {"127.0.1.7",
       [](const Bytes &query) {
         return number_in(query) == 0 ? std::vector<Bytes>{alias_to(query, 1), alias_to(query, 2)}
                                      : std::vector<Bytes>{reply(query, 0, "")};
       },
       1,
       {"n0.test", "n2.test"}},
      // A reply that is dropped empties the list too.
      {"127.0.1.8",
       [](const Bytes &query) {
         return std::vector<Bytes>{alias_to(query, 1), reply(query, 1, "")};
       },
       1,
       {"n0.test"}},
      // With an address, of whatever name, no alias is followed.
      {"127.0.1.9",
       [](const Bytes &query) {
         return std::vector<Bytes>{reply(query, 1, a(labels("other.test"), "192.0.2.9")), alias_to(query, 1)};
       },
       1,
       {"n0.test"},
       {"A 0 1 192.0.2.9"}},
      // Nor with an IPv6 address.
      {"127.0.1.12",
       [](const Bytes &query) {
         return std::vector<Bytes>{reply(query, 1, aaaa(labels("other.test"), "2001:db8::9")), alias_to(query, 1)};
       },
       1,
       {"n0.test"},
       {"AAAA 0 1 2001:db8::9"}},
      // Two aliases of one reply, and an answer for each.
      {"127.0.1.10",
       [](const Bytes &query) {
         if (number_in(query) == 0)
           return std::vector<Bytes>{
               reply(query, 2, cname(to_question(), labels("n1.test")) + cname(to_question(), labels("n2.test")))};
         return std::vector<Bytes>{yes(query, "192.0.2.9")};
       },
       1,
       {"n0.test", "n1.test", "n2.test"},
       {"A 0 1 192.0.2.9"}},
      // A match with stopOnMatch set, in the second pass.
      {"127.0.1.11",
       [](const Bytes &query) {
         return std::vector<Bytes>{number_in(query) == 0 ? alias_to(query, 1) : last_for(query, "n0.test")};
       },
       1,
       {"n0.test", "n1.test"},
       {"A 0 0 203.0.113.99"},
       1},
  });
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Passes, AnEmptyDatagramEndsTheListening) {
  Server server(here, [](const Bytes &query) { return std::vector<Bytes>{"", yes(query, "192.0.2.1")}; });
  Query query({here}, {"www.test"});
  query->timeoutSec = 1;
  ask(query);
  EXPECT_EQ(0, responded_);
  EXPECT_EQ(Texts{}, query.filed());
}

TEST_F(Passes, AnEmptyDatagramOfOneServerLeavesTheOthersAlone) {
  Server empty(addresses[0], [](const Bytes &) { return std::vector<Bytes>{""}; });
  Server good(addresses[1], [](const Bytes &query) { return std::vector<Bytes>{yes(query, "192.0.2.1")}; });
  Query query({addresses[0], addresses[1]}, {"www.test"});
  ask(query);
  EXPECT_EQ(Texts{"A 1 0 192.0.2.1"}, query.filed());
}

TEST_F(Passes, TenAliasesAreKept) {
  Server server(here, [](const Bytes &query) {
    if (name_asked(query) != "www.test")
      return std::vector<Bytes>{last_for(query, "www.test")};
    Bytes answers;
    for (int i = 0; i < 11; i++)
      answers += cname(to_question(), labels(numbered(i)));
    return std::vector<Bytes>{reply(query, 11, answers)};
  });
  Query query({here}, {"www.test"});
  query->timeoutSec = 1;
  ask(query);
  const auto traces = sandbox::console();
  ASSERT_EQ(1u, traces.size());
  EXPECT_EQ("cnamecnt reached limit 10\n", traces[0].message);
  EXPECT_EQ("quorra_dns", traces[0].file);
  EXPECT_EQ("dnsQuery4_main", traces[0].func);
  EXPECT_TRUE(traces[0].has_process);
  const auto &queries = server.queries();
  ASSERT_EQ(11u, queries.size());
  for (int i = 0; i < 10; i++)
    EXPECT_EQ(numbered(i), name_asked(queries[static_cast<size_t>(i) + 1]));
}

TEST_F(Passes, EveryFurtherAliasIsTraced) {
  Server server(here, [](const Bytes &query) {
    Bytes answers;
    for (int i = 0; i < 20; i++)
      answers += cname(to_question(), to_question());
    return std::vector<Bytes>{reply(query, 10, answers), reply(query, 20, answers), last_for(query, "www.test")};
  });
  Query query({here}, {"www.test"});
  ask(query);
  EXPECT_EQ(Texts(10, "cnamecnt reached limit 10\n"), sandbox::console_messages());
}

TEST_F(Passes, TheLongestAlias) {
  const std::string label(63, 'x');
  const std::string longest = label + "." + label + "." + label + "." + std::string(62, 'y');
  Server server(here, [&](const Bytes &query) {
    return std::vector<Bytes>{name_asked(query) == "www.test" ? reply(query, 1, cname(to_question(), labels(longest)))
                                                              : last_for(query, "www.test")};
  });
  Query query({here}, {"www.test"});
  query->timeoutSec = 1;
  ask(query);
  ASSERT_EQ(2u, server.queries().size());
  EXPECT_EQ(longest, name_asked(server.queries()[1]));
}

TEST_F(Passes, AliasesAreAskedOfEveryServer) {
  Server first(addresses[0], [](const Bytes &query) {
    return name_asked(query) == "www.test"
               ? std::vector<Bytes>{reply(query, 1, cname(to_question(), labels("host.test")))}
               : std::vector<Bytes>{};
  });
  Server second(addresses[1], [](const Bytes &query) {
    return name_asked(query) == "host.test" ? std::vector<Bytes>{last_for(query, "www.test")} : std::vector<Bytes>{};
  });
  Query query({addresses[0], addresses[1]}, {"www.test"});
  query->timeoutSec = 1;
  ask(query);
  EXPECT_EQ(Texts{"A 1 0 203.0.113.99"}, query.filed());
  EXPECT_EQ(2u, first.queries().size());
  EXPECT_EQ(2u, second.queries().size());
}
