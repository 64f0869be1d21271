// Layouts of the records that programs and library share byte for byte, checked by the compiler:
//
//   RECORD_LAYOUT(automark, 18, FIELD(enable, 0, 1), FIELD(mark, 2, 16));
//
// An automark has 18 bytes, `enable` is at offset 0 and has 1 byte, `mark` is at offset 2 and has 16. Where this does
// not hold, the compiler's message names the field with the offset and size it has and those it should have.
#pragma once

#include <stddef.h>

namespace sandbox {

// They are not constexpr, so that a call ends the compiler's evaluation, and its message shows their names.
void record_has_another_size();
void field_is_elsewhere();

constexpr bool has_size(size_t size, size_t expected) {
  if (size != expected)
    record_has_another_size();
  return true;
}

constexpr bool is_at(const char * /*field*/, size_t offset, size_t size, size_t expected_offset, size_t expected_size) {
  if (offset != expected_offset || size != expected_size)
    field_is_elsewhere();
  return true;
}

template <typename... Checked>
constexpr bool every(Checked... field) {
  return (true && ... && field);
}

} // namespace sandbox

#define FIELD(field, offset, bytes) \
  sandbox::is_at(#field, offsetof(Record, field), sizeof(Record::field), (offset), (bytes))

// Checks size and fields of a record. Both may be multiples of sizeof(void *).
#define RECORD_LAYOUT(record, bytes, ...)                                             \
  static_assert([] {                                                                  \
    using Record = record;                                                            \
    return sandbox::has_size(sizeof(Record), (bytes)) && sandbox::every(__VA_ARGS__); \
  }())

// Checks fields alone, for a record whose size differs from machine to machine.
#define RECORD_FIELDS(record, ...)      \
  static_assert([] {                    \
    using Record = record;              \
    return sandbox::every(__VA_ARGS__); \
  }())

// Checks size and fields on machines whose pointers have 32 bits.
#define RECORD_LAYOUT_32(record, bytes, ...)                                                                   \
  static_assert([] {                                                                                           \
    using Record = record;                                                                                     \
    return sizeof(void *) != 4 || (sandbox::has_size(sizeof(Record), (bytes)) && sandbox::every(__VA_ARGS__)); \
  }())
