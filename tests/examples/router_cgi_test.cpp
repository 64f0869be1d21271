// These tests ask the example CGI program behind real web servers, as browsers and attackers do.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/example.h"
#include "support/sandbox.h"

using sandbox::read_file;
using sandbox::write_file;

namespace {

constexpr char www[] = "/run/www";
constexpr char store[] = "/run/router";
constexpr in_port_t port = 8080;

void prepare_folders() {
  sandbox::run("rm -rf /run/www /run/router");
  for (const char *dir : {"/run/www", "/run/www/cgi-bin", "/run/router", "/run/router/help", "/run/router/help/lan"})
    mkdir(dir, 0755);
  write_file("/run/router/credentials", "YWRtaW46c2VjcmV0\n"); // admin:secret
  write_file("/run/router/help/lan/ports", "Port <1> & \"2\"\n");
  write_file("/run/secret", "not for browsers\n");
  write_file("/run/www/cgi-bin/router.cgi", std::string("#!/bin/sh\nROUTER_CGI_DIR=") + store +
                                                "\nexport ROUTER_CGI_DIR\nexec " + sandbox::example("router_cgi") +
                                                "\n");
  chmod("/run/www/cgi-bin/router.cgi", 0755);
}

struct Answer {
  int code = 0;
  std::string head, body;
};

Answer answer_of(const std::string &output) {
  Answer answer;
  const size_t end = output.find("\r\n\r\n");
  if (sscanf(output.c_str(), "HTTP/%*s %d", &answer.code) != 1 || end == std::string::npos)
    return answer;
  answer.head = output.substr(0, end + 2);
  answer.body = output.substr(end + 4);
  return answer;
}

// Gets a page of the program. The options are curl's, quoted for the shell.
Answer get(const std::string &page, const std::string &options = "") {
  return answer_of(sandbox::run("curl -s -i --max-time 60 --path-as-is -H Expect: " + options +
                                " 'http://127.0.0.1:8080/cgi-bin/router.cgi" + page + "'")
                       .output);
}

// Sends the bytes of `request` over a connection that is then closed for writing.
Answer send_raw(const std::string &request) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  std::string output;
  if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0 &&
      send(fd, request.data(), request.size(), MSG_NOSIGNAL) > 0) {
    shutdown(fd, SHUT_WR);
    char bytes[4096];
    for (ssize_t n; (n = read(fd, bytes, sizeof(bytes))) > 0;)
      output.append(bytes, static_cast<size_t>(n));
  }
  close(fd);
  return answer_of(output);
}

bool is_listening() {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const bool connected = connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0;
  close(fd);
  return connected;
}

bool holds(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

class RouterCgi : public testing::TestWithParam<const char *> {
 protected:
  void SetUp() override {
    const std::string server = GetParam();
    std::vector<std::string> command = {"/bin/busybox", "httpd", "-f", "-p", "127.0.0.1:8080", "-h", www};
    if (server == "lighttpd")
      command = {"/usr/sbin/lighttpd", "-D", "-f", "/run/lighttpd.conf"};
    if (access(command[0].c_str(), X_OK) != 0 || sandbox::run("curl --version >/dev/null").status != 0)
      GTEST_SKIP() << "no " << server << " or no curl";
    prepare_folders();
    write_file("/run/lighttpd.conf",
               "server.document-root = \"/run/www\"\nserver.bind = \"127.0.0.1\"\nserver.port = 8080\n"
               "server.modules = (\"mod_cgi\")\ncgi.assign = (\".cgi\" => \"\")\n"
               "server.errorlog = \"/run/lighttpd.log\"\n");
    server_ = fork();
    if (server_ == 0) {
      std::vector<char *> arguments;
      for (std::string &word : command)
        arguments.push_back(word.data());
      arguments.push_back(nullptr);
      execv(arguments[0], arguments.data());
      _exit(127);
    }
    // The server listens when it takes a connection; one that has ended never will.
    const timespec pause = {0, 10000000};
    while (!is_listening() && waitpid(server_, nullptr, WNOHANG) == 0)
      nanosleep(&pause, nullptr);
  }
  void TearDown() override {
    if (server_ <= 0)
      return;
    kill(server_, SIGTERM);
    waitpid(server_, nullptr, 0);
  }

  // Returns the cookie of a session, as a browser sends it.
  static std::string log_in() {
    const Answer answer = get("/login", "-d 'user=admin&password=secret'");
    EXPECT_EQ(200, answer.code) << answer.body;
    const size_t at = answer.head.find("session=");
    return at == std::string::npos ? "" : "-H 'Cookie: hasLogin=1; " + answer.head.substr(at, 8 + 32) + "' ";
  }

 private:
  pid_t server_ = 0;
};

// Runs the program alone, with the environment that a server would give it.
std::string run_program(const std::string &environment, const std::string &input = "</dev/null") {
  return sandbox::run("env -i ROUTER_CGI_DIR=" + std::string(store) + " SCRIPT_NAME=/router.cgi " + environment + " " +
                      sandbox::example("router_cgi") + " " + input)
      .output;
}

std::string first_line(const std::string &text) {
  return text.substr(0, text.find("\r\n"));
}

constexpr char form[] = "CONTENT_TYPE=application/x-www-form-urlencoded ";

} // namespace

TEST_P(RouterCgi, ShowsItsLoginForm) {
  const Answer answer = get("/login");
  EXPECT_EQ(200, answer.code);
  EXPECT_TRUE(holds(answer.head, "Content-Type: text/html; charset=utf-8\r\n")) << answer.head;
  EXPECT_TRUE(holds(answer.body, "<form method=\"post\" action=\"/cgi-bin/router.cgi/login\">")) << answer.body;
}

TEST_P(RouterCgi, SendsStrangersToTheLogin) {
  for (const char *page : {"", "/settings"}) {
    const Answer answer = get(page);
    EXPECT_EQ(200, answer.code);
    EXPECT_EQ("<script>location.replace('/cgi-bin/router.cgi/login');</script>\n", answer.body) << page;
  }
  EXPECT_EQ(403, get("/status").code);
}

TEST_P(RouterCgi, LogsInAndSetsBothCookies) {
  const Answer answer = get("/login", "-d 'user=admin&password=secret'");
  EXPECT_EQ(200, answer.code);
  EXPECT_EQ("<script>\tdocument.cookie = 'hasLogin=1';\tlocation.replace('/cgi-bin/router.cgi/settings');</script>\n",
            answer.body);
  const std::string token = read_file("/run/router/session");
  EXPECT_EQ(33u, token.size());
  EXPECT_TRUE(holds(answer.head, "session=" + token.substr(0, 32) + "; Path=/; HttpOnly; SameSite=Strict\r\n"))
      << answer.head;
  EXPECT_EQ(0600, sandbox::mode_of("/run/router/session"));
  EXPECT_EQ(200, get("/status", log_in()).code);
  EXPECT_NE(token, read_file("/run/router/session")) << "every login has its own";
}

TEST_P(RouterCgi, RefusesWrongPasswords) {
  for (const char *body :
       {"user=admin&password=wrong", "user=admin", "password=secret", "", "user=admin:secret",
        "user=admin%3Asecret&password=", "user=adm%00in&password=secret", "&&&", "user=admin&password"}) {
    const Answer answer = get("/login", std::string("-d '") + body + "'");
    EXPECT_EQ(403, answer.code) << body;
    EXPECT_FALSE(holds(answer.head, "Set-Cookie")) << body;
  }
  EXPECT_FALSE(sandbox::exists("/run/router/session"));
}

TEST_P(RouterCgi, TakesNoCookieButTheSessions) {
  const std::string real = log_in();
  ASSERT_NE("", real);
  EXPECT_EQ(200, get("/status", real).code);
  const std::string token = read_file("/run/router/session").substr(0, 32);
  for (const std::string &cookie :
       {std::string("hasLogin=1"), std::string("session="), std::string("session"), "old_session=" + token,
        "session=" + token.substr(1), "session=" + token + "0", "session=" + std::string(32, '0'),
        "session=" + std::string(32, '/'), "Session=" + token, std::string(";;; ; =;"), "x=session=" + token,
        "session=" + std::string(4000, 'a')})
    EXPECT_EQ(403, get("/status", "-H 'Cookie: " + cookie + "'").code) << cookie;
  EXPECT_EQ(200, get("/status", "-H 'Cookie: a=b;session=" + token + ";c'").code);
}

TEST_P(RouterCgi, LogsOut) {
  const std::string cookie = log_in();
  EXPECT_EQ(405, get("/logout", cookie).code) << "a link does not do it";
  EXPECT_EQ(200, get("/logout", "-d ''").code);
  EXPECT_EQ(200, get("/status", cookie).code) << "nor does a stranger";
  EXPECT_EQ(200, get("/logout", cookie + "-d ''").code);
  EXPECT_EQ(403, get("/status", cookie).code);
}

TEST_P(RouterCgi, StoresSettingsAndShowsThem) {
  const std::string cookie = log_in();
  const Answer stored =
      get("/settings", cookie + "-d 'name=box-1&address=192.168.1.1&note=caf%C3%A9+%3Cb%3E%26%22%27%25'");
  EXPECT_EQ("<script>location.replace('countdown.asp?page=settings&count=20');</script>\n", stored.body);
  EXPECT_EQ("name=box-1\naddress=192.168.1.1\nnote=caf%C3%A9%20%3cb%3e%26%22'%25\n", read_file("/run/router/settings"));
  const Answer shown = get("/settings", cookie);
  EXPECT_TRUE(holds(shown.body, "name=\"name\" value=\"box-1\">")) << shown.body;
  EXPECT_TRUE(holds(shown.body, "name=\"note\" value=\"caf\xc3\xa9 &lt;b&gt;&amp;&quot;&apos;%\">")) << shown.body;
  const Answer status = get("/status", cookie);
  EXPECT_TRUE(holds(status.head, "text/xml"));
  EXPECT_TRUE(holds(status.body,
                    "<?xml version=\"1.0\"?><root><name>box-1</name><address>192.168.1.1</address><note>"
                    "caf\xc3\xa9 &lt;b&gt;&amp;&quot;&apos;%</note><uptime>"))
      << status.body;
  EXPECT_TRUE(holds(status.body, "</uptime></root>\n"));
}

TEST_P(RouterCgi, StoresNothingThatIsNotWhatItShouldBe) {
  const std::string cookie = log_in();
  for (const char *body :
       {"name=&address=1.2.3.4&note=", "name=a%3Breboot&address=1.2.3.4&note=", "name=-a&address=1.2.3.4&note=",
        "name=$(reboot)&address=1.2.3.4&note=", "name=a%0Ab&address=1.2.3.4&note=", "name=a&address=1.2.3&note=",
        "name=a&address=1.2.3.256&note=", "name=a&address=1.2.3.4.5&note=", "name=a&address=1..3.4&note=",
        "name=a&address=%601.2.3.4%60&note=", "name=a&address=1.2.3.4&note=a%0Aname=b",
        "name=a&address=1.2.3.4&note=%1b%5b2J", "name=a&address=1.2.3.4&note=%FF%FF%FF%FF",
        "name=a&address=1.2.3.4&note=%C0%AF", "name=a&address=1.2.3.4%0d%0aSet-Cookie:x&note=", "", "a=1&a=2"})
    EXPECT_EQ(400, get("/settings", cookie + "-d '" + body + "'").code) << body;
  EXPECT_FALSE(sandbox::exists("/run/router/settings"));
  EXPECT_EQ("<script>location.replace('/cgi-bin/router.cgi/login');</script>\n",
            get("/settings", "-d 'name=a&address=1.2.3.4&note='").body)
      << "and nothing of strangers";
  EXPECT_FALSE(sandbox::exists("/run/router/settings"));
}

TEST_P(RouterCgi, EscapesWhatItShowsAgain) {
  const Answer answer = get("/login", "-d 'user=%22%3E%3Cscript%3Ealert(%27x%27)%3C%2Fscript%3E&password=x'");
  EXPECT_EQ(403, answer.code);
  EXPECT_TRUE(holds(answer.body, "value=\"&quot;&gt;&lt;script&gt;alert(&apos;x&apos;)&lt;/script&gt;\""))
      << answer.body;
  EXPECT_FALSE(holds(answer.body, "<script>"));
}

TEST_P(RouterCgi, TakesBadPercentSequencesForWhatTheyAre) {
  for (const char *body : {"user=%", "user=%4", "user=%zz", "user=%E4", "user=%E4%B8", "user=%F0%9F", "user=%80",
                           "user=%00", "%=%", "user=%C3%"})
    EXPECT_EQ(403, get("/login", std::string("-d '") + body + "&password=x'").code) << body;
}

TEST_P(RouterCgi, ShowsHelpFromItsFolderAlone) {
  for (const char *page : {"lan/ports", "/lan/ports", "lan//ports", "./lan/./ports", "lan/../lan/ports",
                           "%6Can%2Fports", "../lan/ports", "/../../lan/ports"}) {
    const Answer answer = get(std::string("/help?page=") + page);
    EXPECT_EQ(200, answer.code) << page;
    EXPECT_TRUE(holds(answer.body, "<pre>Port &lt;1&gt; &amp; &quot;2&quot;\n</pre>")) << answer.body;
  }
  symlink("/run/secret", "/run/router/help/link");
  for (const char *page : {"",
                           "/",
                           ".",
                           "..",
                           "/..",
                           "../..",
                           "lan",
                           "lan/..",
                           "none",
                           "../credentials",
                           "../../secret",
                           "../../../run/secret",
                           "lan/../../credentials",
                           "%2e%2e%2fcredentials",
                           "..%2f..%2fsecret",
                           "lan/..%2f..%2fcredentials",
                           "..%00/credentials",
                           "....//credentials",
                           "..%5ccredentials",
                           "%c0%ae%c0%ae/credentials",
                           "/run/secret",
                           "link",
                           "....%2f%2fcredentials"}) {
    const Answer answer = get(std::string("/help?page=") + page);
    EXPECT_TRUE(answer.code == 404 || answer.code == 400) << page; // a server may refuse some by itself
    EXPECT_FALSE(holds(answer.body, "not for browsers") || holds(answer.body, "YWRtaW46")) << page;
  }
}

TEST_P(RouterCgi, KnowsNoOtherPages) {
  for (const char *page : {"/none", "/unknow", "/login/", "/login/x", "/LOGIN", "/login%00", "/help/../../secret"}) {
    const int code = get(page).code;
    EXPECT_TRUE(code == 404 || code == 400 || code == 403) << page << " " << code;
  }
}

TEST_P(RouterCgi, RefusesBodiesThatAreTooLarge) {
  write_file("/run/body", "user=admin&password=" + std::string(8192 - 20, 'x'));
  EXPECT_EQ(403, get("/login", "--data-binary @/run/body").code) << "the largest, and no password";
  for (const size_t size : {8193u, 100000u, 2000000u}) {
    write_file("/run/body", "user=admin&password=" + std::string(size - 20, 'x'));
    EXPECT_EQ(413, get("/login", "--data-binary @/run/body").code) << size;
  }
}

TEST_P(RouterCgi, RefusesTooManyEntries) {
  std::string body = "user=admin&password=secret";
  for (int i = 0; i < 14; i++)
    body += "&x=" + std::to_string(i);
  EXPECT_EQ(200, get("/login", "-d '" + body + "'").code) << "sixteen";
  EXPECT_EQ(400, get("/login", "-d '" + body + "&x=1'").code);
  EXPECT_EQ(400, get("/login?" + std::string(1000, '&')).code);
}

TEST_P(RouterCgi, RefusesOtherMethodsAndTypes) {
  EXPECT_EQ(405, get("/login", "-X DELETE").code);
  EXPECT_EQ(415, get("/login", "-H 'Content-Type: text/plain' -d 'user=admin&password=secret'").code);
  EXPECT_EQ(415, get("/login", "-F user=admin -F password=secret").code);
  EXPECT_EQ(200, get("/login",
                     "-H 'Content-Type: application/x-www-form-urlencoded; charset=utf-8' "
                     "-d 'user=admin&password=secret'")
                     .code);
}

TEST_P(RouterCgi, LivesThroughOddHeadersAndWrongLengths) {
  const std::string post =
      "POST /cgi-bin/router.cgi/login HTTP/1.0\r\nContent-Type: application/x-www-form-urlencoded\r\n";
  // The request announces more than it sends. There must be no login, whether server or program notices it.
  Answer answer = send_raw(post + "Content-Length: 500\r\n\r\nuser=admin&password=secret");
  EXPECT_FALSE(holds(answer.head, "Set-Cookie"));
  // The request announces less than it sends. The rest is not part of it.
  answer = send_raw(post + "Content-Length: 20\r\n\r\nuser=admin&password=secret");
  EXPECT_FALSE(holds(answer.head, "Set-Cookie"));
  for (const char *length : {"-1", "x", "99999999999999999999", "0x1a", "26, 26", ""}) {
    answer = send_raw(post + "Content-Length: " + length + "\r\n\r\nuser=admin&password=secret");
    EXPECT_FALSE(holds(answer.head, "Set-Cookie")) << length;
  }
  answer = send_raw("GET /cgi-bin/router.cgi/status HTTP/1.0\r\nCookie: session=\r\nCookie: session=" +
                    std::string(32, 'a') + "\r\nX-Odd: \x01\xff\r\n\r\n");
  EXPECT_NE(200, answer.code);
  send_raw("GET /cgi-bin/router.cgi/login?\xff\xfe<> HTTP/1.0\r\nCookie: " + std::string(7000, ';') + "\r\n\r\n");
  EXPECT_EQ(200, get("/login").code) << "it is still there";
}

INSTANTIATE_TEST_SUITE_P(Servers, RouterCgi, testing::Values("lighttpd", "busybox"),
                         [](const auto &server) { return std::string(server.param); });

TEST(RouterCgiAlone, ChecksWhatItsServerTellsIt) {
  prepare_folders();
  const std::string body = "user=admin&password=secret",
                    post = std::string("REQUEST_METHOD=POST PATH_INFO=/login ") + form;
  write_file("/run/body", body);
  EXPECT_EQ("Status: 200 OK", first_line(run_program(post + "CONTENT_LENGTH=26", "</run/body")));
  EXPECT_EQ("Status: 400 Bad Request", first_line(run_program(post + "CONTENT_LENGTH=27", "</run/body")));
  EXPECT_EQ("Status: 403 Forbidden", first_line(run_program(post + "CONTENT_LENGTH=25", "</run/body")));
  EXPECT_EQ("Status: 403 Forbidden", first_line(run_program(post + "CONTENT_LENGTH=0", "</run/body")));
  for (const char *length : {"-1", "8193", "x", "1e3", "26x", "' 26'", "9999999", "99999999999999999999"})
    EXPECT_EQ("Status: 413 Payload Too Large", first_line(run_program(post + "CONTENT_LENGTH=" + length, "</run/body")))
        << length;
  EXPECT_EQ("Status: 403 Forbidden", first_line(run_program(post, "</run/body"))) << "no length is no body";
  EXPECT_EQ("Status: 405 Method Not Allowed", first_line(run_program("PATH_INFO=/login")));
  EXPECT_EQ("Status: 405 Method Not Allowed", first_line(run_program("REQUEST_METHOD=get PATH_INFO=/login")));
  EXPECT_EQ("Status: 500 Internal Server Error", first_line(run_program("REQUEST_METHOD=GET ROUTER_CGI_DIR=")));
  EXPECT_EQ("Status: 500 Internal Server Error", first_line(run_program("REQUEST_METHOD=GET \"SCRIPT_NAME=/'x\"")));
  EXPECT_EQ("Status: 404 Not Found", first_line(run_program("REQUEST_METHOD=GET PATH_INFO=/unknow")));
}

TEST(RouterCgiAlone, TakesNoZeroBytesInABody) {
  prepare_folders();
  write_file("/run/body", std::string("user=admin\0&password=secret", 27));
  EXPECT_EQ("Status: 400 Bad Request",
            first_line(run_program(std::string("REQUEST_METHOD=POST PATH_INFO=/login ") + form + "CONTENT_LENGTH=27",
                                   "</run/body")));
}

TEST(RouterCgiAlone, KeepsTheOldSettingsWhenTheNewCannotBeStored) {
  prepare_folders();
  write_file("/run/router/session", std::string(32, 'a') + "\n");
  write_file("/run/router/settings", "name=old\n");
  write_file("/run/body", "name=new&address=1.2.3.4&note=x");
  const std::string post = "REQUEST_METHOD=POST PATH_INFO=/settings HTTP_COOKIE=session=" + std::string(32, 'a') + " " +
                           form + "CONTENT_LENGTH=31";
  // No file may have any contents, so the draft cannot be written.
  const std::string output =
      sandbox::run("ulimit -f 0; trap '' XFSZ; env -i ROUTER_CGI_DIR=/run/router SCRIPT_NAME=/x " + post + " " +
                   sandbox::example("router_cgi") + " </run/body")
          .output;
  EXPECT_EQ("Status: 500 Internal Server Error", first_line(output));
  EXPECT_EQ("name=old\n", read_file("/run/router/settings"));
  EXPECT_EQ("credentials\nhelp\nsession\nsettings\n", sandbox::run("ls /run/router").output);
}
