// Configuration files of any contents, read twice into one table.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include "torvane.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  CfgEntry table[] = {
      {1, "name", nullptr}, {2, "a", nullptr}, {3, "", nullptr}, {4, nullptr, nullptr}, {5, "two words", nullptr}};
  constexpr int rows = sizeof(table) / sizeof(table[0]);
  static FILE *const nowhere = fopen("/dev/null", "we");
  FILE *const usual = stderr;
  stderr = nowhere; // for what is said about each line
  for (int pass = 0; pass < 2; pass++) {
    FILE *file = fmemopen(const_cast<uint8_t *>(data), size, "r"); // null for no bytes at all, which is refused
    const int result = cfg_parse_file(file, table, rows);
    if (result != (file ? 0 : 3) && result != 5)
      abort();
    if (file)
      fclose(file);
  }
  stderr = usual;
  for (const CfgEntry &row : table)
    if (row.value && (row.value[0] == ' ' || row.value[0] == '\n' || !row.key))
      abort();
  return cfg_destory(table, rows);
}
