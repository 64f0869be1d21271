# shellcheck shell=sh disable=SC2154,SC2034 # project and status are those of tests.sh
# Sourced in the guest by tests.sh: runs the program that uses every module, once with each C library, and checks that
# it prints what every_module.txt says.
echo "== musl"
unset LD_LIBRARY_PATH
here=$project/tests/router
for build in mips musl; do
  if "$project/out/$build/tests/router/every_module" >/tmp/every_module.$build 2>&1 &&
    cmp -s /tmp/every_module.$build "$here/every_module.txt"; then
    echo "check: ok       every module, built in out/$build"
  else
    echo "check: FAILED   every module, built in out/$build"
    diff "$here/every_module.txt" /tmp/every_module.$build
    status=1
  fi
done
