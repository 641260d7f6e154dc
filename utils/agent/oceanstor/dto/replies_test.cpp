// Single-object replies: the error block, a snapshot, bitmap chunk sizes and bitmaps.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "tests/support/log_capture.h"
#include "utils/agent/oceanstor/dto/bitmap.h"
#include "utils/agent/oceanstor/dto/bitmap_chunk.h"
#include "utils/agent/oceanstor/dto/error.h"
#include "tests/support/json_text.h"
#include "utils/agent/oceanstor/dto/snapshot.h"

// A device-manager reply from its JSON text.
const auto reply = au_test::parse_json;

TEST(OceanStor_Error, reads_codes_as_numbers_or_strings_and_refuses_what_does_not_fit) {
  au_test::Log_Capture logs;
  oceanstor::Error error;
  EXPECT_TRUE(error << reply(R"({"data": {}, "error": {"code": 0, "description": "0"}})"));
  EXPECT_TRUE(error << reply(R"({"error": {"code": "1077948996", "description": "d", "suggestion": "s"}})"));
  EXPECT_EQ(1077948996, error.code);
  EXPECT_EQ("d/s", error.description + "/" + error.suggestion);
  EXPECT_TRUE(logs.records().empty()) << logs.dump();

  error.clear();
  EXPECT_FALSE(error << reply(R"({"error": {"code": 4294967297, "description": "x"}})"));
  EXPECT_EQ(0, error.code) << "a code beyond int must not wrap";
  EXPECT_FALSE(error << reply(R"({"error": {"code": 1}})"));
  EXPECT_TRUE(logs.has(LM_ERROR, "Unexpected exception while occurred while parse error info, json: "
                                 "{\"error\":{\"code\":1}} \nJSON Pointer path '/error/description' not "
                                 "exist in JSON!\n"))
      << logs.dump();
  EXPECT_FALSE(error << json_spirit::Value());  // a reply without a body
  EXPECT_EQ(3u, logs.records().size()) << logs.dump();
}

TEST(OceanStor_Snapshot, reads_the_data_object_and_refuses_what_does_not_fit) {
  au_test::Log_Capture logs;
  oceanstor::Snapshot snap;
  ASSERT_TRUE(snap << reply(R"({"data": {"TYPE": "27", "ID": "41", "NAME": "s1", "WWN": "6c",
                                         "EXPOSEDTOINITIATOR": "true"}})"));
  EXPECT_EQ(std::make_tuple(27, "true", "41", "s1", "6c"),
            std::tie(snap.type, snap.exposed_to_initiator, snap.id, snap.name, snap.wwn));
  EXPECT_FALSE(snap << reply(R"({"data": {"TYPE": 27, "ID": "41", "NAME": "s1", "EXPOSEDTOINITIATOR": "true"}})"));
  EXPECT_TRUE(logs.has(LM_ERROR, "Unexpected exception occurred while parse OceanStor snapshot, "
                                 "JSON Pointer path '/data/WWN' not exist in JSON!.\n"))
      << logs.dump();
  EXPECT_FALSE(snap << reply(R"({"data": [], "error": {"code": 1077937880}})"));
  EXPECT_EQ(2u, logs.records().size()) << logs.dump();
}

TEST(OceanStor_Bitmap, chunk_size_must_be_a_decimal_string_within_32_bits_and_bitmaps_name_their_lun) {
  au_test::Log_Capture logs;
  const auto chunk_reply = [](const std::string& size) {
    return reply(R"({"data": {"BITMAPCHUNKSIZE": )" + size + R"(, "LUNID": "6"}})");
  };
  oceanstor::Bitmap_Chunk chunk;
  ASSERT_TRUE(chunk << chunk_reply(R"("4294967295")"));
  EXPECT_EQ(4294967295u, chunk.chunk_size);
  EXPECT_EQ("6", chunk.lun_id);
  EXPECT_TRUE(logs.records().empty()) << logs.dump();

  for (const std::string bad : {"0", "abc", "-1", "4294967296", "", " 64", "64k"}) {
    chunk.chunk_size = 7;
    EXPECT_FALSE(chunk << chunk_reply('"' + bad + '"')) << bad;
    EXPECT_EQ(0u, chunk.chunk_size) << bad;
    EXPECT_TRUE(logs.has(LM_ERROR, "Invalid OceanStor bitmap chunk size '" + bad + "' of lun '6'.\n")) << bad;
  }
  logs.clear();
  EXPECT_FALSE(chunk << chunk_reply("64"));
  EXPECT_TRUE(logs.has(LM_ERROR, "Unexpected exception occurred while parse bitmap chunk info, JSON Pointer path "
                                 "'/data/BITMAPCHUNKSIZE' holds int_type, not a string\n json: "
                                 "{\"data\":{\"BITMAPCHUNKSIZE\":64,\"LUNID\":\"6\"}}\n"))
      << logs.dump();
  EXPECT_EQ(1u, logs.records().size()) << logs.dump();

  // The bitmap itself: text and lun id both required.
  oceanstor::Bitmap bitmap;
  ASSERT_TRUE(bitmap << reply(R"({"data": {"CHUNKBITMAP": "0F81", "LUNID": "6"}})"));
  EXPECT_EQ("0F81/6", bitmap.bitmap + "/" + bitmap.lun_id);
  EXPECT_FALSE(bitmap << reply(R"({"data": {"CHUNKBITMAP": "00"}})"));
  EXPECT_TRUE(logs.has(LM_ERROR, "Unexpected exception occurred while parse bitmap info, JSON Pointer "
                                 "path '/data/LUNID' not exist in JSON!\n"))
      << logs.dump();
}
