// Entries and handlers found by name, and the dump of entries.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "cgi/request.h"
#include "support/guarded_memory.h"
#include "support/sandbox.h"
#include "torvane.h"

using cgi::Request;
using sandbox::GuardedMemory;

namespace {

void *answer(void *argument) {
  return argument;
}

void *other_answer(void *) {
  return nullptr;
}

std::string query_value(const std::string &query, const std::string &name) {
  GuardedMemory guarded_query(query), guarded_name(name);
  char *value = get_entry_value(guarded_query.data(), guarded_name.data());
  const std::string text = value ? value : "(null)";
  free(value);
  return text;
}

} // namespace

TEST(EntryByName, IsTheFirstWithExactlyThisName) {
  Request request("id=1&ID=2&id=3&i=4&=5", 5);
  ASSERT_EQ(5, request.parse());
  cgi_entry *entries = request.entries();
  EXPECT_EQ(&entries[0], get_entry_by_name(entries, 5, "id"));
  EXPECT_EQ(&entries[1], get_entry_by_name(entries, 5, "ID"));
  EXPECT_EQ(&entries[3], get_entry_by_name(entries, 5, "i"));
  EXPECT_EQ(&entries[4], get_entry_by_name(entries, 5, ""));
  EXPECT_EQ(nullptr, get_entry_by_name(entries, 5, "idx"));
  EXPECT_EQ(nullptr, get_entry_by_name(entries, 1, "ID"));
  EXPECT_EQ(nullptr, get_entry_by_name(entries, 0, "id"));
  EXPECT_EQ(nullptr, get_entry_by_name(entries, -1, "id"));
  EXPECT_EQ(entries[1].value, get_entry_value_by_name(entries, 5, "ID"));
  EXPECT_STREQ("4", get_entry_value_by_name(entries, 5, "i"));
  EXPECT_EQ(nullptr, get_entry_value_by_name(entries, 5, "none"));
}

TEST(EntryByName, MayHaveTheLongestName) {
  const std::string longest(64, 'n');
  Request request(longest + "=v", 1);
  ASSERT_EQ(1, request.parse());
  EXPECT_EQ(request.entries(), get_entry_by_name(request.entries(), 1, longest.c_str()));
  EXPECT_EQ(nullptr, get_entry_by_name(request.entries(), 1, (longest + "n").c_str()));
}

TEST(EntryByName, IsNotThereForNulls) {
  cgi_entry entry = {};
  EXPECT_EQ(nullptr, get_entry_by_name(nullptr, 1, "a"));
  EXPECT_EQ(nullptr, get_entry_by_name(&entry, 1, nullptr));
  EXPECT_EQ(nullptr, get_entry_value_by_name(nullptr, 1, "a"));
  EXPECT_EQ(nullptr, get_entry_value_by_name(&entry, 1, nullptr));
}

TEST(EntryValue, IsCopiedUndecodedFromTheQuery) {
  EXPECT_EQ("1", query_value("id=1&x=2", "id"));
  EXPECT_EQ("2", query_value("id=1&x=2", "x"));
  EXPECT_EQ("a%20b+c", query_value("q=a%20b+c", "q"));
  EXPECT_EQ("", query_value("id=&x=2", "id"));
  EXPECT_EQ("b=c", query_value("a=b=c", "a"));
  EXPECT_EQ(std::string(5000, 'v'), query_value("q=" + std::string(5000, 'v') + "&", "q"));
}

TEST(EntryValue, IsFoundAnywhereInTheQuery) {
  EXPECT_EQ("7", query_value("uid=7&id=8", "id")) << "not anchored";
  EXPECT_EQ("e", query_value("x=idle", "id")) << "the character after the match is passed over, whatever it is";
  EXPECT_EQ("b=2", query_value("a&b=2", "a"));
  EXPECT_EQ("", query_value("x=1&id", "id")) << "nothing after the match";
  EXPECT_EQ("", query_value("id=", "id"));
  EXPECT_EQ("d=1", query_value("id=1", ""));
  EXPECT_EQ("", query_value("", ""));
}

TEST(EntryValue, IsNullWithoutNameOrMemory) {
  EXPECT_EQ("(null)", query_value("a=1", "b"));
  EXPECT_EQ("(null)", query_value("", "b"));
  EXPECT_EQ(nullptr, get_entry_value(nullptr, "a"));
  EXPECT_EQ(nullptr, get_entry_value("a=1", nullptr));
  sandbox::fail_each_allocation([] { return get_entry_value("a=1", "a"); },
                                [](char *value, bool failed) {
                                  EXPECT_EQ(failed, value == nullptr);
                                  free(value);
                                });
}
TEST(DumpEntries, PrintsThemBetweenLines) {
  sandbox::Captured out(1);
  Request request("a=1&a_name_of_more_than_16=x y&=", 3);
  ASSERT_EQ(3, request.parse());
  dump_entries(request.entries(), 3);
  EXPECT_EQ(
      "============= dump entries =================\n"
      "name=               a, val=1\n"
      "name=a_name_of_more_than_16, val=x y\n"
      "name=                , val=\n"
      "============================================\n",
      out.text());
}

TEST(DumpEntries, PrintsLinesAloneForNone) {
  sandbox::Captured out(1);
  cgi_entry entry = {};
  dump_entries(&entry, 0);
  dump_entries(&entry, -1);
  dump_entries(nullptr, 3);
  const std::string lines =
      "============= dump entries =================\n============================================\n";
  EXPECT_EQ(lines + lines, out.text());
}

TEST(DumpEntries, DoesNotReadPastFieldsWithoutTerminator) {
  sandbox::Captured out(1);
  GuardedMemory records(sizeof(cgi_entry));
  records.fill('z');
  dump_entries(reinterpret_cast<cgi_entry *>(records.data()), 1);
  EXPECT_NE(std::string::npos,
            out.text().find("name=" + std::string(65, 'z') + ", val=" + std::string(519, 'z') + "\n"));
}

TEST(HandlerTable, GivesTheAddressOfTheField) {
  const cgi_handler table[] = {{"login", answer}, {"login", other_answer}, {"status", other_answer}, {"end", nullptr}};
  EXPECT_EQ(&table[0].func, get_cgi_func_ptr(table, "login"));
  EXPECT_EQ(&table[2].func, get_cgi_func_ptr(table, "status"));
  const auto handler = static_cast<void *(**)(void *)>(get_cgi_func_ptr(table, "login"));
  int request;
  EXPECT_EQ(&request, (*handler)(&request));
}

TEST(HandlerTable, EndsWithANullFunctionOrAnUnknownName) {
  const cgi_handler ended[] = {{"a", answer}, {"b", nullptr}, {"c", answer}, {nullptr, nullptr}};
  EXPECT_EQ(nullptr, get_cgi_func_ptr(ended, "b"));
  EXPECT_EQ(nullptr, get_cgi_func_ptr(ended, "c"));
  const cgi_handler unknown[] = {{"a", answer}, {"unknow", answer}, {"c", answer}, {nullptr, nullptr}};
  EXPECT_EQ(&unknown[0].func, get_cgi_func_ptr(unknown, "a"));
  EXPECT_EQ(nullptr, get_cgi_func_ptr(unknown, "unknow"));
  EXPECT_EQ(nullptr, get_cgi_func_ptr(unknown, "c"));
  const cgi_handler nameless[] = {{"a", answer}, {nullptr, answer}};
  EXPECT_EQ(nullptr, get_cgi_func_ptr(nameless, "c"));
}

TEST(HandlerTable, HasOnlyExactNames) {
  const cgi_handler table[] = {{"unknown", answer}, {"", other_answer}, {nullptr, nullptr}};
  EXPECT_EQ(&table[0].func, get_cgi_func_ptr(table, "unknown"));
  EXPECT_EQ(&table[1].func, get_cgi_func_ptr(table, ""));
  EXPECT_EQ(nullptr, get_cgi_func_ptr(table, "Unknown"));
  EXPECT_EQ(nullptr, get_cgi_func_ptr(table, "unknown "));
  EXPECT_EQ(nullptr, get_cgi_func_ptr(table, nullptr));
  EXPECT_EQ(nullptr, get_cgi_func_ptr(nullptr, "a"));
}
