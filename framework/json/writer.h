// Writing json_spirit::Value as JSON text, through RapidJSON's Writer and PrettyWriter.
//
// Object members come out in key order. Reals that are not finite are written as null,
// and bytes of a string that are not UTF-8 as U+FFFD, so the text is always valid JSON.
// Secure strings are written in clear by default (request bodies need them); text meant
// for log lines masks them (Secrets::masked, JSON_Redacted_Dump).
#pragma once

#include <string>

#include "framework/base/api.h"
#include "framework/json/value.h"

namespace json_spirit {

enum class Secrets { clear, masked };

// What a masked secure string reads as.
constexpr const char* MASKED_SECRET = "******";

// Empty only when the value cannot be written at all (a string of 4 GiB or more).
AGENTUTIL_API std::string write(const Value& value, bool pretty = false,
                                Secrets secrets = Secrets::clear);

// The text of a value kept alive for a log line or a request body:
//   ACE_ERROR((LM_ERROR, "... json: %s\n", JSON_Dump(v).c_str()));
class AGENTUTIL_API JSON_Dump {
 public:
  explicit JSON_Dump(const Value& value, bool pretty = false, Secrets secrets = Secrets::clear)
      : text_(write(value, pretty, secrets)) {}
  const char* c_str() const { return text_.c_str(); }
  const std::string& str() const { return text_; }

 private:
  std::string text_;
};

// JSON_Dump with secrets masked: the one to use for log lines.
class AGENTUTIL_API JSON_Redacted_Dump : public JSON_Dump {
 public:
  explicit JSON_Redacted_Dump(const Value& value, bool pretty = false)
      : JSON_Dump(value, pretty, Secrets::masked) {}
};

}  // namespace json_spirit
