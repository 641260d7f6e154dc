// The connection factory on an S3 pool of the sandbox's gateway: the simulated backup
// server describes the pool with its S3 keys and its cipher, and a piece written through
// one factory reads back through another by the pool's name alone.
#include <gtest/gtest.h>

#include <cstring>

#include "framework/base/base64.h"
#include "framework/base/hex_string.h"
#include "framework/client_io/piece_fixture_test.h"
#include "framework/client_io/s3_client.h"
#include "framework/http/host_manager.h"
#include "framework/http/http_options.h"
#include "sim/backupd/backupd_sim.h"
#include "tests/support/ceph_env.h"
#include "tests/support/log_capture.h"
#include "tests/support/sandbox_bucket.h"
#include "utils/agent/io_connection_factory.h"

namespace {

using namespace piece_test;
using json_spirit::Object;

std::string base64_of_hex(const std::string& hex) {
  std::string bytes;
  EXPECT_TRUE(Hex_String(hex).get_bytes(bytes));
  return base64_encode(bytes);
}

class IO_Factory_S3 : public ::testing::Test {
 protected:
  void SetUp() override {
    AU_REQUIRE_CEPH_OR_SKIP();
    if (!au_test::sandbox_s3(s3_)) {
      if (au_test::ceph_required()) FAIL() << "the sandbox has no S3 gateway (s3.env)";
      GTEST_SKIP() << "the sandbox has no S3 gateway (s3.env)";
    }
    url_ = s3_.url + "/" + au_test::unique_ceph_name("factory");
    std::string error;
    ASSERT_TRUE(bucket_.create(s3_, url_, error)) << error;
    ASSERT_TRUE(sim_.start());
    WebSocket_Options::instance()->backupd(HTTP_Server_Address{"127.0.0.1", sim_.port(), false});
    Host_Manager::instance()->access_key("");
  }

  void TearDown() override {
    sim_.stop();
    WebSocket_Options::instance()->backupd(HTTP_Server_Address{});
    std::string error;
    EXPECT_TRUE(bucket_.remove(error)) << error;
  }

  // The bucket as backupd describes it: sealed by the agent, with the gateway's keys.
  Object description(bool with_keys) const {
    Object s3{{"region", "default"}};
    if (with_keys) {
      s3["access_key"] = s3_.access_key;
      s3["secret_key"] = s3_.secret_key;
    }
    return Object{{"uuid", "u-s3"}, {"name", "objects"}, {"url", url_}, {"cipher", "aes-256-gcm"},
                  {"key", base64_of_hex(KEY)}, {"iv", base64_of_hex(IV)}, {"s3_enabled", true},
                  {"default_s3", s3}};
  }

  au_test::Sandbox_S3 s3_;
  std::string url_;
  au_test::Sandbox_Bucket bucket_;
  au_sim::Backupd_Sim sim_;
  au_test::Log_Capture log_;
};

TEST_F(IO_Factory_S3, a_piece_written_through_one_factory_reads_back_through_another) {
  sim_.set_pool("objects", description(true));
  const std::vector<Extent> extents = image_extents();
  {
    IO_Connection_Factory writer_side{IO_Connection_Factory::Options()};
    std::unique_ptr<Client_IO_Ex> io = writer_side("objects");
    ASSERT_TRUE(io && io->open("job/p1", Client_IO_Base::OPEN_WRITE, 0, 0)) << log_.dump();
    Image_Block_Writer w(*io);
    ASSERT_TRUE(w.begin(IMAGE_SIZE, 64 << 10));
    for (const Extent& e : extents)
      ASSERT_TRUE(e.data.empty() ? w.append_zeros(e.offset, e.zeros)
                                 : w.append(e.offset, e.data.data(), e.data.size()));
    ASSERT_TRUE(w.finish() && io->close()) << io->last_error();
  }
  IO_Connection_Factory reader_side{IO_Connection_Factory::Options()};
  std::unique_ptr<Client_IO_Ex> io = reader_side("objects");
  ASSERT_TRUE(io && io->open("job/p1", Client_IO_Base::OPEN_READ, 0, 0)) << log_.dump();
  std::string image(IMAGE_SIZE, '\xEE');
  ASSERT_TRUE(Image_Block_Reader::read_blocks_align(io.get(), [&](const void* data, size_t n, off_t off) {
    std::memcpy(&image[off], data, n);
    return true;
  }, 0)) << log_.dump();
  EXPECT_TRUE(image == expected_image(extents));
  EXPECT_EQ(2u, sim_.pool_requests("objects").size());
  // Pieces are sealed: the bucket never holds the image's bytes in clear.
  std::string error;
  S3_Client::Request rq;
  rq.key = "job/p1";
  S3_Client::Reply reply;
  ASSERT_TRUE(bucket_.client().request(rq, reply, error)) << error;
  EXPECT_EQ(std::string::npos, reply.body.find(extents[1].data.substr(0, 4096)));
}

TEST_F(IO_Factory_S3, a_pool_described_without_keys_is_not_connected) {
  sim_.set_pool("keyless", description(false));
  IO_Connection_Factory factory{IO_Connection_Factory::Options()};
  EXPECT_FALSE(factory("keyless"));
  EXPECT_TRUE(log_.has(LM_ERROR, "Failed to connect to the pool 'keyless': an S3 pool needs an access "
                                 "key and a secret key in the options\n")) << log_.dump();
  // The description stays cached: only the connection failed.
  EXPECT_FALSE(factory("keyless"));
  EXPECT_EQ(1u, sim_.pool_requests("keyless").size());
}

}  // namespace
