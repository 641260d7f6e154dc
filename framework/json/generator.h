// JSON_Generator: a pull source of JSON text, for request bodies too large to build as
// one Value. The HTTP layer asks for the next bytes as its transfer needs them.
//
// JSON_Row_Generator writes a large array (or object) row by row from a callback, through
// RapidJSON's Writer into a small rolling buffer, so only one row is in memory at a time:
//
//   JSON_Row_Generator gen(JSON_Row_Generator::array_rows,
//                          [&](std::string&, Value& row) { ...; return more ? 1 : 0; });
//   gen.envelope(Object{{"catalog_id", id}}, "rows");   // {"catalog_id":..,"rows":[...]}
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "framework/base/api.h"
#include "framework/json/rapidjson_setup.h"
#include "framework/json/value.h"
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace json_spirit {

class AGENTUTIL_API JSON_Generator {
 public:
  virtual ~JSON_Generator() = default;

  // Copies the next bytes of the document into `buf` (at most `size`, which must not be
  // 0) and returns how many; 0 once the document is complete; -1 when producing it failed (see error()).
  // After -1 every call returns -1.
  virtual long generate(char* buf, std::size_t size) = 0;
  // Starts the document again from its first byte, for a request that must be sent
  // again. False when that cannot be done.
  virtual bool rewind() = 0;
  // Why generate() returned -1.
  virtual const std::string& error() const = 0;
};

// A document whose text is already known (a small body, or one written beforehand).
class AGENTUTIL_API JSON_Text_Generator : public JSON_Generator {
 public:
  explicit JSON_Text_Generator(std::string text) : text_(std::move(text)) {}
  explicit JSON_Text_Generator(const Value& value);
  long generate(char* buf, std::size_t size) override;
  bool rewind() override;
  const std::string& error() const override { return error_; }

 private:
  std::string text_;
  std::size_t sent_ = 0;
  std::string error_;
};

class AGENTUTIL_API JSON_Row_Generator : public JSON_Generator {
 public:
  enum Shape { array_rows, object_members };
  // Fills the next row (and, for object_members, its member name) and returns 1; returns
  // 0 when there are no more rows, -1 on failure. Exceptions count as failure.
  using Next_Row = std::function<int(std::string& key, Value& row)>;
  // Puts the row source back to its first row; true on success.
  using Restart = std::function<bool()>;

  JSON_Row_Generator(Shape shape, Next_Row next, Restart restart = Restart());

  // Wraps the rows in an object: head's members, then `rows_key` holding the rows.
  // Call before the first generate().
  void envelope(Object head, std::string rows_key);

  long generate(char* buf, std::size_t size) override;
  // Needs a Restart callback unless nothing has been generated yet.
  bool rewind() override;
  const std::string& error() const override { return error_; }

  std::size_t rows_written() const { return rows_; }

 private:
  enum Stage { start, rows, done, failed };
  bool produce();
  bool write_start();
  bool write_row();
  bool fail(std::string why);
  std::size_t pending() const { return buffer_.GetSize() - read_; }

  Shape shape_;
  Next_Row next_;
  Restart restart_;
  bool enveloped_ = false;
  Object head_;
  std::string rows_key_;

  rapidjson::StringBuffer buffer_;
  rapidjson::Writer<rapidjson::StringBuffer> writer_;
  std::size_t read_ = 0;
  Stage stage_ = start;
  std::size_t rows_ = 0;
  std::string error_;
};

}  // namespace json_spirit
