# shellcheck shell=bash disable=SC2154 # shared.sh declares what the parts share
# Provides the explanation of what the kernel and the tools refused. A refusal that has no explanation is a failure.

# Shows the refused commands by reason. The commands with which the script deletes what may not be there are left out.
show_refused() {
  local status tool arguments error reason
  local -A lines=() errors=()
  local reasons=() refused_before=no
  while IFS=$'\t' read -r status tool arguments error; do
    if [ "$status" -eq 0 ] || [[ $tool:$arguments =~ ^tc:qdisc\ del|^iptables:-t\ mangle\ -[DFX] ]]; then
      continue
    fi
    reason=$(reason_of "$tool" "$arguments" "$error" "$refused_before")
    [ "$tool" != tc ] || refused_before=yes
    if [ -z "$reason" ]; then
      reason="for a reason that the demo does not know"
      fail "refused, and should not be: $tool $arguments"
    fi
    [ -n "${lines[$reason]:-}" ] || reasons+=("$reason")
    lines[$reason]+="$tool $arguments"$'\n'
    errors[$reason]+="${error#Error: }"$'\n'
  done <commands
  if [ ${#reasons[@]} -eq 0 ]; then
    say "Nothing: the kernel took the whole script."
    return
  fi
  for reason in "${reasons[@]}"; do
    say "Refused: $reason."
    printf '%s' "${lines[$reason]}" | show
    printf '%s' "${errors[$reason]}" | sort -u | sed 's/^/    tool: /' | show
  done
}

# reason_of TOOL ARGUMENTS ERROR REFUSED_BEFORE: prints why the command was refused, as far as its error tells. It
# prints nothing when the command should have been accepted. REFUSED_BEFORE says whether (yes, no) tc has refused a
# command before.
reason_of() {
  local tool=$1 arguments=$2 error=$3 refused_before=$4
  case $tool:$error in
    tc:*'qdisc kind is unknown'* | tc:*'Unknown qdisc'*)
      say "this kernel has no such queueing discipline" ;;
    tc:*'classifier not found'*)
      say "this kernel has no fw filter, so that marks choose no class" ;;
    tc:*'Failed to find specified qdisc'* | tc:*"Parent Qdisc doesn't exist"* | tc:*'Invalid handle'* | \
      tc:*'RTNETLINK answers: No such file or directory'* | tc:*'RTNETLINK answers: Invalid argument'* | \
      tc:*'class not found'*)
      if [ "$refused_before" = yes ]; then
        say "it belongs to what was refused before"
      fi ;;
    iptables:*'"--days"'* | iptables:*'"--precedence"'* | iptables:*'"--set-precedence"'* | \
      iptables:*'"--set-vlan-'* | iptables:*'DSCP: bad value'*)
      say "the words of an older iptables, which today's does not know" ;;
    iptables:*"match \`domain'"* | iptables:*"match \`urlfilter'"* | \
      iptables:*"match \`VLAN'"* | iptables:*"Couldn't load target \`MKVLAN'"*)
      say "a match or target of the router's own firewall, which this iptables does not have" ;;
    iptables:*"Couldn't load"*) ;;
    iptables:*'missing kernel module'* | iptables:*'No chain/target/match by that name'* | \
      iptables:*'No such file or directory'* | iptables:*'not supported'* | iptables:*'Table does not exist'*)
      say "this kernel has no such match, target or table" ;;
    iptables:*)
      if [ "$has_mangle" = no ]; then
        say "this kernel has no mangle table"
      elif [[ $error == *'Invalid argument'* && $arguments == *'-m mac '* ]]; then
        say "only forwarded packets have a MAC address to match, and the chain is the router's own packets' too"
      fi ;;
  esac
}
