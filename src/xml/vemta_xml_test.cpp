// Tests the XML services: a small document is printed to a file and to a buffer.
#include <fcntl.h>
#include <stdio.h>

#include "base/high_descriptor.h"
#include "base/owners.h"
#include "torvane/xml.h"

using namespace torvane;

namespace {

// Adds a new element. Returns null when there is no memory for it or was none for its parent.
xml_node *add_element(xml_node *parent, const char *name) {
  return parent ? xmlAddChild(parent, xmlNewNode(name)) : nullptr;
}

void add_text(xml_node *node, const char *content) {
  if (node)
    xmlAddText(node, xmlNewText(content));
}

} // namespace

extern "C" int xml_test_main(void) {
  const File output(open_stream(open("output.txt", O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666), "w+"));
  if (!output)
    return 1;
  xml_doc *doc = xmlNewDoc();
  if (doc)
    doc->root = xmlNewNode("wancfg");
  xml_node *const root = doc ? doc->root : nullptr;

  xml_node *const ifname = add_element(root, "ifname");
  add_text(ifname, "abcd");
  xmlAddAttr(ifname, "id", "atm0");
  xmlAddAttr(ifname, "class", "ioio");

  xml_node *const pt_addr = add_element(root, "ptAddr");
  add_text(add_element(pt_addr, "ipaddr"), "aabb");

  printfXmlDoc(output.get(), doc);
  char *const buffer = xmlPrepareBuf(doc);
  if (buffer)
    printf("buf=%s\n", buffer);
  else
    puts("internal error in xmlPrepareBuf.");
  xmlFreeDoc(doc);
  xmlFreeBuf(buffer);
  return buffer ? 0 : 1;
}
