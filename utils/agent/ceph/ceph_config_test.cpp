#include "utils/agent/ceph/ceph_config.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/log_capture.h"

namespace {

std::string option(const ceph::Ceph_Config& config, const std::string& name) {
  const auto it = config.options().find(name);
  return it == config.options().end() ? "<absent>" : it->second.get_str();
}

TEST(Ceph_Config, global_keys_keep_their_name_others_take_the_section_and_the_first_wins) {
  au_test::Log_Capture logs;
  const ceph::Ceph_Config config(
      "# comment\n; comment\n[global]\n"
      "mon_host = [v2:127.0.0.1:3300,v1:127.0.0.1:6789]\n"
      "client_mount_timeout = 5\n"
      "[client]\nmount_timeout = 99\nrados_osd_op_timeout = 15\n"
      "[osd]\nosd_data = /var/lib/ceph/osd/$cluster-$id\n");
  EXPECT_TRUE(static_cast<bool>(config));
  EXPECT_EQ(4u, config.options().size());
  EXPECT_EQ("[v2:127.0.0.1:3300,v1:127.0.0.1:6789]", option(config, "mon_host"));
  EXPECT_EQ("5", option(config, "client_mount_timeout"));  // [client] mount_timeout came later
  EXPECT_EQ("15", option(config, "client_rados_osd_op_timeout"));
  EXPECT_EQ("/var/lib/ceph/osd/$cluster-$id", option(config, "osd_osd_data"));

  // No options: nothing, empty sections, keys outside any section.
  EXPECT_FALSE(static_cast<bool>(ceph::Ceph_Config("")));
  EXPECT_FALSE(static_cast<bool>(ceph::Ceph_Config("[global]\n[client]\n")));
  EXPECT_FALSE(static_cast<bool>(ceph::Ceph_Config("mon_host = 127.0.0.1\n")));
  EXPECT_TRUE(logs.records().empty()) << logs.dump();
}

// Hostile text fails cleanly with one line; what was read above the bad line stays.
TEST(Ceph_Config, a_parse_error_is_logged_and_keeps_the_options_before_it) {
  au_test::Log_Capture logs;
  const ceph::Ceph_Config broken(
      "[global]\nmon_host = 127.0.0.1\n[client]\nkeyring = /k\n[unclosed\nafter = 1\n");
  EXPECT_EQ(2u, broken.options().size());
  EXPECT_EQ("/k", option(broken, "client_keyring"));
  ASSERT_EQ(1u, logs.records().size()) << logs.dump();
  EXPECT_TRUE(logs.has_fragment(LM_ERROR, "Unexpected exception occurred in parse ini: "));
  EXPECT_TRUE(logs.has_fragment(LM_ERROR, "(5)")) << logs.dump();  // the bad line

  const ceph::Ceph_Config twice("[global]\nfsid = a\nfsid = b\n");  // a duplicate key
  EXPECT_EQ("a", option(twice, "fsid"));

  for (const std::string& junk :
       {std::string("not an ini file"), std::string("[\n"), std::string("=value\n"),
        std::string("\x01\xff[glo\0]\n", 9), std::string(100000, '[')}) {
    logs.clear();
    EXPECT_FALSE(static_cast<bool>(ceph::Ceph_Config(junk)));
    EXPECT_EQ(1u, logs.records().size()) << logs.dump();
  }
}

}  // namespace
