// These tests look how the client follows aliases in one pass after the other.
#include <string>
#include <thread>
#include <vector>

#include "dns/client_test.h"

namespace {

using namespace dns;

class Passes : public dns::ClientTest {};

// One call whose passes end by silence. Such a call takes whole seconds, so many run side by side.
struct Chain {
  const char *address;
  Server::Answer answer;
  int result;                          // of the call
  std::vector<std::string> asked = {}; // by the call
  std::vector<std::string> filed = {};
  uint8_t stop_on_match = 0;
};

// Returns the number in a name such as "n3.test".
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
      // The server does not answer for the alias, so the client asks again.
      {"127.0.1.5",
       [](const Bytes &query) {
         return number_in(query) == 0 ? std::vector<Bytes>{alias_to(query, 1)} : std::vector<Bytes>{};
       },
       0,
       {"n0.test", "n1.test", "n1.test", "n1.test"}},
      // A reply after the alias empties the list of aliases.
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
      // An IPv6 address has the same effect.
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
  Server good(addresses[1], with_address("192.0.2.1"));
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
