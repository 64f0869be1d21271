# shellcheck shell=bash disable=SC2154 # shared.sh declares what the parts share, the main program sets root
# Provides the choice of the policy, its copy in the demo's folder, and the scene about a policy with mistakes.

# find_policy [POLICY]: sets `policy` and changes to the project's folder. A POLICY with a slash is a file of one's own;
# another one is a name in examples/policies.
find_policy() {
  local given=${1:-adsl}
  if [[ $given == */* ]]; then
    policy=$(readlink -f -- "$given") || policy=''
    policy=${policy#"$root/"}
  else
    policy=examples/policies/${given%.toml}.toml
  fi
  cd "$root" || exit
  if [ $# -gt 1 ] || [ ! -f "$policy" ]; then
    local known=(examples/policies/*.toml)
    known=("${known[@]##*/}")
    die "no policy $given; usage: ./demo [POLICY], where POLICY is one of ${known[*]%.toml}, or a file"
  fi
}

# Copies the policy into the demo's folder. A file outside the project becomes one of the examples there.
copy_policy() {
  local copy=$policy
  [[ $policy != /* ]] || copy=examples/${policy##*/}
  mkdir -p "$work/$(dirname "$copy")"
  cp "$policy" "$work/$copy"
  policy=$copy
}

# Shows that home_router reports each mistake of a policy with its line, and does not go on to start_qos.
show_mistakes() {
  heading "A policy with mistakes"
  sed -e 's/^interface = .*/interface = "wan0; reboot"/' -e 's/^link_rate = .*/link_rate = [0, 8000]/' \
    examples/policies/adsl.toml >broken.toml
  printf '\n[[rule]]\nindex = 99\nmark = 1234\ncolour = "red"\n' >>broken.toml
  say '$ home_router broken.toml'
  local status=0
  ./home_router broken.toml 2>mistakes.log || status=$?
  show <mistakes.log
  if [ "$status" -ne 1 ] || [ "$(count '^broken.toml:[0-9]+: ' <mistakes.log)" -ne 4 ]; then
    die "the mistakes were not all found"
  fi
  say "Ended with $status; nothing was applied."
}
