#include "utils/agent/oceanstor/dto/lun.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "framework/json/writer.h"
#include "tests/support/log_capture.h"
#include "tests/support/json_text.h"

// A device-manager reply from its JSON text.
const auto reply = au_test::parse_json;

namespace {

// A LUN object as the array sends it; `type` is JSON text, `extra` more members.
std::string lun_json(const std::string& id, const std::string& extra = "", const std::string& type = "11") {
  return R"({"TYPE": )" + type + R"(, "ID": ")" + id + R"(", "NAME": "lun)" + id +
         R"(", "WWN": "6a0b", "EXPOSEDTOINITIATOR": "false")" + extra + "}";
}

std::string metadata(const std::string& packed) { return R"(, "ASSOCIATEMETADATA": ")" + packed + R"(")"; }

}  // namespace

TEST(OceanStor_LUN, reads_the_array_shapes_of_every_field) {
  au_test::Log_Capture logs;
  oceanstor::LUN lun;
  ASSERT_TRUE(lun.load(reply(R"({"data": )" +
                             lun_json("6", metadata(R"({\"HostLUNID\":3})") +
                                               R"(, "remoteLunWwn": "--", "takeOverLunWwn": "6b0c")",
                                      R"("11")") + "}"),
                       "data"));
  EXPECT_EQ(std::make_tuple(11, 3, "false", "6", "lun6", "6a0b", "", "6b0c"),
            std::tie(lun.type, lun.host_lun_id, lun.exposed_to_initiator, lun.id, lun.name, lun.wwn,
                     lun.remote_lun_wwn, lun.takeover_lun_wwn));
  oceanstor::LUN bare;
  EXPECT_TRUE(bare << reply(lun_json("7", metadata("not json"))));
  EXPECT_EQ(0, bare.host_lun_id);
  EXPECT_EQ("", bare.remote_lun_wwn + bare.takeover_lun_wwn);
  EXPECT_TRUE(bare << reply(lun_json("7", metadata(R"({\"HostLUNID\":\"5\"})"))));
  EXPECT_EQ(5, bare.host_lun_id);
  EXPECT_TRUE(logs.records().empty()) << logs.dump();
}

TEST(OceanStor_LUN, hostile_objects_fail_with_one_line_each) {
  au_test::Log_Capture logs;
  oceanstor::LUN lun;
  const json_spirit::Value no_host_lun_id = reply(lun_json("8", metadata(R"({\"Other\":1})")));
  EXPECT_FALSE(lun << no_host_lun_id);
  EXPECT_TRUE(logs.has(LM_ERROR, "Unexpected exception occurred while parse OceanStor LUN, error: JSON member "
                                 "'HostLUNID' not exist in JSON object!\n json: " +
                                     json_spirit::write(no_host_lun_id) + ".\n"))
      << logs.dump();
  EXPECT_FALSE(lun << reply(lun_json("8", metadata(R"({\"HostLUNID\":4294967297})"))));
  EXPECT_FALSE(lun << reply(lun_json("8", "", "4294967297")));
  EXPECT_FALSE(lun << reply(R"({"TYPE": 11, "ID": "8", "NAME": "n", "EXPOSEDTOINITIATOR": "true"})"));
  EXPECT_TRUE(logs.has_fragment(LM_ERROR, "error: JSON Pointer path '/WWN' not exist in JSON!\n"));
  EXPECT_FALSE(lun.load(reply(lun_json("8")), "data"));
  EXPECT_EQ(5u, logs.records().size()) << logs.dump();
}

TEST(OceanStor_LUN, lists_skip_non_objects_and_stop_at_a_bad_lun) {
  au_test::Log_Capture logs;
  std::vector<oceanstor::LUN> luns(1);
  EXPECT_TRUE(luns << reply(R"({"data": [)" + lun_json("1") + ", 7, null, " + lun_json("2") + "]}"));
  ASSERT_EQ(3u, luns.size()) << "appended behind what the caller had";
  EXPECT_EQ("1,2", luns[1].id + "," + luns[2].id);
  EXPECT_TRUE(logs.records().empty()) << logs.dump();

  luns.clear();
  const json_spirit::Value bad = reply(R"({"data": [)" + lun_json("1") + R"(, {"ID": "2"}, )" + lun_json("3") + "]}");
  EXPECT_FALSE(luns << bad);
  EXPECT_EQ(1u, luns.size());
  EXPECT_TRUE(logs.has(LM_ERROR, "Unexpected exception occurred while parse LUNs, error: Failed to load elem "
                                 "content from JSON.\n\n json: " + json_spirit::write(bad) + ".\n"))
      << logs.dump();
  EXPECT_FALSE(luns << reply(R"({"data": {"ID": "1"}})"));
  EXPECT_EQ(3u, logs.records().size()) << "the LUN's own line, then the list's; " << logs.dump();
}
