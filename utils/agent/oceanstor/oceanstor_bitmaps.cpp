// Changed-block bitmaps of OceanStor_Client: chunk size, per-segment bitmaps and the
// extents they describe.
#include <ace/Log_Msg.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "framework/base/snprintf_t.h"
#include "framework/log/check.h"
#include "utils/agent/oceanstor/change_blocks_internal.h"
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

// The largest stretch of a LUN one bitmap request covers.
constexpr unsigned long BITMAP_SEGMENT_BYTES = 2147483648UL;

std::string parse_failure_line(const std::string& lun_id) {
  return snprintf_t<128>("Failed to parse bitmap, lun: '%s'.\n", lun_id.c_str()).str();
}

// Each segment's text appended to the caller's bitmap: the two get_bitmap forms.
std::function<bool(std::string&)> appending_to(Bitmap& bitmap) {
  return [&bitmap](std::string& text) {
    bitmap.bitmap += text;
    return true;
  };
}

}  // namespace

bool OceanStor_Client::get_bitmap_chunk(const std::string& lun_id, Bitmap_Chunk& chunk) {
  if (AU_IS_EMPTY(lun_id)) return false;
  HTTP_Request req(HTTP_GET,
                   snprintf_t<256>(BITMAP_CHUNK_URI, url_id(auth_.device_id).c_str(), url_id(lun_id).c_str()), true);
  json_spirit::Value reply;
  if (!get_reply(req, reply, snprintf_t<128>("Failed to get bitmap chunk, lun id: %s.\n", lun_id.c_str()).str(),
                 "Failed to get bitmap chunk"))
    return false;
  return chunk << reply;
}

bool OceanStor_Client::get_bitmap(const std::string& lun_id, unsigned long size, unsigned int chunk_size,
                                  Bitmap& bitmap) {
  if (AU_IS_EMPTY(lun_id)) return false;
  if (!fetch_segments(lun_id, nullptr, size, chunk_size, appending_to(bitmap))) return false;
  bitmap.lun_id = lun_id;
  return true;
}

bool OceanStor_Client::get_bitmap(const std::string& lun_id, const std::string& base_lun_id, unsigned long size,
                                  unsigned int chunk_size, Bitmap& bitmap) {
  if (AU_IS_EMPTY(lun_id) || AU_IS_EMPTY(base_lun_id)) return false;
  if (!fetch_segments(lun_id, &base_lun_id, size, chunk_size, appending_to(bitmap))) return false;
  bitmap.lun_id = lun_id;
  return true;
}

// One request per segment of at most BITMAP_SEGMENT_BYTES, in order, so that bit i of
// the texts handed to `sink`, taken together, is chunk i of the LUN.
bool OceanStor_Client::fetch_segments(const std::string& lun_id, const std::string* base_lun_id,
                                      unsigned long size, unsigned int chunk_size, const Segment_Sink& sink) {
  const std::string device = url_id(auth_.device_id), lun = url_id(lun_id);
  const std::string base = base_lun_id ? url_id(*base_lun_id) : std::string();
  unsigned long offset = 0;
  unsigned long remaining = size;
  while (offset < size) {
    const unsigned long length = remaining >= BITMAP_SEGMENT_BYTES ? BITMAP_SEGMENT_BYTES : remaining;
    const int chunk = static_cast<int>(chunk_size);
    const auto start = static_cast<unsigned long long>(offset);
    const auto bytes = static_cast<unsigned long long>(length);
    HTTP_Request req(HTTP_GET,
                     base_lun_id ? snprintf_t<512>(UNSHARED_BITMAP_URI, device.c_str(), lun.c_str(), base.c_str(),
                                                   start, bytes, chunk)
                                       .c_str()
                                 : snprintf_t<512>(ALLOC_BITMAP_URI, device.c_str(), lun.c_str(), start, bytes, chunk)
                                       .c_str(),
                     true);
    json_spirit::Value reply;
    if (!get_reply(req, reply, snprintf_t<128>("Failed to get bitmap, lun: '%s'.\n", lun_id.c_str()).str(),
                   "Failed to get bitmap"))
      return false;
    Bitmap segment;
    if (!(segment << reply)) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("%C"), parse_failure_line(lun_id).c_str()));
      return false;
    }
    reply = json_spirit::Value();  // the text now lives in the segment alone
    if (!sink(segment.bitmap)) return false;
    offset += length;
    remaining -= length;
    if (bitmap_progress_ && !bitmap_progress_(offset, size) && offset < size) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Cancelled getting bitmap, lun: '%C', after %Q of %Q bytes.\n"),
                 lun_id.c_str(), static_cast<uint64_t>(offset), static_cast<uint64_t>(size)));
      return false;
    }
  }
  return true;
}

bool OceanStor_Client::get_changed_blocks(const std::string& lun_id, const std::string* base_lun_id,
                                          unsigned long size, std::vector<Block>& blocks,
                                          unsigned long& chunk_size) {
  if (AU_IS_EMPTY(lun_id)) return false;
  Bitmap_Chunk chunk;
  if (!get_bitmap_chunk(lun_id, chunk)) return false;
  chunk_size = chunk.chunk_size;
  // The difference form's own check, under the name get_bitmap gives it.
  if (base_lun_id && base_lun_id->empty()) {
    AU_CHECK_FRAME_FAILED("base_lun_id is empty");
    return false;
  }

  // Extents go straight into `blocks`; a failure part-way takes them out again.
  const size_t kept = blocks.size();
  Change_Block_Folder folder(0, blocks);
  auto fold = [&](std::string& text) {
    if (folder.add_hex(text)) return true;
    ACE_ERROR((LM_ERROR, ACE_TEXT("%C"), parse_failure_line(lun_id).c_str()));
    return false;
  };
  if (!fetch_segments(lun_id, base_lun_id, size, chunk.chunk_size, fold)) {
    blocks.erase(blocks.begin() + static_cast<std::ptrdiff_t>(kept), blocks.end());
    return false;
  }
  folder.finish();
  ACE_DEBUG((LM_INFO, ACE_TEXT("Total blocks is %B.\n"), blocks.size()));
  return true;
}

}  // namespace oceanstor
