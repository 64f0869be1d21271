#!/bin/sh
# bandwidth.sh FIGURES draws what the classes of a policy sent over time, as SVG on standard output. FIGURES is a file
# that the router test leaves. It has a heading "seconds,CLASS,...", and then a line for each sample: the time, and for
# each class what it sent in kbit/s.
set -eu
awk -F, '
function x(seconds) { return left + seconds / last_second * width }
function y(kbit) { return top + height - kbit / most * height }
NR == 1 { for (i = 2; i <= NF; i++) name[i] = $i; classes = NF; next }
{ second[NR - 1] = $1; for (i = 2; i <= NF; i++) { kbit[NR - 1, i] = $i; if ($i > most) most = $i } samples = NR - 1 }
END {
  left = 64; top = 24; width = 720; height = 260
  most = (int(most / 500) + 1) * 500
  last_second = second[samples]
  split("- #c0392b #2471a3 #7d8a35", colour, " ")
  printf "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %d %d\" font-family=\"sans-serif\" font-size=\"12\">\n",
    left + width + 24, top + height + 64
  printf "<rect width=\"100%%\" height=\"100%%\" fill=\"white\"/>\n"
  for (k = 0; k <= most; k += 500) {
    printf "<path d=\"M%d %.1fh%d\" stroke=\"#ddd\"/>\n", left, y(k), width
    printf "<text x=\"%d\" y=\"%.1f\" text-anchor=\"end\">%d</text>\n", left - 6, y(k) + 4, k
  }
  for (s = 0; s <= last_second; s += 5)
    printf "<text x=\"%.1f\" y=\"%d\" text-anchor=\"middle\">%d</text>\n", x(s), top + height + 18, s
  printf "<text x=\"%d\" y=\"%d\">kbit/s</text>\n", 8, 14
  printf "<text x=\"%d\" y=\"%d\" text-anchor=\"end\">seconds</text>\n", left + width, top + height + 34
  for (i = 2; i <= classes; i++) {
    printf "<path fill=\"none\" stroke=\"%s\" stroke-width=\"2\" d=\"", colour[i]
    for (n = 1; n <= samples; n++) printf "%s%.1f %.1f", n == 1 ? "M" : "L", x(second[n]), y(kbit[n, i])
    printf "\"/>\n"
    at = left + (i - 2) * 120
    printf "<path d=\"M%d %dh20\" stroke=\"%s\" stroke-width=\"2\"/>", at, top + height + 50, colour[i]
    printf "<text x=\"%d\" y=\"%d\">%s</text>\n", at + 26, top + height + 54, name[i]
  }
  print "</svg>"
}' "$1"
