# shellcheck shell=sh disable=SC2154 # project is set by init
# Runs the inner half of the project's demo in the guest, once for each policy that TESTS names, or for adsl.
ln -s /demo/bash /bin/bash
work=/tmp/demo
cd "$project" || exit 1
# shellcheck source=scripts/demo/copy.sh
. scripts/demo/copy.sh
copy_demo out/mips $work
export LD_LIBRARY_PATH=$work
status=0
for policy in ${TESTS:-adsl}; do
  bash $work/demo --inside $work "examples/policies/$policy.toml" || status=1
done
exit $status
