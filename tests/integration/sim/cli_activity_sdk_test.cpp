// The agentutil binary's activity and sdk families on real files: a record written by
// one run and read back by another, SDK versions in the order an agent picks them.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"
#include "tests/support/agentutil_runner.h"
#include "tests/support/json_text.h"

namespace {

using au_test::parse_json;
using au_test::Run_Result;

const std::string ACTIVITY_DIR = "/var/opt/norvane/stavora3/agent/act/";

void expect_one_line_failure(const Run_Result& run, const std::string& said) {
  EXPECT_EQ(1, run.status) << said;
  EXPECT_EQ("", run.out) << said;
  EXPECT_EQ(1u, au_test::line_count(run.err)) << run.err;
  EXPECT_NE(std::string::npos, run.err.find(said)) << run.err;
}

TEST(Agentutil_Activity, a_record_written_by_one_run_is_read_by_the_next) {
  au_test::Temp_Dir dir;
  const std::string name = "cli-test-" + std::to_string(::getpid());
  const Run_Result update =
      au_test::run_agentutil({"activity", "update", name, "--state", "RUNNING", "--progress", "42", "--size",
                              "1073741824", "--processed", "450971566", "--speed", "104857600"},
                             dir.path());
  ASSERT_EQ(0, update.status) << update.err;
  const Run_Result json = au_test::run_agentutil({"--json", "activity", "show", name}, dir.path());
  const Run_Result text = au_test::run_agentutil({"activity", "show", name}, dir.path());
  std::remove((ACTIVITY_DIR + name).c_str());
  ASSERT_EQ(0, json.status) << json.err;
  EXPECT_EQ(parse_json(R"({"file":")" + ACTIVITY_DIR + name + R"(","state":"RUNNING","progress":42,)"
                       R"("size":1073741824,"processed_size":450971566,"speed":104857600,"code":0})"),
            parse_json(json.out));
  ASSERT_EQ(0, text.status) << text.err;
  for (const char* shown : {"state      RUNNING\n", "progress   42%\n", "size       1 GiB\n",
                            "processed  430.1 MiB\n", "speed      100 MiB/s\n"})
    EXPECT_NE(std::string::npos, text.out.find(shown)) << shown << " in\n" << text.out;

  expect_one_line_failure(au_test::run_agentutil({"activity", "show", name + "-none"}, dir.path()),
                          "cannot open activity record");
}

TEST(Agentutil_Sdk, versions_newest_first_and_the_path_of_one) {
  au_test::Temp_Dir dir;
  ::mkdir((dir / "vendor-sdk").c_str(), 0755);
  for (const char* v : {"1.2.0", "1.10.3", "2.0.0rc1", "2.0.0", "notes"})
    ::mkdir((dir / "vendor-sdk/" + v).c_str(), 0755);
  const std::vector<std::string> where{"--base", dir.path(), "--name", "vendor-sdk"};
  const auto sdk = [&](std::vector<std::string> args) {
    args.insert(args.begin() + 2, where.begin(), where.end());
    return au_test::run_agentutil(args, dir.path());
  };

  const Run_Result json = sdk({"sdk", "list", "--json"});
  ASSERT_EQ(0, json.status) << json.err;
  EXPECT_EQ(parse_json(R"({"versions":["2.0.0","2.0.0rc1","1.10.3","1.2.0"],"latest":"2.0.0"})"),
            parse_json(json.out));
  const Run_Result text = sdk({"sdk", "list"});
  ASSERT_EQ(0, text.status) << text.err;
  EXPECT_EQ(0u, text.out.find("4 versions of vendor-sdk under " + dir.path() + ", newest first:\n  2.0.0  (latest)\n"))
      << text.out;

  const Run_Result path = sdk({"sdk", "path", "1.10.3"});
  ASSERT_EQ(0, path.status) << path.err;
  EXPECT_EQ(dir / "vendor-sdk/1.10.3\n", path.out);
  expect_one_line_failure(sdk({"sdk", "path", "3.0"}), "version '3.0' is not installed");
  expect_one_line_failure(
      au_test::run_agentutil({"sdk", "list", "--base", dir / "none", "--name", "vendor-sdk"}, dir.path()),
      "no such directory");
}

}  // namespace
