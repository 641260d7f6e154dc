// The byte layout of a backup piece (docs/piece-format.md tells the whole story).
// All integers are little-endian.
//
//   header    64 bytes   magic, version, methods, block and image size, salt, identity
//                        length (version 2), key check, XXH3-64 of the bytes before it
//   identity  version 2: what the piece is and builds on (piece_identity.h)
//   records   40-byte record header + stored bytes, one per extent, by image offset
//   index     48 bytes per record: its piece position and a copy of its header
//   trailer   version 1: 32 bytes: record count, index position, XXH3-64 over header and
//             index, magic. Version 2: 64 bytes: the same, the XXH3-64 also over the
//             identity, and an HMAC-SHA256 when sealed (see image_block_reader.h)
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "framework/client_io/client_io_enums.h"
#include "framework/client_io/record_cipher.h"

namespace piece {

constexpr char HEADER_MAGIC[8] = {'A', 'U', 'P', 'I', 'E', 'C', 'E', '1'};
constexpr char RECORD_MAGIC[4] = {'R', 'E', 'C', 'D'};
constexpr char TRAILER_MAGIC[8] = {'A', 'U', 'P', 'I', 'E', 'N', 'D', '1'};
constexpr char TRAILER_MAGIC_V2[8] = {'A', 'U', 'P', 'I', 'E', 'N', 'D', '2'};
// What writers write; version 1 pieces are still read.
constexpr uint16_t VERSION = 2;
constexpr uint16_t VERSION_1 = 1;

constexpr size_t HEADER_SIZE = 64;
constexpr size_t RECORD_HEADER_SIZE = 40;
constexpr size_t INDEX_ENTRY_SIZE = 8 + RECORD_HEADER_SIZE;
constexpr size_t TRAILER_SIZE = 32;     // version 1
constexpr size_t TRAILER_SIZE_V2 = 64;
constexpr size_t MAC_SIZE = 32;         // HMAC-SHA256 in a sealed version 2 trailer

// Writers split data at this length; readers refuse longer data records, which bounds
// what one record can make a reader allocate.
constexpr uint64_t MAX_RECORD_LENGTH = 4u << 20;
// The most index bytes a reader takes in (5.5 million records): a hostile trailer must
// not make it allocate the size of a huge object.
constexpr uint64_t MAX_INDEX_BYTES = 256u << 20;
// Block sizes a piece may name and a reader may be asked for. Version 2 pieces name at
// least MIN_BLOCK_SIZE, so a reader's block-by-block work stays in proportion to the image.
constexpr uint64_t MAX_BLOCK_SIZE = 64u << 20;
constexpr uint64_t MIN_BLOCK_SIZE = 512;

enum Record_Flags : uint8_t { RECORD_DATA = 1, RECORD_ZEROS = 2 };

struct Header {
  uint16_t version = VERSION;
  uint8_t compression = COMPR_NONE;  // the writer's choice; each record names its own
  uint8_t cipher = ENCR_NONE;
  uint32_t block_size = 0;
  uint64_t image_size = 0;
  unsigned char salt[GCM_NONCE_LENGTH] = {};
  uint32_t identity_length = 0;  // version 2: bytes of the identity block after the header
  unsigned char key_check[GCM_TAG_LENGTH] = {};  // GCM tag of nothing: tells a wrong key

  // Bytes [0, KEY_CHECK_AT) are what the key check authenticates.
  static constexpr size_t KEY_CHECK_AT = 40;
};

struct Record {
  uint8_t flags = RECORD_DATA;
  uint8_t compression = COMPR_NONE;
  uint64_t offset = 0;
  uint64_t length = 0;
  uint64_t stored_length = 0;
  uint64_t checksum = 0;  // XXH3-64 of the plain bytes; 0 for zeros and in sealed v2 pieces
};

struct Trailer {
  uint64_t record_count = 0;
  uint64_t index_position = 0;
  uint64_t checksum = 0;
  unsigned char mac[MAC_SIZE] = {};  // version 2: HMAC-SHA256 when sealed, zero otherwise
};

void encode(const Header& h, unsigned char (&out)[HEADER_SIZE]);
void encode(const Record& r, unsigned char (&out)[RECORD_HEADER_SIZE]);
void encode(const Trailer& t, unsigned char (&out)[TRAILER_SIZE]);     // version 1
void encode(const Trailer& t, unsigned char (&out)[TRAILER_SIZE_V2]);  // version 2

// Each decode checks the magic (and the header its checksum and bounds: version, methods,
// block size, image size, identity length); `why` tells what failed.
bool decode(const unsigned char (&in)[HEADER_SIZE], Header& h, const char*& why);
bool decode(const unsigned char (&in)[RECORD_HEADER_SIZE], Record& r, const char*& why);
bool decode(const unsigned char (&in)[TRAILER_SIZE], Trailer& t, const char*& why);
bool decode(const unsigned char (&in)[TRAILER_SIZE_V2], Trailer& t, const char*& why);

// Sealed version 2 pieces. The context digest is SHA-256 over the header, the identity
// block and the piece's name in the pool (4-byte length, then its bytes): each data
// record's associated data is the context digest followed by its record header, and the
// trailer's MAC is HMAC-SHA256 under the piece's MAC key over the context digest, the
// index, the record count and the index position.
constexpr size_t RECORD_AAD_SIZE = SHA256_LENGTH + RECORD_HEADER_SIZE;
bool context_digest(const unsigned char (&header)[HEADER_SIZE], const std::string& identity,
                    const std::string& name, unsigned char (&out)[SHA256_LENGTH]);
bool trailer_mac(const unsigned char (&mac_key)[SHA256_LENGTH],
                 const unsigned char (&context)[SHA256_LENGTH], const std::string& index,
                 const Trailer& t, unsigned char (&out)[MAC_SIZE]);

void put64(unsigned char* p, uint64_t v);
uint64_t get64(const unsigned char* p);

uint64_t xxh3(const void* data, size_t length);

// The key check of a header (salt set): AES-GCM over no bytes with the record number
// that no record can have.
constexpr uint64_t KEY_CHECK_RECORD = ~0ull;

}  // namespace piece
