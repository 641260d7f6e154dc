#include "framework/http/uri_parser.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/log_capture.h"

namespace {

TEST(URI_Parser, takes_http_and_https_urls_apart) {
  struct Case {
    const char *text, *host, *host_port;
    int port;
    bool ssl;
    const char *path, *query;
  } cases[] = {
      {"https://storage.example:50306/d2/r?x=1&y=2", "storage.example", "storage.example:50306",
       50306, true, "/d2/r", "x=1&y=2"},
      {"http://10.0.0.5", "10.0.0.5", "10.0.0.5:80", 80, false, "/", ""},
      {"HTTPS://[::1]/", "::1", "[::1]:443", 443, true, "/", ""}};
  URI u;  // reused: each parse replaces every part
  for (const Case& c : cases) {
    ASSERT_TRUE(URI_Parser::parse(c.text, u)) << c.text;
    EXPECT_EQ(c.ssl ? "https" : "http", u.scheme()) << c.text;
    EXPECT_EQ(c.host, u.host(false));
    EXPECT_EQ(c.host_port, u.host(true));
    EXPECT_EQ(c.port, u.port());
    EXPECT_EQ(c.ssl, u.is_ssl());
    EXPECT_EQ(c.path, u.path());
    EXPECT_EQ(c.query, u.query());
  }
}

TEST(URI_Parser, hostile_text_fails_cleanly_and_leaves_the_uri_alone) {
  URI u;
  ASSERT_TRUE(URI_Parser::parse("http://keep.me:81/", u));
  au_test::Log_Capture logs;
  const char* bad[] = {nullptr, "", "storage.example:50306", "ftp://host/", "file:///etc/passwd",
                       "http://", "http://:80/", "http://host:99999/", "http://host:0/",
                       "http://host:-1/", "http://host:port/", "http://ho st/",
                       "http://host/\r\nX-Injected: 1", "http://[::1/", "\xff\xfe\x01garbage",
                       "http://host\x01/"};
  for (const char* text : bad)
    EXPECT_FALSE(URI_Parser::parse(text, u)) << (text ? text : "(null)");
  EXPECT_EQ("keep.me", u.host(false));
  EXPECT_EQ(81, u.port());
  // One line per refusal, none showing the text (it may hold credentials).
  EXPECT_EQ(sizeof(bad) / sizeof(bad[0]), logs.records().size()) << logs.dump();
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to parse URI: empty text.\n"));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to parse URI: not an http(s) URL.\n")) << logs.dump();
  EXPECT_FALSE(URI_Parser::parse("http://user:hunter2@:80/", u));
  for (const auto& r : logs.records()) EXPECT_EQ(std::string::npos, r.text.find("hunter2"));
}

}  // namespace
