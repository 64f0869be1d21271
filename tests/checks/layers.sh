#!/bin/bash
# layers.sh PROJECT: no folder of src includes a folder above it, and everything that lists the modules lists them in one
# order: that of the library's sources in CMakeLists.txt, which is the order of their dependencies.
#
# The public headers count too: a source that includes <torvane/X.h> depends on the folder that provides that service.
set -u
cd "$1" || exit 2
failures=0

fail() {
  echo "$*"
  failures=$((failures + 1))
}

# The folder of src that provides the service of a public header.
folder_of() {
  case $1 in
    list | map) echo list ;;
    text) echo string ;;
    process) echo misc ;;
    trace | event_log) echo log ;;
    address | interface | socket | select | monitor | ipv6) echo network ;;
    memory) echo mem ;;
    flash | disk | cpu | words) echo sysinfo ;;
    cgi_*) echo cgi ;;
    xml | xml_lookup) echo xml ;;
    qos | qos_records) echo qos ;;
    rules) echo iptables ;;
    *) echo "$1" ;;
  esac
}

# What may include a public header above it, and why.
is_meant() {
  case "$1 $2" in
    "src/base/records.h list" | "src/base/map_table.h map") ;; # their records are what base walks and ends
    "src/base/trace.h trace" | "src/base/trace.cpp trace") ;;   # base writes the header that programs write too
    "src/base/lock.h ipc" | "src/base/lock.cpp ipc") ;;         # base takes the semaphore that programs take too
    "src/ipc/quorra_ipc.cpp trace") ;;                          # its traces show the thread
    "src/qos/quorra_qos_script.cpp rules") ;;                   # a start script ends with the rules
    *) return 1 ;;
  esac
}

folders=$(sed -n 's|^  src/\([a-z]*\)/.*|\1|p' CMakeLists.txt | uniq)
declare -A rank=()
n=0
for folder in $folders; do
  [ -z "${rank[$folder]:-}" ] || fail "CMakeLists.txt: src/$folder stands in two places"
  rank[$folder]=$((++n))
done
[ "${rank[base]:-0}" = 1 ] || fail "CMakeLists.txt: src/base is not the first folder"

for source in src/*/*; do
  folder=${source#src/} folder=${folder%%/*}
  if [ -z "${rank[$folder]:-}" ]; then
    fail "$source: its folder is not in CMakeLists.txt"
    continue
  fi
  while read -r included; do
    if [[ $included == torvane.h ]]; then
      fail "$source: includes every service"
    elif [[ $included == torvane/* ]]; then
      service=${included#torvane/} service=${service%.h}
      provider=$(folder_of "$service")
      is_meant "$source" "$service" || ((${rank[$provider]:-99} <= ${rank[$folder]})) ||
        fail "$source: <$included> is the interface of src/$provider, which is above it"
    else
      provider=${included%%/*}
      ((${rank[$provider]:-99} <= ${rank[$folder]})) || fail "$source: includes $included, which is above it"
    fi
  done < <(sed -n 's/^#include "\([^"]*\)".*/\1/p' "$source")
done

headers_to_folders() {
  local header
  while read -r header; do
    folder_of "$header"
  done
}

# same_order FILE EXPECTED LISTED...: compares the folders that FILE lists with those of CMakeLists.txt.
same_order() {
  local file=$1 expected=$2 listed
  shift 2
  listed=$(printf '%s\n' "$@" | uniq)
  [ "$listed" = "$expected" ] || fail "$file: its order of modules is not that of CMakeLists.txt:" "$@"
}

modules=$(printf '%s\n' "$folders" | sed 1d)
# shellcheck disable=SC2046,SC2016 # folders have no blanks in their names, and backquotes are those of Markdown
{
  same_order include/torvane.h "$modules" \
    $(sed -n 's|^#include "torvane/\([a-z0-9_]*\)\.h".*|\1|p' include/torvane.h | headers_to_folders)
  same_order cmake/torvane.map "$modules" \
    $(sed -n 's|^    /\* torvane/\([a-z0-9_]*\)\.h \*/|\1|p' cmake/torvane.map | headers_to_folders)
  # A test program that belongs to no module may stand anywhere.
  same_order tests/CMakeLists.txt "$modules" \
    $(sed -n 's/^torvane_test(\([a-z]*\))/\1/p' tests/CMakeLists.txt | grep -xF "$modules")
  same_order README.md "$folders" $(sed -n 's/^| `src\/\([a-z]*\)`.*/\1/p' README.md)
}

if ((failures == 0)); then
  echo "$n folders, each built on those before it"
else
  exit 1
fi
