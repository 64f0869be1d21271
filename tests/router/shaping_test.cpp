// Flows that compete for the line get the shares that the tree gives them. The library's own bandwidth monitor measures
// them at the far hosts, each of which receives one flow.
#include <math.h>
#include <time.h>

#include "router/network.h"

namespace {

using network::Datagrams;

constexpr unsigned flow_count = 3;
constexpr unsigned char seconds = 5;         // over which rates are measured
constexpr double tolerance = 0.05;           // of the configured rate
constexpr uint32_t line_rate = 2000;         // kbit/s
constexpr unsigned flow_microseconds = 2000; // between two datagrams of 1000 bytes: more than the whole line's rate

constexpr uint32_t line_speeds[4] = {line_rate, line_rate, line_rate, line_rate};

struct Rates {
  double kbit[flow_count];
};

class Shaping : public network::Whole {
 protected:
  // Class 1 gets a small burst, which is soon used up.
  static void make_htb_tree() {
    const root_params_tree root = {3, {}};
    ASSERT_EQ(0, add_root_qdisc(line_speeds, network::line, QOS_ROOT_HTB, &root));
    htb_params &top = class_find(network::line, 1)->params.htb;
    top.burst = top.cburst = 6000;
  }

  static void add_rule_for_each_flow(const uint32_t (&marks)[flow_count]) {
    for (uint8_t i = 0; i < flow_count; i++) {
      network::add_marking_rule(i + 1u, marks[i], [=](qos_match &match) {
        match.match_flags = 1u << QOS_MATCH_PROTOCOL;
        match.protocol = QOS_PROTO_UDP;
        match.dport_min = match.dport_max = static_cast<uint16_t>(9001 + i);
      });
    }
  }

  static pid_t start_flow(unsigned i) {
    Datagrams what;
    what.to = "198.51.100." + std::to_string(i + 1);
    what.to_port = static_cast<uint16_t>(9001 + i);
    what.size = 1000;
    what.count = 0;
    what.microseconds = flow_microseconds;
    return network::start_in("lan", [=] { return network::send_datagrams(what); });
  }

  static void end_flow(pid_t flow) {
    kill(flow, SIGKILL);
    sandbox::end_of_child(flow);
  }

  // Starts a process on a far host that measures what its interface receives, in bytes per second, and leaves it in a
  // file.
  static pid_t start_monitor(unsigned i) {
    const std::string n = std::to_string(i + 1);
    return network::start_in("far" + n, [=] {
      bm_head head;
      bm_sample sample = {};
      if (init_bm(&head, static_cast<int>(0x7000 + i), seconds, 0) != 1 || add_bm_by_iface("eth0", &head) != 1 ||
          bm_start(&head) != 0)
        return 1;
      sleep(seconds + 1u); // the second pass has the first rate
      for (int tries = 0; tries < 40 && sample.rx_rate == 0; tries++) {
        usleep(250 * 1000);
        query_bm_by_iface("eth0", &head, &sample);
      }
      sandbox::write_file("/run/rate" + n, std::to_string(sample.rx_rate));
      sem_delete(head.semid);
      return 0;
    });
  }

  // Runs these flows and returns their rates once the queues have settled.
  static Rates measure(const std::vector<unsigned> &flows) {
    std::vector<pid_t> senders, monitors;
    senders.reserve(flows.size());
    for (const unsigned i : flows)
      senders.push_back(start_flow(i));
    sleep(2); // until the queues are full and the buckets empty
    for (const unsigned i : flows)
      monitors.push_back(start_monitor(i));
    for (const pid_t monitor : monitors)
      EXPECT_EQ(0, sandbox::end_of_child(monitor));
    for (const pid_t sender : senders)
      end_flow(sender);
    Rates rates = {};
    for (const unsigned i : flows)
      rates.kbit[i] = 8 * atof(sandbox::read_file("/run/rate" + std::to_string(i + 1)).c_str()) / 1000;
    printf("check: rates %.0f %.0f %.0f kbit/s\n", rates.kbit[0], rates.kbit[1], rates.kbit[2]);
    return rates;
  }

  static void expect_rates(const Rates &rates, const double (&kbit)[flow_count]) {
    for (unsigned i = 0; i < flow_count; i++)
      EXPECT_LE(fabs(rates.kbit[i] - kbit[i]), tolerance * kbit[i]) << "flow " << i + 1 << " " << rates.kbit[i];
  }
};

TEST_F(Shaping, HtbGivesCompetingFlowsTheirRates) {
  make_htb_tree();
  const uint32_t rates[flow_count] = {1000, 600, 400};
  for (unsigned i = 0; i < flow_count; i++) {
    const htb_params shape = {rates[i], line_rate, 3000, 3000, 1};
    ASSERT_EQ(0, add_class(network::line, 1, static_cast<uint16_t>(0x10 * (i + 1)), &shape));
  }
  add_rule_for_each_flow({0x10, 0x20, 0x30});
  ASSERT_EQ("", start());
  expect_rates(measure({0, 1, 2}), {1000, 600, 400});
}

TEST_F(Shaping, HtbLendsWhatAnotherLeavesButNotAboveTheCeiling) {
  make_htb_tree();
  const htb_params capped = {300, 500, 3000, 3000, 0}, greedy = {400, line_rate, 3000, 3000, 1};
  ASSERT_EQ(0, add_class(network::line, 1, 0x10, &capped));
  ASSERT_EQ(0, add_class(network::line, 1, 0x20, &greedy));
  ASSERT_EQ(0, add_class(network::line, 1, 0x30, &greedy));
  add_rule_for_each_flow({0x10, 0x20, 0x30});
  ASSERT_EQ("", start());
  expect_rates(measure({0, 1}), {500, 1500, 0});
}

TEST_F(Shaping, HfscSharesByItsCurves) {
  const root_params_tree root = {3, {}};
  ASSERT_EQ(0, add_root_qdisc(line_speeds, network::line, QOS_ROOT_HFSC, &root));
  const hfsc_curve none = {}, limit = {0, 0, line_rate};
  const uint32_t rates[flow_count] = {1200, 500, 300};
  for (unsigned i = 0; i < flow_count; i++) {
    const hfsc_params shape = {limit, none, {0, 0, rates[i]}, none};
    ASSERT_EQ(0, add_class(network::line, 1, static_cast<uint16_t>(0x10 * (i + 1)), &shape));
  }
  add_rule_for_each_flow({0x10, 0x20, 0x30});
  ASSERT_EQ("", start());
  expect_rates(measure({0, 1, 2}), {1200, 500, 300});
}

// PRIO itself shapes nothing; the token buckets of its bands do.
TEST_F(Shaping, PrioBandsSendWhatTheirBucketsLet) {
  const root_params_prio root = {3, {1, 2, 2, 2, 1, 2, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1}, {}};
  ASSERT_EQ(0, add_root_qdisc(line_speeds, network::line, QOS_ROOT_PRIO, &root));
  const uint32_t rates[flow_count] = {900, 400, 200};
  for (unsigned i = 0; i < flow_count; i++) {
    leaf_qdisc leaf = {};
    leaf.type = QOS_LEAF_TBF;
    leaf.params.tbf = {100, rates[i], 6000};
    ASSERT_EQ(0, add_leaf_qdisc(network::line, static_cast<uint16_t>(i + 1), &leaf));
  }
  add_rule_for_each_flow({1, 2, 3});
  ASSERT_EQ("", start());
  expect_rates(measure({0, 1, 2}), {900, 400, 200});
}

// Flows come and go, and those that are there take what the others leave, the lower prio first. The figures are also
// left in /share/bandwidth.csv, from which the README's picture is drawn.
TEST_F(Shaping, FollowsFlowsAsTheyComeAndGo) {
  make_htb_tree();
  const uint32_t rates[flow_count] = {600, 1000, 400}; // calls, web, bulk
  leaf_qdisc shallow = {};                             // so that a class falls silent with its flow
  shallow.type = QOS_LEAF_PFIFO;
  shallow.params.pfifo.limit = 20;
  for (unsigned i = 0; i < flow_count; i++) {
    const htb_params shape = {rates[i], line_rate, 3000, 3000, i};
    const uint16_t id = static_cast<uint16_t>(0x10 * (i + 1));
    ASSERT_EQ(0, add_class(network::line, 1, id, &shape));
    ASSERT_EQ(0, add_leaf_qdisc(network::line, id, &shallow));
  }
  add_rule_for_each_flow({0x10, 0x20, 0x30});
  ASSERT_EQ("", start());

  struct Phase {
    bool sends[flow_count];
    double kbit[flow_count];
  };
  const Phase phases[] = {{{false, false, true}, {0, 0, 2000}},
                          {{false, true, true}, {0, 1600, 400}},
                          {{true, true, true}, {600, 1000, 400}},
                          {{true, false, true}, {1600, 0, 400}},
                          {{false, false, true}, {0, 0, 2000}}};
  constexpr int samples = 12;                    // of a phase
  constexpr int settled = 4;                     // samples after which queues have emptied or filled
  constexpr useconds_t between_samples = 400000; // microseconds

  pid_t flows[flow_count] = {};
  std::string figures = "seconds,calls,web,bulk\n";
  const auto seconds_now = [] {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
  };
  const double began = seconds_now();
  double before = began;
  std::map<unsigned, network::Counters> last = network::class_counters();
  for (const Phase &phase : phases) {
    for (unsigned i = 0; i < flow_count; i++) {
      if (phase.sends[i] && flows[i] == 0)
        flows[i] = start_flow(i);
      if (!phase.sends[i] && flows[i] != 0) {
        end_flow(flows[i]);
        flows[i] = 0;
      }
    }
    double settled_at = 0;
    uint64_t settled_bytes[flow_count] = {};
    for (int sample = 0; sample < samples; sample++) {
      usleep(between_samples);
      std::map<unsigned, network::Counters> counters = network::class_counters();
      const double now = seconds_now();
      char text[96];
      int length = snprintf(text, sizeof(text), "%.2f", now - began);
      for (unsigned i = 0; i < flow_count; i++) {
        const unsigned id = 0x10 * (i + 1);
        const double bits = 8 * static_cast<double>(counters[id].bytes - last[id].bytes);
        length +=
            snprintf(text + length, sizeof(text) - static_cast<size_t>(length), ",%.0f", bits / (now - before) / 1000);
        if (sample == settled)
          settled_bytes[i] = counters[id].bytes;
        if (sample == samples - 1) {
          const double kbit =
              8 * static_cast<double>(counters[id].bytes - settled_bytes[i]) / (now - settled_at) / 1000;
          EXPECT_LE(fabs(kbit - phase.kbit[i]), tolerance * phase.kbit[i])
              << "phase " << &phase - phases << " flow " << i << " " << kbit;
        }
      }
      if (sample == settled)
        settled_at = now;
      figures += std::string(text) + "\n";
      before = now;
      last = counters;
    }
  }
  for (const pid_t flow : flows)
    if (flow != 0)
      end_flow(flow);
  if (sandbox::exists("/share"))
    sandbox::write_file("/share/bandwidth.csv", figures);
}

} // namespace
