#include "framework/json/generator.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "framework/json/reader.h"
#include "framework/json/writer.h"

using namespace json_spirit;

namespace {

// Drains a generator in chunks of `chunk` bytes; false when it reported failure.
bool drain(JSON_Generator& gen, std::size_t chunk, std::string& text) {
  std::string buf(chunk, '\0');
  for (;;) {
    const long n = gen.generate(&buf[0], chunk);
    if (n < 0) return false;
    if (n == 0) return true;
    EXPECT_LE(static_cast<std::size_t>(n), chunk);
    text.append(buf.data(), static_cast<std::size_t>(n));
  }
}

Value catalog_row(int i) {
  return Object{{"id", i},
                {"name", "file \"" + std::to_string(i) + "\"\n\xC3\xA9"},
                {"size", uint64_t(1) << 40 | static_cast<uint64_t>(i)},
                {"tags", Array{"a", Value(), 0.5}}};
}

// Rows 0..count-1 of catalog_row; counts the calls to restart.
struct Row_Source {
  int count;
  int next_row = 0;
  int restarts = 0;
  JSON_Row_Generator::Next_Row next() {
    return [this](std::string& key, Value& row) {
      if (next_row == count) return 0;
      key = "k" + std::to_string(next_row);
      row = catalog_row(next_row++);
      return 1;
    };
  }
  JSON_Row_Generator::Restart restart() {
    return [this] {
      ++restarts;
      next_row = 0;
      return true;
    };
  }
};

}  // namespace

TEST(Json_Generator, streamed_rows_parse_back_equal) {
  Array expected_rows;
  Object expected_members;
  for (int i = 0; i < 500; ++i) {
    expected_rows.push_back(catalog_row(i));
    expected_members["k" + std::to_string(i)] = catalog_row(i);
  }
  for (std::size_t chunk : {1, 7, 16384}) {
    Row_Source source{500};
    JSON_Row_Generator gen(JSON_Row_Generator::array_rows, source.next());
    std::string text;
    ASSERT_TRUE(drain(gen, chunk, text)) << gen.error();
    Value back;
    ASSERT_TRUE(read(text, back)) << text.substr(0, 200);
    EXPECT_EQ(back, Value(expected_rows)) << "chunk " << chunk;
    EXPECT_EQ(gen.rows_written(), 500u);
  }
  Row_Source source{500};
  JSON_Row_Generator gen(JSON_Row_Generator::object_members, source.next());
  std::string text;
  ASSERT_TRUE(drain(gen, 1000, text));
  Value back;
  ASSERT_TRUE(read(text, back));
  EXPECT_EQ(back, Value(expected_members));
}

TEST(Json_Generator, envelope_and_empty_row_sets) {
  Row_Source none{0};
  JSON_Row_Generator empty(JSON_Row_Generator::array_rows, none.next());
  std::string text;
  ASSERT_TRUE(drain(empty, 64, text));
  EXPECT_EQ(text, "[]");

  Row_Source two{2};
  JSON_Row_Generator gen(JSON_Row_Generator::array_rows, two.next());
  gen.envelope(Object{{"catalog", "c1"}, {"rows", "replaced"}, {"secret", Value::secure("k")}},
               "rows");
  text.clear();
  ASSERT_TRUE(drain(gen, 3, text));
  EXPECT_EQ(text, "{\"catalog\":\"c1\",\"secret\":\"k\",\"rows\":[" + write(catalog_row(0)) + "," +
                      write(catalog_row(1)) + "]}");
}

TEST(Json_Generator, failing_source_stops_the_document) {
  int calls = 0;
  JSON_Row_Generator gen(JSON_Row_Generator::array_rows, [&](std::string&, Value& row) {
    row = catalog_row(calls);
    return ++calls < 3 ? 1 : -1;
  });
  std::string text;
  EXPECT_FALSE(drain(gen, 4096, text));
  EXPECT_EQ(gen.error(), "JSON row source failed at row 2.");
  char c;
  EXPECT_EQ(gen.generate(&c, 1), -1);
  EXPECT_FALSE(gen.rewind()) << "no restart callback";

  JSON_Row_Generator throwing(JSON_Row_Generator::object_members,
                              [](std::string&, Value&) -> int { throw std::runtime_error("disk gone"); });
  text.clear();
  EXPECT_FALSE(drain(throwing, 4096, text));
  EXPECT_EQ(throwing.error(), "JSON row source threw at row 0: disk gone");
}

TEST(Json_Generator, rewind_starts_over) {
  Row_Source source{50};
  JSON_Row_Generator gen(JSON_Row_Generator::array_rows, source.next(), source.restart());
  EXPECT_TRUE(gen.rewind());
  EXPECT_EQ(source.restarts, 0) << "nothing generated yet: nothing to restart";
  std::string first(100, '\0');
  ASSERT_EQ(gen.generate(&first[0], first.size()), 100);
  ASSERT_TRUE(gen.rewind());
  EXPECT_EQ(source.restarts, 1);
  std::string whole;
  ASSERT_TRUE(drain(gen, 333, whole));
  EXPECT_EQ(whole.substr(0, 100), first);
  Value back;
  ASSERT_TRUE(read(whole, back));
  EXPECT_EQ(back.get_array().size(), 50u);

  JSON_Text_Generator fixed(Value(Array{1, "two"}));
  std::string text;
  ASSERT_TRUE(drain(fixed, 2, text));
  EXPECT_EQ(text, "[1,\"two\"]");
  ASSERT_TRUE(fixed.rewind());
  text.clear();
  ASSERT_TRUE(drain(fixed, 100, text));
  EXPECT_EQ(text, "[1,\"two\"]");
}
