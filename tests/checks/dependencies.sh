#!/bin/sh
# dependencies.sh READELF NM LIBRARY: the library needs libc (and, on some systems, the loader) and nothing else, is
# named as programs expect, and runs no code of its own when it is loaded.
set -eu
readelf=$1 nm=$2 library=$3

dynamic=$("$readelf" -d "$library")
needed=$(printf '%s\n' "$dynamic" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | grep -v '^ld[-.]' | tr '\n' ' ')
case $needed in
  "libc.so.6 " | "libc.so " | "libc.so.0 ") ;;
  *) echo "needs: $needed"; exit 1 ;;
esac
printf '%s\n' "$dynamic" | grep -q 'SONAME.*\[libtorvane\.so\]' || { echo "wrong SONAME"; exit 1; }

symbols=$("$nm" "$library")
[ -n "$symbols" ] || { echo "stripped: its initialisers cannot be seen"; exit 1; }
if printf '%s\n' "$symbols" | grep -E '_GLOBAL__sub_I|__cxa_guard|_Zn[wa]|_Zd[la]Pv'; then
  echo "dynamic initialisers, guarded statics or operator new"
  exit 1
fi
echo "needs: $needed"
