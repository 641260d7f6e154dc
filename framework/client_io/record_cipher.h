// AES-256-GCM sealing of piece records (OpenSSL EVP).
//
// Every record gets its own nonce: the pool's IV XOR the piece's random salt, with the
// record number XORed into the last eight bytes. The salt keeps two pieces written with
// the same key and IV from ever sharing a nonce. The 16-byte tag follows the ciphertext.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

constexpr size_t GCM_TAG_LENGTH = 16;
constexpr size_t GCM_NONCE_LENGTH = 12;
constexpr size_t SHA256_LENGTH = 32;

class Record_Cipher {
 public:
  // `key_hex` 64 hex digits, `iv_hex` 24; false for anything else (nothing is logged:
  // these are secrets).
  bool init(const std::string& key_hex, const std::string& iv_hex,
            const unsigned char (&salt)[GCM_NONCE_LENGTH]);
  ~Record_Cipher();

  // out = ciphertext || tag (length + 16 bytes).
  bool seal(uint64_t record, const void* aad, size_t aad_length, const void* plain,
            size_t length, std::string& out) const;
  // False when the tag does not match: wrong key, or bytes changed.
  bool open(uint64_t record, const void* aad, size_t aad_length, const void* sealed,
            size_t sealed_length, std::string& out) const;

  // A key of its own for the piece's HMACs: HKDF-SHA256 of the record key, salted with
  // the piece's salt, so the GCM key is never used for anything else.
  bool mac_key(unsigned char (&out)[SHA256_LENGTH]) const;

 private:
  void nonce(uint64_t record, unsigned char (&out)[GCM_NONCE_LENGTH]) const;
  unsigned char key_[32] = {};
  unsigned char base_[GCM_NONCE_LENGTH] = {};
  unsigned char salt_[GCM_NONCE_LENGTH] = {};
};

// SHA-256, or HMAC-SHA256 when given a key, over the bytes fed in turn.
class Digest_256 {
 public:
  explicit Digest_256(const unsigned char (*key)[SHA256_LENGTH] = nullptr);
  ~Digest_256();
  Digest_256(const Digest_256&) = delete;
  Digest_256& operator=(const Digest_256&) = delete;

  void update(const void* bytes, size_t length);
  // False when OpenSSL failed anywhere since construction.
  bool final(unsigned char (&out)[SHA256_LENGTH]);

 private:
  struct evp_md_ctx_st* md_ = nullptr;
  struct evp_mac_ctx_st* mac_ = nullptr;
  bool ok_ = true;
};
