# shellcheck shell=bash disable=SC2154 # shared.sh declares what the parts share
# Provides the traffic: the flows of the people at home, the programs that send and receive them, and the connection
# marks that a router's firewall would give them.

readonly tcp_ports=(22 80 443 50000) datagrams=5

# Prints a line for each flow, its columns separated by bars: protocol, source address, source port (0: any),
# destination port, TOS byte, what it is, and the matches that it belongs to. The matches are separated by semicolons
# and written as the library writes them for iptables. A rule of the policy with exactly one of these matches must count
# the flow. In a policy without such a rule the other rules or the default class decide where the flow goes.
flows() {
  cat <<'END'
udp|192.168.1.10|0|5060|0x00|call set-up|-p udp --dport 5060:5060
udp|192.168.1.10|0|7078|0xb8|a call (EF)|-m dscp --dscp-class EF
udp|192.168.1.20|0|3074|0x10|a game|-p udp -m dscp --dscp 0x4
udp|192.168.1.105|0|53|0x00|name look-ups|-p udp --dport 53:53
icmp|192.168.1.105|0|0|0x00|pings|-p icmp
tcp|192.168.1.105|0|22|0x00|a remote shell|-p tcp --dport 22:23
tcp|192.168.1.105|0|80|0x00|a web page|-p tcp --dport 80:80;-p tcp -m length --length 40:100;-p tcp --tcp-flag SYN,ACK, SYN,
tcp|192.168.1.105|0|443|0x00|an encrypted page|-p tcp --dport 443:443
udp|192.168.1.105|0|443|0x00|the same over UDP|-p udp --dport 443:443
tcp|192.168.1.105|6881|50000|0x00|file sharing|-p tcp --sport 6881:6889
udp|192.168.1.105|6882|50001|0x00|the same over UDP|-p udp --sport 6881:6889
udp|192.168.1.40|0|873|0x00|the nightly copy|-m iprange --src-range 192.168.1.40-192.168.1.40 --dst-range 203.0.113.0-203.0.113.127
udp|192.168.1.205|0|8000|0x00|a guest|-m iprange --src-range 192.168.1.200-192.168.1.220
udp|192.168.1.30|0|8001|0x00|the television|-m iprange --src-range 192.168.1.30-192.168.1.30 -m time --timestart 0:00 --timestop 23:58
udp|192.168.1.105|0|7001|0x00|connection mark 100|-m connmark ! --mark 0;-m connmark --mark 100
udp|192.168.1.105|0|7002|0x00|connection mark 200|-m connmark ! --mark 0;-m connmark --mark 200
udp|192.168.1.105|0|7003|0x00|connection mark 300|-m connmark ! --mark 0;-m connmark --mark 300
udp|192.168.1.105|0|7004|0x00|connection mark 400|-m connmark ! --mark 0;-m connmark --mark 400
udp|192.168.1.105|0|7005|0x00|connection mark 500|-m connmark ! --mark 0;-m connmark --mark 500
udp|192.168.1.105|0|7006|0x00|connection mark 600|-m connmark ! --mark 0;-m connmark --mark 600
udp|192.168.1.105|0|7007|0x00|connection mark 700|-m connmark ! --mark 0;-m connmark --mark 700
udp|192.168.1.105|0|7008|0x00|connection mark 800|-m connmark ! --mark 0;-m connmark --mark 800
udp|192.168.1.105|0|9000|0x00|nothing special|
END
}

# Marks connections as a router's own firewall does when it has recognised them. The automatic rules of a policy use
# these marks.
mark_connections() {
  local k
  for k in 1 2 3 4 5 6 7 8; do
    "$iptables" -t mangle -A PREROUTING -p udp --dport $((7000 + k)) -j CONNMARK --set-mark $((100 * k)) 2>/dev/null ||
      return 1
  done
}

# Starts the servers on the WAN host that the TCP flows need.
listen() {
  local port
  for port in "${tcp_ports[@]}"; do
    # A function in the background would be a shell, and socat would outlive it. nsenter becomes socat.
    nsenter --net="$work/wan.net" -- socat -u "TCP4-LISTEN:$port,reuseaddr,fork" OPEN:/dev/null >/dev/null 2>&1 &
    helpers+=($!)
  done
}

# send PROTOCOL SOURCE SOURCE_PORT PORT TOS: sends one flow from the LAN host to the WAN host.
send() {
  local protocol=$1 source=$2 source_port=$3 port=$4 tos=$5 options i
  options="bind=$source,tos=$tos"
  [ "$source_port" -eq 0 ] || options="bind=$source:$source_port,reuseaddr,tos=$tos"
  case $protocol in
    udp)
      for ((i = 0; i < datagrams; i++)); do
        head -c 200 /dev/zero | in_lan timeout 5 socat -u STDIN "UDP4-SENDTO:$wan_host:$port,$options"
      done ;;
    tcp)
      head -c 12000 /dev/zero |
        in_lan timeout 10 socat -u STDIN "TCP4:$wan_host:$port,$options,retry=20,interval=0.1" ;;
    icmp)
      in_lan ping -q -c "$datagrams" -i 0.2 -W 2 -I "$source" "$wan_host" >/dev/null ;;
  esac
}
