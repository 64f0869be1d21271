# shellcheck shell=bash
# Provides build, which builds the library and the home router in out/demo.

build() {
  local log=out/demo.log
  { mkdir -p out && touch "$log"; } 2>/dev/null || die "cannot write to $PWD/out"
  # A tree that was copied or moved brings along a configuration that names its old place.
  local cache=out/demo/CMakeCache.txt
  if [ -e $cache ] && ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$(pwd -P)" $cache; then
    rm -rf out/demo
  fi
  say "Building in out/demo ..."
  cmake -S . -B out/demo -DTORVANE_EXAMPLES=ON >"$log" 2>&1 || { cat "$log"; die "cmake could not configure"; }
  cmake --build out/demo --target home_router console_to_file -j "$(nproc)" || die "the build failed"
}
