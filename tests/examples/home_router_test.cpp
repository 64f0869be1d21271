// These tests run the home router with a policy file, and look at what it says and does.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/example.h"
#include "support/sandbox.h"

namespace {

constexpr char policy_path[] = "/run/policy.toml";

// The mistakes below are reported with line numbers of this file.
const std::string htb_policy = R"(interface = "wan0"
link_rate = [1000, 8000]
physical_rate = [1024, 8192]
[root]
kind = "htb"
default_class = 20
drop = [2, 3]
automarks = [10, 20, 20, 20, 20, 20, 20, 20]
[[class]]
id = 10
parent = 1
rate = 256
ceil = 1000
leaf = { kind = "pfifo", limit = 50 }
[[class]]
id = 20
parent = 1
rate = 100
[[schedule]]
number = 1
start = "8:00"
stop = "18:30"
[[rule]]
index = 1
protocol = "udp"
destination_port = 53
mark = 10
[[rule]]
index = 2
source = "192.168.1.10-192.168.1.20"
schedule = 1
mark = 20
)";

using sandbox::Outcome;

Outcome run(const std::string &arguments) {
  return sandbox::run(sandbox::example("home_router") + " " + arguments);
}

std::string with(const std::string &old_text, const std::string &new_text) {
  std::string policy = htb_policy;
  const size_t at = policy.find(old_text);
  EXPECT_NE(std::string::npos, at) << old_text;
  return policy.replace(at, old_text.size(), new_text);
}

struct Case {
  const char *old_text, *new_text;
  const char *mistake; // after "FILE:"
};

void expect_mistakes(const std::vector<Case> &cases) {
  for (const Case &row : cases) {
    sandbox::write_file(policy_path, with(row.old_text, row.new_text));
    const Outcome outcome = run(std::string("--check ") + policy_path);
    EXPECT_EQ(1, outcome.status) << row.new_text;
    EXPECT_EQ(std::string(policy_path) + ":" + row.mistake + "\n", outcome.output);
  }
}

class Policy : public testing::Test {
 protected:
  void SetUp() override {
    sandbox::clear_console();
  }
};

} // namespace

TEST_F(Policy, WithoutMistakesIsTold) {
  sandbox::write_file(policy_path, htb_policy);
  const Outcome outcome = run(std::string("--check ") + policy_path);
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ(std::string(policy_path) + ": no mistakes (interface wan0, 2 rules)\n", outcome.output);
}

TEST_F(Policy, SyntaxIsToldWithItsLine) {
  sandbox::write_file(policy_path, with("kind = \"htb\"", "kind = "));
  const Outcome outcome = run(std::string("--check ") + policy_path);
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ(0u, outcome.output.find(std::string(policy_path) + ":5: ")) << outcome.output;
  EXPECT_EQ(outcome.output.size() - 1, outcome.output.find('\n')) << outcome.output;
}

TEST_F(Policy, UnknownKeysAreTold) {
  expect_mistakes({
      {"interface", "colour = \"red\"\ninterface", "1: unknown key \"colour\" in the policy"},
      {"drop = [2, 3]", "drop = [2, 3]\nbands = 3", "8: unknown key \"bands\" in root"},
      {"rate = 256", "rate = 256\ncell = 1", "13: unknown key \"cell\" in this class"},
      {"limit = 50", "perturb = 10", "14: unknown key \"perturb\" in leaf"},
      {"number = 1", "number = 1\nname = \"x\"", "21: unknown key \"name\" in this schedule"},
      {"index = 1\n", "index = 1\nprioritY = 1\n", "25: unknown key \"prioritY\" in this rule"},
  });
}

TEST_F(Policy, RatesAreMoreThanNothing) {
  expect_mistakes({
      {"[1000, 8000]", "[0, 8000]", "2: link_rate must be a whole number from 1 to 100000000, not 0"},
      {"[1024, 8192]", "[1024, 0]", "3: physical_rate must be a whole number from 1 to 100000000, not 0"},
      {"rate = 256", "rate = 0", "12: rate must be a whole number from 1 to 100000000, not 0"},
      {"rate = 256", "rate = -1", "12: rate must be a whole number from 1 to 100000000, not -1"},
      {"rate = 256", "rate = 1.5", "12: rate must be a whole number from 1 to 100000000"},
      {"rate = 256", "rate = 4294967296", "12: rate must be a whole number from 1 to 100000000, not 4294967296"},
      {"ceil = 1000", "ceil = 0", "13: ceil must be a whole number from 1 to 100000000, not 0"},
      {"ceil = 1000", "ceil = 255", "13: ceil 255 is below rate 256"},
  });
}

TEST_F(Policy, MarksAreLeafClasses) {
  expect_mistakes({
      {"mark = 20\n", "mark = 1\n", "32: mark 1 is no leaf class"},
      {"mark = 20\n", "mark = 30\n", "32: mark 30 is no leaf class"},
      {"mark = 20\n", "mark = 65556\n", "32: mark must be a whole number from 1 to 4095, not 65556"},
      {"default_class = 20", "default_class = 1", "6: default_class 1 is no leaf class"},
      {"20, 20]", "20, 2]", "8: automark 2 is no leaf class"},
  });
}

TEST_F(Policy, NamesThatAShellWouldReadAreRefused) {
  const std::string rule_is =
      " is no interface name: 1 to 15 letters, digits, '.', '_' and '-', the first neither '.' nor '-'";
  for (const std::string name : {"wan0; reboot", "wan0 ", "$(id)", "`id`", "wan0|x", "wan0&", "-f", ".", "../x", "a/b",
                                 "wan0>x", "16-letters-in-it", "", "w'x", "w*"}) {
    sandbox::write_file(policy_path, with("\"wan0\"", "\"" + name + "\""));
    const Outcome outcome = run(std::string("--check ") + policy_path);
    EXPECT_EQ(1, outcome.status) << name;
    EXPECT_EQ(std::string(policy_path) + ":1: interface \"" + name + "\"" + rule_is + "\n", outcome.output);
  }
  expect_mistakes({
      {"protocol = \"udp\"\ndestination_port = 53", "mac = \"00:11:22:33:44:5; id\"",
       "25: mac must be six pairs of hexadecimal digits with colons, not \"00:11:22:33:44:5; id\""},
      {"protocol = \"udp\"\ndestination_port = 53", "domain = \"a$(id).example\"",
       "25: domain \"a$(id).example\" must be 1 to 255 letters, digits and .-, the first not '-'"},
      {"protocol = \"udp\"\ndestination_port = 53", "domain = \"x\\\" ; id ; \\\"\"",
       "25: domain \"x\" ; id ; \"\" must be 1 to 255 letters, digits and .-, the first not '-'"},
      {"protocol = \"udp\"\ndestination_port = 53", "url = \"/a;id\"",
       "25: url \"/a;id\" must be 1 to 255 letters, digits and ._/%+,:@-, the first not '-'"},
      {"protocol = \"udp\"\ndestination_port = 53", "dscp = \"EF;id\"",
       "25: unknown dscp \"EF;id\": it can be one of CS0, CS1, CS2, CS3, CS4, CS5, CS6, CS7, BE, AF11, AF12, AF13, "
       "AF21, "
       "AF22, AF23, AF31, AF32, AF33, AF41, AF42, AF43, EF"},
  });
}

TEST_F(Policy, TheTreeHasToHold) {
  expect_mistakes({
      {"id = 20", "id = 1", "16: class 1 exists already: it is made with the tree; list it in drop to make your own"},
      {"kind = \"htb\"", "kind = \"cbq\"", "5: unknown kind \"cbq\": it can be one of pfifo_fast, htb, hfsc, prio"},
      {"protocol = \"udp\"\ndestination_port = 53", "protocol = \"sctp\"",
       "25: unknown protocol \"sctp\": it can be one of tcp, udp, icmp, both, all"},
      {"index = 2", "index = 1", "29: rule 1 exists already"},
      {"schedule = 1", "schedule = 2", "31: schedule 2 does not exist"},
      {"192.168.1.10-", "192.168.1.30-",
       "30: source must be an IPv4 address or \"FIRST-LAST\", not \"192.168.1.30-192.168.1.20\""},
      {"stop = \"18:30\"", "stop = \"24:00\"", "22: stop must be a time from \"0:00\" to \"23:59\", not \"24:00\""},
  });
}

TEST_F(Policy, WithAMistakeAppliesNothing) {
  const sandbox::StandIns tools({"tc", "iptables", "ifconfig"});
  unlink("/var/tmp/qos_start"); // of a test before
  sandbox::write_file(policy_path, with("rate = 256", "rate = 0"));
  EXPECT_EQ(1, run(policy_path).status);
  EXPECT_EQ(std::vector<std::string>(), tools.calls());
  EXPECT_FALSE(sandbox::exists("/var/tmp/qos_start"));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Policy, ThatIsNotThereIsTold) {
  const Outcome outcome = run("/run/none.toml");
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ(0u, outcome.output.find("/run/none.toml:1: ")) << outcome.output;
}

TEST_F(Policy, OfEveryKindComesWithTheProject) {
  for (const char *name : {"adsl", "hfsc", "prio", "pfifo_fast"}) {
    const Outcome outcome = run(std::string("--check '") + POLICIES + "/" + name + ".toml'");
    EXPECT_EQ(0, outcome.status) << outcome.output;
  }
}

TEST_F(Policy, IsAppliedReportedAndTakenAwayOnSigterm) {
  const sandbox::StandIns tools({"tc", "iptables", "ifconfig"});
  sandbox::write_file(policy_path,
                      "interface = \"wan0\"\nlink_rate = [1000, 8000]\nphysical_rate = [1024, 8192]\n"
                      "[root]\nkind = \"pfifo_fast\"\nqueue_length = 77\n");
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  const pid_t router = fork();
  if (router == 0) {
    dup2(ends[1], 1);
    close(ends[0]);
    close(ends[1]);
    const std::string command = "exec " + sandbox::example("home_router") + " " + policy_path;
    execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char *>(nullptr));
    _exit(127);
  }
  close(ends[1]);
  FILE *output = fdopen(ends[0], "r");
  char line[256] = "";
  ASSERT_NE(nullptr, fgets(line, sizeof(line), output));
  EXPECT_STREQ("home_router: running on wan0; SIGTERM stops\n", line);

  EXPECT_EQ("[wan0] [txqueuelen] [77]", tools.calls().at(1).substr(sizeof("ifconfig")));
  const std::vector<std::string> report = {
      "Interface:       wan0\n",
      "Speed:           PHY=      1024/8192       kbit/s, LINK=      1000/8000       kbit/s\n",
      "Root QDisc Type: R_pfifo_fast\n", "Queue length:    77\n"};
  EXPECT_EQ(report, sandbox::console_messages());

  const size_t started = tools.calls().size();
  kill(router, SIGTERM);
  int status = -1;
  ASSERT_EQ(router, waitpid(router, &status, 0));
  EXPECT_EQ(0, status);
  EXPECT_EQ("tc [qdisc] [del] [dev] [wan0] [root]", tools.calls().at(started));
  EXPECT_EQ(started + 8, tools.calls().size());
  fclose(output);
}

TEST(HomeRouter, TellsItsUsage) {
  for (const char *arguments : {"", "--check", "a b", "--colour /run/x"})
    EXPECT_EQ(2, run(arguments).status) << arguments;
}
