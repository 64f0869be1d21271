#!/bin/sh
# exports.sh NM LIBRARY MAP INCLUDE: the library's dynamic symbols are exactly those of the export list, and the headers
# in INCLUDE/torvane declare each of them.
set -eu
nm=$1 library=$2 map=$3 include=$4

listed=$(sed -n 's/^    \([A-Za-z_0-9]*\);$/\1/p' "$map" | sort)
exported=$("$nm" -D --defined-only "$library" | awk '{ print $NF }' | sort)
if [ "$listed" != "$exported" ]; then
  echo "export list (<) and dynamic symbols (>) differ:"
  printf '%s\n' "$listed" >listed.txt
  printf '%s\n' "$exported" | diff listed.txt - || true
  exit 1
fi
for name in $listed; do
  grep -qw -- "$name" "$include"/torvane/*.h || { echo "$name is exported and not declared"; exit 1; }
done
printf '%s\n' "$listed" | wc -l | xargs echo "symbols exported and declared:"
