// A network for the router's proofs: a LAN host, the router, which is where the test itself runs, and hosts at the far
// end of its line, each in a network namespace of its own.
//
//   lan  192.168.1.10 ...   lan0  router  wan0   line   far1, far2, far3
//        eth0            192.168.1.1  203.0.113.1       198.51.100.1, .2, .3 on eth0
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sched.h>
#include <signal.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace network {

inline constexpr char line[] = "wan0";
inline constexpr uint32_t speeds[4] = {8000, 8000, 10000, 10000}; // link pair, physical pair, kbit/s

// Runs a command that has to succeed, and returns what it printed.
inline std::string must(const std::string &command) {
  const sandbox::Outcome outcome = sandbox::run(command);
  EXPECT_EQ(0, outcome.status) << command << ": " << outcome.output;
  return outcome.output;
}

inline void enter(const std::string &name) {
  const int space = open(("/run/netns/" + name).c_str(), O_RDONLY | O_CLOEXEC);
  if (space == -1 || setns(space, CLONE_NEWNET) != 0)
    _exit(99);
  close(space);
}

// Starts a process in the namespace `name` that runs `body` and ends with its result.
template <typename Body>
pid_t start_in(const std::string &name, Body body) {
  return sandbox::start_child([&] {
    enter(name);
    return body();
  });
}

template <typename Body>
int run_in(const std::string &name, Body body) {
  return sandbox::end_of_child(start_in(name, body));
}

inline sockaddr_in address_of(const std::string &ip, uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = inet_addr(ip.c_str());
  return address;
}

struct Datagrams {
  std::string from = "192.168.1.10";
  uint16_t from_port = 0;
  std::string to = "198.51.100.1";
  uint16_t to_port = 9000;
  int tos = 0;
  size_t size = 100;           // bytes of payload
  unsigned count = 10;         // 0: it sends until it is ended
  unsigned microseconds = 500; // between two
};

// Sends datagrams from the LAN host, in whose namespace it must run. Returns 0 if all were sent, else 1.
inline int send_datagrams(const Datagrams &what) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_in from = address_of(what.from, what.from_port), to = address_of(what.to, what.to_port);
  if (setsockopt(fd, IPPROTO_IP, IP_TOS, &what.tos, sizeof(what.tos)) != 0 ||
      bind(fd, reinterpret_cast<const sockaddr *>(&from), sizeof(from)) != 0)
    return 1;
  const std::vector<char> payload(what.size, 'x');
  for (unsigned sent = 0; what.count == 0 || sent < what.count; sent++) {
    if (sendto(fd, payload.data(), payload.size(), 0, reinterpret_cast<const sockaddr *>(&to), sizeof(to)) < 0)
      return 1;
    usleep(what.microseconds);
  }
  close(fd);
  return 0;
}

// Returns the one line of `text` that begins with `start`, without blanks at its end. The result is empty if there is
// none or more than one.
inline std::string line_of(const std::string &text, const std::string &start) {
  std::istringstream lines(text);
  std::string found;
  for (std::string one; std::getline(lines, one);) {
    if (one.compare(0, start.size(), start) != 0)
      continue;
    if (!found.empty())
      return "";
    found = one.substr(0, one.find_last_not_of(' ') + 1);
  }
  return found;
}

struct Counters {
  uint64_t bytes, packets;
};

// Returns what every class of the line has sent, by minor number.
inline std::map<unsigned, Counters> class_counters() {
  std::istringstream words(must(std::string("tc -s class show dev ") + line));
  std::map<unsigned, Counters> classes;
  unsigned minor = 0;
  for (std::string word; words >> word;) {
    if (word == "class") {
      words >> word >> word; // the kind, then 1:MINOR
      minor = static_cast<unsigned>(strtoul(word.substr(word.find(':') + 1).c_str(), nullptr, 16));
    } else if (word == "Sent" && minor != 0) {
      Counters &counters = classes[minor];
      words >> counters.bytes >> word >> counters.packets; // "Sent BYTES bytes PACKETS pkt"
      minor = 0;
    }
  }
  return classes;
}

// Returns the packets that each rule of a chain has counted, in the chain's order.
inline std::vector<uint64_t> rule_counters(const std::string &chain) {
  std::istringstream lines(must("iptables -t mangle -nvxL " + chain));
  std::vector<uint64_t> counters;
  std::string one;
  for (int i = 0; std::getline(lines, one); i++)
    if (i >= 2)
      counters.push_back(strtoull(one.c_str(), nullptr, 10));
  return counters;
}

inline qos_rule *rule_of(list_node *node) {
  return reinterpret_cast<qos_rule *>(reinterpret_cast<char *>(node) - offsetof(qos_rule, node));
}

// Adds a rule that marks its packets; `make` fills in which ones match.
template <typename Make>
void add_marking_rule(unsigned index, uint32_t mark, Make make) {
  qos_match match = {};
  qos_target target = {};
  target.target_flags = 1u << QOS_TARGET_MARK;
  target.mark = mark;
  make(match);
  ASSERT_EQ(1u, add_qos_rule(line, static_cast<uint8_t>(index), &match, &target));
}

// Most proofs need only the line and its far end.
class Line : public testing::Test {
 protected:
  void SetUp() override {
    if (!getenv("TORVANE_ROUTER"))
      GTEST_SKIP() << "only on the router of tests/router/run";
    no_ipv6();
    must("ip netns add far");
    must("ip link add wan0 type veth peer name eth0 netns far");
    must("ip link set wan0 up && ip -n far link set eth0 up");
    sandbox::clear_console();
  }

  void TearDown() override {
    list_node *rules = find_rule_list_by_name(line);
    while (rules && !list_empty(rules))
      del_qos_rule(line, rule_of(rules->next)->index);
    del_root_qdisc(line);
    del_all_sched();
    sandbox::run("iptables -t mangle -F; iptables -t mangle -X");
    sandbox::run("ip link del wan0; ip link del lan0");
    for (const char *name : {"lan", "far", "far1", "far2", "far3"})
      sandbox::run(std::string("ip netns del ") + name);
  }

  // Switches IPv6 off, because its own packets would be counted with the rest.
  static void no_ipv6() {
    for (const char *which : {"all", "default"})
      sandbox::write_file(std::string("/proc/sys/net/ipv6/conf/") + which + "/disable_ipv6", "1\n");
  }

  // Returns what the tools said while the operation ran. They say nothing if all is well, save about a bandwidth that
  // they assume.
  static std::string said_during(int (*operation)(const char *)) {
    std::string said;
    {
      sandbox::Captured output(1), errors(2); // both go into one file
      EXPECT_EQ(1, operation(line));
      said = errors.text();
    }
    std::istringstream lines(said);
    std::string complaints;
    for (std::string one; std::getline(lines, one);)
      if (one != "RED: set bandwidth to 10Mbit")
        complaints += one + "\n";
    return complaints;
  }

  static std::string start() {
    return said_during(start_qos);
  }

  static std::string stop() {
    return said_during(stop_qos);
  }

  static std::string queues() {
    return must(std::string("tc qdisc show dev ") + line);
  }

  static std::string classes() {
    return must(std::string("tc class show dev ") + line);
  }
};

// Some proofs need the whole network.
class Whole : public Line {
 protected:
  void SetUp() override {
    if (!getenv("TORVANE_ROUTER"))
      GTEST_SKIP() << "only on the router of tests/router/run";
    must("ip netns add lan && ip netns add far");
    no_ipv6();
    must("ip link add lan0 type veth peer name eth0 netns lan");
    must("ip link add wan0 type veth peer name eth0 netns far");
    for (const char *name : {"lan", "far"})
      must(std::string("ip netns exec ") + name +
           " sh -c 'echo 1 >/proc/sys/net/ipv6/conf/all/disable_ipv6; ip link set lo up; ip link set eth0 up'");
    must("ip addr add 192.168.1.1/24 dev lan0 && ip link set lan0 up");
    must("ip addr add 203.0.113.1/24 dev wan0 && ip link set wan0 up");
    for (const char *host : {"10", "20", "30", "40", "105"})
      must(std::string("ip -n lan addr add 192.168.1.") + host + "/24 dev eth0");
    must("ip -n lan route add default via 192.168.1.1");
    must("ip -n far addr add 203.0.113.2/24 dev eth0 && ip -n far route add default via 203.0.113.1");
    must("echo 1 >/proc/sys/net/ipv4/ip_forward");
    must("ip netns exec far sh -c 'echo 1 >/proc/sys/net/ipv4/ip_forward'");
    must("ip route add 198.51.100.0/24 via 203.0.113.2");
    for (int i = 1; i <= 3; i++) {
      const std::string n = std::to_string(i), far = "far" + n;
      must("ip netns add " + far);
      must("ip -n far link add to" + n + " type veth peer name eth0 netns " + far);
      must("ip -n " + far + " addr add 198.51.100." + n + "/32 dev eth0 && ip -n " + far + " link set eth0 up");
      must("ip -n far link set to" + n + " up && ip -n far route add 198.51.100." + n + "/32 dev to" + n);
      must("ip -n " + far + " route add default via 203.0.113.2 dev eth0 onlink");
    }
    sandbox::clear_console();
  }

  // Returns when everything has been sent and, as far as the queues let it, has arrived.
  static void send(const Datagrams &what) {
    EXPECT_EQ(0, run_in("lan", [&] { return send_datagrams(what); }));
  }
};

} // namespace network
