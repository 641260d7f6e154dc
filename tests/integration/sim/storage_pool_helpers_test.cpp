#include "utils/agent/storage_pool_helpers.h"

#include <utility>

#include "tests/integration/sim/backupd_sim_fixture.h"

using au_sim::Backupd_Sim;
using au_sim::Sim_Fault;
using au_sim::Sim_Reply;
using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace {
constexpr const char* POOL_PATH = "/d2/r/storages/pools/p1";
}

// The backup server is sim_; storaged is a second simulator of its own.
class Storage_Pool_Helpers : public Backupd_Sim_Test {
 protected:
  void SetUp() override {
    Backupd_Sim_Test::SetUp();
    ASSERT_TRUE(storaged_.start());
  }
  void TearDown() override {
    storaged_.stop();
    Backupd_Sim_Test::TearDown();
  }
  Backupd_Sim storaged_;
};

TEST_F(Storage_Pool_Helpers, talks_to_the_server_the_url_names) {
  const Value pool(Object{{"uuid", "p1"}, {"size", 1 << 20}});
  Value reply;
  ASSERT_TRUE(pool_http_post(storaged_.url(), POOL_PATH, &pool, &reply)) << log_.dump();
  EXPECT_EQ(parse(R"({"result":"stored"})"), reply);
  ASSERT_TRUE(pool_http_post(storaged_.url() + "/ignored/path", POOL_PATH, &pool, nullptr));

  Value listing;
  ASSERT_TRUE(pool_http_get(storaged_.url(), "/d2/r/storages/pools/p1?detail=1", listing));
  EXPECT_EQ("detail=1", storaged_.requests().back().query);
  EXPECT_EQ(Value(Array{pool, pool}), listing.get_obj().at("rows"));

  ASSERT_TRUE(pool_http_delete(storaged_.url(), POOL_PATH));
  EXPECT_EQ("DELETE", storaged_.requests().back().method);
  EXPECT_TRUE(storaged_.catalog_rows(POOL_PATH).empty());
  EXPECT_TRUE(sim_.requests().empty());  // nothing went to the backup server
}

TEST_F(Storage_Pool_Helpers, only_status_200_counts) {
  const Value body(Object{{"a", 1}});
  Value out(Object{{"before", true}});
  storaged_.set_reply("POST", POOL_PATH, Sim_Reply{201, R"({"created":true})"});
  EXPECT_FALSE(pool_http_post(storaged_.url(), POOL_PATH, &body, &out));
  EXPECT_TRUE(log_.has(LM_ERROR, "Failed to post data to '/d2/r/storages/pools/p1': "
                                 "{\"created\":true}\n")) << log_.dump();

  storaged_.set_reply("DELETE", POOL_PATH, Sim_Reply{204, ""});
  EXPECT_FALSE(pool_http_delete(storaged_.url(), POOL_PATH));
  EXPECT_TRUE(log_.has(LM_ERROR, "Failed to delete data from '/d2/r/storages/pools/p1'\n"));

  storaged_.set_reply("GET", POOL_PATH, Sim_Reply{202, "{}"});
  EXPECT_FALSE(pool_http_get(storaged_.url(), POOL_PATH, out));
  storaged_.clear_faults();
  EXPECT_FALSE(pool_http_get(storaged_.url(), POOL_PATH, out));  // 404: nothing stored
  storaged_.inject(POOL_PATH, Sim_Fault::reply(200, "{\"truncated\": "));
  EXPECT_FALSE(pool_http_get(storaged_.url(), POOL_PATH, out));
  EXPECT_EQ(3u, log_.count(LM_ERROR, "Failed to get data from '/d2/r/storages/pools/p1'\n"));

  // A broken connection is tried again.
  storaged_.set_catalog_rows(POOL_PATH, Array{Value(1)});
  storaged_.inject(POOL_PATH, Sim_Fault::drop());
  EXPECT_TRUE(pool_http_get(storaged_.url(), POOL_PATH, out)) << log_.dump();
}

TEST_F(Storage_Pool_Helpers, refuses_bad_storage_urls) {
  JSON_HTTP_Session session;
  EXPECT_FALSE(init_storaged_session("", session));
  EXPECT_TRUE(log_.has_check("storage_url is empty"));
  EXPECT_FALSE(init_storaged_session("ftp://127.0.0.1/x", session));
  EXPECT_FALSE(static_cast<bool>(session));
  ASSERT_TRUE(init_storaged_session(storaged_.url(), session));
  EXPECT_TRUE(static_cast<bool>(session));

  Value out;
  for (const char* url : {"", "not a url", "http://127.0.0.1:99999/", "http://\x01/"}) {
    log_.clear();
    EXPECT_FALSE(pool_http_get(url, POOL_PATH, out)) << url;
    EXPECT_TRUE(log_.has(LM_ERROR, std::string("Failed to init storaged session by url ") + url +
                                       ".\n"))
        << log_.dump();
  }
  EXPECT_FALSE(pool_http_post("", POOL_PATH, nullptr, nullptr));
  EXPECT_FALSE(pool_http_delete("", POOL_PATH));
  EXPECT_FALSE(pool_http_get(storaged_.url(), nullptr, out));
  EXPECT_TRUE(storaged_.requests().empty());
}

TEST_F(Storage_Pool_Helpers, catalog_online_follows_incarnation_states) {
  sim_.set_catalog_states("c1", {"offline", "online"});
  sim_.set_catalog_states("c2", {"Online", "replicating"});
  EXPECT_EQ(1, is_catalog_online("p1", "c1", true));
  EXPECT_EQ(parse(R"({"pool_uuid":"p1","check_replicate":true,"catalog_uuids":["c1"]})"),
            body_of(sim_.requests_to(Backupd_Sim::INCARNATION_PATH).back()));
  EXPECT_EQ(0, is_catalog_online("p1", "c2", false));
  EXPECT_EQ(0, is_catalog_online("p1", "unknown", false));
  EXPECT_EQ(0u, count_at(LM_ERROR));

  // Not one answer per catalog asked for, or the wrong types: -1 and why.
  const std::pair<const char*, const char*> refused[] = {
      {R"([{"state":["online"]},{"state":["online"]}])", "With wrong data for incarnation info.\n"},
      {"[]", "With wrong data for incarnation info.\n"},
      {"{\"state\":[\"online\"]}", "With wrong data for incarnation info.\n"},
      {"null", "With wrong data for incarnation info.\n"},
      {R"([{"state":"online"}])", "Failed to get incarnation info: "},
      {R"([{"state":[1]}])", "Failed to get incarnation info: "},
      {R"([{}])", "Failed to get incarnation info: "},
      {R"([["online"]])", "Failed to get incarnation info: "}};
  for (const auto& c : refused) {
    log_.clear();
    sim_.inject(Backupd_Sim::INCARNATION_PATH, Sim_Fault::reply(200, c.first));
    EXPECT_EQ(-1, is_catalog_online("p1", "c1", false)) << c.first;
    ASSERT_EQ(1u, log_.records().size()) << log_.dump();
    EXPECT_TRUE(log_.has_fragment(LM_ERROR, c.second)) << log_.dump();
  }

  sim_.inject(Backupd_Sim::INCARNATION_PATH, Sim_Fault::reply(404, "{}"));
  EXPECT_EQ(-1, is_catalog_online("p1", "c1", false));
  EXPECT_TRUE(log_.has(LM_ERROR, "Failed to get incarnation info.\n"));
}
