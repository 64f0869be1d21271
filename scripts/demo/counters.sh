# shellcheck shell=bash disable=SC2154 # shared.sh declares what the parts share
# Provides the measurement: the counters of rules and classes before and after the traffic, and the checks that those
# that have to move did so.

rules=()                                      # the rules that the kernel took, in their order
rules_before=() rules_after=() must_count=()  # by place in `rules`: packets; 1 for a rule that has to count some
class_before=() class_after=() must_reach=()  # by class id: packets; 1 for a class that has to send some
has_filter=()                                 # by class id: 1 for a class that a mark leads to
default_class=''                              # an id, or empty if the tree has none
stand_in=no                                   # whether (yes, no) the firewall stands in for filters

# Sends the traffic between two readings of the counters.
measure() {
  note_tree
  note_classes class_before
  add_stand_in
  mapfile -t rules_before < <(rule_counters)
  listen
  send_traffic
  sleep 0.5 # for what the queues still hold
  mapfile -t rules_after < <(rule_counters)
  note_classes class_after
  if [ "$stand_in" = yes ]; then
    stand_in_filters -D
  fi
}

# Notes which rules the kernel took, and of the tree the default class and the classes that have a filter.
note_tree() {
  local fw
  mapfile -t rules < <(taken_rules)
  default_class=$(taken_tc "qdisc add dev $wan handle 1:0 root" | sed -n 's/.* default //p')
  default_class=${default_class:+$((default_class))}
  while read -r fw; do
    has_filter[fw]=1
  done < <(taken_tc "filter add dev $wan" | sed 's/.* handle \(0x[0-9a-f]*\) fw .*/\1/')
}

# note_classes NAME: puts the packets that the tree's classes have sent into the array NAME, by class id.
note_classes() {
  local -n noted=$1
  local id packets
  while read -r id packets; do
    # shellcheck disable=SC2034 # the array has another name outside
    noted[16#$id]=$packets
  done < <(tc -s class show dev "$wan" |
    awk '/^class/ { id = $3 } /^ Sent/ && id ~ /^1:[0-9a-f]/ { print substr(id, 3), $4; id = "" }')
}

# Prints the packets that the policy's rules have counted, a line for each rule, in the order of `rules`.
rule_counters() {
  local chain
  for chain in "QOS_${wan}_AUTO" "QOS_$wan"; do
    { "$iptables" -t mangle -nvxL "$chain" 2>/dev/null || true; } | awk 'NR > 2 { print $1 }'
  done
}

# Without fw filters the classes would stand idle. Where the kernel refused all of them, the demo lets the firewall put
# packets into the classes of their marks.
add_stand_in() {
  local id
  if [ ${#class_before[@]} -eq 0 ] || [ ${#has_filter[@]} -gt 0 ]; then
    return
  fi
  if stand_in_filters -A; then
    stand_in=yes
    for id in "${!class_before[@]}"; do
      has_filter[id]=1
    done
    say "This kernel refused the fw filters. So that the classes can be seen at work all the same, the demo (not" \
      "the library) lets iptables put packets into the classes of their marks: -m mark --mark N -j CLASSIFY." ""
  else
    say "Without the fw filter all traffic is in the default class." ""
  fi
}

# stand_in_filters -A|-D: adds or deletes the firewall's rules that stand in for the fw filters.
stand_in_filters() {
  local action=$1 id
  for id in "${!class_before[@]}"; do
    "$iptables" -t mangle "$action" POSTROUTING -o "$wan" -m mark --mark "$id" \
      -j CLASSIFY --set-class "1:$(printf '%x' "$id")" 2>/dev/null || return 1
  done
}

# Sends every flow, and notes which rules must count it and which class it must reach. In the policies that come with
# the demo no rule that the kernel took may stay idle.
send_traffic() {
  local protocol source source_port port tos what matches i class
  local -a left_out=()
  printf '  %-5s %-15s %-8s %-20s %s\n' "" from "to port" what "class it belongs to"
  while IFS='|' read -r protocol source source_port port tos what matches; do
    if ! can_match "$matches"; then
      left_out+=("$matches")
      continue
    fi
    class=$default_class
    for i in "${!rules[@]}"; do
      if [[ ";$matches;" == *";${rules[i]%% -j *};"* ]]; then
        must_count[i]=1
        # The last rule that matches decides.
        if [[ ${rules[i]} == *'--set-mark '* ]]; then
          class=$((${rules[i]##*--set-mark }))
        fi
      fi
    done
    [ -z "$class" ] || must_reach[class]=1
    printf '  %-5s %-15s %-8s %-20s %s\n' "$protocol" "$source" "${port#0}" "$what" "${class:--}"
    send "$protocol" "$source" "$source_port" "$port" "$tos" || fail "$what could not be sent"
  done < <(flows)
  if [[ $policy == examples/policies/* ]]; then
    for i in "${!rules[@]}"; do
      [[ ";${left_out[*]};" == *"${rules[i]%% -j *}"* ]] || must_count[i]=1
    done
  fi
}

# can_match MATCHES: returns whether a flow with these matches can be sent now. Without connection marks those that need
# them cannot. Close to the end of a schedule, a flow might arrive when its rule no longer matches.
can_match() {
  if [[ $1 == *connmark* ]] && [ "$connections_marked" = no ]; then
    return 1
  fi
  if [[ $1 == *'--timestop 23:58' ]] && [[ $(date -u +%H:%M) > 23:56 ]]; then
    return 1
  fi
}

show_rule_counters() {
  local i note
  {
    printf '%8s %8s\n' before after
    for i in "${!rules[@]}"; do
      note=''
      [ -z "${must_count[i]:-}" ] || must_move "rule \"${rules[i]}\"" "${rules_before[i]:-0}" "${rules_after[i]:-0}"
      printf '%8s %8s  %-14s %s\n' "${rules_before[i]:-?}" "${rules_after[i]:-?}" "$note" "${rules[i]}"
    done
  } >table
  show <table
}

show_class_counters() {
  local id note
  {
    printf '%8s %8s\n' before after
    for id in "${!class_before[@]}"; do
      note=''
      if [ -n "${must_reach[id]:-}" ] && { [ -n "${has_filter[id]:-}" ] || [ "$id" = "$default_class" ]; }; then
        must_move "class $id" "${class_before[id]}" "${class_after[id]:-0}"
      fi
      printf '%8s %8s  %-14s class %s\n' "${class_before[id]}" "${class_after[id]:-?}" "$note" "$id"
    done
  } >table
  show <table
}
