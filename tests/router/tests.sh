# shellcheck shell=sh disable=SC2154,SC2012 # project is set by init; the names are CMake's
# Runs in the guest: every test program, natively, then what was built against the small C library.
# TESTS are those wanted (NAME or NAME:FILTER), none meaning all; $project is the project's folder.
programs=$project/out/mips/tests
export TORVANE_EXAMPLES="$project/out/mips/examples" TORVANE_ROUTER=1
status=0

# run NAME FILTER
run() {
  echo "== $1"
  program=$programs/$1_test
  [ "$1" = router ] && program=$programs/router/router_test
  "$program" --gtest_color=no --gtest_filter="${2:-*}" </dev/null || status=1
}

for test in ${TESTS:-$(ls "$programs" | sed -n 's/_test$//p') router musl}; do
  name=${test%%:*}
  filter=${test#"$name"}
  case $name in
    musl) . "$project/tests/router/musl.sh" ;;
    *) run "$name" "${filter#:}" ;;
  esac
done
exit $status
