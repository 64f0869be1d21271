# shellcheck shell=bash
# Provides the demo's checks: they are counted as they pass or fail, and the last lines of the demo say what came of
# them.

passed=0
failures=()

pass() {
  passed=$((passed + 1))
}

# fail TEXT: TEXT is printed at the end of the demo.
fail() {
  failures+=("$1")
}

# must_move NAME BEFORE AFTER: checks that the counter NAME has moved, and sets the caller's `note` to what it did.
must_move() {
  # shellcheck disable=SC2034 # the caller has it
  if [ "$3" -gt "$2" ]; then
    pass
    note='moved'
  else
    note='DID NOT MOVE'
    fail "$1 did not count the traffic meant for it"
  fi
}

# conclude LINE...: prints the lines when every check has passed. Otherwise it prints the failures and ends the demo
# with 1.
conclude() {
  if [ ${#failures[@]} -gt 0 ]; then
    printf 'FAILED: %s\n' "${failures[@]}"
    exit 1
  fi
  say "$@"
}
