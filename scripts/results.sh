# shellcheck shell=bash
# Sourced by commands that build and run tests: provides lines that begin with the time, the build of a preset, and the
# last line, which counts the tests.

began=$SECONDS

# step TEXT...: prints the text after the seconds since the start.
step() {
  printf '%4ds  %s\n' $((SECONDS - began)) "$*"
}

# build_preset PRESET LOG: configures and builds the preset, and writes what that prints to LOG. Returns whether both
# succeeded.
build_preset() {
  { cmake --preset "$1" && cmake --build --preset "$1"; } >"$2" 2>&1 </dev/null
}

# show_build_errors LOG: prints what the compiler complained about, or the end of the log if that is not found.
show_build_errors() {
  grep -E -A5 'error|FAILED|undefined reference' "$1" | head -n 60 || tail -n 30 "$1"
}

# print_counts PASSED FAILED SKIPPED: prints the line that counts the tests.
print_counts() {
  if (($3)); then
    echo "$1 passed, $2 failed, $3 skipped"
  else
    echo "$1 passed, $2 failed"
  fi
}
