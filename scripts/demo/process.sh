# shellcheck shell=bash disable=SC2154 # shared.sh declares what the parts share
# Provides the start and the stop of home_router, and the end of every process that the demo has in the background.

# The processes to end with the demo: home_router, and what parts add to them.
helpers=()
# The process of home_router.
router=''

# start_router VARIABLE=VALUE...: starts home_router with the policy, with the tools of bin first in its path, and waits
# until the policy is applied. The variables are added to its environment.
start_router() {
  : >commands
  : >router.log
  : >tools.log
  env PATH="$work/bin:$PATH" "$@" ./home_router "$policy" >router.log 2>tools.log &
  router=$!
  helpers+=("$router")
  wait_until_running
}

wait_until_running() {
  local i
  for ((i = 0; i < 200; i++)); do
    if grep -q '^home_router: running' router.log; then
      return
    fi
    kill -0 "$router" 2>/dev/null || break
    sleep 0.1
  done
  cat router.log tools.log
  die "home_router did not start"
}

stop_router() {
  local i status=0
  kill -TERM "$router"
  for ((i = 0; i < 100; i++)); do
    kill -0 "$router" 2>/dev/null || break
    sleep 0.1
  done
  kill -KILL "$router" 2>/dev/null && die "home_router did not stop within ten seconds"
  wait "$router" || status=$?
  [ "$status" -eq 0 ] || die "home_router ended with $status"
}

end_helpers() {
  local helper
  for helper in "${helpers[@]}"; do
    kill "$helper" 2>/dev/null || true
  done
}
