// The body of an outgoing request: nothing, a ready text (sent with Content-Length),
// or a stream pulled piece by piece while sending (sent chunked).
#pragma once

#include <cstddef>
#include <string>

class HTTP_Body_Source {
 public:
  virtual ~HTTP_Body_Source() = default;
  // Copies up to `size` next bytes into `buf`: the count, 0 at the end, negative
  // when the source failed (the request is then abandoned).
  virtual long read(char* buf, std::size_t size) = 0;
  // Back to the first byte, so the body can be sent again; false when impossible.
  virtual bool rewind() { return false; }
};

class HTTP_Request_Body {
 public:
  HTTP_Request_Body() = default;
  static HTTP_Request_Body text(const std::string& t) {
    HTTP_Request_Body b;
    b.text_ = &t;
    return b;
  }
  static HTTP_Request_Body stream(HTTP_Body_Source& s) {
    HTTP_Request_Body b;
    b.source_ = &s;
    return b;
  }

  bool empty() const { return text_ == nullptr && source_ == nullptr; }
  const std::string* text() const { return text_; }
  HTTP_Body_Source* source() const { return source_; }

 private:
  const std::string* text_ = nullptr;
  HTTP_Body_Source* source_ = nullptr;
};
