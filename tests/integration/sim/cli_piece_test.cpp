// agentutil piece on a directory pool: what a person sees for good and damaged pieces.
#include <gtest/gtest.h>

#include "tests/support/temp_dir.h"
#include "framework/client_io/piece_fixture_test.h"
#include "tests/support/agentutil_runner.h"
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

  const au_test::Run_Result ls = au_test::run_agentutil({"piece", "ls", url, "job/"}, scratch.path());
  EXPECT_EQ(0, ls.status) << ls.err;
  EXPECT_EQ("job/p1\n", ls.out);

  const au_test::Run_Result info = au_test::run_agentutil({"--json", "piece", "info", url, "job/p1"}, scratch.path());
  ASSERT_EQ(0, info.status) << info.err;
  const json_spirit::Value v = au_test::parse_json(info.out);
  EXPECT_EQ(v.get_obj().at("data_records").get_int(), 2);
  EXPECT_EQ(v.get_obj().at("zero_bytes").get_int(), 2 * MiB);
  EXPECT_EQ(v.get_obj().at("cipher").get_str(), "aes-256-gcm");

  const au_test::Run_Result ok = au_test::run_agentutil({"piece", "verify", url, "job/p1", "--options", opts}, scratch.path());
  EXPECT_EQ(0, ok.status) << ok.err;
  EXPECT_EQ("job/p1: 3 records, 2.3 MiB of image checked, OK\n", ok.out);

  std::string bytes = au_test::read_whole(pool / "job/p1");
  bytes[200] ^= 1;
  pool.write_file("bad", bytes);
  const struct {
    std::vector<std::string> args;
    std::string said;
  } failures[] = {
      {{"piece", "verify", url, "job/p1"}, "the piece is encrypted and the connection has no key"},
      {{"piece", "verify", url, "bad", "--options", opts}, "Invalid piece 'bad' at record 0 (image offset 0, piece offset 64)"},
      {{"piece", "info", url, "missing"}, "cannot open piece missing: cannot open '" + pool.path() + "/missing'"},
  };
  for (const auto& f : failures) {
    const au_test::Run_Result r = au_test::run_agentutil(f.args, scratch.path());
    EXPECT_EQ(1, r.status) << f.said;
    EXPECT_EQ(1u, au_test::line_count(r.err)) << r.err;
    EXPECT_NE(std::string::npos, r.err.find(f.said)) << r.err;
  }
}

}  // namespace
