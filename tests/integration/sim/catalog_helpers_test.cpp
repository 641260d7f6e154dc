#include "utils/agent/catalog_helpers.h"

#include "framework/http/upstream_json_restful_client.h"
#include "tests/integration/sim/backupd_sim_fixture.h"

using au_sim::Sim_Fault;
using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace {
constexpr const char* CATALOG = "/d2/r/v2/catalogs/backup/9";
}

using Catalog_Helpers = Backupd_Sim_Test;

TEST_F(Catalog_Helpers, writes_reads_and_deletes_catalogs) {
  const Value first(Object{{"id", 1}, {"name", "first"}});
  ASSERT_TRUE(write_catalog(CATALOG, first, 0, 5));
  ASSERT_TRUE(write_catalog(CATALOG, "tag=a%2fb&full", Value(Object{{"id", 2}}), 0, 5));
  json_spirit::JSON_Text_Generator third(Value(Object{{"id", 3}}));
  ASSERT_TRUE(write_catalog(CATALOG, third, 0, 5));

  const auto posts = sim_.requests_to(CATALOG);
  ASSERT_EQ(3u, posts.size());
  EXPECT_EQ("POST", posts[0].method);
  EXPECT_EQ("", posts[0].query);
  EXPECT_EQ("tag=a%2fb&full", posts[1].query);
  Value all;
  ASSERT_TRUE(read_catalogs(CATALOG, all, 0, 5));
  EXPECT_EQ(parse(R"([{"id":1,"name":"first"},{"id":2},{"id":3}])"), all.get_obj().at("rows"));

  // Only row 0 comes back, through both the own-client and the caller's-client form.
  Value row, row_again;
  ASSERT_TRUE(read_first_catalog(CATALOG, row, 0, 5));
  EXPECT_EQ(first, row);
  ASSERT_TRUE(read_first_catalog(*Upstream_JSON_RESTful_Client::instance(), CATALOG, row_again));
  EXPECT_EQ(first, row_again);

  ASSERT_TRUE(delete_catalog(CATALOG, 0, 5));
  EXPECT_EQ("DELETE", sim_.requests().back().method);
  const Value kept(Object{{"kept", true}});
  Value gone = kept, gone_again = kept;
  EXPECT_FALSE(read_catalogs(CATALOG, gone, 0, 5));  // 404 now, with an error body
  EXPECT_FALSE(read_catalogs(*Upstream_JSON_RESTful_Client::instance(), CATALOG, gone_again));
  EXPECT_EQ(kept, gone);  // written only on success
  EXPECT_EQ(kept, gone_again);
  EXPECT_FALSE(delete_catalog(CATALOG, 0, 5));
}

TEST_F(Catalog_Helpers, refuses_missing_uri_before_any_exchange) {
  Value out;
  const Value catalog(Object{{"id", 1}});
  json_spirit::JSON_Text_Generator gen(std::string("{}"));
  EXPECT_FALSE(write_catalog(nullptr, catalog, 0, 5));
  EXPECT_FALSE(write_catalog("", "q=1", catalog, 0, 5));
  EXPECT_FALSE(write_catalog("", gen, 0, 5));
  EXPECT_FALSE(read_catalogs(nullptr, out, 0, 5));
  EXPECT_FALSE(read_catalogs(*Upstream_JSON_RESTful_Client::instance(), "", out));
  EXPECT_FALSE(read_first_catalog("", out, 0, 5));
  EXPECT_FALSE(read_first_catalog(*Upstream_JSON_RESTful_Client::instance(), nullptr, out));
  EXPECT_FALSE(delete_catalog(nullptr, 0, 5));
  EXPECT_TRUE(sim_.requests().empty());
  EXPECT_EQ(8u, count_at(LM_EMERGENCY)) << log_.dump();
  EXPECT_TRUE(log_.has_check("uri is NULL or \"\"")) << log_.dump();
  EXPECT_TRUE(out.is_null());
}

TEST_F(Catalog_Helpers, first_catalog_rejects_listings_without_rows) {
  const Value untouched(Object{{"untouched", true}});
  Value out = untouched;
  sim_.set_catalog_rows(CATALOG, Array{});
  EXPECT_FALSE(read_first_catalog(CATALOG, out, 0, 5));
  EXPECT_TRUE(log_.has(LM_ERROR, "Failed to get first catalog.\n")) << log_.dump();

  for (const char* body : {"{\"total\":0}", "[1,2]", "{\"rows\":{\"0\":1}}", "\"rows\""}) {
    log_.clear();
    sim_.inject(CATALOG, Sim_Fault::reply(200, body));
    EXPECT_FALSE(read_first_catalog(CATALOG, out, 0, 5)) << body;
    EXPECT_TRUE(log_.has_fragment(LM_ERROR, "Invalid catalog data: ")) << body << log_.dump();
  }
  EXPECT_EQ(untouched, out);
}

TEST_F(Catalog_Helpers, fails_on_broken_server_replies_and_reads_large_listings) {
  Array rows;
  const std::string filler(1000, 'x');
  for (int i = 0; i < 4000; ++i) rows.push_back(Object{{"id", i}, {"pad", filler}});
  sim_.set_catalog_rows(CATALOG, rows);
  Value out;
  const Sim_Fault faults[] = {Sim_Fault::reply(500, "{\"error\":\"down\"}"), Sim_Fault::reply(200, "<html>"),
                              Sim_Fault::reply(200, "{\"rows\": [1, 2"), Sim_Fault::drop(), Sim_Fault::delay(6000)};
  for (const auto& fault : faults) {
    sim_.inject(CATALOG, fault);
    EXPECT_FALSE(read_first_catalog(CATALOG, out, 0, 5)) << fault.status << fault.body;
  }
  EXPECT_TRUE(out.is_null());

  // A retry gets past one failed attempt; the 4 MB listing is read whole.
  sim_.inject(CATALOG, Sim_Fault::reply(503, "{}"));
  ASSERT_TRUE(read_first_catalog(CATALOG, out, 1, 30));
  EXPECT_EQ(0, out.get_obj().at("id").get_int());

  HTTP_Options::instance()->backupd(HTTP_Server_Address{"127.0.0.1", au_test::unused_local_port(), false});
  EXPECT_FALSE(read_catalogs(CATALOG, out, 0, 5));
  EXPECT_FALSE(write_catalog(CATALOG, Value(Object{}), 0, 5));
  EXPECT_FALSE(delete_catalog(CATALOG, 0, 5));
}
