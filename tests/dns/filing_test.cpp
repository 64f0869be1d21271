// These tests look where the client files the addresses that it gets.
#include <poll.h>
#include <sys/socket.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "dns/client_test.h"

namespace {

using namespace dns;

class Filing : public dns::ClientTest {};

const Texts ten_names = {"a.test", "b.test", "c.test", "d.test", "e.test",
                         "f.test", "g.test", "h.test", "i.test", "j.test"};

// Answers for the tenth name: first with the addresses of a name that nobody asked for, then with the end of the call.
std::vector<Bytes> other_name_after_ten(const Bytes &query) {
  if (name_asked(query) != "j.test")
    return {};
  return {reply(query, 2, a(labels("other.test"), "192.0.2.7") + aaaa(labels("other.test"), "2001:db8::7")),
          last_for(query, "j.test")};
}

} // namespace

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
  Server knows(addresses[1], with_address("192.0.2.2"));
  Server denies(addresses[2], with("", 0));
  Server lies(addresses[3], with_address("198.51.100.3"));
  Query query({addresses, addresses + 5}, {"www.test"});
  query->stopOnMatch = 0;
  query->timeoutSec = 1;
  ask(query);
  EXPECT_EQ((Texts{"A 1 0 192.0.2.2", "A 3 0 198.51.100.3"}), query.filed());
  EXPECT_EQ(2, query->ipv4Count);
}

TEST_F(Filing, TheFirstMatchEndsThePass) {
  const Mailbox silent(addresses[0]);
  Server knows(addresses[1], with_address("192.0.2.2"));
  Query query({addresses[0], addresses[1]}, {"www.test"});
  query->stopOnMatch = 200; // anything but 0
  query->timeoutSec = 100;  // the test would run into its alarm
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

// The client does not look at names behind those in use, even if old ones are left there.
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
  Server server(addresses[1], other_name_after_ten);
  Query query({addresses[0], addresses[1]}, ten_names);
  ask(query);
  EXPECT_EQ((Texts{"A 1 9 203.0.113.99", "A 2 0 192.0.2.7", "AAAA 2 0 2001:db8::7"}), query.filed());
}

TEST_F(Filing, WithTenNamesTheFifthServerHasNoSuchSlot) {
  Server server(addresses[4], other_name_after_ten);
  Query query({addresses, addresses + 5}, ten_names);
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
  Server server(here, with_address("192.0.2.1"));
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

// The question holds a second zero byte, so the reply makes no sense from the first one on.
TEST_F(Filing, ARepeatedQuestionWithADotAtItsEndIsDropped) {
  Server server(here, with_address("192.0.2.7"));
  Query query({here}, {"a.test.", "b.test"});
  ask(query);
  EXPECT_EQ(Texts{"A 0 1 192.0.2.7"}, query.filed());
  EXPECT_EQ(1, query->ipv4Count);
}

TEST_F(Filing, TheRootIsAName) {
  Server server(here, with_address("192.0.2.1"));
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
  Server server(here, with_address("192.0.2.7"));
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
    servers.push_back(std::make_unique<Server>(address, with_address(address)));
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
