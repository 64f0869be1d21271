// What the tests of the scripts for tc have in common.
#pragma once

#include <string>
#include <vector>

namespace scripts {

constexpr char start_script[] = "/var/tmp/qos_start";
constexpr char stop_script[] = "/var/tmp/qos_stop";

inline const std::vector<std::string> tools = {"tc", "ifconfig", "iptables"};

constexpr char removal_of_root[] = "tc qdisc del dev eth1 root 2>/dev/null\n";

} // namespace scripts
