#include "framework/http/http_request.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "framework/http/http_header_ids.h"
#include "tests/support/log_capture.h"

namespace {

TEST(HTTP_Method, names_known_codes_and_unknown_ones_safely) {
  // The hole at 8 and codes out of range name themselves safely.
  const std::pair<int, const char*> names[] = {{2, "DELETE"},  {3, "GET"},        {9, "POST"},
                                               {10, "PUT"},    {HTTP_HEAD, "HEAD"}, {8, "UNKNOWN"},
                                               {-1, "UNKNOWN"}, {11, "UNKNOWN"}};
  for (const auto& n : names) EXPECT_STREQ(n.second, http_method_string(n.first)) << n.first;
  EXPECT_FALSE(http_method_is_known(HTTP_UNKNOWN));
}

TEST(HTTP_Headers, put_replace_get_remove_and_numeric_ids) {
  HTTP_Headers h;
  EXPECT_EQ(nullptr, h.get("Cookie"));
  EXPECT_TRUE(h.put("Cookie", "a=1", true));
  EXPECT_TRUE(h.put("cookie", "b=2", false));
  EXPECT_EQ(2u, h.size());
  EXPECT_STREQ("a=1", h.get("COOKIE"));
  EXPECT_EQ(nullptr, h.get("COOKIE", false));
  // replace leaves exactly one field, wherever the duplicates were.
  EXPECT_TRUE(h.put("Accept", "*/*"));
  EXPECT_TRUE(h.put("COOKIE", "c=3", true));
  EXPECT_EQ(2u, h.size());
  EXPECT_STREQ("c=3", h.get("Cookie"));
  EXPECT_EQ("Accept", std::next(h.begin())->first);
  EXPECT_TRUE(h.put("X-Empty", ""));
  EXPECT_STREQ("", h.get("x-empty"));
  EXPECT_EQ(1u, h.remove("x-EMPTY"));
  EXPECT_EQ(0u, h.remove("x-empty"));

  // Numeric ids name the same field.
  EXPECT_TRUE(h.put(HTTP_HEADER_ACCESS_KEY, "k1", true));
  EXPECT_TRUE(h.put(49, "k2", true));
  EXPECT_EQ(3u, h.size());
  EXPECT_STREQ("k2", h.get("X-Access-Key"));
  EXPECT_STREQ("k2", h.get(49));
  au_test::Log_Capture logs;
  EXPECT_FALSE(h.put(48, "x", true));
  EXPECT_EQ(nullptr, h.get(48));
  EXPECT_TRUE(logs.has(LM_ERROR, "Refused HTTP header id 48: not a known header.\n")) << logs.dump();
}

TEST(HTTP_Headers, refuses_text_that_would_forge_header_lines) {
  au_test::Log_Capture logs;
  HTTP_Headers h;
  const std::pair<const char*, const char*> bad[] = {
      {"X-A", "v\r\nX-Injected: 1"}, {"X-A", "v\nX"}, {"X A", "v"}, {"X:A", "v"},
      {"", "v"},                     {nullptr, "v"},  {"X-A", nullptr}};
  for (const auto& b : bad) EXPECT_FALSE(h.put(b.first, b.second, true)) << (b.second != nullptr);
  EXPECT_TRUE(h.empty());
  EXPECT_TRUE(logs.has(LM_ERROR, "Refused HTTP header 'X-A': bad name or value.\n"));
  EXPECT_TRUE(logs.has(LM_ERROR, "Refused HTTP header '(invalid name)': bad name or value.\n"));
  // The refused value itself never reaches the log.
  for (const auto& r : logs.records()) EXPECT_EQ(std::string::npos, r.text.find("Injected"));
}

TEST(HTTP_Request, path_and_query) {
  HTTP_Request split(HTTP_GET, "/d2/r/v2/resources?uuid=a%20b&x=1", true);
  EXPECT_EQ("/d2/r/v2/resources", split.uri());
  EXPECT_STREQ("uuid=a%20b&x=1", split.query_string());
  EXPECT_EQ("/d2/r/v2/resources?uuid=a%20b&x=1", split.target());

  HTTP_Request whole(HTTP_POST, "/d2/r/v2/job/action?job_uuid=j1", false);
  EXPECT_EQ("/d2/r/v2/job/action?job_uuid=j1", whole.uri());
  EXPECT_STREQ("", whole.query_string());
  // A query added separately joins the one already in the path.
  whole.query_string("?force=1");
  EXPECT_EQ("/d2/r/v2/job/action?job_uuid=j1&force=1", whole.target());

  HTTP_Request built(HTTP_DELETE, "/d2/r/v2/instances", false);
  built.query_string_buffer() += "uuid=u1";
  EXPECT_EQ("/d2/r/v2/instances?uuid=u1", built.target());
  // Re-parsing a new URI replaces the query; not parsing keeps it.
  built.uri("/other", false);
  EXPECT_EQ("/other?uuid=u1", built.target());
  built.uri("/third", true);
  EXPECT_EQ("/third", built.target());
  built.query_string(nullptr);
  EXPECT_STREQ("", built.query_string());

  HTTP_Request null_uri(HTTP_GET, nullptr, true);
  EXPECT_EQ("", null_uri.target());
}

}  // namespace
