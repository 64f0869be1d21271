# shellcheck shell=bash disable=SC2154 # shared.sh declares what the parts share
# Provides what the library leaves after a start: its script, and its reports on the console. Both are shown and
# checked.

show_script() {
  show <"$start_script"
  if [ "$(count '^(tc|ifconfig|iptables) ' <"$start_script")" -eq "$(wc -l <commands)" ]; then
    pass
  else
    fail "the script was not run to its end"
  fi
}

show_reports() {
  heading "The reports of show_ifqos and show_rule on the console, without their trace headers"
  only_reports <console >reports
  show <reports
  if [ "$(count '^Interface: ' <reports)" -ne 1 ]; then
    fail "show_ifqos did not report"
  elif [ "$(count '^Qos Rule' <reports)" -ne "$(count '^rule ' <router.log)" ]; then
    fail "show_rule did not report every rule"
  else
    pass
  fi
}

# Prints the text of those traces that belong to the two reports, which their functions tell. A trace's colours and its
# header are left out, because the header is as long again as the text.
only_reports() {
  awk '/show_[a-z]+\(\)\]|draw_class\(\)\]/' | sed -e $'s/\e\\[[0-9;]*m//g' -e 's/^\[[^]]*()\]::://'
}
