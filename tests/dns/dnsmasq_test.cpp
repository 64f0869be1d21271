// The client asks a real DNS server.
#include <string>
#include <thread>
#include <vector>

#include "dns/client_test.h"
#include "support/dnsmasq.h"

namespace {

using dns::here;
using dns::Query;
using dns::Texts;

constexpr char configuration[] = R"(listen-address=127.0.0.1
host-record=both.test,192.0.2.1,2001:db8::1
host-record=four.test,192.0.2.4
host-record=six.test,2001:db8::6
host-record=many.test,192.0.2.11,2001:db8::11
host-record=many.test,192.0.2.12,2001:db8::12
host-record=many.test,192.0.2.13,2001:db8::13
cname=alias.test,both.test
cname=alias2.test,alias.test
cname=alias3.test,alias2.test
server=/blackhole.test/127.0.0.77
)";

class RealServer : public dns::WithDnsmasq<configuration> {
 protected:
  static Texts resolve(const Query &query) {
    EXPECT_EQ(1, dnsQuery4(query.get()));
    EXPECT_TRUE(query.intact());
    return query.filed();
  }
};

} // namespace

TEST_F(RealServer, ANameWithBothAddresses) {
  Query query({here}, {"both.test"});
  EXPECT_EQ((Texts{"A 0 0 192.0.2.1", "AAAA 0 0 2001:db8::1"}), resolve(query));
  EXPECT_EQ((Texts{"ipv4 result count = 1\n", "ipv6 result count = 0\n", "ipv4 result count = 1\n",
                   "ipv6 result count = 1\n"}),
            sandbox::console_messages());
}

TEST_F(RealServer, AliasesAreFiledUnderTheirOwnName) {
  for (const char *name : {"alias.test", "alias2.test", "alias3.test"}) {
    Query query({here}, {name});
    EXPECT_EQ((Texts{"A 0 0 192.0.2.1", "AAAA 0 0 2001:db8::1"}), resolve(query)) << name;
  }
}

TEST_F(RealServer, OneOfManyAddressesStays) {
  Query query({here}, {"many.test"});
  EXPECT_EQ(2u, resolve(query).size());
  EXPECT_EQ(3, query->ipv4Count);
  EXPECT_EQ(3, query->ipv6Count);
}

// Both calls end after a second of silence, so they run at the same time.
TEST_F(RealServer, AnUnknownNameIsAnsweredAndAnotherOnlyWaitedFor) {
  std::thread refused([] {
    Query query({here}, {"no.test"});
    query->timeoutSec = 1;
    EXPECT_EQ(1, dnsQuery4_checkServerResponseOnly(query.get()));
    EXPECT_EQ(Texts{}, query.filed());
  });
  Query query({here, "127.0.0.77"}, {"blackhole.test"});
  query->timeoutSec = 1;
  EXPECT_EQ(0, dnsQuery4_checkServerResponseOnly(query.get()));
  refused.join();
}

TEST_F(RealServer, TenNamesAtOnce) {
  Query query({here}, {"both.test", "four.test", "six.test", "many.test", "alias.test", "alias2.test", "alias3.test",
                       "no.test", "no2.test", "blackhole.test"});
  query->stopOnMatch = 0;
  query->timeoutSec = 1;
  EXPECT_EQ(1, dnsQuery4(query.get()));
  EXPECT_EQ(8, query->ipv4Count);
  EXPECT_EQ(8, query->ipv6Count);
  EXPECT_EQ(dns::address("192.0.2.4"), query->ipv4Result[0][1]);
  EXPECT_EQ(0u, query->ipv4Result[0][2]);
  EXPECT_EQ("2001:db8::6", dns::address_text(query->ipv6Result[0][2]));
  for (const int slot : {0, 4, 5, 6}) {
    EXPECT_EQ(dns::address("192.0.2.1"), query->ipv4Result[0][slot]);
    EXPECT_EQ("2001:db8::1", dns::address_text(query->ipv6Result[0][slot]));
  }
  for (const int slot : {7, 8, 9})
    EXPECT_EQ(0u, query->ipv4Result[0][slot]);
}

TEST_F(RealServer, ADeadServerBesideALivingOne) {
  Query query({"127.0.0.77", here, "127.0.0.78"}, {"four.test"});
  int responded = 0;
  EXPECT_EQ(1, dnsQuery4_main(query.get(), &responded, 1));
  EXPECT_EQ(Texts{"A 1 0 192.0.2.4"}, query.filed());
}

TEST_F(RealServer, ADotAtTheEndIsAnotherName) {
  Query query({here}, {"four.test.", "both.test"});
  int responded = 0;
  EXPECT_EQ(1, dnsQuery4_main(query.get(), &responded, 1));
  EXPECT_EQ(0u, query->ipv4Result[0][0]);
}
