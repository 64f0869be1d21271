/*
 * A program that shapes a line as a parsed document says: libxml2's headers go with those of the library's services, all
 * but <torvane/xml.h>, whose names libxml2 has too.
 */
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <stdio.h>
#include <stdlib.h>
#include <torvane/qos.h>
#include <torvane/xml_lookup.h>

static const char policy[] = "<line><name>eth1</name><rate>20000</rate></line>";

int main(void) {
  xmlDocPtr doc = xmlReadMemory(policy, sizeof(policy) - 1, "policy.xml", NULL, 0);
  xmlNodePtr root = doc ? xmlDocGetRootElement(doc) : NULL;
  xmlChar *name = root ? xmlNodeGetContent(root->children) : NULL;
  char rate_text[16] = "";
  uint32_t speeds[4];
  root_params_tree params = {0};
  int i;

  if (!name || !get_element_value(policy, rate_text, sizeof(rate_text) - 1, "line/rate"))
    return 1;
  for (i = 0; i < 4; i++)
    speeds[i] = (uint32_t)strtoul(rate_text, NULL, 10);
  params.default_class = 3;
  if (add_root_qdisc(speeds, (const char *)name, QOS_ROOT_HTB, &params) != 0 || check_Key("eth1", 3) != 1 ||
      root_qdisc_find_by_name("eth1")->link_rate[0] != 20000 || del_root_qdisc("eth1") != 0)
    return 1;
  xmlFree(name);
  xmlFreeDoc(doc);
  xmlCleanupParser();
  puts("works");
  return 0;
}
