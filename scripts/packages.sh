# shellcheck shell=bash
# Sourced by the commands of the project that need Debian packages: makes sure that the packages are there.

# require_packages PACKAGE...: installs the packages that are missing. If that is impossible, it says which they are and
# ends the program with 2.
require_packages() {
  local missing=() as_root=() package log
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
  done
  ((${#missing[@]})) || return 0

  local wanted="missing: ${missing[*]}; install with: apt-get update && apt-get install ${missing[*]}"
  if ((EUID != 0)); then
    # With a terminal sudo may ask for a password; without one it must not need any.
    as_root=(sudo)
    [ -t 0 ] || as_root=(sudo -n)
    "${as_root[@]}" true 2>/dev/null || { echo "$wanted" >&2 && exit 2; }
  fi
  echo "Installing ${#missing[@]} packages, a minute or two: ${missing[*]}"
  log=$(mktemp)
  if ! { "${as_root[@]}" apt-get update && "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1 </dev/null; then
    grep -E '^E: ' "$log" >&2 || tail -n 3 "$log" >&2
    rm -f "$log"
    echo "$wanted" >&2
    exit 2
  fi
  rm -f "$log"
}
