// Lines of generated scripts that more than one module writes, for the interface eth1.
#pragma once

#include <string>
#include <vector>

namespace goldens {

constexpr char banner[] =
    "#!/bin/sh\n"
    "#Generate by quorra\n"
    "#Author: Kiro Pallet\n";

constexpr char chain_renewal[] =
    "iptables -t mangle -F QOS_eth1 2>/dev/null\n"
    "iptables -t mangle -F QOS_eth1_AUTO 2>/dev/null\n"
    "iptables -t mangle -X QOS_eth1 2>/dev/null\n"
    "iptables -t mangle -X QOS_eth1_AUTO 2>/dev/null\n"
    "iptables -t mangle -N QOS_eth1 2>/dev/null\n"
    "iptables -t mangle -N QOS_eth1_AUTO 2>/dev/null\n"
    "iptables -t mangle -D FORWARD -o eth1 -g QOS_eth1 2>/dev/null\n"
    "iptables -t mangle -D OUTPUT -o eth1 -g QOS_eth1 2>/dev/null\n"
    "iptables -t mangle -D QOS_eth1 -m connmark ! --mark 0 -j QOS_eth1_AUTO 2>/dev/null\n"
    "iptables -t mangle -A FORWARD -o eth1 -g QOS_eth1 2>/dev/null\n"
    "iptables -t mangle -A OUTPUT -o eth1 -g QOS_eth1 2>/dev/null\n"
    "iptables -t mangle -A QOS_eth1 -m connmark ! --mark 0 -j QOS_eth1_AUTO 2>/dev/null\n";

constexpr char chain_removal[] =
    "iptables -t mangle -D FORWARD -o eth1 -g QOS_eth1 2>/dev/null\n"
    "iptables -t mangle -D OUTPUT -o eth1 -g QOS_eth1 2>/dev/null\n"
    "iptables -t mangle -D QOS_eth1 -m connmark ! --mark 0 -j QOS_eth1_AUTO 2>/dev/null\n"
    "iptables -t mangle -F QOS_eth1 2>/dev/null\n"
    "iptables -t mangle -F QOS_eth1_AUTO 2>/dev/null\n"
    "iptables -t mangle -X QOS_eth1 2>/dev/null\n"
    "iptables -t mangle -X QOS_eth1_AUTO 2>/dev/null\n";

// These are the calls of the last two, as stand-ins for iptables record them.

inline const std::vector<std::string> chain_removal_calls = {
    "iptables [-t] [mangle] [-D] [FORWARD] [-o] [eth1] [-g] [QOS_eth1]",
    "iptables [-t] [mangle] [-D] [OUTPUT] [-o] [eth1] [-g] [QOS_eth1]",
    "iptables [-t] [mangle] [-D] [QOS_eth1] [-m] [connmark] [!] [--mark] [0] [-j] [QOS_eth1_AUTO]",
    "iptables [-t] [mangle] [-F] [QOS_eth1]",
    "iptables [-t] [mangle] [-F] [QOS_eth1_AUTO]",
    "iptables [-t] [mangle] [-X] [QOS_eth1]",
    "iptables [-t] [mangle] [-X] [QOS_eth1_AUTO]",
};

inline const std::vector<std::string> chain_renewal_calls = {
    "iptables [-t] [mangle] [-F] [QOS_eth1]",
    "iptables [-t] [mangle] [-F] [QOS_eth1_AUTO]",
    "iptables [-t] [mangle] [-X] [QOS_eth1]",
    "iptables [-t] [mangle] [-X] [QOS_eth1_AUTO]",
    "iptables [-t] [mangle] [-N] [QOS_eth1]",
    "iptables [-t] [mangle] [-N] [QOS_eth1_AUTO]",
    "iptables [-t] [mangle] [-D] [FORWARD] [-o] [eth1] [-g] [QOS_eth1]",
    "iptables [-t] [mangle] [-D] [OUTPUT] [-o] [eth1] [-g] [QOS_eth1]",
    "iptables [-t] [mangle] [-D] [QOS_eth1] [-m] [connmark] [!] [--mark] [0] [-j] [QOS_eth1_AUTO]",
    "iptables [-t] [mangle] [-A] [FORWARD] [-o] [eth1] [-g] [QOS_eth1]",
    "iptables [-t] [mangle] [-A] [OUTPUT] [-o] [eth1] [-g] [QOS_eth1]",
    "iptables [-t] [mangle] [-A] [QOS_eth1] [-m] [connmark] [!] [--mark] [0] [-j] [QOS_eth1_AUTO]",
};

} // namespace goldens
