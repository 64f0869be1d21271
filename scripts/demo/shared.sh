# shellcheck shell=bash disable=SC2034 # the parts read what is declared here
# Declares the variables that the parts of the demo share, and says who sets and who reads them. A variable that only
# one part uses is declared in that part.

# The library writes its two scripts to these places, which are fixed. reports.sh and inside.sh show them;
# without_namespaces.sh puts aside what stood there.
readonly start_script=/var/tmp/qos_start stop_script=/var/tmp/qos_stop

# These are the router's addresses and that of the WAN host. namespaces.sh sets them up, inside.sh draws them, and
# traffic.sh sends to the WAN host.
readonly lan_address=192.168.1.1 wan_address=203.0.113.1 wan_host=203.0.113.2

# The folder that the demo runs in, with copies of everything that runs. outside.sh makes it; the main program gets it
# as an argument inside namespaces. Parts that need an absolute path read it.
#
# Parts hand each other some files in it, too:
#   console     what the library wrote to /dev/console, read by reports.sh
#   commands    each call of tc, ifconfig and iptables, written by recording.sh or by without_namespaces.sh, read by
#               reports.sh, recording.sh and refusals.sh
#   router.log  what home_router printed, written by process.sh, read by reports.sh and inside.sh
work=''

# The policy's file, relative to the project's folder and then to `work`. policy.sh sets it, and inside namespaces the
# main program does from its argument. process.sh and inside.sh hand it to home_router; outside.sh,
# without_namespaces.sh and counters.sh read it as well.
policy=''

# The interface that the policy shapes. inside.sh sets it; recording.sh, counters.sh and inside.sh read it.
wan=''

# The iptables that this kernel answers to, and whether (yes, no) it has a mangle table. recording.sh sets both;
# traffic.sh, counters.sh and inside.sh run it, and refusals.sh reads has_mangle.
iptables='' has_mangle=no

# Whether (yes, no) some connections have marks, as a router's firewall gives them. inside.sh sets it; counters.sh reads
# it.
connections_marked=no
