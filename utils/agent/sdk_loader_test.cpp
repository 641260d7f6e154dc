#include "utils/agent/sdk_loader.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/temp_dir.h"
#include "tests/support/log_capture.h"

namespace {

void install(const au_test::Temp_Dir& tmp, std::initializer_list<const char*> versions) {
  for (const char* v : versions) ASSERT_EQ(0, ::mkdir((tmp / "sdk/" + v).c_str(), 0755)) << v;
}

std::vector<std::string> names(const SDK_Loader& sdk) {
  std::vector<std::string> out;
  for (const auto& v : sdk.versions()) out.push_back(ver_to_str(v));
  return out;
}

}  // namespace

TEST(SDK_Loader, lists_versions_newest_first_answers_where_they_live_and_survives_odd_directories) {
  au_test::Temp_Dir tmp;
  au_test::Log_Capture logs;
  const SDK_Loader absent("sdk", tmp.path().c_str(), false);
  EXPECT_FALSE(static_cast<bool>(absent.latest()));
  EXPECT_EQ("", absent.path("1.0"));
  EXPECT_FALSE(au_test::exists(tmp / "sdk"));

  SDK_Loader sdk("sdk", tmp.path().c_str(), true);  // makes tmp/sdk
  install(tmp, {"1.2", "1.10", "v2.0rc1", "latest", "1.9.3"});
  tmp.write_file("sdk/README", "");
  ASSERT_EQ(0, ::symlink("1.10", (tmp / "sdk/current").c_str()));
  EXPECT_TRUE(sdk.versions().empty());  // a snapshot until reload
  sdk.reload();

  EXPECT_EQ((std::vector<std::string>{"v2.0rc1", "1.10", "1.9.3", "1.2"}), names(sdk));
  EXPECT_EQ("v2.0rc1", sdk.latest().str());
  EXPECT_TRUE(sdk.has_version("1.10.0"));
  EXPECT_FALSE(sdk.has_version("latest"));
  EXPECT_EQ(tmp / "sdk/1.10", sdk.path("1.10"));
  EXPECT_EQ(tmp / "sdk/v2.0rc1", sdk.path("2.0rc1"));  // named as it is on disk
  EXPECT_EQ("", sdk.path("1.1"));

  install(tmp, {"3.0"});
  EXPECT_EQ("", sdk.path("3.0"));  // on disk, not yet known
  sdk.reload();
  EXPECT_EQ(tmp / "sdk/3.0", sdk.path(sdk.latest()));
  EXPECT_TRUE(logs.records().empty()) << logs.dump();

  tmp.write_file("plain", "");
  EXPECT_TRUE(SDK_Loader("plain", tmp.path().c_str(), false).versions().empty());
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to read SDK directory " + (tmp / "plain") + ", errno=20, Not a directory\n"))
      << logs.dump();
}
