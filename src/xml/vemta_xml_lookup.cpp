// Finds the values of elements in XML text by a plain search for their tags.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "base/owners.h"
#include "base/trace.h"
#include "torvane/text.h"
#include "torvane/xml_lookup.h"

using namespace torvane;

namespace {

constexpr const char *trace_module = "vemta_xml";

constexpr size_t pattern_size = 512;

bool ends_tag_name(char c) {
  return c == ' ' || c == '/' || c == '>';
}

// Returns where the name ends in the first start tag with `pattern` ("<name"), or null when there is none. This is
// meant: case does not matter at the first place that is looked at, and matters at those after it.
const char *find_start_tag(const char *text, const char *pattern) {
  const char *found = strcasestr(text, pattern);
  while (found) {
    const char *const after = found + strlen(pattern);
    if (ends_tag_name(*after))
      return after;
    found = strstr(after, pattern);
  }
  return nullptr;
}

} // namespace

extern "C" {

int _get_element_value(const char *text, char *dest, int size, const char *name) {
  if (!text || !dest || !name)
    return 0;
  const size_t room = size > 0 ? static_cast<size_t>(size) : 0;
  memset(dest, 0, room);

  char opening[pattern_size], closing[pattern_size];
  snprintf(opening, sizeof(opening), "<%s", name);
  snprintf(closing, sizeof(closing), "</%s", name);

  const char *at = find_start_tag(text, opening);
  if (!at)
    return 0;
  for (; *at != '>'; at++) {
    if (*at == '\0')
      return 0;
    if (at[0] == '/' && at[1] == '>')
      return 1;
  }
  const char *const content = at + 1;
  // This is meant: case matters in the end tag, and the first one ends the content, even that of an inner element.
  const char *const end = strstr(content, closing);
  if (!end)
    return 0;
  const size_t length = static_cast<size_t>(end - content);
  // This is meant: content that fills the buffer has no terminator.
  memcpy(dest, content, length < room ? length : room);
  return 1;
}

int get_element_value(const char *text, char *dest, int size, const char *path) {
  if (!text || !dest || !path)
    return 0;
  const size_t path_size = strlen(path) + 1;
  const HeapBlock<char> components(allocate_zeroed<char>(path_size));
  if (!components) {
    TRACE("cannot alloc memory, return error\n");
    return 0;
  }
  memcpy(components.get(), path, path_size);

  HeapBlock<char> outer(nullptr); // content of the element found last, in which the next one is looked for
  for (char *component = components.get();;) {
    // A path that begins with "/" has it in its first name, which no element has.
    char *rest = component + strspn(component, "/");
    rest += strcspn(rest, "/");
    if (*rest)
      *rest++ = '\0';
    if (!*rest)
      return _get_element_value(text, dest, size, component);

    const size_t length = strlen(text);
    char *const content = allocate_zeroed<char>(length + 1); // one byte more than is ever filled: a terminator
    if (!content) {
      TRACE("cannot alloc memory, return error\n");
      return 0;
    }
    const int found = _get_element_value(text, content, static_cast<int>(length), component);
    outer.reset(content);
    if (!found)
      return 0;
    text = content;
    component = rest;
  }
}

} // extern "C"
