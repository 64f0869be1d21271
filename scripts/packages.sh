# shellcheck shell=bash
# Sourced by the commands in the project's root: makes sure that Debian packages are there.

# require_packages PACKAGE...: installs what is missing; where it may not, says so in one line and ends the program.
require_packages() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
  done
  ((${#missing[@]})) || return 0

  local as_root=()
  if ((EUID != 0)); then
    if ! sudo -n true 2>/dev/null; then
      echo "Missing packages: ${missing[*]}. Install them as root: apt-get update && apt-get install ${missing[*]}" >&2
      exit 2
    fi
    as_root=(sudo)
  fi
  echo "Installing: ${missing[*]}"
  local log
  log=$(mktemp)
  if ! { "${as_root[@]}" apt-get update && "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1 </dev/null; then
    echo "Could not install ${missing[*]}:" >&2
    tail -n 5 "$log" >&2
    rm -f "$log"
    exit 2
  fi
  rm -f "$log"
}
