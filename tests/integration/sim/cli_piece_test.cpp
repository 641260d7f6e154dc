// agentutil piece on a directory pool: what a person sees for good and damaged pieces.
#include <gtest/gtest.h>

#include "tests/support/temp_dir.h"
#include "framework/client_io/piece_fixture_test.h"
#include "tests/support/agentutil_runner.h"
#include "tests/support/http_test_server.h"
#include "tests/support/json_text.h"

namespace {

using namespace piece_test;

TEST(Agentutil_Piece, ls_info_and_verify_tell_good_pieces_from_damaged_ones) {
  ASSERT_NE("", au_test::agentutil_path()) << "AGENTUTIL_BUILD_DIR is not set";
  au_test::Temp_Dir pool, scratch;
  const std::string url = "file://" + pool.path();
  const std::vector<Extent> extents = {{0, text_bytes(300000)}, {MiB, "", 2 * MiB}, {4 * MiB, random_bytes(8192, 2)}};
  ASSERT_TRUE(write_piece(url, options_for(COMPR_ZSTD, true), "job/p1", extents, 8 * MiB));
  const std::string opts = scratch.write_file(
      "opts.json", std::string(R"({"cipher":"aes-256-gcm","key":")") + KEY + R"(","iv":")" + IV + R"("})");

  // The age column depends on the clock: the lines are checked up to it.
  const struct {
    std::string prefix, out;
  } listings[] = {
      {"job/", "PIECE   IMAGE  SNAPSHOT  BASE    SIZE   AGE\njob/p1  -      -         (full)  8 MiB  "},
      {"none/", "no pieces starting with 'none/' in " + url + "\n"},
  };
  for (const auto& l : listings) {
    const au_test::Run_Result ls = au_test::run_agentutil({"piece", "ls", url, l.prefix}, scratch.path());
    EXPECT_EQ(0, ls.status) << ls.err;
    EXPECT_EQ(0u, ls.out.find(l.out)) << ls.out;
  }

  const au_test::Run_Result text = au_test::run_agentutil({"piece", "info", url, "job/p1"}, scratch.path());
  ASSERT_EQ(0, text.status) << text.err;
  EXPECT_FALSE(au_test::has_trailing_blanks(text.out)) << text.out;
  EXPECT_EQ(14u, au_test::line_count(text.out)) << text.out;
  // Values that depend on how well zstd did, the random id and the clock are checked by
  // label only.
  for (const char* line : {"piece              job/p1\n", "format version     2\n", "\npiece id           ",
                           "base               none (a full piece)\n", "\nage                ", "image size         8 MiB\n",
                           "block size         64 KiB\n", "compression        zstd\n", "cipher             aes-256-gcm\n",
                           "records            2 data records, 1 zero record\n",
                           "image bytes        2.3 MiB (2 MiB zeros)\n", "\nstored bytes       ",
                           "\ncompression ratio  ", "\npiece size         "}) {
    EXPECT_NE(std::string::npos, text.out.find(line)) << line << " in\n" << text.out;
  }

  const au_test::Run_Result info = au_test::run_agentutil({"--json", "piece", "info", url, "job/p1"}, scratch.path());
  ASSERT_EQ(0, info.status) << info.err;
  const json_spirit::Value v = au_test::parse_json(info.out);
  EXPECT_EQ(v.get_obj().at("data_records").get_int(), 2);
  EXPECT_EQ(v.get_obj().at("zero_bytes").get_int(), 2 * MiB);
  EXPECT_EQ(v.get_obj().at("cipher").get_str(), "aes-256-gcm");

  const au_test::Run_Result ok = au_test::run_agentutil({"piece", "verify", url, "job/p1", "--options", opts}, scratch.path());
  EXPECT_EQ(0, ok.status) << ok.err;
  EXPECT_EQ("job/p1: 1 piece checked, 9.5 KiB read, OK\n", ok.out);

  std::string bytes = au_test::read_whole(pool / "job/p1");
  bytes[200] ^= 1;
  pool.write_file("bad", bytes);
  const struct {
    std::vector<std::string> args;
    std::string said;
  } failures[] = {
      {{"piece", "verify", url, "job/p1"}, "the piece is encrypted and the connection has no key"},
      // A sealed piece is bound to its name: a copy under another name is refused whole.
      {{"piece", "verify", url, "bad", "--options", opts}, "Invalid piece 'bad' at trailer"},
      {{"piece", "info", url, "missing"}, "cannot open piece missing: cannot open '" + pool.path() + "/missing'"},
  };
  for (const auto& f : failures) {
    const au_test::Run_Result r = au_test::run_agentutil(f.args, scratch.path());
    EXPECT_EQ(1, r.status) << f.said;
    EXPECT_EQ(1u, au_test::line_count(r.err)) << r.err;
    EXPECT_NE(std::string::npos, r.err.find(f.said)) << r.err;
  }
}

// S3 keys reach the tool through its environment (or an options file), never argv.
TEST(Agentutil_Piece, s3_keys_come_from_the_environment) {
  ASSERT_NE("", au_test::agentutil_path()) << "AGENTUTIL_BUILD_DIR is not set";
  au_test::HTTP_Test_Server server;
  server.on("GET", "/b", [](const httplib::Request&, httplib::Response& res) {
    res.set_content("<ListBucketResult><IsTruncated>false</IsTruncated>"
                    "<Contents><Key>job/p1</Key></Contents></ListBucketResult>",
                    "application/xml");
  });
  ASSERT_TRUE(server.start());
  au_test::Temp_Dir scratch;
  const std::string url = "s3://127.0.0.1:" + std::to_string(server.port()) + "/b";
  const char* const secret = "env-secret-never-shown";
  const struct {
    bool keys;
    int status;
    std::string out, err;
  } cases[] = {
      // The listing names a piece the server then does not give: listed, unreadable.
      {true, 0, "PIECE   IMAGE         SNAPSHOT  BASE  SIZE  AGE\njob/p1  (unreadable)  -         -     -     -\n", ""},
      {false, 1, "", "an S3 pool needs an access key and a secret key in the options"},
  };
  for (const auto& c : cases) {
    if (c.keys) {
      ::setenv("AGENTUTIL_S3_ACCESS_KEY", "AKENV", 1);
      ::setenv("AGENTUTIL_S3_SECRET_KEY", secret, 1);
    } else {
      ::unsetenv("AGENTUTIL_S3_ACCESS_KEY");
      ::unsetenv("AGENTUTIL_S3_SECRET_KEY");
    }
    const au_test::Run_Result r = au_test::run_agentutil({"piece", "ls", url}, scratch.path());
    EXPECT_EQ(c.status, r.status) << r.err;
    EXPECT_EQ(c.out, r.out);
    EXPECT_NE(std::string::npos, r.err.find(c.err)) << r.err;
    EXPECT_EQ(std::string::npos, (r.out + r.err).find(secret));
  }
  ::unsetenv("AGENTUTIL_S3_ACCESS_KEY");
  ::unsetenv("AGENTUTIL_S3_SECRET_KEY");
  const auto requests = server.requests();
  ASSERT_FALSE(requests.empty());
  for (const auto& r : requests) {
    EXPECT_EQ(0u, r.header("Authorization").rfind("AWS4-HMAC-SHA256 Credential=AKENV/", 0));
  }
}

}  // namespace
