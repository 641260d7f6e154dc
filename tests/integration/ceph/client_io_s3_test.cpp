// S3 pools against the sandbox's gateway (scripts/ceph-sandbox writes its address and
// keys to s3.env beside ceph.conf).
#include <gtest/gtest.h>

#include <algorithm>

#include "framework/client_io/piece_fixture_test.h"
#include "framework/client_io/s3_client.h"
#include "tests/support/ceph_env.h"
#include "tests/support/sandbox_bucket.h"

namespace {

using namespace piece_test;

class S3_Pool : public ::testing::Test {
 protected:
  void SetUp() override {
    AU_REQUIRE_CEPH_OR_SKIP();
    au_test::Sandbox_S3 s3;
    if (!au_test::sandbox_s3(s3)) {
      if (au_test::ceph_required()) FAIL() << "the sandbox has no S3 gateway (s3.env)";
      GTEST_SKIP() << "the sandbox has no S3 gateway (s3.env)";
    }
    keys = au_test::Sandbox_Bucket::keys_of(s3);
    keys.resume_buffer_size = MIN_RESUME_BUFFER_SIZE;  // several parts per piece
    url = s3.url + "/" + au_test::unique_ceph_name("cio");
    std::string error;
    ASSERT_TRUE(bucket.create(url, keys, error)) << error;
  }

  void TearDown() override {
    std::string error;
    EXPECT_TRUE(bucket.remove(error)) << error;
  }

  Client_IO_Base::Options with(Client_IO_Base::Options o) const {
    o.access_key = keys.access_key;
    o.secret_key = keys.secret_key;
    o.resume_buffer_size = keys.resume_buffer_size;
    return o;
  }

  std::string pending_uploads() {
    S3_Client::Request rq;
    rq.query = "uploads=";
    S3_Client::Reply reply;
    std::string error;
    EXPECT_TRUE(bucket.client().request(rq, reply, error)) << error;
    return reply.body;
  }

  Client_IO_Base::Options keys;
  std::string url;
  au_test::Sandbox_Bucket bucket;
};

TEST_F(S3_Pool, pieces_round_trip_through_multipart_uploads_and_ranged_reads) {
  const std::vector<Extent> extents = image_extents();
  const std::string expected = expected_image(extents);
  std::vector<std::string> written;
  for (Compression_Method m : {COMPR_NONE, COMPR_AUTO, COMPR_LZOP, COMPR_ZSTD}) {
    for (bool sealed : {false, true}) {
      const std::string name = "job/p-" + std::to_string(m) + (sealed ? "-sealed" : "");
      const Client_IO_Base::Options o = with(options_for(m, sealed));
      ASSERT_TRUE(write_piece(url, o, name, extents, IMAGE_SIZE)) << name;
      written.push_back(name);
      for (size_t block_size : {size_t(4096), size_t(MiB)}) {
        std::string image;
        size_t calls = 0;
        ASSERT_TRUE(read_piece(url, o, name, block_size, image, calls)) << name;
        EXPECT_TRUE(image == expected) << name << " bs " << block_size;
      }
    }
  }
  Client_IO_Ex io;
  std::vector<std::string> names;
  ASSERT_TRUE(io.connect(url, with({})) && io.list("job/", names)) << io.last_error();
  std::sort(written.begin(), written.end());
  EXPECT_EQ(names, written);
  EXPECT_EQ(pending_uploads().find("<Upload>"), std::string::npos);
}

TEST_F(S3_Pool, a_piece_is_invisible_until_close_and_an_abandoned_upload_leaves_nothing) {
  const std::string data = random_bytes(12 * MiB, 5);
  Client_IO_Ex reader;
  ASSERT_TRUE(reader.connect(url, with({})));
  {
    Client_IO_Ex io;
    ASSERT_TRUE(io.connect(url, with({})) && io.open("dropped", Client_IO_Base::OPEN_WRITE, 0, 0));
    ASSERT_EQ(io.write(data.data(), data.size()), static_cast<ssize_t>(data.size()));
    EXPECT_NE(pending_uploads().find("<Key>dropped</Key>"), std::string::npos);
    EXPECT_FALSE(reader.open("dropped", Client_IO_Base::OPEN_READ, 0, 0));
    EXPECT_EQ(reader.last_error(), "no such piece 'dropped'");
  }  // destroyed without close
  EXPECT_EQ(pending_uploads().find("<Upload>"), std::string::npos);
  EXPECT_FALSE(reader.open("dropped", Client_IO_Base::OPEN_READ, 0, 0));

  Client_IO_Ex io;
  ASSERT_TRUE(io.connect(url, with({})) && io.open("kept", Client_IO_Base::OPEN_WRITE, 0, 0));
  ASSERT_EQ(io.write(data.data(), data.size()), static_cast<ssize_t>(data.size()));
  EXPECT_FALSE(reader.open("kept", Client_IO_Base::OPEN_READ, 0, 0));
  ASSERT_TRUE(io.close()) << io.last_error();
  ASSERT_TRUE(reader.open("kept", Client_IO_Base::OPEN_READ, 0, 0)) << reader.last_error();
  EXPECT_EQ(reader.size(), static_cast<int64_t>(data.size()));
  std::string back(data.size(), '\0');
  EXPECT_EQ(reader.pread(&back[0], back.size(), 0), static_cast<ssize_t>(data.size()));
  EXPECT_TRUE(back == data);
}

TEST_F(S3_Pool, refusals_are_clear_and_carry_no_secret) {
  Client_IO_Base::Options wrong = with({});
  wrong.secret_key[0] ^= 1;
  const struct {
    std::string url;
    Client_IO_Base::Options options;
    std::string error;
  } cases[] = {
      {url, wrong, "S3 HEAD " + url.substr(url.rfind('/') + 1) + "/: HTTP 403 no error code"},
      {url + "-none", with({}), "bucket '" + url.substr(url.rfind('/') + 1) + "-none' does not exist"},
      {url, {}, "an S3 pool needs an access key and a secret key in the options"},
      {"s3://AKID:secret@127.0.0.1:1/b", with({}), "an S3 pool URL must not carry credentials; they come from the options"},
      {"s3://127.0.0.1:99999/b", with({}), "S3 pool URL with a bad port"},
      {"s3://127.0.0.1:1/Bad_Bucket", with({}), "S3 pool URL without a valid bucket name"},
  };
  for (const auto& c : cases) {
    Client_IO_Ex io;
    EXPECT_FALSE(io.connect(c.url, c.options)) << c.url;
    EXPECT_EQ(io.last_error(), c.error);
    EXPECT_EQ(io.last_error().find(keys.secret_key), std::string::npos);
  }
}

}  // namespace
