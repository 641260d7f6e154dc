#include "framework/http/uri_parser.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/log_capture.h"

namespace {

TEST(URI_Parser, takes_http_and_https_urls_apart) {
  URI u;
  ASSERT_TRUE(URI_Parser::parse("https://storage.example:50306/d2/r?x=1&y=2", u));
  EXPECT_EQ("https", u.scheme());
  EXPECT_EQ("storage.example", u.host(false));
  EXPECT_EQ("storage.example:50306", u.host(true));
  EXPECT_EQ(50306, u.port());
  EXPECT_TRUE(u.is_ssl());
  EXPECT_EQ("/d2/r", u.path());
  EXPECT_EQ("x=1&y=2", u.query());

  ASSERT_TRUE(URI_Parser::parse("http://10.0.0.5", u));
  EXPECT_EQ(80, u.port());
  EXPECT_FALSE(u.is_ssl());
  EXPECT_EQ("/", u.path());
  EXPECT_EQ("", u.query());

  ASSERT_TRUE(URI_Parser::parse("HTTPS://[::1]/", u));
  EXPECT_EQ("::1", u.host(false));
  EXPECT_EQ("[::1]:443", u.host(true));
  EXPECT_EQ(443, u.port());
  EXPECT_TRUE(u.is_ssl());
}

TEST(URI_Parser, hostile_text_fails_cleanly_and_leaves_the_uri_alone) {
  URI u;
  ASSERT_TRUE(URI_Parser::parse("http://keep.me:81/", u));
  au_test::Log_Capture logs;
  const char* bad[] = {
      nullptr,
      "",
      "storage.example:50306",
      "ftp://host/",
      "file:///etc/passwd",
      "http://",
      "http://:80/",
      "http://host:99999/",
      "http://host:0/",
      "http://host:-1/",
      "http://host:port/",
      "http://ho st/",
      "http://host/\r\nX-Injected: 1",
      "http://[::1/",
      "\xff\xfe\x01garbage",
      "http://host\x01/",
  };
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
