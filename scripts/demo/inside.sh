# shellcheck shell=bash disable=SC2034,SC2154 # shared.sh declares what the parts share
# Provides the inner half of the demo, which runs in private namespaces: it sets up the box, starts home_router, shows
# what came of it, sends traffic, and stops home_router again.

inside() {
  local length_before
  cd "$work" || exit
  exec 2>&1 # in the order in which things happen
  wan=$(./home_router --check "$policy" | sed -n 's/.*interface \([^,)]*\).*/\1/p')
  trap end_helpers EXIT
  trap 'exit 130' TERM

  heading "The box"
  set_up_box
  plain_state >state.before
  length_before=$(queue_length)

  heading "home_router $policy"
  start_router
  show <router.log

  heading "The script it made and ran: $start_script"
  show_script

  heading "What the kernel took"
  show_taken

  heading "What was refused, and why"
  show_refused

  show_reports

  heading "Traffic"
  measure
  heading "Packets counted by the rules"
  show_rule_counters
  if [ ${#class_before[@]} -gt 0 ]; then
    heading "Packets sent by the classes"
    show_class_counters
  fi

  heading "Stopped"
  stop_router
  show_stopped "$length_before"

  heading "Result"
  conclude "All $passed checks passed: script run, rules reported, counters moved, nothing left."
}

set_up_box() {
  private_places
  cable "$wan"
  record_tools
  show <<END
LAN host 192.168.1.10 and others  ---  $lan_address  router  $wan_address on $wan  ---  WAN host $wan_host
Linux $(uname -r); $("$iptables" --version); $(tc -V)
END
  if mark_connections; then
    connections_marked=yes
    say "" "The router's firewall gives UDP connections to ports 7001 to 7008 the connection marks 100 to 800."
  fi
}

# Prints what the router has without QoS. Reference counts and the counters of chains are left out, because they change
# by themselves.
plain_state() {
  tc qdisc show dev "$wan" | sed 's/ refcnt [0-9]*//'
  "$iptables" -t mangle -S 2>/dev/null || true
}

queue_length() {
  ip link show dev "$wan" | sed -n 's/.* qlen \([0-9]*\).*/\1/p'
}

show_taken() {
  local what
  for what in qdisc class filter; do
    say "\$ tc -s $what show dev $wan"
    tc -s "$what" show dev "$wan" | sed '/^$/d' | show
  done
  say "\$ iptables -t mangle -nvL"
  { "$iptables" -t mangle -nvL 2>&1 || true; } | awk '/^Chain (QOS_|FORWARD|OUTPUT)/ { on = 1 } on { print } /^$/ { on = 0 }' |
    sed -e 's/ *$//' -e 's/\(0\.0\.0\.0\/0\|source\)  */\1 /g' | show
}

# show_stopped LENGTH: shows what is left after the stop and checks that it is what was there before the start. LENGTH
# is the length that the queue had then.
show_stopped() {
  tail -n 1 router.log | show
  say "$ cat $stop_script"
  show <"$stop_script"
  plain_state >state.after
  say "What is left, tc qdisc show dev $wan and iptables -t mangle -S:"
  show <state.after
  if cmp -s state.before state.after; then
    pass
    say "The same as before the start: nothing is left."
  else
    fail "something is left after stop_qos"
    diff state.before state.after | show || true
  fi
  if [ "$(queue_length)" != "$1" ]; then
    say "Only the queue length of $wan stays: it was $1, is $(queue_length), and stop_qos does not know it."
  fi
}
