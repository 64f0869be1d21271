#!/bin/sh
# plain_build.sh CMAKE SOURCE READELF NM: without a word of configuration the project builds the library into the build
# folder's root, and nothing that needs more than a compiler; without optimisation the library needs no more than with.
set -eu
cmake=$1 source=$2 readelf=$3 nm=$4

rm -rf plain plain-debug
"$cmake" -S "$source" -B plain >/dev/null
"$cmake" --build plain >/dev/null
test -f plain/libtorvane.so
test ! -e plain/tests

"$cmake" -S "$source" -B plain-debug -DCMAKE_BUILD_TYPE=Debug >/dev/null
"$cmake" --build plain-debug >/dev/null
"$source/tests/checks/dependencies.sh" "$readelf" "$nm" plain-debug/libtorvane.so
