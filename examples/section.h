// A table of a policy file: typed, checked access to its keys, and the mistakes that are found on the way.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#define TOML_EXCEPTIONS 0
#include <toml++/toml.h>

#include <torvane/map.h>

#include "policy.h"

constexpr uint32_t not_in_table = 0xFFFFFFFFu; // as the id of a map's end row

// Inclusive.
struct Range {
  uint32_t from, to;
};

// The decimal number that is the whole of `text`; no sign, no blanks.
std::optional<uint32_t> decimal(std::string_view text, uint32_t highest);

// The table and the list of mistakes are the caller's and outlive this. Asking for a key marks it as known. A value
// that is not as it should be is entered as a mistake, and the asker gets nothing, as for a key that is not there.
class Section {
 public:
  Section(const toml::table &table, std::string name, std::vector<Mistake> &mistakes)
      : table_(table), name_(std::move(name)), mistakes_(mistakes) {}

  const std::string &name() const {
    return name_;
  }

  // Where the table begins, or the value of a key that it has.
  unsigned line() const;
  unsigned line(const char *key) const;

  void mistake(unsigned line, const std::string &text) const;
  void mistake(const char *key, const std::string &text) const;

  // The value of a key, or null.
  const toml::node *find(const char *key);

  // A mistake unless the table has the key.
  void require(const char *key);

  std::optional<uint32_t> number(const char *key, uint32_t from, uint32_t to);
  std::optional<std::string> text(const char *key);
  bool flag(const char *key);

  // The id of a text that has to be in `names`.
  std::optional<uint32_t> word(const char *key, const txt_map_entry *names);

  // A list of such texts, as a byte with the bits of their ids set.
  std::optional<uint8_t> bits(const char *key, const txt_map_entry *names);

  // 80 or "8000-8080".
  std::optional<Range> number_range(const char *key, uint32_t from, uint32_t to);

  // "192.168.1.10" or "192.168.1.10-192.168.1.20". 0.0.0.0 means no range to the library and is refused.
  std::optional<Range> address_range(const char *key);

  std::optional<Section> section(const char *key);

  // The tables of an array of tables, [[key]].
  std::vector<Section> sections(const char *key);

  // One number of a list.
  std::optional<uint32_t> number_in(const toml::node &value, const std::string &what, uint32_t from, uint32_t to) const;

  // Exactly `count` numbers.
  template <typename Number>
  void numbers(const char *key, Number *out, size_t count, uint32_t from, uint32_t to) {
    const toml::node *value = find(key);
    const toml::array *list = value ? value->as_array() : nullptr;
    if (value && (!list || list->size() != count))
      mistake(key, std::string(key) + " must be a list of " + std::to_string(count) + " numbers");
    else if (list)
      for (size_t i = 0; i < count; i++)
        out[i] = static_cast<Number>(number_in(*list->get(i), key, from, to).value_or(from));
  }

  // Reports the keys that nobody has asked for.
  void finish() const;

  // For messages: a policy must not write control sequences to a terminal.
  static std::string printable(std::string text);

 private:
  const toml::table &table_;
  std::string name_;
  std::vector<Mistake> &mistakes_;
  std::set<std::string> known_;
};
