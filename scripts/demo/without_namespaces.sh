# shellcheck shell=bash disable=SC2154 # shared.sh declares what the parts share
# Provides the demo for a machine that does not allow namespaces: the library's scripts and reports are shown, and
# nothing is applied.

without_namespaces() {
  local tool script
  heading "No network of its own"
  say "This machine does not let the demo have namespaces with a network of its own:"
  sort -u probe.log | show
  say "So $policy is built into a tree, and its scripts and reports are shown, but nothing" \
    "is applied: the scripts run with a tc, iptables and ifconfig that do nothing, and the console is a file."

  for tool in tc iptables ifconfig; do
    printf '#!/bin/sh\necho %s >>"%s/commands"\n' "$tool" "$work" >"bin/$tool"
    chmod +x "bin/$tool"
  done
  : >console
  # The library's scripts have fixed names, so whatever stood there is put aside, and put back at the end.
  for script in "$start_script" "$stop_script"; do
    if [ -e "$script" ]; then
      [ -O "$script" ] || die "$script belongs to somebody else and is in the way"
      mv "$script" "before.${script##*/}"
    fi
  done
  trap 'end_helpers; put_scripts_back; rm -rf "$work"' EXIT

  start_router LD_PRELOAD="$work/console_to_file.so" DEMO_CONSOLE="$work/console"
  heading "The script ($start_script)"
  show_script
  show_reports
  stop_router
  heading "The script that takes it away ($stop_script)"
  show <"$stop_script"
  heading "Done"
  conclude "Built, shown and discarded; nothing of this machine was changed. For the rest of the demo run it as root," \
    "or where users may make namespaces."
}

put_scripts_back() {
  local script
  for script in "$start_script" "$stop_script"; do
    rm -f "$script"
    if [ -e "$work/before.${script##*/}" ]; then
      mv "$work/before.${script##*/}" "$script"
    fi
  done
}
