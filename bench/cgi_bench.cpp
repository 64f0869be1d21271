// This measures coding for the web beside OpenSSL, GLib and libcurl, on the same text. The counter is the time per byte
// of the source text. Where a library allocates its results, every call includes allocating and freeing.
//
// They do not do quite the same. GLib's and libcurl's percent-coding keep fewer characters and write capital digits.
// g_uri_unescape_string refuses codes that are malformed. libcurl's decoder knows bytes, not characters.
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <glib.h>
#include <openssl/evp.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "torvane.h"

namespace {

// Returns a form's text, mostly letters, with characters between them that have to be coded.
std::string text_of(size_t size) {
  static constexpr char sentence[] =
      "The router's name is \"caf\xc3\xa9 n\xc2\xb0 7\" & its address <192.168.1.1/24>; ";
  std::string text;
  while (text.size() < size)
    text += sentence;
  text.resize(size);
  while (static_cast<unsigned char>(text.back()) >= 0x80)
    text.back() = '.'; // no character is cut in half
  return text;
}

std::string coded_text_of(size_t size) {
  char *coded = encodeURIComponent(text_of(size).c_str());
  std::string text = coded;
  free(coded);
  return text;
}

// Measures `code`, which gets the text and makes one result.
template <typename Code>
void run(benchmark::State &state, const std::string &text, Code code) {
  for (auto _ : state)
    code(text);
  state.counters["time/byte"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * static_cast<double>(text.size()),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

size_t size_of(const benchmark::State &state) {
  return static_cast<size_t>(state.range(0));
}

template <typename Text, typename Free>
void use(Text *text, Free release) {
  benchmark::DoNotOptimize(text);
  release(text);
}

void base64_torvane(benchmark::State &state) {
  run(state, text_of(size_of(state)), [](const std::string &text) {
    unsigned length = static_cast<unsigned>(text.size());
    use(encode_base64(&length, text.data()), free);
  });
}

void base64_openssl(benchmark::State &state) {
  run(state, text_of(size_of(state)), [](const std::string &text) {
    auto *coded = static_cast<unsigned char *>(malloc(text.size() / 3 * 4 + 5));
    EVP_EncodeBlock(coded, reinterpret_cast<const unsigned char *>(text.data()), static_cast<int>(text.size()));
    use(coded, free);
  });
}

void base64_glib(benchmark::State &state) {
  run(state, text_of(size_of(state)), [](const std::string &text) {
    use(g_base64_encode(reinterpret_cast<const guchar *>(text.data()), text.size()), g_free);
  });
}

void percent_code_torvane(benchmark::State &state) {
  run(state, text_of(size_of(state)), [](const std::string &text) { use(encodeURIComponent(text.c_str()), free); });
}

void percent_code_glib(benchmark::State &state) {
  run(state, text_of(size_of(state)),
      [](const std::string &text) { use(g_uri_escape_string(text.c_str(), "!*'()", FALSE), g_free); });
}

void percent_code_curl(benchmark::State &state) {
  run(state, text_of(size_of(state)), [](const std::string &text) {
    use(curl_easy_escape(nullptr, text.data(), static_cast<int>(text.size())), curl_free);
  });
}

void percent_decode_torvane(benchmark::State &state) {
  run(state, coded_text_of(size_of(state)),
      [](const std::string &text) { use(decodeURIComponent(text.c_str()), free); });
}

void percent_decode_glib(benchmark::State &state) {
  run(state, coded_text_of(size_of(state)),
      [](const std::string &text) { use(g_uri_unescape_string(text.c_str(), nullptr), g_free); });
}

void percent_decode_curl(benchmark::State &state) {
  run(state, coded_text_of(size_of(state)), [](const std::string &text) {
    int length;
    use(curl_easy_unescape(nullptr, text.data(), static_cast<int>(text.size()), &length), curl_free);
  });
}

// Callers zero their buffer before the call, so that is measured too.
void html_escape_torvane(benchmark::State &state) {
  std::vector<char> page(size_of(state) * 6 + 1);
  run(state, text_of(size_of(state)), [&](const std::string &text) {
    memset(page.data(), 0, page.size());
    j_html_enc(text.c_str(), page.data(), static_cast<int>(page.size()));
    benchmark::DoNotOptimize(page.data());
    benchmark::ClobberMemory();
  });
}

void html_escape_glib(benchmark::State &state) {
  run(state, text_of(size_of(state)), [](const std::string &text) {
    use(g_markup_escape_text(text.c_str(), static_cast<gssize>(text.size())), g_free);
  });
}

} // namespace

#define FOR_BOTH_SIZES(name) BENCHMARK(name)->Arg(1024)->Arg(65536)

FOR_BOTH_SIZES(base64_torvane);
FOR_BOTH_SIZES(base64_openssl);
FOR_BOTH_SIZES(base64_glib);
FOR_BOTH_SIZES(percent_code_torvane);
FOR_BOTH_SIZES(percent_code_glib);
FOR_BOTH_SIZES(percent_code_curl);
FOR_BOTH_SIZES(percent_decode_torvane);
FOR_BOTH_SIZES(percent_decode_glib);
FOR_BOTH_SIZES(percent_decode_curl);
FOR_BOTH_SIZES(html_escape_torvane);
FOR_BOTH_SIZES(html_escape_glib);
