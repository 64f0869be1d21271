// These tests look at the packets that the client sends.
#include <string.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "dns/client_test.h"
#include "dns/libc_calls.h"
#include "support/child_process.h"

namespace {

using namespace dns;

// A child, forked before any test has run, that sends the first queries of its process when it is told to.
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
  // Has the queries sent and returns the child's exit status; -1 if that has happened before.
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

class QueryPacket : public dns::ClientTest {};

// Returns the query for one name, without its id.
Bytes sent_for(const std::string &name, uint16_t type = 1) {
  const Mailbox box(here);
  Query query({here}, {name});
  query->timeoutSec = 0;
  memset(query->names[1], 'n', sizeof(query->names[1])); // the bytes behind the name are not part of it
  int responded = 0;
  EXPECT_EQ(1, dnsQuery4_main(query.get(), &responded, type));
  const auto queries = box.queries();
  EXPECT_EQ(1u, queries.size());
  return queries.empty() ? "" : queries[0].substr(2);
}

const Bytes fixed("\1\0\0\1\0\0\0\0\0\0", 10); // the fixed part, from the flags on

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
