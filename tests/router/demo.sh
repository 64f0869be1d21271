# shellcheck shell=sh disable=SC2154 # project is set by init
# Runs in the guest: the inner half of the project's demo, with the policies of TESTS (adsl when there is none).
ln -s /demo/bash /bin/bash
work=/tmp/demo
mkdir -p $work/bin $work/examples/policies
cp "$project/demo" "$project/out/mips/libtorvane.so" "$project/out/mips/examples/home_router" \
  "$project/out/mips/examples/console_to_file.so" $work
cp "$project"/examples/policies/*.toml $work/examples/policies
export LD_LIBRARY_PATH=$work
status=0
for policy in ${TESTS:-adsl}; do
  bash $work/demo --inside $work "examples/policies/$policy.toml" || status=1
done
exit $status
