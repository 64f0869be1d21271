# shellcheck shell=bash
# Provides the demo's output: headings, lines, indented text, and the message with which the demo gives up.

bold='' plain=''
if [ -t 1 ]; then
  bold=$'\e[1m' plain=$'\e[0m'
fi

heading() {
  printf '\n%s== %s%s\n\n' "$bold" "$1" "$plain"
}

say() {
  printf '%s\n' "$@"
}

die() {
  printf 'demo: %s\n' "$1" >&2
  exit 1
}

# Prints standard input indented and wrapped to 118 columns at blanks.
show() {
  awk '{
    indent = "  "
    while (length(indent $0) > 118) {
      cut = 118 - length(indent)
      while (cut > 40 && substr($0, cut, 1) != " ") cut--
      print indent substr($0, 1, cut)
      $0 = substr($0, cut + 1)
      indent = "        "
    }
    print indent $0
  }'
}

# Prints how many lines of standard input match the expression $1.
count() {
  grep -cE "$1" || true
}
