# shellcheck shell=sh
# Provides copy_demo, which copies everything that the demo runs into one folder. It is written for any shell, because
# the router of tests/router copies the demo as well and has no other shell at that moment.

# copy_demo BUILD WORK: copies the demo, its policies and what it needs of the build folder BUILD into the folder WORK.
# The current folder must be the project's.
copy_demo() {
  mkdir -p "$2/bin" "$2/examples" "$2/scripts"
  cp demo "$1/libtorvane.so" "$1/examples/home_router" "$1/examples/console_to_file.so" "$2"
  cp -r examples/policies "$2/examples"
  cp -r scripts/demo "$2/scripts"
}
