#!/bin/sh
# plain_build.sh CMAKE SOURCE: without a word of configuration the project builds the library into the build folder's
# root, and nothing that needs more than a compiler.
set -eu
cmake=$1 source=$2

rm -rf plain
"$cmake" -S "$source" -B plain >/dev/null
"$cmake" --build plain >/dev/null
test -f plain/libtorvane.so
test ! -e plain/tests
