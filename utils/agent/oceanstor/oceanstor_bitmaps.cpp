// Changed-block bitmaps of OceanStor_Client: chunk size, per-segment bitmaps and the
// extents they describe.
#include <ace/Log_Msg.h>

#include <cstdint>
#include <vector>

#include "framework/base/hex_string.h"
#include "framework/base/snprintf_t.h"
#include "framework/log/check.h"
#include "utils/agent/oceanstor/oceanstor_client.h"

namespace oceanstor {

namespace {

constexpr const char* BITMAP_CHUNK_URI = "/deviceManager/rest/%s/lun_bitmap/get_bitmap_chks?LUNID=%s";
constexpr const char* ALLOC_BITMAP_URI =
    "/deviceManager/rest/%s/lun_bitmap/get_alloc?LUNID=%s&SEGMENTSTARTOFFSETBYTES=%llu"
    "&SEGMENTLENGTHBYTES=%llu&BITMAPCHUNKSIZE=%d";
constexpr const char* UNSHARED_BITMAP_URI =
    "/deviceManager/rest/%s/lun_bitmap/get_unshared?LUNID=%s&BASELUNID=%s&SEGMENTSTARTOFFSETBYTES=%llu"
    "&SEGMENTLENGTHBYTES=%llu&BITMAPCHUNKSIZE=%d";

}  // namespace

bool OceanStor_Client::get_bitmap_chunk(const std::string& lun_id, Bitmap_Chunk& chunk) {
  if (AU_IS_EMPTY(lun_id)) return false;
  HTTP_Request req(HTTP_GET, snprintf_t<256>(BITMAP_CHUNK_URI, auth_.device_id.c_str(), lun_id.c_str()), true);
  json_spirit::Value reply;
  if (!send_request(req, &reply)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get bitmap chunk, lun id: %C.\n"), lun_id.c_str()));
    return false;
  }
  if (!no_error(reply)) return print_error("Failed to get bitmap chunk", req, nullptr, &reply);
  return chunk << reply;
}

bool OceanStor_Client::get_bitmap(const std::string& lun_id, unsigned long size, unsigned int chunk_size,
                                  Bitmap& bitmap) {
  if (AU_IS_EMPTY(lun_id)) return false;
  return fetch_bitmap(lun_id, nullptr, size, chunk_size, bitmap);
}

bool OceanStor_Client::get_bitmap(const std::string& lun_id, const std::string& base_lun_id, unsigned long size,
                                  unsigned int chunk_size, Bitmap& bitmap) {
  if (AU_IS_EMPTY(lun_id) || AU_IS_EMPTY(base_lun_id)) return false;
  return fetch_bitmap(lun_id, &base_lun_id, size, chunk_size, bitmap);
}

// One request per segment of at most BITMAP_SEGMENT_BYTES; the segments' texts are
// appended to `bitmap` in order, so bit i of the whole text is chunk i of the LUN.
bool OceanStor_Client::fetch_bitmap(const std::string& lun_id, const std::string* base_lun_id, unsigned long size,
                                    unsigned int chunk_size, Bitmap& bitmap) {
  unsigned long offset = 0;
  unsigned long remaining = size;
  while (offset < size) {
    const unsigned long length = remaining >= BITMAP_SEGMENT_BYTES ? BITMAP_SEGMENT_BYTES : remaining;
    const int chunk = static_cast<int>(chunk_size);
    const auto start = static_cast<unsigned long long>(offset);
    const auto bytes = static_cast<unsigned long long>(length);
    HTTP_Request req(HTTP_GET,
                     base_lun_id ? snprintf_t<512>(UNSHARED_BITMAP_URI, auth_.device_id.c_str(), lun_id.c_str(),
                                                   base_lun_id->c_str(), start, bytes, chunk)
                                       .c_str()
                                 : snprintf_t<512>(ALLOC_BITMAP_URI, auth_.device_id.c_str(), lun_id.c_str(), start,
                                                   bytes, chunk)
                                       .c_str(),
                     true);
    json_spirit::Value reply;
    if (!send_request(req, &reply)) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get bitmap, lun: '%C'.\n"), lun_id.c_str()));
      return false;
    }
    if (!no_error(reply)) return print_error("Failed to get bitmap", req, nullptr, &reply);
    Bitmap segment;
    segment.clear();
    if (!(segment << reply)) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to parse bitmap, lun: '%C'.\n"), lun_id.c_str()));
      return false;
    }
    bitmap.bitmap += segment.bitmap;
    offset += length;
    remaining -= length;
    if (!bitmap_progress(offset, size) && offset < size) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Cancelled getting bitmap, lun: '%C', after %Q of %Q bytes.\n"),
                 lun_id.c_str(), static_cast<uint64_t>(offset), static_cast<uint64_t>(size)));
      return false;
    }
  }
  bitmap.lun_id = lun_id;
  return true;
}

bool OceanStor_Client::get_changed_blocks(const std::string& lun_id, const std::string* base_lun_id,
                                          unsigned long size, std::vector<Block>& blocks,
                                          unsigned long& chunk_size) {
  if (AU_IS_EMPTY(lun_id)) return false;
  Bitmap_Chunk chunk;
  if (!get_bitmap_chunk(lun_id, chunk)) return false;
  chunk_size = chunk.chunk_size;
  Bitmap bitmap;
  const bool fetched = base_lun_id ? get_bitmap(lun_id, *base_lun_id, size, chunk.chunk_size, bitmap)
                                   : get_bitmap(lun_id, size, chunk.chunk_size, bitmap);
  if (!fetched) return false;
  std::basic_string<unsigned char> bytes;
  if (!hex_decode(bitmap.bitmap, bytes)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to parse bitmap, lun: '%C'.\n"), lun_id.c_str()));
    return false;
  }
  bitmap.bitmap = std::string();  // a large LUN's text is hundreds of MiB; the bytes suffice now
  parse_change_blocks(bytes, 0, blocks);
  ACE_DEBUG((LM_INFO, ACE_TEXT("Total blocks is %B.\n"), blocks.size()));
  return true;
}

bool OceanStor_Client::bitmap_progress(unsigned long, unsigned long) { return true; }

}  // namespace oceanstor
