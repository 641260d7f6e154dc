// What the S3 client reads out of a gateway's replies, and the digests it checks them
// against: kept apart from the transport so that tests and the fuzzer reach the parsing
// without a server. Not installed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

typedef struct evp_md_ctx_st EVP_MD_CTX;

// MD5 over bytes given a piece at a time (what S3 checks a body against).
class S3_Md5 {
 public:
  S3_Md5();
  ~S3_Md5();
  S3_Md5(const S3_Md5&) = delete;
  S3_Md5& operator=(const S3_Md5&) = delete;
  void add(const char* p, size_t len);
  // The 16-byte digest of what was added since the last finish().
  std::string finish();

 private:
  EVP_MD_CTX* ctx_;
};

std::string s3_md5(const char* p, size_t len);

// An ETag as lower-case text without its quotes.
std::string s3_bare_etag(const std::string& etag);
// "<32 hex>" or "<32 hex>-N": an ETag S3 made from MD5s (not an encrypted upload's).
bool s3_etag_is_md5(const std::string& bare);
// The ETag S3 gives an object completed from parts with these ETags: the MD5 of their
// MD5s, "-", their count. "" when one of them is not an MD5.
std::string s3_multipart_etag(const std::vector<std::string>& part_etags);

// The code of an error document, "" when there is none.
std::string s3_error_code(const std::string& body);
// The upload id of an InitiateMultipartUploadResult, "" when there is none.
std::string s3_upload_id(const std::string& body);
// The ids of the uploads of `key` in a ListMultipartUploadsResult.
std::vector<std::string> s3_uploads_of(const std::string& body, const std::string& key);
// The ETag of a CompleteMultipartUploadResult, "" when there is none.
std::string s3_completed_etag(const std::string& body);

// A ListObjectsV2 listing read page by page. Hostile listings end in an error, not a loop:
// keys must grow from page to page, a continuation token is never repeated, and the keys
// and pages are bounded, and so is a key's length.
class S3_Listing {
 public:
  S3_Listing(std::string pool_prefix, uint64_t max_keys, uint64_t max_pages)
      : prefix_(std::move(pool_prefix)), max_keys_(max_keys), max_pages_(max_pages) {}
  // One page. True when it is sound, with the next page's continuation token in `token`
  // ("" when the listing is over).
  bool take(const std::string& page, std::string& token, std::string& error);
  // Keys under the pool's prefix with it taken off, in listing order.
  std::vector<std::string>& names() { return names_; }

 private:
  std::string prefix_;
  uint64_t max_keys_, max_pages_;
  uint64_t keys_ = 0, pages_ = 0;
  std::string last_key_;
  std::set<std::string> tokens_;  // MD5s of the continuation tokens seen
  std::vector<std::string> names_;
};
