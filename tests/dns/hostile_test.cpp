// The server lies in these tests. A good reply follows each lie, ends the call and must be all that is found.
#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "dns/client_test.h"

namespace {

using namespace dns;

constexpr char name[] = "www.test"; // its question takes 10 + 4 bytes, so the answers begin at 26
constexpr unsigned answers_at = 26;

constexpr char bad[] = "198.51.100.66", good[] = "192.0.2.1";

class HostileServer : public dns::ClientTest {
 protected:
  using ClientTest::ask;
  // Sends the replies that `lies` makes of the query, then a good one. Returns the filed addresses.
  Texts ask(const Server::Answer &lies) {
    Server server(here, [&](const Bytes &query) {
      std::vector<Bytes> replies = lies(query);
      replies.push_back(reply(query, 1, a(to_question(), good)));
      return replies;
    });
    Query query({here}, {name});
    responded_ = 0;
    ask(query);
    EXPECT_EQ(1, responded_);
    ipv4_count_ = query->ipv4Count;
    ipv6_count_ = query->ipv6Count;
    return query.filed();
  }
  // Expects that the whole reply is dropped.
  void expect_dropped(const Bytes &lie_after_id, const std::string &what) {
    EXPECT_EQ((Texts{"A 0 0 192.0.2.1"}),
              ask([&](const Bytes &query) { return std::vector<Bytes>{query.substr(0, 2) + lie_after_id}; }))
        << what;
    EXPECT_EQ(1, ipv4_count_) << what;
    EXPECT_EQ(0, ipv6_count_) << what;
    EXPECT_EQ("", sandbox::console_text()) << what;
  }
  // Expects that a reply is dropped that claims `count` answers and has these bytes.
  void expect_dropped(unsigned count, const Bytes &answers, const std::string &what) {
    expect_dropped(
        word(0x8180) + word(1) + word(count) + word(0) + word(0) + labels(name) + word(1) + word(1) + answers, what);
  }
  // Expects that these answers, to another name, are filed before the good reply.
  void expect_filed(const Texts &filed, unsigned count, const Bytes &answers, const std::string &what) {
    Texts all = {"A 0 0 192.0.2.1"};
    all.insert(all.end(), filed.begin(), filed.end());
    EXPECT_EQ(all, ask([&](const Bytes &query) { return std::vector<Bytes>{reply(query, count, answers)}; })) << what;
  }

  int ipv4_count_ = 0, ipv6_count_ = 0;
};

// Returns labels of `size` bytes altogether, with their length bytes and without a zero byte at the end.
Bytes long_name(size_t size) {
  Bytes out;
  while (size > 64) {
    const size_t label = std::min<size_t>(size - 2, 64) - 1; // leaves room for another one
    out += static_cast<char>(label) + Bytes(label, 'x');
    size -= label + 1;
  }
  return out + static_cast<char>(size - 1) + Bytes(size - 1, 'z');
}

} // namespace

TEST_F(HostileServer, CountsThatAreLies) {
  const Bytes one = a(to_question(), bad);
  expect_dropped(2, one, "one answer more than there is");
  expect_dropped(20, one, "20");
  expect_dropped(21, one, "21");
  expect_dropped(0xFFFF, one, "as many as can be said");
  Bytes nineteen;
  for (int i = 0; i < 19; i++)
    nineteen += one;
  expect_dropped(20, nineteen, "19 of 20");
}

TEST_F(HostileServer, DataLengthsThatAreLies) {
  for (const unsigned length : {5u, 6u, 15u, 16u, 255u, 256u, 2048u, 0x7FFFu, 0x8000u, 0xFFFFu})
    expect_dropped(1, record(to_question(), dns::type_a, dns::ipv4(bad), length), "A of " + std::to_string(length));
  for (const unsigned length : {17u, 256u, 0xFFFFu})
    expect_dropped(1, record(to_question(), dns::type_aaaa, dns::ipv6("2001:db8::66"), length),
                   "AAAA of " + std::to_string(length));
  expect_dropped(2, record(to_question(), dns::type_a, dns::ipv4(bad), 40) + a(to_question(), bad), "over the next");
}

TEST_F(HostileServer, AddressesThatAreTooShort) {
  for (size_t length = 0; length < 4; length++)
    expect_dropped(1, record(to_question(), dns::type_a, Bytes(length, 'x')), "A of " + std::to_string(length));
  for (size_t length = 0; length < 16; length++)
    expect_dropped(1, record(to_question(), dns::type_aaaa, Bytes(length, 'x')), "AAAA of " + std::to_string(length));
  // Complete answers before and after do not save the reply.
  expect_dropped(3, a(to_question(), bad) + record(to_question(), dns::type_a, "xyz") + a(to_question(), bad), "amid");
}

TEST_F(HostileServer, PointersThatFormALoop) {
  const Bytes rest = word(1) + word(1) + word(0) + word(60) + word(4) + dns::ipv4(bad);
  expect_dropped(1, pointer(answers_at) + rest, "to itself");
  expect_dropped(1, pointer(answers_at + 2) + pointer(answers_at) + rest, "one to the other");
  expect_dropped(1, Bytes("\1x") + pointer(answers_at) + rest, "around a label");
  expect_dropped(2, a(to_question(), bad) + pointer(answers_at + 16) + rest, "in the second answer");
  expect_dropped(1, cname(to_question(), pointer(answers_at + 12)), "in an alias's target");
  expect_dropped(2, a(to_question(), bad) + record(to_question(), dns::type_txt, pointer(answers_at + 28)),
                 "in other data");
  Bytes ring;
  for (unsigned i = 0; i < 900; i++)
    ring += pointer(answers_at + (i + 1) % 900 * 2);
  expect_dropped(1, ring + rest, "in a ring of 900");
}

TEST_F(HostileServer, PointersOutOfTheMessage) {
  const Bytes rest = word(1) + word(1) + word(0) + word(60) + word(4) + dns::ipv4(bad);
  const unsigned size = answers_at + 2 + static_cast<unsigned>(rest.size());
  for (const unsigned to : {size, size + 1, 1000u, 2047u, 2048u, 0x3FFFu})
    expect_dropped(1, pointer(to) + rest, "to " + std::to_string(to));
  expect_dropped(1, cname(to_question(), Bytes("\300", 1)), "half a pointer");
  // The label in the last byte goes on behind the end.
  expect_dropped(1, pointer(size - 1) + word(1) + word(1) + word(0) + word(60) + word(4) + "abc\1", "to the last byte");
}

TEST_F(HostileServer, PointersForwardsAreRead) {
  const unsigned second_at = answers_at + 16;
  expect_filed({"A 0 1 198.51.100.66"}, 2, a(pointer(second_at), bad) + a(labels("x.test"), bad), "forwards");
}

TEST_F(HostileServer, LongWaysRoundAreRead) {
  // The bytes behind the first answer's address are pointers, each to the one before.
  const unsigned pointers_at = answers_at + 8 + 10 + 4;
  Bytes data = dns::ipv4(bad) + pointer(answers_at);
  for (unsigned i = 0; i < 799; i++)
    data += pointer(pointers_at + i * 2);
  expect_filed({"A 0 1 198.51.100.67"}, 2,
               record(labels("x.test"), dns::type_a, data) + a(pointer(pointers_at + 799 * 2), "198.51.100.67"),
               "first");
  expect_filed({"A 0 1 198.51.100.67"}, 2,
               record(labels("x.test"), dns::type_cname, labels("y.test")) +
                   a(Bytes("\1z") + pointer(answers_at), "198.51.100.67"),
               "a label, then a pointer");
}

TEST_F(HostileServer, NamesThatAreTooLong) {
  for (const size_t size : {256u, 257u, 300u, 512u, 1000u, 1900u}) {
    const Bytes longer = long_name(size);
    ASSERT_EQ(size, longer.size());
    const Bytes zero(1, '\0');
    expect_dropped(1, a(longer + zero, bad), "owner of " + std::to_string(size));
    expect_dropped(2, a(to_question(), bad) + a(longer + zero, bad), "second owner of " + std::to_string(size));
    expect_dropped(2, a(to_question(), bad) + cname(to_question(), longer + zero), "target of " + std::to_string(size));
  }
  expect_filed({"A 0 1 198.51.100.66"}, 1, a(long_name(255) + Bytes(1, '\0'), bad), "255");
  // This name is made of short pieces: each answer's name has 18 bytes of labels and a pointer to the one before.
  Bytes answers;
  unsigned before = 12;
  for (int i = 0; i < 19; i++) {
    const unsigned at = answers_at + static_cast<unsigned>(answers.size());
    answers += a(Bytes("\21") + Bytes(17, 'x') + pointer(before), bad);
    before = at;
  }
  expect_dropped(19, answers, "pieces");
}

TEST_F(HostileServer, LabelsThatAreLongerThanTheirName) {
  expect_dropped(1, a(Bytes("\4www\0", 5), bad), "by one");
  expect_dropped(1, a(Bytes("\3www\277test\0", 10), bad), "191");
  expect_dropped(1, cname(to_question(), Bytes("\100x\0", 3)), "in a target");
}

// The buffer still holds the bytes of the reply before; they must not complete a short one.
TEST_F(HostileServer, RepliesCutAtEveryLength) {
  const Bytes answers = cname(to_question(), labels("host.test")) + a(labels("host.test"), bad) +
                        aaaa(pointer(answers_at + 12), "2001:db8::66") + a(labels("host.test"), bad);
  size_t whole = 0;
  Server server(here, [&](const Bytes &query) {
    const Bytes all = reply(query, 4, answers);
    whole = all.size();
    std::vector<Bytes> replies;
    // The first reply claims no answers but has them, so that the buffer is full of good bytes.
    replies.push_back(reply(query, 0, answers));
    for (size_t length = 1; length < all.size(); length++)
      replies.push_back(all.substr(0, length));
    replies.push_back(reply(query, 1, a(to_question(), good)));
    return replies;
  });
  Query query({here}, {name});
  ask(query);
  EXPECT_EQ(Texts{"A 0 0 192.0.2.1"}, query.filed());
  EXPECT_EQ(1, query->ipv4Count);
  EXPECT_EQ(0, query->ipv6Count);
  server.queries();
  EXPECT_LT(100u, whole);
}

TEST_F(HostileServer, QuestionsWithoutAnEnd) {
  const Bytes head = word(0x8180) + word(1) + word(1) + word(0) + word(0);
  expect_dropped(head, "no question");
  expect_dropped(head + Bytes(2000, 'x'), "no end");
  expect_dropped(head + Bytes("\3www"), "no zero byte");
  expect_dropped(head + Bytes("\3www\0\0\1", 7), "half a type");
}

TEST_F(HostileServer, AnswersPastTheTwentiethAreNotLookedAt) {
  Bytes answers;
  for (int i = 1; i <= 25; i++)
    answers += a(labels("x.test"), ("198.51.100." + std::to_string(i)).c_str());
  expect_filed({"A 0 1 198.51.100.20"}, 25, answers, "25");
  EXPECT_EQ(21, ipv4_count_);
  // They need not even make sense.
  answers.resize(20 * (8 + 14));
  expect_filed({"A 0 1 198.51.100.20"}, 0xFFFF, answers + "\300", "20 and nonsense");
  EXPECT_EQ(21, ipv4_count_);
}

TEST_F(HostileServer, OtherDataEndsWhereItsNameEnds) {
  const Bytes after = a(labels("x.test"), bad);
  // The length field of the record makes no difference.
  for (const size_t length : {0u, 1u, 9u, 0xFFFFu})
    expect_filed({"A 0 1 198.51.100.66"}, 2, record(labels("x.test"), dns::type_ns, labels("ns.test"), length) + after,
                 std::to_string(length));
  expect_filed({"A 0 1 198.51.100.66"}, 2, record(labels("x.test"), dns::type_cname, pointer(12), 0) + after,
               "pointer");
  expect_filed({"A 0 1 198.51.100.66"}, 2, record(labels("x.test"), 0xFFFF, Bytes(1, '\0'), 0) + after, "root");
  // A text that is no name therefore makes the client drop the reply.
  expect_dropped(2, record(to_question(), dns::type_txt, "\5hello") + a(to_question(), bad), "text");
}

TEST_F(HostileServer, LargeReplies) {
  const Bytes one = a(labels("x.test"), bad);
  // The second answer stands at the very end.
  const auto filled_to = [&](size_t size, const Bytes &end) {
    const size_t padding = size - answers_at - end.size() - labels("x.test").size() - 10;
    return record(labels("x.test"), dns::type_a, dns::ipv4("198.51.100.1") + Bytes(padding - 4, 'x')) + end;
  };
  expect_filed({"A 0 1 198.51.100.66"}, 2, filled_to(2048, one), "2048");
  for (const size_t size : {2049u, 2050u, 4000u, 65507u})
    expect_dropped(2, filled_to(size, one), std::to_string(size));
  // Bytes that are cut off do not matter if no answer lies in them.
  expect_filed({"A 0 1 198.51.100.66"}, 1, one + Bytes(5000, 'x'), "one answer and 5000 bytes");
}

TEST_F(HostileServer, EveryOneByteReply) {
  for (int first = 0; first < 256; first += 32) {
    EXPECT_EQ(Texts{"A 0 0 192.0.2.1"}, ask([first](const Bytes &) {
                std::vector<Bytes> replies;
                for (int value = first; value < first + 32; value++)
                  replies.push_back(Bytes(1, static_cast<char>(value)));
                return replies;
              }));
    EXPECT_EQ(1, ipv4_count_);
  }
}

// Random bytes of a reply change. Every result is allowed, but the client must stay within the record.
TEST_F(HostileServer, RepliesWithChangedBytes) {
  std::minstd_rand random(301);
  const Bytes answers = cname(to_question(), labels("host.test")) + a(pointer(answers_at + 12), bad) +
                        aaaa(pointer(answers_at + 12), "2001:db8::66");
  for (int round = 0; round < 80; round++) {
    Server server(here, [&](const Bytes &query) {
      std::vector<Bytes> replies;
      for (int i = 0; i < 50; i++) {
        Bytes changed = reply(query, 3, answers);
        for (int k = 0; k <= i % 4; k++)
          changed[2 + random() % (changed.size() - 2)] = static_cast<char>(random());
        replies.push_back(changed);
      }
      replies.push_back(reply(query, 1, a(to_question(), good)));
      return replies;
    });
    Query query({here}, {name});
    ask(query);
    server.queries();
  }
}

TEST_F(HostileServer, Floods) {
  Server server(here, [](const Bytes &query) {
    return std::vector<Bytes>(5000, reply(query, 2, a(to_question(), bad) + aaaa(to_question(), "2001:db8::66")));
  });
  Query query({here}, {name});
  query->stopOnMatch = 0;
  query->timeoutSec = 1;
  ask(query);
  EXPECT_EQ((Texts{"A 0 0 198.51.100.66", "AAAA 0 0 2001:db8::66"}), query.filed());
  EXPECT_LE(1, query->ipv4Count); // the kernel may drop the rest
  EXPECT_GE(5000, query->ipv4Count);
  EXPECT_EQ(query->ipv4Count, query->ipv6Count);
}

TEST_F(HostileServer, AFloodDoesNotKeepAMatchWaiting) {
  Server server(here,
                [](const Bytes &query) { return std::vector<Bytes>(5000, reply(query, 1, a(to_question(), bad))); });
  Query query({here}, {name});
  ask(query);
  EXPECT_EQ(1, query->ipv4Count);
}
