// OceanStor changed-block bitmaps against the simulated array: 2 GiB segments,
// allocation and difference bitmaps, and hostile bitmap replies.
#include <gtest/gtest.h>

#include "tests/integration/sim/oceanstor_fixture.h"

using au_sim::OceanStor_Sim;
using au_sim::Sim_Reply;
using au_test::Log_Capture;

namespace {

constexpr unsigned long GIB = 1UL << 30;
constexpr unsigned long CHUNK_BYTES = 64 * 1024;  // the simulator's default chunk, 64 KiB

class OceanStor_Bitmaps : public au_test::OceanStor_Test {
 protected:
  void SetUp() override {
    OceanStor_Test::SetUp();
    sim.add_lun("1", "big", 5 * GIB);
  }

  void reply_bitmap(const std::string& data_json) {
    sim.set_reply("GET", rest("lun_bitmap/get_alloc"),
                  Sim_Reply{200, "{\"data\":" + data_json + ",\"error\":{\"code\":0,\"description\":\"0\"}}"});
  }
};

TEST_F(OceanStor_Bitmaps, a_5_gib_lun_is_asked_for_in_2_gib_segments) {
  const unsigned long chunk_in_third = (4 * GIB + GIB / 2) / CHUNK_BYTES;
  sim.write_chunk("1", 0, "a");
  sim.write_chunk("1", 1, "a");
  sim.write_chunk("1", 32767, "b");  // last chunk of the first segment
  sim.write_chunk("1", 32768, "c");  // first of the second
  sim.write_chunk("1", chunk_in_third, "d");
  Log_Capture log;
  std::vector<Block> blocks{{7, 7}};
  unsigned long chunk_size = 0;
  ASSERT_TRUE(client->get_changed_blocks("1", nullptr, 5 * GIB, blocks, chunk_size));
  EXPECT_EQ(64u, chunk_size);
  EXPECT_EQ((std::vector<Block>{{7, 7}, {0, 2}, {32767, 2}, {chunk_in_third, 1}}), blocks);
  EXPECT_TRUE(log.has(LM_INFO, "Total blocks is 4.\n")) << log.dump();
  EXPECT_TRUE(log.has(LM_INFO, "Total trunk blocks: 5.\n")) << log.dump();

  const auto chunk_requests = sim.requests_to(rest("lun_bitmap/get_bitmap_chks"));
  ASSERT_EQ(1u, chunk_requests.size());
  EXPECT_EQ("LUNID=1", chunk_requests[0].query);
  const auto segments = sim.requests_to(rest("lun_bitmap/get_alloc"));
  ASSERT_EQ(3u, segments.size());
  EXPECT_EQ("LUNID=1&SEGMENTSTARTOFFSETBYTES=0&SEGMENTLENGTHBYTES=2147483648&BITMAPCHUNKSIZE=64", segments[0].query);
  EXPECT_EQ("LUNID=1&SEGMENTSTARTOFFSETBYTES=2147483648&SEGMENTLENGTHBYTES=2147483648&BITMAPCHUNKSIZE=64",
            segments[1].query);
  EXPECT_EQ("LUNID=1&SEGMENTSTARTOFFSETBYTES=4294967296&SEGMENTLENGTHBYTES=1073741824&BITMAPCHUNKSIZE=64",
            segments[2].query);

  // Exactly one segment's worth is one request; nothing at all is none.
  sim.clear_requests();
  oceanstor::Bitmap bitmap;
  ASSERT_TRUE(client->get_bitmap("1", 2 * GIB, 64, bitmap));
  EXPECT_EQ(1u, sim.requests_to(rest("lun_bitmap/get_alloc")).size());
  EXPECT_EQ("1", bitmap.lun_id);
  EXPECT_EQ(2 * GIB / CHUNK_BYTES / 4, bitmap.bitmap.size());
  EXPECT_EQ("03", bitmap.bitmap.substr(0, 2));
  oceanstor::Bitmap untouched;
  untouched.bitmap = "FF";
  ASSERT_TRUE(client->get_bitmap("1", 0, 64, untouched));
  EXPECT_EQ("FF", untouched.bitmap);
  EXPECT_EQ(1u, sim.requests_to(rest("lun_bitmap/get_alloc")).size());
}

TEST_F(OceanStor_Bitmaps, progress_is_told_per_segment_and_can_stop_the_requests) {
  std::vector<unsigned long> reported;
  size_t segments_allowed = 3;
  client->set_bitmap_progress([&](unsigned long done_bytes, unsigned long total_bytes) {
    EXPECT_EQ(5 * GIB, total_bytes);
    reported.push_back(done_bytes);
    return reported.size() < segments_allowed;
  });
  std::vector<Block> blocks;
  unsigned long chunk_size = 0;
  ASSERT_TRUE(client->get_changed_blocks("1", nullptr, 5 * GIB, blocks, chunk_size));
  EXPECT_EQ((std::vector<unsigned long>{2 * GIB, 4 * GIB, 5 * GIB}), reported);

  sim.clear_requests();
  reported.clear();
  segments_allowed = 1;
  sim.write_chunk("1", 0, "a");  // an extent from the first segment, taken back when stopped
  Log_Capture log;
  blocks.assign(1, Block(1, 1));
  EXPECT_FALSE(client->get_changed_blocks("1", nullptr, 5 * GIB, blocks, chunk_size));
  EXPECT_EQ(1u, sim.requests_to(rest("lun_bitmap/get_alloc")).size());
  EXPECT_EQ((std::vector<Block>{{1, 1}}), blocks);
  EXPECT_TRUE(log.has(LM_ERROR, "Cancelled getting bitmap, lun: '1', after 2147483648 of 5368709120 bytes.\n"))
      << log.dump();
}

TEST_F(OceanStor_Bitmaps, difference_against_a_snapshot) {
  sim.write_chunk("1", 3, "old");
  sim.write_chunk("1", 9, "same");
  sim.add_snapshot("40", "base", "1");
  sim.write_chunk("1", 3, "new");
  sim.write_chunk("1", 4, "new");
  sim.write_chunk("1", 20, "new");
  const std::string base = "40";
  std::vector<Block> blocks;
  unsigned long chunk_size = 0;
  ASSERT_TRUE(client->get_changed_blocks("1", &base, GIB, blocks, chunk_size));
  EXPECT_EQ((std::vector<Block>{{3, 2}, {20, 1}}), blocks);
  const auto requests = sim.requests_to(rest("lun_bitmap/get_unshared"));
  ASSERT_EQ(1u, requests.size());
  EXPECT_EQ("LUNID=1&BASELUNID=40&SEGMENTSTARTOFFSETBYTES=0&SEGMENTLENGTHBYTES=1073741824&BITMAPCHUNKSIZE=64",
            requests[0].query);

  // An empty base is refused after the chunk size was fetched and stored.
  Log_Capture log;
  const std::string empty;
  chunk_size = 0;
  sim.set_chunk_size_text("128");
  EXPECT_FALSE(client->get_changed_blocks("1", &empty, GIB, blocks, chunk_size));
  EXPECT_EQ(128u, chunk_size);
  EXPECT_TRUE(log.has_check("base_lun_id is empty"));
  EXPECT_EQ(2u, blocks.size());
}

TEST_F(OceanStor_Bitmaps, hostile_chunk_replies_fail_before_any_bitmap_request) {
  Log_Capture log;
  std::vector<Block> blocks;
  unsigned long chunk_size = 5;
  for (const char* size : {"0", "abc", "4294967296", "-1"}) {
    sim.set_chunk_size_text(size);
    EXPECT_FALSE(client->get_changed_blocks("1", nullptr, GIB, blocks, chunk_size)) << size;
  }
  EXPECT_TRUE(log.has(LM_ERROR, "Invalid OceanStor bitmap chunk size 'abc' of lun '1'.\n")) << log.dump();
  EXPECT_TRUE(sim.requests_to(rest("lun_bitmap/get_alloc")).empty());
  EXPECT_EQ(5u, chunk_size) << "not set when the chunk read fails";

  sim.set_chunk_size_text("64");
  EXPECT_FALSE(client->get_changed_blocks("2", nullptr, GIB, blocks, chunk_size));
  EXPECT_TRUE(log.has_fragment(LM_ERROR, "Failed to get bitmap chunk, method: GET")) << log.dump();
  sim.inject(rest("lun_bitmap/get_bitmap_chks"), au_sim::Sim_Fault::drop());
  EXPECT_FALSE(client->get_changed_blocks("1", nullptr, GIB, blocks, chunk_size));
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to get bitmap chunk, lun id: 1.\n")) << log.dump();
  EXPECT_FALSE(client->get_changed_blocks("", nullptr, GIB, blocks, chunk_size));
  EXPECT_TRUE(log.has_check("lun_id is empty"));
  EXPECT_TRUE(blocks.empty());
}

TEST_F(OceanStor_Bitmaps, hostile_bitmap_replies_leave_the_blocks_alone) {
  Log_Capture log;
  std::vector<Block> blocks{{1, 1}};
  unsigned long chunk_size = 0;
  for (const char* text : {"ABC", "0G", "zz"}) {
    reply_bitmap(std::string("{\"CHUNKBITMAP\":\"") + text + "\",\"LUNID\":\"1\"}");
    EXPECT_FALSE(client->get_changed_blocks("1", nullptr, GIB, blocks, chunk_size)) << text;
  }
  EXPECT_EQ(3u, log.count(LM_ERROR, "Failed to parse bitmap, lun: '1'.\n")) << log.dump();

  log.clear();
  for (const char* data : {R"({"LUNID":"1"})", R"({"CHUNKBITMAP":12,"LUNID":"1"})", R"([])"}) {
    reply_bitmap(data);
    EXPECT_FALSE(client->get_changed_blocks("1", nullptr, GIB, blocks, chunk_size)) << data;
  }
  EXPECT_EQ(3u, log.count(LM_ERROR, "Failed to parse bitmap, lun: '1'.\n")) << log.dump();
  EXPECT_TRUE(log.has_fragment(LM_ERROR, "Unexpected exception occurred while parse bitmap info, ")) << log.dump();

  log.clear();
  sim.clear_faults();
  sim.inject_error(rest("lun_bitmap/get_alloc"), 1077937880);
  EXPECT_FALSE(client->get_changed_blocks("1", nullptr, GIB, blocks, chunk_size));
  EXPECT_TRUE(log.has_fragment(LM_ERROR, "Failed to get bitmap, method: GET, url http://127.0.0.1:")) << log.dump();
  sim.inject_endless_reply(rest("lun_bitmap/get_alloc"));
  EXPECT_FALSE(client->get_changed_blocks("1", nullptr, GIB, blocks, chunk_size));
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to get bitmap, lun: '1'.\n")) << log.dump();

  // A failed second segment keeps the first segment's text in the caller's bitmap.
  sim.inject(rest("lun_bitmap/get_alloc"), au_sim::Sim_Fault());  // the first request passes untouched
  sim.inject_error(rest("lun_bitmap/get_alloc"), 1077937880);
  oceanstor::Bitmap bitmap;
  EXPECT_FALSE(client->get_bitmap("1", 5 * GIB, 64, bitmap));
  EXPECT_EQ(2 * GIB / CHUNK_BYTES / 4, bitmap.bitmap.size());
  EXPECT_TRUE(bitmap.lun_id.empty());
  EXPECT_EQ((std::vector<Block>{{1, 1}}), blocks);
  expect_no_secrets(log);
}

}  // namespace
