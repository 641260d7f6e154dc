#include "framework/json/writer.h"

#include "framework/json/emit.h"
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace json_spirit {

namespace {

template <class Writer>
std::string write_with(const Value& value, Secrets secrets) {
  rapidjson::StringBuffer buffer;
  Writer writer(buffer);
  if (!detail::emit_value(writer, value, secrets)) return std::string();
  return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace

std::string write(const Value& value, bool pretty, Secrets secrets) {
  if (pretty) return write_with<rapidjson::PrettyWriter<rapidjson::StringBuffer>>(value, secrets);
  return write_with<rapidjson::Writer<rapidjson::StringBuffer>>(value, secrets);
}

}  // namespace json_spirit
