// A child that is forked while a thread of its parent is inside a service can use that service. Services with a
// semaphore have further tests of their own, in which the thread waits for it.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "support/child_process.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace {

// One round of a service's work, which any thread may do at any time. Returns whether all of it succeeded.
struct Service {
  const char *name;
  bool (*work)();
};

bool string_work() {
  char lower[] = "WAN";
  j_tolower(lower);
  return strcmp(lower, "wan") == 0 && hasInjectionString("plain") == 0;
}

bool log_work() {
  return downdown(-1, "test", 1, "test", 0) == 1; // traces, and writes to standard error
}

bool network_work() {
  uint32_t ip = 0;
  char names[256];
  rxtx_stats counters;
  ipport end = {};
  int fd = -1;
  ipport_string_convert_n2n("127.0.0.1", 0, &end);
  const bool done = get_ip_by_ifname("lo", &ip) == 0 && get_netdev_name(names, sizeof(names)) == 0 &&
                    get_rxtx_by_ifname("lo", &counters) == 0 && socket_open(nullptr, &end, 0, &fd) == 0;
  return socket_close(fd) == 0 && done;
}

bool ipv6_work() {
  v6_ifaddr entries[4] = {};
  unsigned char address[16];
  return getifaddr_netlink("lo", AF_INET, 1, entries, 4) == 0 && StringToV6Addr("::1", address) == 0;
}

bool dns_work() {
  DnsQuery query = {};
  inet_pton(AF_INET, "127.0.0.1", &query.servers[0]);
  query.serverCount = 1;
  strcpy(query.names[0], "www.example.com");
  query.nameCount = 1;
  dnsQuery4_checkServerResponseOnly(&query); // nobody answers
  return query.ipv4Count == 0;
}

bool timer_work() {
  uint32_t now = 0;
  return getCurrentTime(&now) == now;
}

bool limit_work() {
  ThreadLimit *const limit = threadlimit_init(1);
  return limit && threadlimit_inc(limit) == 0 && threadlimit_dec(limit) == 0 && threadlimit_free(limit) == 0;
}

bool cfg_work() {
  char key[] = "key";
  CfgEntry table[] = {{1, key, nullptr}};
  const bool done = cfg_construct("/run/cfg", table, 1) == 0 && table[0].value != nullptr;
  cfg_destory(table, 1);
  return done;
}

bool sysinfo_work() {
  cpu_sample *const sample = cpu_utility_get_stat();
  list_node disks = {&disks, &disks};
  vemta_get_disk_info("/run", &disks);
  vemta_free_disk_info(&disks);
  free(sample);
  return sample != nullptr;
}

bool cgi_work() {
  char *const text = encodeURIComponent("a b");
  const bool done = text && strcmp(text, "a%20b") == 0;
  free(text);
  return done;
}

bool xml_work() {
  xml_doc_file *const doc = xmlNewDocFile();
  unsigned length = 0;
  char *const text = doc && doc->fp ? xmlFileToBuf(doc, &length) : nullptr;
  xmlFreeDocFile(doc);
  const bool done = text != nullptr && length > 0;
  xmlFreeBuf(text);
  return done;
}

constexpr Service services[] = {
    {"string", string_work},   {"log", log_work},     {"network", network_work},   {"ipv6", ipv6_work},
    {"dns", dns_work},         {"timer", timer_work}, {"threadlimit", limit_work}, {"cfg", cfg_work},
    {"sysinfo", sysinfo_work}, {"cgi", cgi_work},     {"xml", xml_work},
};

class Fork : public testing::TestWithParam<Service> {};

} // namespace

TEST_P(Fork, InTheMiddleOfItsWorkLeavesTheServiceToTheChild) {
  sandbox::Captured errors(STDERR_FILENO);
  sandbox::write_file("/run/cfg", "key = value\n");
  const Service &service = GetParam();
  ASSERT_TRUE(service.work());
  std::atomic<bool> stop = false;
  std::thread busy([&] {
    while (!stop)
      service.work();
  });
  constexpr int wanted = 20;
  int children = 0;
  for (bool works = true; children < wanted && works; children++)
    works = sandbox::in_child([&] {
              alarm(60);
              return service.work() ? 0 : 1;
            }) == 0;
  stop = true;
  busy.join();
  EXPECT_EQ(wanted, children);
}

INSTANTIATE_TEST_SUITE_P(Services, Fork, testing::ValuesIn(services),
                         [](const auto &instance) { return std::string(instance.param.name); });

// An emulator of processes cannot fork while another thread forks, so the thread waits for its command meanwhile.
TEST(ForkOfThreads, LeavesCommandsToTheChild) {
  unlink("/run/began");
  unlink("/run/may_end");
  std::thread waiting([] {
    EXPECT_EQ(0, __system("test", 1, "test", ": >/run/began; until [ -e /run/may_end ]; do sleep 0.02; done"));
  });
  while (!sandbox::exists("/run/began"))
    usleep(1000);
  EXPECT_EQ(0, sandbox::in_child([] {
              alarm(60);
              return __system("test", 1, "test", "true") == 0 && _execl("true") == 4 ? 0 : 1;
            }));
  sandbox::write_file("/run/may_end", "");
  waiting.join();
}

// The trees and rules are one thread's, so the child is that of a process with threads that do something else.
TEST(ForkOfThreads, LeavesTreesAndRulesToTheChild) {
  sandbox::Captured errors(STDERR_FILENO); // there is no such interface
  const uint32_t speeds[4] = {20000, 20000, 100000, 100000};
  const root_params_tree root = {3, {}};
  ASSERT_EQ(0, add_root_qdisc(speeds, "lan0", QOS_ROOT_HTB, &root));
  std::atomic<bool> stop = false;
  std::thread busy([&] {
    while (!stop)
      network_work();
  });
  EXPECT_EQ(0, sandbox::in_child([] {
              alarm(60);
              qos_target target = {};
              qos_match match = {};
              const bool added = add_qos_rule("lan0", 1, &match, &target) == 1 && start_qos("lan0") == 1;
              return added && stop_qos("lan0") == 1 && del_root_qdisc("lan0") == 0 ? 0 : 1;
            }));
  stop = true;
  busy.join();
  EXPECT_EQ(0, del_root_qdisc("lan0"));
}
