#include "framework/client_io/s3_replies_internal.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cctype>

#include "framework/base/hex_string.h"
#include "framework/client_io/s3_client.h"

S3_Md5::S3_Md5() : ctx_(EVP_MD_CTX_new()) {
  if (ctx_) EVP_DigestInit_ex(ctx_, EVP_md5(), nullptr);
}

S3_Md5::~S3_Md5() { EVP_MD_CTX_free(ctx_); }

void S3_Md5::add(const char* p, size_t len) {
  if (ctx_ && len > 0) EVP_DigestUpdate(ctx_, p, len);
}

std::string S3_Md5::finish() {
  unsigned char d[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  // Without a digest nothing is sent as checked: "" makes the ETag comparison fail.
  if (!ctx_ || EVP_DigestFinal_ex(ctx_, d, &n) != 1 || n != 16) n = 0;
  if (ctx_) EVP_DigestInit_ex(ctx_, EVP_md5(), nullptr);
  return std::string(reinterpret_cast<const char*>(d), n);
}

std::string s3_md5(const char* p, size_t len) {
  S3_Md5 md5;
  md5.add(p, len);
  return md5.finish();
}

std::string s3_bare_etag(const std::string& etag) {
  std::string out = etag;
  if (out.size() >= 2 && out.front() == '"' && out.back() == '"') out = out.substr(1, out.size() - 2);
  std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
  return out;
}

bool s3_etag_is_md5(const std::string& bare) {
  if (bare.size() < 32 || bare.find_first_not_of("0123456789abcdef") < 32) return false;
  if (bare.size() == 32) return true;
  return bare.size() <= 32 + 6 && bare[32] == '-' && bare.size() > 33 &&
         bare.find_first_not_of("0123456789", 33) == std::string::npos;
}

std::string s3_multipart_etag(const std::vector<std::string>& part_etags) {
  std::string md5s;
  for (const std::string& e : part_etags) {
    const std::string bare = s3_bare_etag(e);
    std::basic_string<unsigned char> bytes;
    if (bare.size() != 32 || !s3_etag_is_md5(bare) || !hex_decode(bare, bytes)) return "";
    md5s.append(bytes.begin(), bytes.end());
  }
  const std::string d = s3_md5(md5s.data(), md5s.size());
  return hex_encode(d.data(), d.size()) + "-" + std::to_string(part_etags.size());
}

std::string s3_error_code(const std::string& body) {
  std::string code;
  size_t at = body.find("<Error>");
  if (at == std::string::npos || !xml_next(body, "Code", at, code)) return "";
  return code;
}

std::string s3_upload_id(const std::string& body) {
  std::string id;
  size_t at = 0;
  return xml_next(body, "UploadId", at, id) ? id : "";
}

std::vector<std::string> s3_uploads_of(const std::string& body, const std::string& key) {
  std::vector<std::string> ids;
  const std::string open = "<Upload>", close = "</Upload>";
  for (size_t a = body.find(open); a != std::string::npos; a = body.find(open, a)) {
    const size_t b = body.find(close, a);
    if (b == std::string::npos) break;
    // Each field read within its own <Upload>, from the raw text: decoded once only.
    const std::string upload = body.substr(a + open.size(), b - a - open.size());
    std::string k, id;
    size_t at = 0, id_at = 0;
    if (xml_next(upload, "Key", at, k) && k == key && xml_next(upload, "UploadId", id_at, id) && !id.empty()) {
      ids.push_back(id);
    }
    a = b + close.size();
  }
  return ids;
}

std::string s3_completed_etag(const std::string& body) {
  std::string etag;
  size_t at = body.find("<CompleteMultipartUploadResult");
  return at != std::string::npos && xml_next(body, "ETag", at, etag) ? etag : "";
}

namespace {
constexpr size_t MAX_KEY = 1024;  // S3's own limit
}  // namespace

bool S3_Listing::take(const std::string& page, std::string& token, std::string& error) {
  token.clear();
  if (++pages_ > max_pages_) {
    return (error = "S3 listing longer than " + std::to_string(max_pages_) + " pages"), false;
  }
  std::string key, truncated;
  for (size_t at = 0; xml_next(page, "Key", at, key);) {
    // Keys come in binary order: one not past the last means the listing went round.
    if (key.size() > MAX_KEY) return (error = "S3 listing with a key longer than 1024 bytes"), false;
    if (keys_ > 0 && key <= last_key_) {
      return (error = "S3 listing goes back to keys already listed"), false;
    }
    if (++keys_ > max_keys_) {
      return (error = "S3 listing longer than " + std::to_string(max_keys_) + " keys"), false;
    }
    last_key_ = key;
    if (key.compare(0, prefix_.size(), prefix_) == 0) names_.push_back(key.substr(prefix_.size()));
  }
  size_t at = 0;
  if (!xml_next(page, "IsTruncated", at, truncated) || truncated != "true") return true;
  at = 0;
  if (!xml_next(page, "NextContinuationToken", at, token) || token.empty()) {
    return (error = "S3 listing truncated without a continuation token"), false;
  }
  // Their digests are kept: a token is opaque and may be long.
  if (!tokens_.insert(s3_md5(token.data(), token.size())).second) {
    token.clear();
    return (error = "S3 listing repeats a continuation token"), false;
  }
  return true;
}
