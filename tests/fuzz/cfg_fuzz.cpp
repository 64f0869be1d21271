// A configuration file of any contents is read twice into one table.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <vector>

#include "input.h"
#include "torvane.h"

// The library frees no value that it replaces, so the target does.
static std::vector<void *> values;

extern "C" void *__real_malloc(size_t size);

extern "C" void *__wrap_malloc(size_t size) {
  void *const block = __real_malloc(size);
  values.push_back(block);
  return block;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  CfgEntry table[] = {
      {1, "name", nullptr}, {2, "a", nullptr}, {3, "", nullptr}, {4, nullptr, nullptr}, {5, "two words", nullptr}};
  constexpr int rows = sizeof(table) / sizeof(table[0]);
  static FILE *const nowhere = fopen("/dev/null", "we");
  FILE *const usual = stderr;
  stderr = nowhere; // the library reports every line there
  for (int pass = 0; pass < 2; pass++) {
    FILE *file =
        fmemopen(const_cast<uint8_t *>(data), size, "r"); // null if there are no bytes; then the library refuses it
    const int result = cfg_parse_file(file, table, rows);
    fuzz::demand(result == (file ? 0 : 3) || result == 5);
    if (file)
      fclose(file);
  }
  stderr = usual;
  for (const CfgEntry &row : table)
    fuzz::demand(!row.value || (row.value[0] != ' ' && row.value[0] != '\n' && row.key));
  for (void *value : values)
    if (std::none_of(table, table + rows, [=](const CfgEntry &row) { return row.value == value; }))
      free(value);
  values.clear();
  return cfg_destory(table, rows);
}
