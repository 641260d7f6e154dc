// Hosts and their Fibre Channel links.
#include "utils/agent/oceanstor/dto/host.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "tests/support/log_capture.h"
#include "utils/agent/oceanstor/dto/host_link.h"
#include "tests/support/json_text.h"

// A device-manager reply from its JSON text.
const auto reply = au_test::parse_json;

namespace {

std::string link_json(const std::string& id, const std::string& health, const std::string& running) {
  return R"({"TYPE": 255, "ID": ")" + id + R"(", "INITIATOR_ID": "i1", "INITIATOR_PORT_WWN": "2100f4",
             "INITIATOR_TYPE": "223", "TARGET_ID": "0.A.P0", "TARGET_PORT_WWN": "2010b4", "TARGET_TYPE": "212",
             "HEALTHSTATUS": ")" + health + R"(", "RUNNINGSTATUS": ")" + running + R"("})";
}

std::string ids(const std::vector<oceanstor::Host_Link>& links) {
  std::string out;
  for (const auto& l : links) out += l.id;
  return out;
}

}  // namespace

TEST(OceanStor_Host, lists_read_every_host_object_and_fail_on_a_bad_one) {
  au_test::Log_Capture logs;
  std::vector<oceanstor::Host> hosts;
  ASSERT_TRUE(hosts << reply(R"({"data": ["noise",
      {"TYPE": "21", "ID": "2", "NAME": "db2", "IP": "10.0.0.2", "HEALTHSTATUS": "2", "RUNNINGSTATUS": "27"}]})"));
  ASSERT_EQ(1u, hosts.size());
  const oceanstor::Host& h = hosts[0];
  EXPECT_EQ(std::make_tuple(21, "2", "db2", "10.0.0.2", "2", "27"),
            std::tie(h.type, h.id, h.name, h.ip, h.health_status, h.running_status));
  EXPECT_TRUE(logs.records().empty()) << logs.dump();

  EXPECT_FALSE(hosts << reply(R"({"data": [{"TYPE": 21, "ID": "1", "NAME": "n", "HEALTHSTATUS": "1", "RUNNINGSTATUS": "1"}]})"));
  EXPECT_TRUE(logs.has(LM_ERROR, "Unexpected exception while parse host error: JSON member 'IP' not exist in JSON "
                                 "object!\n json: {\"HEALTHSTATUS\":\"1\",\"ID\":\"1\",\"NAME\":\"n\","
                                 "\"RUNNINGSTATUS\":\"1\",\"TYPE\":21}.\n"))
      << logs.dump();
  EXPECT_TRUE(logs.has(LM_ERROR, "Unexpected exception while parse hosts error: Failed to load elem content from "
                                 "JSON.\n\n json: {\"data\":[{\"HEALTHSTATUS\":\"1\",\"ID\":\"1\",\"NAME\":\"n\","
                                 "\"RUNNINGSTATUS\":\"1\",\"TYPE\":21}]}.\n"))
      << logs.dump();
  EXPECT_FALSE(hosts << reply(R"({"data": "none"})"));
  EXPECT_EQ(1u, hosts.size());
  EXPECT_EQ(3u, logs.records().size()) << logs.dump();
}

TEST(OceanStor_Host_Link, keeps_only_healthy_running_links_and_stops_at_a_bad_one) {
  au_test::Log_Capture logs;
  std::vector<oceanstor::Host_Link> links;
  ASSERT_TRUE(links << reply(R"({"data": [)" + link_json("a", "1", "10") + "," + link_json("b", "1", "27") + "," +
                             link_json("c", "1", "28") + "," + link_json("d", "2", "27") + "]}"));
  EXPECT_EQ("ab", ids(links));
  const oceanstor::Host_Link& l = links[0];
  EXPECT_EQ(std::make_tuple(255, "i1", "2100f4", "223", "0.A.P0", "2010b4", "212"),
            std::tie(l.type, l.initiator_id, l.initiator_port_wwn, l.initiator_type, l.target_id,
                     l.target_port_wwn, l.target_type));
  EXPECT_TRUE(logs.records().empty()) << logs.dump();

  links.clear();
  EXPECT_FALSE(links << reply(R"({"data": [)" + link_json("a", "1", "10") + R"(, {"TYPE": 1, "ID": "b"}, )" +
                              link_json("c", "1", "10") + "]}"));
  EXPECT_EQ("a", ids(links));
  EXPECT_TRUE(logs.has(LM_ERROR, "Unexpected exception while parse host json: {\"ID\":\"b\",\"TYPE\":1}.\n, "
                                 "JSON member 'INITIATOR_ID' not exist in JSON object!\n"))
      << logs.dump();
  EXPECT_FALSE(links << reply(R"({"data": [7]})")) << "links do not skip non-objects";
  EXPECT_FALSE(links << reply(R"({"error": {"code": 0}})"));
  EXPECT_TRUE(logs.has(LM_ERROR, "Unexpected exception while parse host links json, "
                                 "JSON member 'data' not exist in JSON object!.\n"))
      << logs.dump();
  EXPECT_EQ(3u, logs.records().size()) << logs.dump();
}
