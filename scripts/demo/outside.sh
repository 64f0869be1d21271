# shellcheck shell=bash disable=SC2154 # shared.sh declares what the parts share
# Provides the outer half of the demo, which runs on the machine itself: it builds, copies what runs, finds out which
# namespaces the machine allows, and runs the inner half there.

# outside [POLICY]: the whole demo, as a user starts it.
outside() {
  find_policy "$@"
  # shellcheck source=scripts/packages.sh
  . scripts/packages.sh
  require_packages g++ cmake make iproute2 iptables net-tools socat iputils-ping libtomlplusplus-dev
  build
  LD_LIBRARY_PATH=out/demo out/demo/examples/home_router --check "$policy" ||
    die "the policy has mistakes: nothing is applied"

  # Everything that runs is copied out of the tree, because the namespaces may have something else where the tree is.
  work=$(mktemp -d /tmp/home-router.XXXXXX)
  trap 'rm -rf "$work"' EXIT
  copy_demo out/demo "$work"
  copy_policy
  cd "$work" || exit
  export LD_LIBRARY_PATH=$work

  show_mistakes
  go_inside
  without_namespaces
}

# Runs the inner half in the first kind of namespaces that works here, and ends the demo with its status. Returns when
# none works; probe.log then says why.
go_inside() {
  local way inner='' status=0
  while read -r way; do
    # shellcheck disable=SC2086 # a way is several options
    if unshare $way ./demo --probe "$work" >>probe.log 2>&1 </dev/null; then
      trap 'end_inside "$way" "$inner"; exit 130' INT TERM
      # shellcheck disable=SC2086 # a way is several options
      unshare $way ./demo --inside "$work" "$policy" </dev/null &
      inner=$!
      wait "$inner" || status=$?
      exit "$status"
    fi
  done < <(ways_in)
}

# Prints the options of unshare for each way into private namespaces, best first: as root, and as a user who is root in
# there. Each is tried again without a process namespace, for machines where /proc cannot be mounted anew.
ways_in() {
  if [ "$(id -u)" -eq 0 ]; then
    say "--mount --net --ipc --pid --fork --kill-child --mount-proc"
  fi
  say "--user --map-root-user --mount --net --ipc --pid --fork --kill-child --mount-proc"
  if [ "$(id -u)" -eq 0 ]; then
    say "--mount --net --ipc"
  fi
  say "--user --map-root-user --mount --net --ipc"
}

# end_inside WAY PROCESS: ends the inner half when the outer half is interrupted; PROCESS runs it. With a process
# namespace it is enough to kill its first process, because the kernel then ends all others. Without one the inner half
# has to end its helpers itself, which it does when the command that it waits for is done.
end_inside() {
  local inner=$2 i
  if [[ $1 == *--kill-child* ]]; then
    { kill -KILL "$inner" && wait "$inner"; } 2>/dev/null || true
    return
  fi
  kill -TERM "$inner" 2>/dev/null || true
  for ((i = 0; i < 200; i++)); do
    kill -0 "$inner" 2>/dev/null || return 0
    sleep 0.1
  done
}
