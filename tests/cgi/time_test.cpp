// A byte of a long text takes as long as one of a short text.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "torvane.h"

namespace {

constexpr size_t short_size = 10000, long_size = 1000000;

double seconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

using Work = std::function<void(std::string &)>;

// Returns the nanoseconds per byte of the best of several runs, of two on a slow machine. Each run has a fresh copy of
// the text.
double time_per_byte(const std::string &text, const Work &work) {
  double best = 1e9;
  const double deadline = seconds() + 0.1;
  for (int run = 0; run < 2 || (run < 7 && seconds() < deadline); run++) {
    const size_t repetitions = std::max<size_t>(1, short_size * 10 / text.size());
    std::vector<std::string> copies(repetitions, text);
    const double start = seconds();
    for (std::string &copy : copies)
      work(copy);
    best = std::min(best, (seconds() - start) * 1e9 / static_cast<double>(text.size() * repetitions));
  }
  return best;
}

std::string repeated(const std::string &piece, size_t size) {
  std::string text = piece;
  while (text.size() < size)
    text += text;
  return text.substr(0, size / piece.size() * piece.size());
}

// A work of quadratic time takes 100 times as long per byte of the long text. The absolute bound is far above any
// machine's, emulated and sanitized ones included, and far below what 1 MB takes in quadratic time.
void expect_linear(const char *name, const std::function<std::string(size_t)> &text, const Work &work) {
  const double of_short = time_per_byte(text(short_size), work), of_long = time_per_byte(text(long_size), work);
  printf("%-44s %8.2f ns/byte at 10 kB, %8.2f at 1 MB\n", name, of_short, of_long);
  EXPECT_LT(of_long, 8 * of_short + 1) << name;
  EXPECT_LT(of_long, 2000) << name;
}

void expect_linear(const char *name, const std::string &piece, const Work &work) {
  expect_linear((name + (" of " + piece)).c_str(), [&](size_t size) { return repeated(piece, size); }, work);
}

} // namespace

TEST(Time, OfUriCodingIsLinear) {
  for (const char *piece : {"a", " ", "\xc3\xa9"})
    expect_linear("encodeURIComponent", piece, [](std::string &text) { free(encodeURIComponent(text.c_str())); });
  for (const char *piece : {"a", "%20", "%C3%A9", "%", "%00", "%80"})
    expect_linear("decodeURIComponent", piece, [](std::string &text) { free(decodeURIComponent(text.c_str())); });
}

TEST(Time, OfBase64IsLinear) {
  expect_linear("encode_base64", "abc", [](std::string &text) {
    unsigned length = static_cast<unsigned>(text.size());
    free(encode_base64(&length, text.data()));
  });
}

TEST(Time, OfHtmlCodingIsLinear) {
  static std::vector<char> out(6 * long_size + 1);
  const int size = static_cast<int>(out.size());
  for (const char *piece : {"a", "<", "\""})
    expect_linear("j_html_enc", piece, [&](std::string &text) { j_html_enc(text.c_str(), out.data(), size); });
  for (const char *piece : {"a", "&", "&lt;", "&apos;", "&apos"})
    expect_linear("j_html_dec", piece, [&](std::string &text) { j_html_dec(text.c_str(), out.data(), size); });
}

TEST(Time, OfSplittingEntriesIsLinear) {
  static std::vector<cgi_entry> entries(20000);
  const int capacity = static_cast<int>(entries.size());
  const std::string decoded = "name=" + repeated("%E4%B8%AD+", 500) + "&", dropped = std::string(5000, 'x') + "&";
  const Work split = [&](std::string &text) {
    EXPECT_LT(0, data_2_entries(entries.data(), capacity, static_cast<int>(text.size()), text.data()));
  };
  expect_linear(
      "data_2_entries, decoded", [&](size_t size) { return repeated(decoded, size); }, split);
  expect_linear(
      "data_2_entries, dropped", [&](size_t size) { return repeated(dropped, size); }, split);
}

TEST(Time, OfCleaningPathsIsLinear) {
  const Work clean = [](std::string &path) { rm_dotdot(path.data()); };
  for (const char *piece : {"/", "./", "/.", "../", "a/../", "a/b/../", "abc", "/..", "a//./"})
    expect_linear("rm_dotdot", piece, clean);
  // These paths go far down, and all the way up again.
  expect_linear(
      "rm_dotdot, down and up",
      [](size_t size) { return repeated("a/", size * 2 / 5) + repeated("../", size * 3 / 5); }, clean);
  expect_linear(
      "rm_dotdot, one long segment up",
      [](size_t size) { return std::string(size / 2, 'a') + repeated("/../b", size / 2); }, clean);
}
