# shellcheck shell=bash disable=SC2034,SC2154 # shared.sh declares what the parts share
# Provides the record of what the library's scripts run: tc, ifconfig and iptables get a recorder in front of them, and
# the record can be asked for the commands that the kernel took.

# Puts recorders of the three tools into bin.
record_tools() {
  local tool real
  find_iptables
  for tool in tc ifconfig iptables; do
    real=$(command -v "$tool")
    [ "$tool" != iptables ] || real=$iptables
    recorder "$tool" "$real" >"bin/$tool"
    chmod +x "bin/$tool"
  done
}

# Sets `iptables` to the program that this kernel answers to, because Debian has two of them, and sets `has_mangle`.
find_iptables() {
  local name
  for name in iptables iptables-nft iptables-legacy; do
    if iptables=$(command -v "$name") && "$iptables" -t mangle -nL >/dev/null 2>&1; then
      has_mangle=yes
      return
    fi
  done
  iptables=$(command -v iptables)
  has_mangle=no
}

# recorder NAME PROGRAM: prints a script that runs PROGRAM and adds what came of it to `commands`, separated by tabs:
# exit status, NAME, arguments, and the first line of its errors that is not chatter.
recorder() {
  cat <<END
#!/bin/sh
status=0
{ error=\$('$2' "\$@" 2>&1 >&3 3>&-) || status=\$?; } 3>&1
printf '%s\t%s\t%s\t%s\n' "\$status" $1 "\$*" "\$(printf '%s' "\$error" |
  sed -n '/^RED: set bandwidth/d; /./{p;q;}')" >>'$work/commands'
[ -z "\$error" ] || printf '%s\n' "\$error" >&2
exit "\$status"
END
}

# Prints the rules of the policy that the kernel took, a line each, in the order of their chains: first the automatic
# rules, then the others. A line is the command after the chain's name.
taken_rules() {
  local chain
  for chain in "QOS_${wan}_AUTO" "QOS_$wan"; do
    awk -F '\t' -v start="-t mangle -A $chain " '$1 == 0 && $2 == "iptables" && index($3, start) == 1 {
      print substr($3, length(start) + 1) }' commands
  done
}

# taken_tc START: prints the arguments of those calls of tc that the kernel took and that begin with START.
taken_tc() {
  awk -F '\t' -v start="$1" '$1 == 0 && $2 == "tc" && index($3, start) == 1 { print $3 }' commands
}
