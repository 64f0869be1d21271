/* This program is C and uses nothing but the installed header and library. */
#include <stdio.h>
#include <torvane.h>

int main(void) {
  const uint32_t speeds[4] = {20000, 20000, 100000, 100000};
  root_params_tree params = {.default_class = 3};
  if (add_root_qdisc(speeds, "eth1", QOS_ROOT_HTB, &params) != 0 || !check_Key("eth1", 3) || check_Key("eth1", 1))
    return 1;
  if (qos_root.next == &qos_root || del_root_qdisc("eth1") != 0 || !list_empty(&qos_root))
    return 1;
  puts("works");
  return 0;
}
