// Names the numbers of rules in commands and reports: DSCP classes, TOS, helpers, TCP flags.
#include <string.h>

#include "iptables/iptables.h"
#include "torvane/map.h"
#include "torvane/rules.h"

using namespace torvane;

namespace torvane {

extern const txt_map_entry dscp_names[] = {
    {0, "CS0"},   {1, "CS1"},   {2, "CS2"},   {3, "CS3"},   {4, "CS4"},   {5, "CS5"},   {6, "CS6"},   {7, "CS7"},
    {8, "BE"},    {9, "AF11"},  {10, "AF12"}, {11, "AF13"}, {12, "AF21"}, {13, "AF22"}, {14, "AF23"}, {15, "AF31"},
    {16, "AF32"}, {17, "AF33"}, {18, "AF41"}, {19, "AF42"}, {20, "AF43"}, {21, "EF"},   unknown_row};

extern const txt_map_entry tos_names[] = {{16, "Minimize-Delay"},      {8, "Maximize-Throughput"},
                                          {4, "Maximize-Reliability"}, {2, "Minimize-Cost"},
                                          {0, "Normal-Service"},       unknown_row};

extern const txt_map_entry helper_names[] = {
    {QOS_ALG_SIP, "sip"}, {QOS_ALG_Q931, "Q.931"}, {QOS_ALG_FTP, "ftp"}, unknown_row};

void append_names(TextWriter &text, const txt_map_entry *names, unsigned count, uint32_t bits) {
  for (unsigned bit = 0; bit < count; bit++)
    if (has_bit(bits, bit))
      text.append("%s,", TxtMapById(names, bit));
}

} // namespace torvane

namespace {

constexpr txt_map_entry tcp_flag_names[] = {{QOS_TCP_SYN, "SYN"}, {QOS_TCP_ACK, "ACK"}, {QOS_TCP_FIN, "FIN"},
                                            {QOS_TCP_RST, "RST"}, {QOS_TCP_URG, "URG"}, {QOS_TCP_PSH, "PSH"},
                                            unknown_row};

} // namespace

extern "C" void tcp_flag_text(char out[32], uint8_t flags) {
  if (!out)
    return;
  memset(out, 0, flag_text_size);
  TextWriter text(out, flag_text_size);
  append_names(text, tcp_flag_names, 6, flags);
}
