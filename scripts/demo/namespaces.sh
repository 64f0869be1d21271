# shellcheck shell=bash disable=SC2154 # shared.sh declares what the parts share
# Provides the private machine inside the namespaces: places to write to, a LAN host and a WAN host, and the cables
# between them and the router.

# Finds out whether these namespaces allow what the demo needs. It fails where they do not.
probe() {
  cd "$work" || exit
  private_places
  cable wan0
}

# Makes /run private for the lock of iptables and /var/tmp for the library's scripts, and makes a file the console.
private_places() {
  mount -t tmpfs tmpfs /run
  mount -t tmpfs tmpfs /var/tmp
  : >console
  if [ -e /dev/console ]; then
    mount --bind console /dev/console
    return
  fi
  # A container may have no console to mount over. It gets another /dev that has one.
  local device
  mkdir -p dev
  mount -t tmpfs tmpfs dev
  for device in null zero full random urandom tty; do
    : >"dev/$device"
    mount --bind "/dev/$device" "dev/$device" || rm "dev/$device"
  done
  ln -s /proc/self/fd dev/fd
  : >dev/console
  mount --bind console dev/console
  mount --rbind dev /dev
}

in_lan() {
  nsenter --net="$work/lan.net" -- "$@"
}

in_wan() {
  nsenter --net="$work/wan.net" -- "$@"
}

# cable WAN: connects LAN host, router and WAN host in a row; WAN is the router's interface to the WAN host. The LAN
# host stands for everybody at home, so it has everybody's address.
cable() {
  local lan=lan0 wan=$1 host
  [ "$wan" != lan0 ] || lan=lan1
  : >lan.net
  : >wan.net
  unshare --net="$work/lan.net" true
  unshare --net="$work/wan.net" true
  ip link set lo up
  ip link add name "$lan" type veth peer name eth0 netns "$work/lan.net"
  ip link add name "$wan" type veth peer name eth0 netns "$work/wan.net"
  no_ipv6
  in_lan "$work/demo" --no-ipv6
  in_wan "$work/demo" --no-ipv6
  ip address add "$lan_address/24" dev "$lan"
  ip address add "$wan_address/24" dev "$wan"
  ip link set "$lan" up
  ip link set "$wan" up
  echo 1 >/proc/sys/net/ipv4/ip_forward

  for host in 10 20 30 40 105 205; do
    in_lan ip address add "192.168.1.$host/24" dev eth0
  done
  in_lan ip link set eth0 up
  in_lan ip route add default via "$lan_address"
  in_wan ip address add "$wan_host/24" dev eth0
  in_wan ip link set eth0 up
  in_wan ip route add default via "$wan_address"
}

# Switches IPv6 off in this network namespace, because neighbour discovery would be counted with the traffic.
no_ipv6() {
  if [ -w /proc/sys/net/ipv6/conf/all/disable_ipv6 ]; then
    echo 1 >/proc/sys/net/ipv6/conf/all/disable_ipv6
  fi
}
