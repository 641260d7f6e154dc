// What a piece is and what it builds on: written into every version 2 piece after its
// header, and authenticated with the rest when the piece is sealed.
//
// The source fields are text so that every storage family fits: a Ceph snapshot is
// (cluster fsid, pool, image name and id, snapshot id in decimal and name), an OceanStor
// one (device id, "", LUN name and id, snapshot id and name).
//
// A full piece has no base (base_piece_id all zero) and covers [0, image_size) with its
// records. An incremental covers every byte changed since its base snapshot, and every
// byte of [base_image_size, image_size) when the image grew. base_piece_name, when set,
// is the base piece's name in the same pool, so a chain can be followed from its newest
// piece; a base named only by snapshot (base_piece_name empty) links in an explicit list.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "framework/base/api.h"

namespace piece {

constexpr size_t PIECE_ID_SIZE = 16;
using Piece_Id = std::array<unsigned char, PIECE_ID_SIZE>;

// Bounds a reader holds every identity to, so that no input allocates without limit.
constexpr size_t MAX_IDENTITY_TEXT = 1024;  // bytes per text field
// 1 PiB: larger than any image an agent backs up, and small enough that a hostile size
// cannot make a restore grow a target to exabytes.
constexpr uint64_t MAX_IMAGE_SIZE = uint64_t{1} << 50;

struct AGENTUTIL_API Identity {
  Piece_Id piece_id{};  // random; the writer draws it at begin() when left all zero
  std::string source_kind;  // "ceph", "oceanstor"
  std::string cluster;      // cluster fsid, array device id
  std::string pool;         // Ceph pool; "" for an array
  std::string image_name;
  std::string image_id;
  std::string snapshot_id;
  std::string snapshot_name;
  uint64_t image_size = 0;  // of the image at this snapshot

  Piece_Id base_piece_id{};  // all zero: a full piece
  std::string base_piece_name;
  std::string base_snapshot_id;
  std::string base_snapshot_name;
  uint64_t base_image_size = 0;

  uint32_t chunk_size = 0;  // the grid changes were taken on (0: exact)
  uint64_t created = 0;     // seconds since the epoch

  // No base of any kind: base piece id zero and no base piece or snapshot named (a piece
  // naming only a base snapshot is an incremental, never taken for a full one).
  bool is_full() const;
  // True when both name the same image of the same cluster (kind, cluster, pool, image id).
  // A source of no kind (a version 1 piece) is the same as none.
  bool same_source(const Identity& other) const;
};

AGENTUTIL_API bool is_zero(const Piece_Id& id);
// 32 lower-case hex digits.
AGENTUTIL_API std::string to_hex(const Piece_Id& id);

// The identity block of a version 2 piece (docs/piece-format.md): fixed fields, then each
// text field as a 2-byte length and its bytes.
constexpr size_t IDENTITY_FIXED_BYTES = 60;
constexpr size_t IDENTITY_TEXT_FIELDS = 10;
constexpr size_t MIN_IDENTITY_BYTES = IDENTITY_FIXED_BYTES + 2 * IDENTITY_TEXT_FIELDS;
constexpr size_t MAX_IDENTITY_BYTES = MIN_IDENTITY_BYTES + IDENTITY_TEXT_FIELDS * MAX_IDENTITY_TEXT;

// False, with `why`, for an identity outside the bounds (text fields, sizes).
AGENTUTIL_API bool check_identity(const Identity& id, std::string& why);
// The block of an identity that check_identity() accepts.
AGENTUTIL_API std::string encode_identity(const Identity& id);
// False, with `why`, unless `length` bytes are exactly one identity block within bounds.
AGENTUTIL_API bool decode_identity(const void* bytes, size_t length, Identity& id, const char*& why);

}  // namespace piece
