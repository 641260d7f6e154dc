#include "framework/client_io/record_cipher.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>

#include <memory>

#include "framework/base/hex_string.h"

namespace {

using Ctx = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

bool decode_exact(const std::string& hex, unsigned char* out, size_t length) {
  // Checked here so that the decoder has nothing to complain about in a log line.
  if (hex.size() != 2 * length ||
      hex.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
    return false;
  }
  std::basic_string<unsigned char> bytes;
  if (!hex_decode(hex, bytes) || bytes.size() != length) return false;
  std::copy(bytes.begin(), bytes.end(), out);
  OPENSSL_cleanse(&bytes[0], bytes.size());
  return true;
}

}  // namespace

Record_Cipher::~Record_Cipher() { OPENSSL_cleanse(key_, sizeof key_); }

bool Record_Cipher::init(const std::string& key_hex, const std::string& iv_hex,
                         const unsigned char (&salt)[GCM_NONCE_LENGTH]) {
  if (!decode_exact(key_hex, key_, sizeof key_) || !decode_exact(iv_hex, base_, sizeof base_)) {
    return false;
  }
  for (size_t i = 0; i < GCM_NONCE_LENGTH; ++i) base_[i] ^= salt[i];
  std::copy(salt, salt + GCM_NONCE_LENGTH, salt_);
  return true;
}

bool Record_Cipher::mac_key(unsigned char (&out)[SHA256_LENGTH]) const {
  static const char label[] = "agentutil piece v2 mac";
  std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> ctx(
      EVP_PKEY_CTX_new_id(EVP_PKEY_HKDF, nullptr), EVP_PKEY_CTX_free);
  size_t length = sizeof out;
  return ctx && EVP_PKEY_derive_init(ctx.get()) == 1 &&
         EVP_PKEY_CTX_set_hkdf_md(ctx.get(), EVP_sha256()) == 1 &&
         EVP_PKEY_CTX_set1_hkdf_salt(ctx.get(), salt_, sizeof salt_) == 1 &&
         EVP_PKEY_CTX_set1_hkdf_key(ctx.get(), key_, sizeof key_) == 1 &&
         EVP_PKEY_CTX_add1_hkdf_info(ctx.get(), reinterpret_cast<const unsigned char*>(label),
                                     sizeof label - 1) == 1 &&
         EVP_PKEY_derive(ctx.get(), out, &length) == 1 && length == sizeof out;
}

Digest_256::Digest_256(const unsigned char (*key)[SHA256_LENGTH]) {
  if (key == nullptr) {
    md_ = EVP_MD_CTX_new();
    ok_ = md_ != nullptr && EVP_DigestInit_ex(md_, EVP_sha256(), nullptr) == 1;
    return;
  }
  EVP_MAC* mac = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
  mac_ = mac ? EVP_MAC_CTX_new(mac) : nullptr;
  EVP_MAC_free(mac);  // the context holds its own reference
  char digest[] = "SHA256";
  const OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, 0),
                               OSSL_PARAM_construct_end()};
  ok_ = mac_ != nullptr && EVP_MAC_init(mac_, *key, SHA256_LENGTH, params) == 1;
}

Digest_256::~Digest_256() {
  EVP_MD_CTX_free(md_);
  EVP_MAC_CTX_free(mac_);
}

void Digest_256::update(const void* bytes, size_t length) {
  if (!ok_ || length == 0) return;
  const auto* b = static_cast<const unsigned char*>(bytes);
  ok_ = md_ ? EVP_DigestUpdate(md_, b, length) == 1 : EVP_MAC_update(mac_, b, length) == 1;
}

bool Digest_256::final(unsigned char (&out)[SHA256_LENGTH]) {
  unsigned int n = 0;
  size_t m = 0;
  ok_ = ok_ && (md_ ? EVP_DigestFinal_ex(md_, out, &n) == 1 && n == sizeof out
                    : EVP_MAC_final(mac_, out, &m, sizeof out) == 1 && m == sizeof out);
  return ok_;
}

void Record_Cipher::nonce(uint64_t record, unsigned char (&out)[GCM_NONCE_LENGTH]) const {
  for (size_t i = 0; i < GCM_NONCE_LENGTH; ++i) out[i] = base_[i];
  for (size_t i = 0; i < 8; ++i) out[4 + i] ^= static_cast<unsigned char>(record >> (8 * i));
}

bool Record_Cipher::seal(uint64_t record, const void* aad, size_t aad_length, const void* plain,
                         size_t length, std::string& out) const {
  Ctx ctx(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  unsigned char iv[GCM_NONCE_LENGTH];
  nonce(record, iv);
  out.resize(length + GCM_TAG_LENGTH);
  auto* o = reinterpret_cast<unsigned char*>(&out[0]);
  int n = 0, tail = 0;
  return ctx && EVP_EncryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, key_, iv) == 1 &&
         EVP_EncryptUpdate(ctx.get(), nullptr, &n, static_cast<const unsigned char*>(aad),
                           static_cast<int>(aad_length)) == 1 &&
         (length == 0 || EVP_EncryptUpdate(ctx.get(), o, &n, static_cast<const unsigned char*>(plain),
                                           static_cast<int>(length)) == 1) &&
         EVP_EncryptFinal_ex(ctx.get(), o + length, &tail) == 1 &&
         EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_GET_TAG, GCM_TAG_LENGTH, o + length) == 1;
}

bool Record_Cipher::open(uint64_t record, const void* aad, size_t aad_length, const void* sealed,
                         size_t sealed_length, std::string& out) const {
  if (sealed_length < GCM_TAG_LENGTH) return false;
  const size_t length = sealed_length - GCM_TAG_LENGTH;
  const auto* s = static_cast<const unsigned char*>(sealed);
  Ctx ctx(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  unsigned char iv[GCM_NONCE_LENGTH];
  nonce(record, iv);
  unsigned char tag[GCM_TAG_LENGTH];
  std::copy(s + length, s + sealed_length, tag);
  out.resize(length);
  auto* o = reinterpret_cast<unsigned char*>(&out[0]);
  int n = 0, tail = 0;
  return ctx && EVP_DecryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, key_, iv) == 1 &&
         EVP_DecryptUpdate(ctx.get(), nullptr, &n, static_cast<const unsigned char*>(aad),
                           static_cast<int>(aad_length)) == 1 &&
         (length == 0 || EVP_DecryptUpdate(ctx.get(), o, &n, s, static_cast<int>(length)) == 1) &&
         EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_TAG, GCM_TAG_LENGTH, tag) == 1 &&
         EVP_DecryptFinal_ex(ctx.get(), o + length, &tail) == 1;
}
