// Client I/O option documents come from agents and pool descriptions. A document is
// either refused (options untouched) or loaded, and what is loaded dumps to a document
// that loads back to equal options and dumps to the same text.
#include <cstddef>
#include <cstdint>
#include <string>

#include "framework/client_io/client_io_options.h"
#include "framework/json/reader.h"
#include "framework/json/writer.h"
#include "tests/fuzz/quiet_log.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  au_fuzz::quiet_log();
  json_spirit::Value doc;
  if (!json_spirit::read(reinterpret_cast<const char*>(data), size, doc)) return 0;
  Client_IO_Base::Options o;
  o.retry_count = 77;
  const Client_IO_Base::Options before = o;
  if (!o.load(doc)) {
    if (o != before) __builtin_trap();
    return 0;
  }
  const std::string text = json_spirit::write(o.dump());
  json_spirit::Value again_doc;
  Client_IO_Base::Options again;
  if (!json_spirit::read(text, again_doc) || !again.load(again_doc) || again != o) __builtin_trap();
  if (json_spirit::write(again.dump()) != text) __builtin_trap();
  return 0;
}
