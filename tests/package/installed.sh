#!/bin/sh
# installed.sh CMAKE BUILD SOURCE CC: installs the build to a folder of its own, then builds and runs a small C program
# against it twice, found through pkg-config and through CMake.
set -eu
cmake=$1 build=$2 source=$3 cc=$4

root=$PWD/installed
rm -rf "$root" && mkdir "$root"
"$cmake" --install "$build" --prefix "$root/usr" >/dev/null
libdir=$(dirname "$(find "$root" -name libtorvane.so)")

PKG_CONFIG_PATH=$libdir/pkgconfig
export PKG_CONFIG_PATH
# pkg-config quotes its words for a shell.
flags=$(pkg-config --cflags --libs torvane)
eval "set -- $flags"
"$cc" -std=c99 -Wall -Wextra -Werror -o "$root/by-pkg-config" "$source/consumer.c" "$@"
LD_LIBRARY_PATH=$libdir "$root/by-pkg-config"

"$cmake" -S "$source" -B "$root/by-cmake" -DCMAKE_PREFIX_PATH="$root/usr" -DCMAKE_C_COMPILER="$cc" >/dev/null
"$cmake" --build "$root/by-cmake" >/dev/null
"$root/by-cmake/consumer"
