// Looks texts up by number in the one string file of the process.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "torvane/words.h"

namespace {

constexpr char text_of_null[] = "(null)";

// This is the handle that was closed last. `str_fp` may still hold it, so it is compared with and never used. This is
// meant: `str_fp` is not set to null, so that lookups find nothing until the process ends.
FILE *closed_handle;

void close_file() {
  closed_handle = str_fp;
  fclose(str_fp);
}

bool is_closed() {
  return str_fp == closed_handle;
}

// Opens the one file unless that was done before; a file that was closed stays closed. This is meant: once a file was
// opened nobody looks at the path again. Returns false when it cannot be opened.
bool have_file(const char *path) {
  if (str_fp)
    return true;
  str_fp = fopen(path, "re");
  closed_handle = nullptr; // the new file may have its address
  return str_fp != nullptr;
}

template <size_t Size>
void make_key(char (&key)[Size], int num, int kind) {
  key[0] = '\0';
  if (kind == 0)
    snprintf(key, Size, "%d[m]", num);
  else if (kind == 1)
    snprintf(key, Size, "%d[d]", num);
}

// Calls found(text) with the text of the number and returns its result. When there is none, returns the length of the
// message that was printed, or 0.
template <typename Found>
int look_up(const char *path, int num, int kind, Found found) {
  if (!have_file(path))
    return printf("Cannot open string file (%s)\n", path);
  if (is_closed())
    return 0;
  char key[16];
  make_key(key, num, kind);

  rewind(str_fp);
  char line[4096];
  for (int number = 1; fgets(line, sizeof(line), str_fp); number++) {
    if (line[0] == '\n' || line[0] == ' ' || line[0] == ';' || line[0] == '#')
      continue;
    char *equals = strchr(line, '=');
    if (!equals) {
      close_file();
      return printf("Parsing failed at line: %d \n", number); // this is meant: a blank precedes the newline
    }
    *equals = '\0';
    if (strcmp(line, key) != 0)
      continue;
    char *text = equals + 1;
    const size_t length = strlen(text);
    if (length > 0 && text[length - 1] == '\n')
      text[length - 1] = '\0';
    return found(text);
  }
  return 0;
}

bool names_no_file(const char *path) {
  return !path || *path == '\0';
}

int tell_unknown_name(const char *path) {
  return printf("Unknown file name (%s).\n", path ? path : text_of_null);
}

} // namespace

extern "C" {

FILE *str_fp;

int get_words(const char *path, int num, int kind, char *dst, int size) {
  if (names_no_file(path))
    return tell_unknown_name(path);
  if (!dst)
    return printf("buf is NULL\n");
  const size_t room = size > 0 ? static_cast<size_t>(size) : 0;
  return look_up(path, num, kind, [=](const char *text) { return snprintf(dst, room, "%s", text); });
}

int show_words(const char *path, int num, int kind) {
  if (names_no_file(path))
    return tell_unknown_name(path);
  return look_up(path, num, kind, [](const char *text) { return printf("%s", text); });
}

void close_fp(void) {
  if (str_fp && !is_closed())
    close_file();
}

} // extern "C"
