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

 private:
  void nonce(uint64_t record, unsigned char (&out)[GCM_NONCE_LENGTH]) const;
  unsigned char key_[32] = {};
  unsigned char base_[GCM_NONCE_LENGTH] = {};
};
