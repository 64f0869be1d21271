// Holds what the XML trees, their documents and the self-test share.
#pragma once

#include "torvane/xml.h"

namespace torvane {

constexpr char xml_version[] = "1.0";

// Returns a copy of the text in a block of its own, or null without memory.
char *duplicate(const char *text);

// Frees an element, the elements after it and everything below them.
void free_chain(xml_node *node);

} // namespace torvane
