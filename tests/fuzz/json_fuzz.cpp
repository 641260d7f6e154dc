// Any text the reader accepts must write back as text it accepts again, to an equal value,
// in both layouts; pointers taken from the input must not crash the extractor.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>

#include "framework/json/extract.h"
#include "framework/json/reader.h"
#include "framework/json/writer.h"

using namespace json_spirit;

namespace {

void check_round_trip(const Value& value, bool pretty) {
  const std::string text = write(value, pretty);
  Value again;
  std::string error;
  if (!read(text, again, error) || again != value) __builtin_trap();
  if (write(again, pretty) != text) __builtin_trap();
}

// The first line of the input, used as a JSON pointer into the value.
void probe_pointer(const Value& value, const char* data, std::size_t size) {
  std::size_t end = 0;
  while (end < size && data[end] != '\n') ++end;
  const std::string path(data, end);
  const JSON_Pointer_Extractor ex(value);
  try {
    int i = 0;
    std::string s;
    Value v;
    ex.extract(path, v, false);
    ex.extract(path, i, false);
    ex.extract(path, s, false);
  } catch (const std::exception&) {
    // Malformed pointers and conversions throw by design.
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const char* text = reinterpret_cast<const char*>(data);
  Value value;
  std::string error;
  if (!read(text, size, value, error)) {
    if (error.empty()) __builtin_trap();
    return 0;
  }
  check_round_trip(value, false);
  check_round_trip(value, true);
  probe_pointer(value, text, size);
  return 0;
}
