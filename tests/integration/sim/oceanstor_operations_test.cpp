// OceanStor LUN, snapshot, lun-group and host operations against the simulated array:
// the queries sent, the records read, and the detach polling. (The association bodies
// themselves are pinned beside their records; the array here refuses a wrong type.)
#include <gtest/gtest.h>

#include "tests/integration/sim/oceanstor_fixture.h"

using au_sim::OceanStor_Sim;
using au_sim::Sim_Fault;
using au_sim::Sim_Reply;
using au_test::Log_Capture;

namespace {

class OceanStor_Operations : public au_test::OceanStor_Test {
 protected:
  void SetUp() override {
    OceanStor_Test::SetUp();
    sim.add_lun("11", "lun_a", 1 << 20);
    sim.add_lun("12", "lun_b", 1 << 20);
    sim.add_snapshot("40", "snap_a", "11");
    sim.add_lun_group("3");
    sim.add_host("7", "host_a", "3");
  }

  std::string query_of(const std::string& resource) const {
    const auto requests = sim.requests_to(rest(resource));
    return requests.empty() ? std::string("<none>") : requests.back().query;
  }

  Log_Capture log;
};

TEST_F(OceanStor_Operations, reads_of_luns_and_snapshots) {
  oceanstor::Snapshot snap;
  ASSERT_TRUE(client->get_snapshot("40", snap));
  EXPECT_EQ("snap_a", snap.name);
  EXPECT_FALSE(client->is_snap_attached("40"));
  ASSERT_TRUE(client->attach_lun("12", "3"));
  ASSERT_TRUE(client->attach_snapshot("40", "3"));
  EXPECT_TRUE(client->is_snap_attached("40"));
  std::vector<oceanstor::LUN> luns;
  ASSERT_TRUE(client->get_luns("7", "12", luns));
  ASSERT_EQ(1u, luns.size());
  EXPECT_EQ("12", luns[0].id);
  EXPECT_EQ(1, luns[0].host_lun_id);
  EXPECT_EQ("ASSOCIATEOBJTYPE=21&ASSOCIATEOBJID=7&filter=ID:12", query_of("lun/associate"));
  ASSERT_TRUE(client->get_snap_luns("7", "40", luns));
  ASSERT_EQ(2u, luns.size()) << "appended";
  EXPECT_EQ("40", luns[1].id);
  EXPECT_EQ(2, luns[1].host_lun_id);
  EXPECT_EQ("ASSOCIATEOBJTYPE=21&ASSOCIATEOBJID=7&filter=ID:40", query_of("snapshot/associate"));

  oceanstor::LUN lun;
  EXPECT_FALSE(client->get_lun("99", lun));
  EXPECT_EQ(OceanStor_Sim::OBJECT_NOT_EXIST, client->last_error().code);
  EXPECT_TRUE(log.has_fragment(LM_ERROR, "Failed to get OceanStor lun, method: GET, url http://127.0.0.1:"))
      << log.dump();
  EXPECT_FALSE(client->get_snapshot("41", snap));
  EXPECT_TRUE(log.has_fragment(LM_ERROR, "Failed to get OceanStor snapshot, method: GET")) << log.dump();
  expect_no_secrets(log);
}

// Ids reach the array as the text they are, in a path or a query: none can add a query
// parameter, a path step or a fragment.
TEST_F(OceanStor_Operations, ids_are_percent_encoded_in_paths_and_queries) {
  const std::string odd = "1&LUNID=2/../x y#";
  oceanstor::LUN lun;
  std::vector<oceanstor::LUN> luns;
  oceanstor::Bitmap_Chunk chunk;
  EXPECT_FALSE(client->get_lun(odd, lun));
  client->get_luns(odd, "12", luns);
  EXPECT_FALSE(client->get_bitmap_chunk(odd, chunk));
  const auto requests = sim.requests();
  ASSERT_EQ(4u, requests.size());  // the login, then one each
  EXPECT_EQ(rest("lun/1%26LUNID%3D2%2F..%2Fx%20y%23"), requests[1].target);
  EXPECT_EQ(odd, requests[2].param("ASSOCIATEOBJID"));
  EXPECT_EQ("12", requests[2].param("filter").substr(3));
  EXPECT_EQ(odd, requests[3].param("LUNID"));
  EXPECT_EQ(1u, requests[3].params.size());
}

TEST_F(OceanStor_Operations, only_the_exact_text_true_means_attached) {
  const auto snapshot = [](const char* exposed) {
    const json_spirit::Object data{
        {"TYPE", "27"}, {"EXPOSEDTOINITIATOR", exposed}, {"ID", "40"}, {"NAME", "s"}, {"WWN", "w"}};
    return Sim_Reply{200, OceanStor_Sim::reply_text(data)};
  };
  for (const char* exposed : {"TRUE", "1", "true"}) {
    sim.set_reply("GET", rest("snapshot/40"), snapshot(exposed));
    EXPECT_EQ(std::string(exposed) == "true", client->is_snap_attached("40")) << exposed;
  }
  // The host-scoped form reads a single snapshot object from the associate query.
  sim.set_reply("GET", rest("snapshot/associate"), snapshot("true"));
  oceanstor::Snapshot snap;
  ASSERT_TRUE(client->get_snapshot("7", "40", snap));
  EXPECT_EQ("40", snap.id);
  EXPECT_EQ("ASSOCIATEOBJTYPE=21&ASSOCIATEOBJID=7&filter=ID:40", query_of("snapshot/associate"));
}

TEST_F(OceanStor_Operations, argument_checks_come_first_and_send_nothing) {
  oceanstor::Snapshot snap;
  oceanstor::LUN lun;
  std::vector<oceanstor::LUN> luns;
  std::vector<oceanstor::Host> hosts;
  std::vector<oceanstor::Host_Link> links;
  EXPECT_FALSE(client->get_snapshot("", snap));
  EXPECT_FALSE(client->get_lun("", lun));
  EXPECT_FALSE(client->get_snap_luns("", "40", luns));
  EXPECT_FALSE(client->attach_snapshot("40", ""));
  EXPECT_FALSE(client->detach_lun("", "3"));
  EXPECT_FALSE(client->get_fc_host_links("", links));
  EXPECT_FALSE(client->get_lun_belong_hosts("", hosts));
  for (const char* what : {"snap_id is empty", "lun_id is empty", "host_id is empty", "lun_group_id is empty"})
    EXPECT_TRUE(log.has_check(what)) << what << log.dump();
  EXPECT_TRUE(sim.requests().empty());
}

TEST_F(OceanStor_Operations, attach_and_detach_change_the_lun_group) {
  ASSERT_TRUE(client->attach_snapshot("40", "3"));
  ASSERT_TRUE(client->attach_lun("11", "3"));
  EXPECT_TRUE(sim.in_lun_group("3", "40"));
  EXPECT_TRUE(sim.in_lun_group("3", "11"));

  // Attaching twice fails; the line carries the request and the array's reply.
  EXPECT_FALSE(client->attach_lun("11", "3"));
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to attach OceanStor lun to lun group, method: POST, url http://127.0.0.1:" +
                                    std::to_string(sim.port()) + rest("lungroup/associate") +
                                    " req body: {\"ASSOCIATEOBJID\":\"11\",\"ASSOCIATEOBJTYPE\":11,\"ID\":\"3\"}\n"
                                    " resp body:\n{\"data\":{},\"error\":{\"code\":1077948997,"
                                    "\"description\":\"The object is already in the LUN group.\"}}\n"))
      << log.dump();

  ASSERT_TRUE(client->detach_snapshot("40", "3"));
  ASSERT_TRUE(client->detach_lun("11", "3"));
  EXPECT_EQ("DELETE", sim.requests_to(rest("lungroup/associate")).back().method);
  EXPECT_FALSE(sim.in_lun_group("3", "40"));
  EXPECT_FALSE(sim.in_lun_group("3", "11"));
  EXPECT_TRUE(client->sleeps.empty()) << "unexposed at the first read";
  expect_no_secrets(log);
}

TEST_F(OceanStor_Operations, detach_polls_with_growing_delays_until_unexposed) {
  ASSERT_TRUE(client->attach_snapshot("40", "3"));
  sim.set_unexpose_after_reads(2);
  sim.clear_requests();
  ASSERT_TRUE(client->detach_snapshot("40", "3"));
  EXPECT_EQ((std::vector<unsigned>{1, 2}), client->sleeps);
  EXPECT_EQ(3u, sim.requests_to(rest("snapshot/40")).size());

  // Still exposed after the whole sequence: five reads, five sleeps, false.
  ASSERT_TRUE(client->attach_lun("11", "3"));
  sim.set_unexpose_after_reads(100);
  client->sleeps.clear();
  log.clear();
  EXPECT_FALSE(client->detach_lun("11", "3"));
  EXPECT_EQ((std::vector<unsigned>{1, 2, 4, 8, 16}), client->sleeps);
  EXPECT_EQ(5u, sim.requests_to(rest("lun/11")).size());
  EXPECT_TRUE(log.records().empty()) << log.dump();

  // Not in the group: done at once, no polling.
  client->sleeps.clear();
  sim.clear_requests();
  EXPECT_TRUE(client->detach_snapshot("40", "3"));
  EXPECT_TRUE(client->detach_lun("11", "3"));
  EXPECT_TRUE(client->sleeps.empty());
  EXPECT_TRUE(sim.requests_to(rest("snapshot/40")).empty());
}

TEST_F(OceanStor_Operations, detach_error_codes_differ_between_snapshots_and_luns) {
  const std::string path = rest("lungroup/associate");
  const std::string snapshot_failed = "Failed to detach OceanStor snapshot from lun group, method: DELETE";
  // A snapshot that does not exist fails; so does a LUN.
  EXPECT_FALSE(client->detach_snapshot("41", "3"));
  EXPECT_TRUE(log.has_fragment(LM_ERROR, snapshot_failed)) << log.dump();
  EXPECT_FALSE(client->detach_lun("19", "3"));
  EXPECT_TRUE(log.has_fragment(LM_ERROR, "Failed to detach OceanStor lun from lun group, method: DELETE"))
      << log.dump();

  // Any other array error fails a snapshot detach but sends a LUN detach on to polling.
  log.clear();
  sim.inject_error(path, 1077949999, 2);
  EXPECT_FALSE(client->detach_snapshot("40", "3"));
  EXPECT_TRUE(log.has_fragment(LM_ERROR, snapshot_failed));
  sim.clear_requests();
  EXPECT_TRUE(client->detach_lun("11", "3"));
  EXPECT_EQ(1u, sim.requests_to(rest("lun/11")).size()) << "polled, found unexposed";

  // A LUN that vanishes while being polled counts as detached.
  ASSERT_TRUE(client->attach_lun("12", "3"));
  sim.set_unexpose_after_reads(100);
  sim.inject_error(rest("lun/12"), OceanStor_Sim::OBJECT_NOT_EXIST);
  client->sleeps.clear();
  EXPECT_TRUE(client->detach_lun("12", "3"));
  EXPECT_TRUE(client->sleeps.empty());

  // A detach whose exchange fails outright.
  sim.inject(path, Sim_Fault::reply(503, "busy"));
  EXPECT_FALSE(client->detach_snapshot("40", "3"));
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to detach OceanStor snapshot from lun group, req body: "
                                "{\"ASSOCIATEOBJID\":\"40\",\"ASSOCIATEOBJTYPE\":27,\"ID\":\"3\"}\n"))
      << log.dump();
}

TEST_F(OceanStor_Operations, hosts_and_healthy_fc_links) {
  // Which links count as healthy is pinned beside the record; here one of each.
  sim.add_host("8", "host_b", "5");
  sim.add_host_link("7", "1", "1", "27");
  sim.add_host_link("7", "2", "2", "27");
  sim.add_host_link("8", "4", "1", "28");
  ASSERT_TRUE(client->attach_lun("11", "3"));
  ASSERT_TRUE(client->attach_snapshot("40", "3"));

  std::vector<oceanstor::Host> hosts;
  ASSERT_TRUE(client->get_lun_belong_hosts("11", hosts));
  ASSERT_EQ(1u, hosts.size());
  EXPECT_EQ("host_a", hosts[0].name);
  EXPECT_EQ("ASSOCIATEOBJTYPE=11&ASSOCIATEOBJID=11", query_of("host/associate"));
  ASSERT_TRUE(client->get_snapshot_belong_hosts("40", hosts));
  EXPECT_EQ(2u, hosts.size());
  EXPECT_EQ("ASSOCIATEOBJTYPE=27&ASSOCIATEOBJID=40", query_of("host/associate"));

  std::vector<oceanstor::Host_Link> links;
  ASSERT_TRUE(client->get_fc_host_links("7", links));
  ASSERT_EQ(1u, links.size());
  EXPECT_EQ("1", links[0].id);
  EXPECT_EQ("INITIATOR_TYPE=223&PARENTID=7", query_of("host_link"));
  links.clear();
  EXPECT_TRUE(client->get_fc_host_links("8", links)) << "all unhealthy: empty, not a failure";
  EXPECT_TRUE(links.empty());

  sim.inject(rest("host_link"), Sim_Fault::reply(200, R"({"error":{"code":0,"description":"0"}})"));
  EXPECT_FALSE(client->get_fc_host_links("7", links));
  EXPECT_TRUE(log.has_fragment(LM_ERROR, "Unexpected exception while parse host links json, ")) << log.dump();
  sim.inject_error(rest("host/associate"), 1077949999);
  EXPECT_FALSE(client->get_lun_belong_hosts("11", hosts));
  EXPECT_TRUE(log.has_fragment(LM_ERROR, "Failed to get lun belong hosts, method: GET")) << log.dump();
  sim.inject(rest("host/associate"), Sim_Fault::drop());
  EXPECT_FALSE(client->get_snapshot_belong_hosts("40", hosts));
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to get snapshot '40' belong hosts.\n")) << log.dump();
}

}  // namespace
