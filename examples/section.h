// Gives typed and checked access to the keys of a table of a policy file, and collects the mistakes in it.
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

constexpr uint32_t not_in_table = 0xFFFFFFFFu; // id of the last row of every map

// Both ends belong to the range.
struct Range {
  uint32_t from, to;
};

// Returns the number if the whole text is a decimal number, without sign and blanks, and at most `highest`.
std::optional<uint32_t> decimal(std::string_view text, uint32_t highest);

// A section is one table of a policy file. The caller keeps the table and the list of mistakes for as long as the
// section exists.
//
// Each function that reads a key marks it as known. If the key is missing or its value is wrong, the function returns
// nothing; `flag` returns false then, and `bits` returns 0 for a wrong list. A wrong value is added as a mistake.
class Section {
 public:
  Section(const toml::table &table, std::string name, std::vector<Mistake> &mistakes)
      : table_(table), name_(std::move(name)), mistakes_(mistakes) {}

  const std::string &name() const {
    return name_;
  }

  // Returns the line where the table begins, or where the value of `key` begins if the table has that key.
  unsigned line() const;
  unsigned line(const char *key) const;

  // Adds a mistake, at a line or at the value of a key.
  void mistake(unsigned line, const std::string &text) const;
  void mistake(const char *key, const std::string &text) const;

  // Returns the value of a key, or null.
  const toml::node *find(const char *key);

  // Adds a mistake if the key is missing.
  void require(const char *key);

  std::optional<uint32_t> number(const char *key, uint32_t from, uint32_t to);
  std::optional<std::string> text(const char *key);
  bool flag(const char *key);

  // Returns the id of a text that has to be in `names`.
  std::optional<uint32_t> word(const char *key, const txt_map_entry *names);

  // Reads a list of such texts. Returns a byte in which the bits of their ids are set.
  std::optional<uint8_t> bits(const char *key, const txt_map_entry *names);

  // Reads a number such as 80, or a range such as "8000-8080".
  std::optional<Range> number_range(const char *key, uint32_t from, uint32_t to);

  // Reads an address such as "192.168.1.10", or a range such as "192.168.1.10-192.168.1.20". It must not begin with
  // 0.0.0.0, by which the library knows that there is no range.
  std::optional<Range> address_range(const char *key);

  // Returns the table of a key.
  std::optional<Section> section(const char *key);

  // Returns the tables that are headed [[key]].
  std::vector<Section> sections(const char *key);

  // Returns one number of a list, which `what` names in a mistake.
  std::optional<uint32_t> number_in(const toml::node &value, const std::string &what, uint32_t from, uint32_t to) const;

  // Reads a list of exactly `count` numbers into `out`. A wrong number is a mistake and becomes `from`.
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

  // Adds a mistake for each key of the table that no function has read.
  void finish() const;

  // Returns the text of a policy as messages may show it: without the control characters that a terminal would obey.
  static std::string printable(std::string text);

 private:
  const toml::table &table_;
  std::string name_;
  std::vector<Mistake> &mistakes_;
  std::set<std::string> known_;
};
