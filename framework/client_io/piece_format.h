// The byte layout of a backup piece (docs/piece-format.md tells the whole story).
// All integers are little-endian.
//
//   header   64 bytes   magic, version, methods, block and image size, salt, key check,
//                       XXH3-64 of the bytes before it
//   records  40-byte record header + stored bytes, one per extent, by image offset
//   index    48 bytes per record: its piece position and a copy of its header
//   trailer  32 bytes   record count, index position, XXH3-64 over header and index, magic
#pragma once

#include <cstddef>
#include <cstdint>

#include "framework/client_io/client_io_enums.h"
#include "framework/client_io/record_cipher.h"

namespace piece {

constexpr char HEADER_MAGIC[8] = {'A', 'U', 'P', 'I', 'E', 'C', 'E', '1'};
constexpr char RECORD_MAGIC[4] = {'R', 'E', 'C', 'D'};
constexpr char TRAILER_MAGIC[8] = {'A', 'U', 'P', 'I', 'E', 'N', 'D', '1'};
constexpr uint16_t VERSION = 1;

constexpr size_t HEADER_SIZE = 64;
constexpr size_t RECORD_HEADER_SIZE = 40;
constexpr size_t INDEX_ENTRY_SIZE = 8 + RECORD_HEADER_SIZE;
constexpr size_t TRAILER_SIZE = 32;

// Writers split data at this length; readers refuse longer data records, which bounds
// what one record can make a reader allocate.
constexpr uint64_t MAX_RECORD_LENGTH = 4u << 20;
// The most index bytes a reader takes in (5.5 million records): a hostile trailer must
// not make it allocate the size of a huge object.
constexpr uint64_t MAX_INDEX_BYTES = 256u << 20;
// Block sizes a piece may name and a reader may be asked for.
constexpr uint64_t MAX_BLOCK_SIZE = 64u << 20;

enum Record_Flags : uint8_t { RECORD_DATA = 1, RECORD_ZEROS = 2 };

struct Header {
  uint16_t version = VERSION;
  uint8_t compression = COMPR_NONE;  // the writer's choice; each record names its own
  uint8_t cipher = ENCR_NONE;
  uint32_t block_size = 0;
  uint64_t image_size = 0;
  unsigned char salt[GCM_NONCE_LENGTH] = {};
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
  uint64_t checksum = 0;  // XXH3-64 of the plain bytes; 0 for zeros
};

struct Trailer {
  uint64_t record_count = 0;
  uint64_t index_position = 0;
  uint64_t checksum = 0;
};

void encode(const Header& h, unsigned char (&out)[HEADER_SIZE]);
void encode(const Record& r, unsigned char (&out)[RECORD_HEADER_SIZE]);
void encode(const Trailer& t, unsigned char (&out)[TRAILER_SIZE]);

// Each decode checks the magic (and the header its checksum); `why` tells what failed.
bool decode(const unsigned char (&in)[HEADER_SIZE], Header& h, const char*& why);
bool decode(const unsigned char (&in)[RECORD_HEADER_SIZE], Record& r, const char*& why);
bool decode(const unsigned char (&in)[TRAILER_SIZE], Trailer& t, const char*& why);

uint64_t xxh3(const void* data, size_t length);

// The key check of a header (salt set): AES-GCM over no bytes with the record number
// that no record can have.
constexpr uint64_t KEY_CHECK_RECORD = ~0ull;

}  // namespace piece
