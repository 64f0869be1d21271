// These tests check what the three calls of the client return, count and trace.
#include <errno.h>
#include <string.h>

#include <string>
#include <thread>
#include <vector>

#include "dns/client_test.h"
#include "dns/libc_calls.h"

namespace {

using namespace dns;

class Results : public dns::ClientTest {};

} // namespace

TEST_F(Results, BothTypesAreAskedAndTraced) {
  Server server(here, [](const Bytes &query) {
    return std::vector<Bytes>{
        reply(query, 1, type_asked(query) == 1 ? a(to_question(), "192.0.2.1") : aaaa(to_question(), "2001:db8::1"))};
  });
  Query query({here}, {"www.test"});
  query->ipv4Count = 5; // the rest of an earlier call is cleared
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
  Server server(here, with_address("192.0.2.1"));
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

TEST_F(Results, AServerThatAnswersWellAfterTheOthersIsHeard) {
  // The first reply is for no name asked for, so it ends nothing. The second comes when the client waits again.
  Server prompt(addresses[0], [](const Bytes &query) {
    return std::vector<Bytes>{reply(query, 1, a(labels("other.test"), "192.0.2.1"))};
  });
  Server late(addresses[1], [](const Bytes &query) {
    while (dns::libc_calls.selects < 2)
      std::this_thread::yield();
    return std::vector<Bytes>{yes(query, "192.0.2.2")};
  });
  Query query({addresses[0], addresses[1]}, {"www.test"});
  dns::libc_calls.selects = 0;
  ask(query);
  EXPECT_EQ((Texts{"A 0 1 192.0.2.1", "A 1 0 192.0.2.2"}), query.filed());
}

TEST_F(Results, TheCheckTracesNothingAndFilesAsUsual) {
  Server server(here, with_address("192.0.2.1"));
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
  // The calls end after a second of silence, so they run at the same time.
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
  Server server(here, with_address("192.0.2.1"));
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
  Server server(here, with_address("192.0.2.1"));
  ask(query);
  EXPECT_EQ(1, responded_);
}

TEST_F(Results, TheMainPartAddsToWhatThereIs) {
  Server server(here, with_address("192.0.2.1"));
  Query query({here}, {"www.test"});
  query->ipv4Count = 5;
  query->ipv6Count = 7;
  query->ipv4Result[3][3] = dns::address("192.0.2.33");
  ask(query);
  EXPECT_EQ(6, query->ipv4Count);
  EXPECT_EQ(7, query->ipv6Count);
  EXPECT_EQ((Texts{"A 0 0 192.0.2.1", "A 3 3 192.0.2.33"}), query.filed());
}
