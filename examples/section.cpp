#include "section.h"

#include <algorithm>
#include <string_view>

namespace {

unsigned line_of(const toml::node &node) {
  return node.source().begin.line;
}

std::string names_of(const txt_map_entry *table) {
  std::string names;
  for (; table->id != not_in_table; table++)
    names += (names.empty() ? "" : ", ") + std::string(table->text);
  return names;
}

// Returns the id of a text, or `not_in_table`. A text with a zero byte inside is in no table, even if the part before
// that byte is.
uint32_t id_of(const std::string &text, const txt_map_entry *names) {
  return text.find('\0') == std::string::npos ? TxtMapByTxtNoCase(names, text.c_str()) : not_in_table;
}

std::optional<uint32_t> ipv4(std::string_view text) {
  uint32_t address = 0;
  for (int octet = 0; octet < 4; octet++) {
    const size_t end = octet < 3 ? text.find('.') : text.size();
    if (end == std::string_view::npos)
      return std::nullopt;
    const auto value = decimal(text.substr(0, end), 255);
    if (!value)
      return std::nullopt;
    address = address << 8 | *value;
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return address;
}

} // namespace

std::optional<uint32_t> decimal(std::string_view text, uint32_t highest) {
  if (text.empty() || text.size() > 9)
    return std::nullopt;
  uint32_t value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9')
      return std::nullopt;
    value = value * 10 + static_cast<uint32_t>(c - '0');
  }
  return value <= highest ? std::optional(value) : std::nullopt;
}

unsigned Section::line() const {
  return std::max(line_of(table_), 1u);
}

unsigned Section::line(const char *key) const {
  const toml::node *value = table_.get(key);
  return value ? line_of(*value) : line();
}

void Section::mistake(unsigned line, const std::string &text) const {
  mistakes_.push_back({line, text});
}

void Section::mistake(const char *key, const std::string &text) const {
  mistake(line(key), text);
}

const toml::node *Section::find(const char *key) {
  known_.insert(key);
  return table_.get(key);
}

void Section::require(const char *key) {
  if (!find(key))
    mistake(line(), name_ + " has no " + key);
}

std::optional<uint32_t> Section::number_in(const toml::node &value, const std::string &what, uint32_t from,
                                           uint32_t to) const {
  const auto number = value.value_exact<int64_t>();
  if (number && *number >= from && *number <= to)
    return static_cast<uint32_t>(*number);
  mistake(line_of(value), what + " must be a whole number from " + std::to_string(from) + " to " + std::to_string(to) +
                              (number ? ", not " + std::to_string(*number) : ""));
  return std::nullopt;
}

std::optional<uint32_t> Section::number(const char *key, uint32_t from, uint32_t to) {
  const toml::node *value = find(key);
  return value ? number_in(*value, key, from, to) : std::nullopt;
}

std::optional<std::string> Section::text(const char *key) {
  const toml::node *value = find(key);
  if (!value)
    return std::nullopt;
  auto text = value->value_exact<std::string>();
  if (!text)
    mistake(key, std::string(key) + " must be a text in quotes");
  return text;
}

bool Section::flag(const char *key) {
  const toml::node *value = find(key);
  if (!value)
    return false;
  const auto flag = value->value_exact<bool>();
  if (!flag)
    mistake(key, std::string(key) + " must be true or false");
  return flag.value_or(false);
}

std::optional<uint32_t> Section::word(const char *key, const txt_map_entry *names) {
  const auto value = text(key);
  if (!value)
    return std::nullopt;
  const uint32_t id = id_of(*value, names);
  if (id != not_in_table)
    return id;
  mistake(key, std::string("unknown ") + key + " \"" + printable(*value) + "\": it can be one of " + names_of(names));
  return std::nullopt;
}

std::optional<uint8_t> Section::bits(const char *key, const txt_map_entry *names) {
  const toml::node *value = find(key);
  if (!value)
    return std::nullopt;
  const toml::array *list = value->as_array();
  unsigned bits = 0;
  for (size_t i = 0; list && i < list->size(); i++) {
    const uint32_t id = id_of(list->get(i)->value_exact<std::string>().value_or(""), names);
    if (id == not_in_table) {
      bits = 0;
      break;
    }
    bits |= 1u << id;
  }
  if (bits == 0)
    mistake(key, std::string(key) + " must be a list of some of " + names_of(names));
  return static_cast<uint8_t>(bits);
}

std::optional<Range> Section::number_range(const char *key, uint32_t from, uint32_t to) {
  const toml::node *value = find(key);
  if (!value)
    return std::nullopt;
  if (!value->is_string()) {
    const auto single = number_in(*value, key, from, to);
    return single ? std::optional(Range{*single, *single}) : std::nullopt;
  }
  const std::string text = value->value_or(std::string());
  const size_t dash = std::min(text.find('-'), text.size());
  const auto first = decimal(text.substr(0, dash), to);
  const auto last = decimal(dash < text.size() ? text.substr(dash + 1) : "", to);
  if (first && last && *first >= from && *first <= *last)
    return Range{*first, *last};
  mistake(key, std::string(key) + " must be a number or \"FROM-TO\", from " + std::to_string(from) + " to " +
                   std::to_string(to) + ", not \"" + printable(text) + "\"");
  return std::nullopt;
}

std::optional<Range> Section::address_range(const char *key) {
  const auto value = text(key);
  if (!value)
    return std::nullopt;
  const size_t dash = std::min(value->find('-'), value->size());
  const auto first = ipv4(value->substr(0, dash));
  const auto last = ipv4(dash < value->size() ? value->substr(dash + 1) : *value);
  if (first && last && *first != 0 && *first <= *last)
    return Range{*first, *last};
  mistake(key, std::string(key) + " must be an IPv4 address or \"FIRST-LAST\", not \"" + printable(*value) + "\"");
  return std::nullopt;
}

std::vector<Section> Section::sections(const char *key) {
  std::vector<Section> found;
  const toml::node *value = find(key);
  const toml::array *list = value ? value->as_array() : nullptr;
  if (value && (!list || !list->is_array_of_tables())) {
    mistake(key, std::string(key) + " must be tables, each headed [[" + key + "]]");
    return found;
  }
  for (size_t i = 0; list && i < list->size(); i++)
    found.emplace_back(*list->get(i)->as_table(), std::string("this ") + key, mistakes_);
  return found;
}

std::optional<Section> Section::section(const char *key) {
  const toml::node *value = find(key);
  if (!value)
    return std::nullopt;
  if (!value->is_table()) {
    mistake(key, std::string(key) + " must be a table");
    return std::nullopt;
  }
  return Section(*value->as_table(), key, mistakes_);
}

void Section::finish() const {
  for (const auto &[key, value] : table_) {
    if (known_.count(std::string(key.str())) == 0)
      mistake(key.source().begin.line, "unknown key \"" + printable(std::string(key.str())) + "\" in " + name_);
  }
}

std::string Section::printable(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c >= 0x7F; }, '?');
  return text;
}
