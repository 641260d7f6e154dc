#include "framework/json/generator.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

#include "framework/json/emit.h"
#include "framework/json/writer.h"

namespace json_spirit {

JSON_Text_Generator::JSON_Text_Generator(const Value& value) : text_(write(value)) {
  if (text_.empty()) error_ = "The value cannot be written as JSON text.";
}

long JSON_Text_Generator::generate(char* buf, std::size_t size) {
  if (!error_.empty()) return -1;
  const std::size_t n = std::min(size, text_.size() - sent_);
  std::memcpy(buf, text_.data() + sent_, n);
  sent_ += n;
  return static_cast<long>(n);
}

bool JSON_Text_Generator::rewind() {
  sent_ = 0;
  return error_.empty();
}

JSON_Row_Generator::JSON_Row_Generator(Shape shape, Next_Row next, Restart restart)
    : shape_(shape), next_(std::move(next)), restart_(std::move(restart)), writer_(buffer_) {}

void JSON_Row_Generator::envelope(Object head, std::string rows_key) {
  head.erase(rows_key);
  head_ = std::move(head);
  rows_key_ = std::move(rows_key);
  enveloped_ = true;
}

long JSON_Row_Generator::generate(char* buf, std::size_t size) {
  try {
    while (stage_ != failed && stage_ != done && pending() < size) {
      if (!produce()) break;
    }
  } catch (const std::exception& e) {  // out of memory: this runs under a C callback
    fail(std::string("Cannot write JSON rows: ") + e.what());
  }
  if (stage_ == failed) return -1;
  const std::size_t n = std::min(size, pending());
  std::memcpy(buf, buffer_.GetString() + read_, n);
  read_ += n;
  if (read_ == buffer_.GetSize()) {  // all handed out: the buffer starts over
    buffer_.Clear();
    read_ = 0;
  }
  return static_cast<long>(n);
}

bool JSON_Row_Generator::rewind() {
  const bool untouched = stage_ == start && buffer_.GetSize() == 0;
  if (!untouched) {
    if (!restart_) return false;
    bool restarted = false;
    try {
      restarted = restart_();
    } catch (const std::exception&) {
    }
    if (!restarted) return false;
  }
  buffer_.Clear();
  writer_.Reset(buffer_);
  read_ = 0;
  stage_ = start;
  rows_ = 0;
  error_.clear();
  return true;
}

bool JSON_Row_Generator::fail(std::string why) {
  error_ = std::move(why);
  stage_ = failed;
  return false;
}

bool JSON_Row_Generator::produce() {
  if (stage_ == start) return write_start();
  return write_row();
}

bool JSON_Row_Generator::write_start() {
  if (enveloped_) {
    bool ok = writer_.StartObject();
    for (const auto& member : head_) {
      ok = ok && detail::emit_string(writer_, member.first, true) &&
           detail::emit_value(writer_, member.second, Secrets::clear);
    }
    if (!ok || !detail::emit_string(writer_, rows_key_, true))
      return fail("Cannot write the envelope of the JSON rows.");
  }
  if (shape_ == array_rows)
    writer_.StartArray();
  else
    writer_.StartObject();
  stage_ = rows;
  return true;
}

bool JSON_Row_Generator::write_row() {
  std::string key;
  Value row;
  int more = -1;
  try {
    more = next_(key, row);
  } catch (const std::exception& e) {
    return fail("JSON row source threw at row " + std::to_string(rows_) + ": " + e.what());
  }
  if (more < 0) return fail("JSON row source failed at row " + std::to_string(rows_) + ".");
  if (more == 0) {
    if (shape_ == array_rows)
      writer_.EndArray();
    else
      writer_.EndObject();
    if (enveloped_) writer_.EndObject();
    stage_ = done;
    return true;
  }
  if (shape_ == object_members && !detail::emit_string(writer_, key, true))
    return fail("Cannot write the member name of row " + std::to_string(rows_) + ".");
  if (!detail::emit_value(writer_, row, Secrets::clear))
    return fail("Cannot write row " + std::to_string(rows_) + " as JSON text.");
  ++rows_;
  return true;
}

}  // namespace json_spirit
