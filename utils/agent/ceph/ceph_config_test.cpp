#include "utils/agent/ceph/ceph_config.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/log_capture.h"

namespace {

std::string option(const ceph::Ceph_Config& config, const std::string& name) {
  const auto it = config.options().find(name);
  if (it == config.options().end()) return "<absent>";
  return it->second.get_str();
}

TEST(Ceph_Config, global_keys_keep_their_name_others_take_the_section_and_the_first_wins) {
  au_test::Log_Capture logs;
  const ceph::Ceph_Config config(
      "# written by hand\n"
      "; another comment\n"
      "[global]\n"
      "mon_host = [v2:127.0.0.1:3300,v1:127.0.0.1:6789]\n"
      "client_mount_timeout = 5\n"
      "auth_client_required=none\n"
      "\n"
      "[client]\n"
      "mount_timeout = 99\n"
      "rados_osd_op_timeout = 15\n"
      "[osd]\n"
      "osd_data = /var/lib/ceph/osd/$cluster-$id\n");
  EXPECT_TRUE(static_cast<bool>(config));
  EXPECT_EQ(5u, config.options().size());
  EXPECT_EQ("[v2:127.0.0.1:3300,v1:127.0.0.1:6789]", option(config, "mon_host"));
  EXPECT_EQ("none", option(config, "auth_client_required"));
  // [client] mount_timeout names the same option as the earlier global key: first wins.
  EXPECT_EQ("5", option(config, "client_mount_timeout"));
  EXPECT_EQ("15", option(config, "client_rados_osd_op_timeout"));
  EXPECT_EQ("/var/lib/ceph/osd/$cluster-$id", option(config, "osd_osd_data"));
  for (const auto& entry : config.options())
    EXPECT_EQ(json_spirit::str_type, entry.second.type()) << entry.first;
  EXPECT_TRUE(logs.records().empty()) << logs.dump();
}

TEST(Ceph_Config, text_without_options_reads_as_false) {
  au_test::Log_Capture logs;
  EXPECT_FALSE(static_cast<bool>(ceph::Ceph_Config("")));
  EXPECT_FALSE(static_cast<bool>(ceph::Ceph_Config("# nothing here\n\n[global]\n[client]\n")));
  // Keys outside any section belong to no section and give no option.
  EXPECT_FALSE(static_cast<bool>(ceph::Ceph_Config("mon_host = 127.0.0.1\n")));
  EXPECT_TRUE(logs.records().empty()) << logs.dump();
}

// Hostile text fails cleanly: one line naming the reader's complaint; whatever was read
// above the bad line is still there.
TEST(Ceph_Config, a_parse_error_is_logged_and_keeps_the_options_before_it) {
  au_test::Log_Capture logs;
  const ceph::Ceph_Config broken(
      "[global]\n"
      "mon_host = 127.0.0.1\n"
      "[client]\n"
      "keyring = /etc/ceph/keyring\n"
      "[unclosed\n"
      "after = 1\n");
  EXPECT_TRUE(static_cast<bool>(broken));
  EXPECT_EQ(2u, broken.options().size());
  EXPECT_EQ("127.0.0.1", option(broken, "mon_host"));
  EXPECT_EQ("/etc/ceph/keyring", option(broken, "client_keyring"));
  EXPECT_EQ("<absent>", option(broken, "unclosed_after"));
  ASSERT_EQ(1u, logs.records().size()) << logs.dump();
  EXPECT_TRUE(logs.has_fragment(LM_ERROR, "Unexpected exception occurred in parse ini: "))
      << logs.dump();
  EXPECT_TRUE(logs.has_fragment(LM_ERROR, "(5)")) << logs.dump();  // the bad line's number

  // A key given twice in one section is an error too; the first value stays.
  logs.clear();
  const ceph::Ceph_Config twice("[global]\nfsid = a\nfsid = b\n");
  EXPECT_EQ("a", option(twice, "fsid"));
  EXPECT_TRUE(logs.has_fragment(LM_ERROR, "Unexpected exception occurred in parse ini: "));

  // Errors on the first line, binary junk, a line without '=': no options, no crash.
  for (const std::string& junk :
       {std::string("not an ini file"), std::string("[\n"), std::string("=value\n"),
        std::string("\x01\xff\xfe[global\0]\n", 13), std::string(100000, '[')}) {
    logs.clear();
    const ceph::Ceph_Config config(junk);
    EXPECT_FALSE(static_cast<bool>(config));
    EXPECT_EQ(1u, logs.records().size()) << logs.dump();
  }
}

}  // namespace
