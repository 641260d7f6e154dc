#include "utils/agent/ceph/uri_components.h"

#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <tuple>

namespace {

using ceph::URI_Components;

void expect_unknown(const std::string& text) {
  const URI_Components c(text);
  EXPECT_EQ(URI_Components::UNKNOWN, c.type) << text;
  EXPECT_TRUE(c.pool.empty() && c.img.empty() && c.snap.empty()) << text;
  EXPECT_EQ("", c.to_uri()) << text;
}

TEST(URI_Components, images_and_snapshots_parse_and_print_with_the_scheme) {
  for (const auto& [text, type, snap, uri] :
       {std::make_tuple("rbd/vm1", URI_Components::IMAGE, "", "ceph://rbd/vm1"),
        std::make_tuple("ceph://rbd/vm1@s1", URI_Components::SNAPSHOT, "s1",
                        "ceph://rbd/vm1@s1")}) {
    const URI_Components c(text);
    EXPECT_EQ(type, c.type) << text;
    EXPECT_TRUE(c.pool == "rbd" && c.img == "vm1" && c.snap == snap) << text;
    EXPECT_EQ(uri, c.to_uri());
  }

  // Every allowed character, and the printed form reads back the same.
  const URI_Components all("ceph://Pool_0.9-x/IMG-a.b_c@snap.2024-01_Z");
  ASSERT_EQ(URI_Components::SNAPSHOT, all.type);
  EXPECT_EQ(all.to_uri(), URI_Components(all.to_uri()).to_uri());
  EXPECT_EQ("ceph://Pool_0.9-x/IMG-a.b_c@snap.2024-01_Z", all.to_uri());

  URI_Components none;
  none.type = static_cast<URI_Components::Type>(3);  // in range for the enum, not named
  none.pool = "p";
  EXPECT_EQ("", none.to_uri());
}

TEST(URI_Components, anything_but_one_pool_image_and_optional_snapshot_is_unknown) {
  for (const char* text :
       {"", "rbd", "rbd/", "/vm1", "ceph://", "ceph://rbd", "ceph://rbd/vm1@", "rbd/dir/vm1",
        "rbd/vm 1", " rbd/vm1", "rbd/vm1 ", "rbd/vm1@s1@s2", "ceph://rbd//vm1", "CEPH://rbd/vm1",
        "rbd://rbd/vm1", "ceph:/rbd/vm1", "ceph://ceph://rbd/vm1", "rbd/vm1\n"}) {
    expect_unknown(text);
  }
  // Every byte outside [A-Za-z0-9_.-], in each of the three names.
  for (int ch = 1; ch < 256; ++ch) {
    const char c = static_cast<char>(ch);
    const bool allowed = std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '.' ||
                         c == '-';
    if (allowed || c == '/' || c == '@') continue;
    const std::string bad(1, c);
    expect_unknown("ceph://p" + bad + "/i@s");
    expect_unknown("ceph://p/i" + bad + "@s");
    expect_unknown("ceph://p/i@s" + bad);
  }
  expect_unknown(std::string("rbd/vm1\0@s", 10));
}

TEST(URI_Components, long_text_is_refused_without_exhausting_the_stack) {
  // The longest accepted text still parses...
  const std::string pool(400, 'p'), img(400, 'i');
  const std::string snap(ceph::RBD_URI_MAX_LENGTH - 9 - pool.size() - img.size(), 's');
  const std::string longest = "ceph://" + pool + "/" + img + "@" + snap;
  ASSERT_EQ(ceph::RBD_URI_MAX_LENGTH, longest.size());
  EXPECT_EQ(longest, URI_Components(longest).to_uri());
  // ...one more character, or a 100 000-character name, is UNKNOWN.
  expect_unknown(longest + "s");
  // Without the scheme the same names are measured as they would print.
  expect_unknown(longest.substr(7) + "s");
  EXPECT_EQ(longest, URI_Components(longest.substr(7)).to_uri());
  expect_unknown("rbd/" + std::string(100000, 'a'));
  expect_unknown(std::string(100000, '/'));
}

}  // namespace
