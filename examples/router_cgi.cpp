// This CGI program serves a router's web pages: login, settings, status as XML, help texts.
//
//   /cgi-bin/router.cgi/login      GET the form; POST user and password
//   /cgi-bin/router.cgi/settings   GET the form; POST name, address and note   (after login)
//   /cgi-bin/router.cgi/status     GET the status as XML for a page's script   (after login)
//   /cgi-bin/router.cgi/help       GET a help text: ?page=PATH
//   /cgi-bin/router.cgi/logout     POST
//
// ROUTER_CGI_DIR names the folder with the program's files:
//
//   credentials   base64 of USER:PASSWORD
//   settings      lines KEY=VALUE, the values percent-coded
//   session       token of the user who is logged in
//   help/         the help texts
//
// Any handler should keep the rules that this program keeps:
//   - A request's size is checked before it is read, and its entries are counted before it is split.
//   - Every text from a request or a file goes through j_html_enc before it is printed.
//   - Standard output is the response, so that no function of the library may print its complaints there. Therefore
//     separators are counted before data_2_entries sees them, and values are checked before they are stored.
//   - The library's login cookie only tells a page's script that somebody is logged in. It is no secret and gives no
//     access; the session's token does.
#include <ctype.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <torvane.h>

namespace {

constexpr size_t largest_body = 8192;
constexpr size_t largest_file = 8192;
constexpr int most_entries = 16;
constexpr size_t token_size = 32;     // hexadecimal digits
constexpr int restart_time = 20;      // seconds that a browser waits until new settings are in force
constexpr size_t largest_page = 1024; // bytes of a page that only redirects

// Frees a text that the library has allocated.
struct Free {
  void operator()(char *text) const {
    free(text);
  }
};
using Text = std::unique_ptr<char, Free>;

using File = std::unique_ptr<FILE, decltype(&fclose)>;

struct Request {
  bool is_post;
  std::string script; // URL of this program
  std::string dir;    // folder with its files
  bool logged_in;
  std::vector<cgi_entry> entries;
};

// Returns the value of an entry, or an empty text when there is no such entry.
const char *value_of(Request &request, const char *name) {
  const char *found = get_entry_value_by_name(request.entries.data(), static_cast<int>(request.entries.size()), name);
  return found ? found : "";
}

std::string environment(const char *name) {
  const char *value = getenv(name);
  return value ? value : "";
}

// ---- Responses

void print_head(const char *status, const char *type) {
  printf("Status: %s\r\nContent-Type: %s\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n", status,
         type);
}

void begin_page(const char *status, const char *title) {
  print_head(status, "text/html; charset=utf-8");
  printf("\r\n<!DOCTYPE html>\n<html><head><title>%s</title></head><body>\n<h1>%s</h1>\n", title, title);
}

void end_page() {
  puts("</body></html>");
}

void *refuse(const char *status) {
  begin_page(status, status);
  end_page();
  return nullptr;
}

std::string escaped(const std::string &text) {
  std::vector<char> out(text.size() * 6 + 1);
  j_html_enc(text.c_str(), out.data(), static_cast<int>(out.size()));
  return out.data();
}

void *send_script(const char *script) {
  print_head("200 OK", "text/html; charset=utf-8");
  printf("\r\n%s\n", script);
  return nullptr;
}

void *send_elsewhere(const Request &request, const char *page) {
  char script[largest_page] = "";
  redirect_page((request.script + "/" + page).c_str(), script, sizeof(script));
  return send_script(script);
}

// ---- Files

// Returns the first `largest_file` bytes of the file, or an empty text when it cannot be read.
std::string read_file(const std::string &path) {
  const File in(fopen(path.c_str(), "re"), fclose);
  if (!in)
    return "";
  std::string text(largest_file, '\0');
  text.resize(fread(text.data(), 1, text.size(), in.get()));
  return text;
}

// Writes the text to a file of its own and renames that, so that the file holds either the old text or the new one,
// even if the power fails.
bool write_file(const std::string &path, const std::string &text) {
  const std::string draft = path + "." + std::to_string(getpid());
  unlink(draft.c_str());
  const int fd = open(draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0)
    return false;
  const bool is_whole = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && fsync(fd) == 0;
  if (close(fd) != 0 || !is_whole || rename(draft.c_str(), path.c_str()) != 0) {
    unlink(draft.c_str());
    return false;
  }
  return true;
}

std::string first_line(const std::string &text) {
  return text.substr(0, text.find('\n'));
}

std::string setting(const std::string &settings, const std::string &key) {
  const std::string lines = "\n" + settings;
  const size_t at = lines.find("\n" + key + "=");
  if (at == std::string::npos)
    return "";
  const Text value(decodeURIComponent(first_line(lines.substr(at + key.size() + 2)).c_str()));
  return value ? value.get() : "";
}

bool append_setting(std::string &settings, const char *key, const char *value) {
  const Text coded(encodeURIComponent(value));
  if (coded)
    settings += std::string(key) + "=" + coded.get() + "\n";
  return coded != nullptr;
}

// ---- Sessions

// Returns whether the texts are equal. The time that it takes does not depend on where they differ, so that nobody can
// guess a secret piece by piece.
bool are_equal_secrets(const std::string &a, const std::string &b) {
  if (a.size() != b.size())
    return false;
  unsigned difference = 0;
  for (size_t i = 0; i < a.size(); i++)
    difference |= static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]);
  return difference == 0;
}

// Returns the value of a cookie, or an empty text. The whole name must match: "session" is not found in "old_session".
std::string cookie(const std::string &header, const std::string &name) {
  for (size_t at = 0; at < header.size();) {
    const size_t end = std::min(header.find(';', at), header.size());
    const size_t begin = std::min(header.find_first_not_of(" \t", at), end);
    if (header.compare(begin, name.size() + 1, name + "=") == 0)
      return header.substr(begin + name.size() + 1, end - begin - name.size() - 1);
    at = end + 1;
  }
  return "";
}

bool is_logged_in(const std::string &dir) {
  const std::string token = cookie(environment("HTTP_COOKIE"), "session");
  return token.size() == token_size && is_hex(token.c_str()) &&
         are_equal_secrets(token, first_line(read_file(dir + "/session")));
}

// Returns a random token, or an empty text when there is no source of random bytes.
std::string new_token() {
  unsigned char bytes[token_size / 2];
  const File source(fopen("/dev/urandom", "re"), fclose);
  if (!source || fread(bytes, sizeof(bytes), 1, source.get()) != 1)
    return "";
  std::string token;
  for (const unsigned char byte : bytes) {
    token += to_hex(static_cast<char>(byte >> 4));
    token += to_hex(static_cast<char>(byte));
  }
  return token;
}

// ---- Checks of values that are stored

bool is_host_name(const char *text) {
  if (!isalnum(static_cast<unsigned char>(*text)) || strlen(text) > 63)
    return false;
  for (; *text; text++)
    if (!isalnum(static_cast<unsigned char>(*text)) && *text != '-')
      return false;
  return true;
}

// Returns whether the text is four numbers from 0 to 255 with dots between them.
bool is_address(const std::string &text) {
  size_t at = 0;
  for (int i = 0; i < 4; i++) {
    const size_t end = i < 3 ? text.find('.', at) : text.size();
    if (end == std::string::npos || end == at || end - at > 3)
      return false;
    const std::string number = text.substr(at, end - at);
    if (!is_number(number.c_str()) || strtol(number.c_str(), nullptr, 10) > 255)
      return false;
    at = end + 1;
  }
  return true;
}

// Returns the number of bytes of the UTF-8 character at the start of the text, or 0 if none starts there or it is a
// control character.
int length_of_character(const char *text) {
  const auto first = static_cast<unsigned char>(*text);
  if (first < 0x80)
    return first >= ' ' && first != 0x7f ? 1 : 0;
  const int length = first < 0xc2 ? 0 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : first < 0xf5 ? 4 : 0;
  for (int i = 1; i < length; i++)
    if ((static_cast<unsigned char>(text[i]) & 0xc0) != 0x80)
      return 0;
  return length;
}

// Returns whether the text is one line of printable UTF-8, because the pages and the XML that show it are UTF-8.
bool is_note(const char *text) {
  while (*text) {
    const int length = length_of_character(text);
    if (length == 0)
      return false;
    text += length;
  }
  return true;
}

// ---- The pages

void print_login_form(const Request &request, const char *status, const char *message, const std::string &user) {
  begin_page(status, "Login");
  printf("<p>%s</p>\n<form method=\"post\" action=\"%s/login\">\n", message, request.script.c_str());
  printf("<input name=\"user\" value=\"%s\">\n<input name=\"password\" type=\"password\">\n", escaped(user).c_str());
  puts("<input type=\"submit\" value=\"Log in\">\n</form>");
  end_page();
}

void *login(void *argument) {
  Request &request = *static_cast<Request *>(argument);
  if (!request.is_post) {
    print_login_form(request, "200 OK", "Who are you?", "");
    return nullptr;
  }
  const std::string user = value_of(request, "user"), given = user + ":" + value_of(request, "password");
  unsigned length = static_cast<unsigned>(given.size());
  const Text coded(encode_base64(&length, given.data()));
  if (!coded || num_delim(user.c_str(), ':') > 0 ||
      !are_equal_secrets(coded.get(), first_line(read_file(request.dir + "/credentials")))) {
    print_login_form(request, "403 Forbidden", "Wrong name or password.", user);
    return nullptr;
  }
  const std::string token = new_token();
  if (token.empty() || !write_file(request.dir + "/session", token + "\n"))
    return refuse("500 Internal Server Error");
  char script[largest_page] = "";
  redirect_index_page((request.script + "/settings").c_str(), script, sizeof(script));
  print_head("200 OK", "text/html; charset=utf-8");
  printf("Set-Cookie: session=%s; Path=/; HttpOnly; SameSite=Strict\r\n\r\n%s\n", token.c_str(), script);
  return nullptr;
}

void *logout(void *argument) {
  const Request &request = *static_cast<Request *>(argument);
  if (!request.is_post)
    return refuse("405 Method Not Allowed");
  if (request.logged_in)
    unlink((request.dir + "/session").c_str());
  return send_elsewhere(request, "login");
}

void print_field(const char *label, const char *name, const std::string &value) {
  printf("<p>%s <input name=\"%s\" value=\"%s\"></p>\n", label, name, escaped(value).c_str());
}

void *settings(void *argument) {
  Request &request = *static_cast<Request *>(argument);
  if (!request.logged_in)
    return send_elsewhere(request, "login");
  const std::string path = request.dir + "/settings";
  if (!request.is_post) {
    const std::string stored = read_file(path);
    begin_page("200 OK", "Settings");
    printf("<form method=\"post\" action=\"%s/settings\">\n", request.script.c_str());
    print_field("Name", "name", setting(stored, "name"));
    print_field("Address", "address", setting(stored, "address"));
    print_field("Note", "note", setting(stored, "note"));
    puts("<input type=\"submit\" value=\"Store\">\n</form>");
    end_page();
    return nullptr;
  }
  const char *name = value_of(request, "name"), *address = value_of(request, "address"),
             *note = value_of(request, "note");
  if (!is_host_name(name) || !is_address(address) || !is_note(note))
    return refuse("400 Bad Request");
  std::string text;
  if (!append_setting(text, "name", name) || !append_setting(text, "address", address) ||
      !append_setting(text, "note", note) || !write_file(path, text))
    return refuse("500 Internal Server Error");
  char script[largest_page] = "";
  redirect_to_countdown_page("settings", script, sizeof(script), restart_time);
  return send_script(script);
}

void *status(void *argument) {
  const Request &request = *static_cast<Request *>(argument);
  if (!request.logged_in)
    return refuse("403 Forbidden");
  const std::string stored = read_file(request.dir + "/settings");
  const std::string uptime = read_file("/proc/uptime");
  char xml[largest_file];
  gen_xml(xml, sizeof(xml), "name", escaped(setting(stored, "name")).c_str(), 0);
  gen_xml(xml, sizeof(xml), "address", escaped(setting(stored, "address")).c_str(), 1);
  gen_xml(xml, sizeof(xml), "note", escaped(setting(stored, "note")).c_str(), 1);
  gen_xml(xml, sizeof(xml), "uptime", escaped(uptime.substr(0, uptime.find(' '))).c_str(), 2);
  const size_t length = strlen(xml), end = strlen("</root>");
  if (length < end || strcmp(xml + length - end, "</root>") != 0)
    return refuse("500 Internal Server Error"); // the XML did not fit and is cut
  print_head("200 OK", "text/xml; charset=utf-8");
  printf("\r\n%s\n", xml);
  return nullptr;
}

void *help(void *argument) {
  Request &request = *static_cast<Request *>(argument);
  std::string page = value_of(request, "page");
  // Of the paths that still lead above the root, rm_dotdot returns 1 for all but the two that are compared.
  if (rm_dotdot(page.data()) == 1 || strcmp(page.c_str(), "..") == 0 || strcmp(page.c_str(), "/..") == 0)
    return refuse("404 Not Found");
  page.resize(strlen(page.c_str()));
  const std::string path = request.dir + "/help/" + page;
  struct stat file;
  if (lstat(path.c_str(), &file) != 0 || !S_ISREG(file.st_mode))
    return refuse("404 Not Found");
  begin_page("200 OK", "Help");
  printf("<pre>%s</pre>\n", escaped(read_file(path)).c_str());
  end_page();
  return nullptr;
}

constexpr cgi_handler pages[] = {
    {"", settings},     {"login", login}, {"logout", logout},  {"settings", settings},
    {"status", status}, {"help", help},   {"unknow", nullptr},
};

// ---- Requests

// Splits a query string or a body into entries. Returns false if no browser would send such a text.
bool split(const std::string &text, std::vector<cgi_entry> &entries) {
  if (strlen(text.c_str()) != text.size() || num_delim(text.c_str(), '&') >= most_entries)
    return false;
  entries.assign(most_entries, cgi_entry{});
  entries.resize(
      static_cast<size_t>(data_2_entries(entries.data(), most_entries, static_cast<int>(text.size()), text.data())));
  return true;
}

// Returns the length of the body as the server announces it: 0 without a body, -1 if it is no number or too large.
long announced_length() {
  const std::string text = environment("CONTENT_LENGTH");
  if (text.size() > 6 || !is_number(text.c_str()))
    return -1;
  const long length = text.empty() ? 0 : strtol(text.c_str(), nullptr, 10);
  return length <= static_cast<long>(largest_body) ? length : -1;
}

// Returns whether the path is short and has only characters that need no escaping in pages and scripts.
bool is_plain_path(const std::string &path) {
  for (const char c : path)
    if (!isalnum(static_cast<unsigned char>(c)) && !strchr("/._-", c))
      return false;
  return path.size() < 256;
}

void *answer() {
  Request request = {};
  request.script = environment("SCRIPT_NAME");
  request.dir = environment("ROUTER_CGI_DIR");
  if (request.dir.empty() || !is_plain_path(request.script))
    return refuse("500 Internal Server Error");

  const std::string method = environment("REQUEST_METHOD");
  request.is_post = method == "POST";
  if (!request.is_post && method != "GET")
    return refuse("405 Method Not Allowed");

  std::string text = environment("QUERY_STRING");
  if (request.is_post) {
    const long length = announced_length();
    if (length < 0)
      return refuse("413 Payload Too Large");
    if (environment("CONTENT_TYPE").rfind("application/x-www-form-urlencoded", 0) != 0)
      return refuse("415 Unsupported Media Type");
    text.resize(static_cast<size_t>(length));
    if (fread(text.data(), 1, text.size(), stdin) != text.size())
      return refuse("400 Bad Request");
  }
  if (text.size() > largest_body || !split(text, request.entries))
    return refuse("400 Bad Request");
  request.logged_in = is_logged_in(request.dir);

  std::string page = environment("PATH_INFO");
  page.erase(0, page.find_first_not_of('/'));
  const auto handler = static_cast<void *(**)(void *)>(get_cgi_func_ptr(pages, page.c_str()));
  return handler ? (*handler)(&request) : refuse("404 Not Found");
}

} // namespace

int main() {
  answer();
  return fflush(stdout) == 0 ? 0 : 1;
}
