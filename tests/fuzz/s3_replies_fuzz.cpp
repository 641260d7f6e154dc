// S3 replies are XML from the network (listings, errors, multipart initiations, upload
// listings, completions). Every reader gets the same bytes and none may crash; what they
// find must keep the readers' promises. The input, cut at each form feed, is also a
// listing page after page: it must end or fail within its bounds, its keys in growing
// order and none past the bounds.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "framework/client_io/s3_client.h"
#include "framework/client_io/s3_replies_internal.h"
#include "tests/fuzz/quiet_log.h"

namespace {

constexpr uint64_t MAX_KEYS = 64, MAX_PAGES = 8;

void read_listing(const std::string& input) {
  S3_Listing listing("pool/", MAX_KEYS, MAX_PAGES);
  std::string token, error;
  size_t pages = 0;
  for (size_t start = 0; start <= input.size(); ++pages) {
    size_t end = input.find('\f', start);
    if (end == std::string::npos) end = input.size();
    if (!listing.take(input.substr(start, end - start), token, error)) {
      if (error.empty()) __builtin_trap();
      break;
    }
    if (token.empty()) break;
    if (pages > MAX_PAGES) __builtin_trap();  // the listing's own bound must have held
    start = end + 1;
  }
  const std::vector<std::string>& names = listing.names();
  if (names.size() > MAX_KEYS) __builtin_trap();
  for (size_t i = 1; i < names.size(); ++i) {
    if (!(names[i - 1] < names[i])) __builtin_trap();
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  au_fuzz::quiet_log();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string doc(reinterpret_cast<const char*>(data), size);
  s3_error_code(doc);
  s3_upload_id(doc);
  for (const std::string& id : s3_uploads_of(doc, "pool/p")) {
    if (id.empty()) __builtin_trap();
  }
  const std::string etag = s3_bare_etag(s3_completed_etag(doc));
  if (s3_etag_is_md5(etag) && etag.size() != 32 && (etag.size() < 34 || etag[32] != '-')) __builtin_trap();
  std::vector<std::string> etags;
  std::string text;
  for (size_t at = 0, before = 0; xml_next(doc, "ETag", at, text); before = at) {
    if (at <= before || at > doc.size()) __builtin_trap();  // each find moves on
    etags.push_back(text);
  }
  const std::string whole = s3_multipart_etag(etags);
  if (!whole.empty() && !s3_etag_is_md5(whole)) __builtin_trap();
  read_listing(doc);
  return 0;
}
