#include "framework/client_io/piece_identity.h"

#include <cstring>

#include "framework/base/hex_string.h"
#include "framework/client_io/piece_format.h"

namespace piece {
namespace {

// The text fields in block order.
template <class I, class F>
void each_text(I& id, F f) {
  for (auto* s : {&id.source_kind, &id.cluster, &id.pool, &id.image_name, &id.image_id,
                  &id.snapshot_id, &id.snapshot_name, &id.base_piece_name, &id.base_snapshot_id,
                  &id.base_snapshot_name}) {
    if (!f(*s)) return;
  }
}

}  // namespace

bool is_zero(const Piece_Id& id) {
  for (unsigned char c : id)
    if (c != 0) return false;
  return true;
}

std::string to_hex(const Piece_Id& id) { return hex_encode(id.data(), id.size()); }

bool Identity::is_full() const {
  return is_zero(base_piece_id) && base_piece_name.empty() && base_snapshot_id.empty() &&
         base_snapshot_name.empty();
}

bool Identity::same_source(const Identity& other) const {
  return !source_kind.empty() && source_kind == other.source_kind && cluster == other.cluster &&
         pool == other.pool && image_id == other.image_id;
}

bool check_identity(const Identity& id, std::string& why) {
  if (id.image_size > MAX_IMAGE_SIZE || id.base_image_size > MAX_IMAGE_SIZE) {
    why = "image size larger than 1 PiB";
    return false;
  }
  bool ok = true;
  each_text(id, [&](const std::string& s) {
    ok = s.size() <= MAX_IDENTITY_TEXT;
    return ok;
  });
  if (!ok) why = "an identity text is longer than " + std::to_string(MAX_IDENTITY_TEXT) + " bytes";
  return ok;
}

std::string encode_identity(const Identity& id) {
  std::string out(IDENTITY_FIXED_BYTES, '\0');
  auto* p = reinterpret_cast<unsigned char*>(&out[0]);
  std::memcpy(p, id.piece_id.data(), PIECE_ID_SIZE);
  std::memcpy(p + 16, id.base_piece_id.data(), PIECE_ID_SIZE);
  put64(p + 32, id.image_size);
  put64(p + 40, id.base_image_size);
  put64(p + 48, id.created);
  for (int i = 0; i < 4; ++i) p[56 + i] = static_cast<unsigned char>(id.chunk_size >> (8 * i));
  each_text(id, [&](const std::string& s) {
    out += static_cast<char>(s.size() & 0xff);
    out += static_cast<char>(s.size() >> 8);
    out += s;
    return true;
  });
  return out;
}

bool decode_identity(const void* bytes, size_t length, Identity& id, const char*& why) {
  if (length < MIN_IDENTITY_BYTES || length > MAX_IDENTITY_BYTES) {
    return (why = "identity length out of bounds"), false;
  }
  const auto* p = static_cast<const unsigned char*>(bytes);
  id = Identity();
  std::memcpy(id.piece_id.data(), p, PIECE_ID_SIZE);
  std::memcpy(id.base_piece_id.data(), p + 16, PIECE_ID_SIZE);
  id.image_size = get64(p + 32);
  id.base_image_size = get64(p + 40);
  id.created = get64(p + 48);
  for (int i = 3; i >= 0; --i) id.chunk_size = id.chunk_size << 8 | p[56 + i];
  size_t at = IDENTITY_FIXED_BYTES;
  bool ok = true;
  each_text(id, [&](std::string& s) {
    const size_t n = at + 2 <= length ? p[at] | size_t{p[at + 1]} << 8 : ~size_t{0};
    if (n > MAX_IDENTITY_TEXT || n > length - at - 2) return ok = false;
    s.assign(reinterpret_cast<const char*>(p + at + 2), n);
    at += 2 + n;
    return true;
  });
  if (!ok) return (why = "identity text out of bounds"), false;
  if (at != length) return (why = "identity length does not match its fields"), false;
  if (is_zero(id.piece_id)) return (why = "identity without a piece id"), false;
  if (id.image_size > MAX_IMAGE_SIZE || id.base_image_size > MAX_IMAGE_SIZE) {
    return (why = "image size larger than 1 PiB"), false;
  }
  return true;
}

}  // namespace piece
