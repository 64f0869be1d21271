# shellcheck shell=sh disable=SC2154 # project is set by init
# Runs test programs in the guest, as native code, and the checks of the small C library. TESTS says which: each word is
# NAME or NAME:FILTER. $project is the project's folder.
programs=$project/out/mips/tests
status=0

# Programs are copied into the guest's own memory before they run. Pages that are fetched from another machine in the
# middle of a test come late, or not at all when a signal comes first.
mkdir /tmp/examples
cp "$project/out/mips/libtorvane.so" /tmp/
export LD_LIBRARY_PATH=/tmp TORVANE_EXAMPLES=/tmp/examples TORVANE_ROUTER=1

# run NAME FILTER: runs the tests of the program NAME that match FILTER, or all if it is empty.
run() {
  echo "== $1"
  program=$programs/$1_test
  [ "$1" = router ] && program=$project/out/mips/tests/router/router_test
  [ "$1" = examples ] && find "$project/out/mips/examples" -maxdepth 1 -type f -perm -1 -exec cp {} /tmp/examples/ \;
  cp "$program" /tmp/program
  /tmp/program --gtest_color=no --gtest_filter="${2:-*}" </dev/null || status=1
}

for test in $TESTS; do
  name=${test%%:*}
  filter=${test#"$name"}
  case $name in
    musl) . "$project/tests/router/musl.sh" ;;
    *) run "$name" "${filter#:}" ;;
  esac
done
exit $status
