#include "utils/agent/instance_helpers.h"

#include "tests/integration/sim/backupd_sim_fixture.h"
#include "utils/agent/instance_manager.h"

using au_sim::Backupd_Sim;
using au_sim::Sim_Fault;
using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace {

std::shared_ptr<const Instance> make_instance(const std::string& uuid) {
  auto instance = std::make_shared<Instance>();
  instance->type = "ceph";
  instance->name = "pool a";
  instance->uuid = uuid;
  instance->options = Object{{"cluster", "c1"}, {"pools", Array{"a", "b"}}};
  instance->logon_options = Object{{"password", "secret"}};
  return instance;
}

}  // namespace

class Instance_Helpers : public Backupd_Sim_Test {
 protected:
  void SetUp() override {
    Backupd_Sim_Test::SetUp();
    Instance_Manager::instance()->clear();
  }
};

TEST_F(Instance_Helpers, keeps_server_and_local_registry_in_step) {
  Host_Manager::instance()->access_key("k-123");
  sim_.require_access_key("k-123");
  const auto instance = make_instance("u 1/x");
  ASSERT_TRUE(add_instance(instance)) << log_.dump();
  const auto post = sim_.requests_to(Backupd_Sim::INSTANCES_PATH).back();
  EXPECT_EQ("POST", post.method);
  EXPECT_EQ(parse(R"({"host_uuid":"host 1/a","name":"pool a","type":"ceph","uuid":"u 1/x",
                      "extended_attrs":{"cluster":"c1","pools":["a","b"]}})"),
            body_of(post));
  EXPECT_EQ(instance, Instance_Manager::instance()->find("u 1/x"));

  ASSERT_TRUE(update_instance(instance, Object{{"cluster", "c2"}}));
  const auto put = sim_.requests().back();
  EXPECT_EQ("PUT /d2/r/v2/instances?uuid=u+1%2fx", put.method + " " + put.target);
  EXPECT_EQ(parse(R"({"extended_attrs":{"cluster":"c2"}})"), body_of(put));

  std::vector<Value> info;
  ASSERT_TRUE(get_instance_info("u 1/x", info));
  EXPECT_EQ("/d2/r/v2/resources?uuid=u+1%2fx", sim_.requests().back().target);
  ASSERT_EQ(1u, info.size());
  EXPECT_EQ(Value("u 1/x"), info[0].get_obj().at("uuid"));

  ASSERT_TRUE(remove_resource(instance));
  EXPECT_EQ("instance_uuid=u+1%2fx&feature=backup", sim_.requests().back().query);
  EXPECT_EQ(std::vector<std::string>{"u 1/x"}, sim_.removed_resources());

  ASSERT_TRUE(remove_instance(instance));
  const auto removed = sim_.requests().back();
  EXPECT_EQ("DELETE /d2/r/v2/instances?uuid=u+1%2fx", removed.method + " " + removed.target);
  EXPECT_TRUE(sim_.instances().empty());
  EXPECT_EQ(nullptr, Instance_Manager::instance()->find("u 1/x"));
  EXPECT_EQ(0u, count_at(LM_ERROR)) << log_.dump();
}

TEST_F(Instance_Helpers, failed_requests_leave_local_registry_as_it_was) {
  const auto instance = make_instance("u2");
  sim_.inject(Backupd_Sim::INSTANCES_PATH, Sim_Fault::reply(400, "{\"error\":\"bad\"}"));
  EXPECT_FALSE(add_instance(instance));
  EXPECT_TRUE(log_.has(LM_ERROR, "Failed to post new instance to backupd.\n")) << log_.dump();
  EXPECT_EQ(0u, Instance_Manager::instance()->size());

  // Already registered locally: refused without a request.
  ASSERT_TRUE(Instance_Manager::instance()->add_instance(instance));
  sim_.clear_requests();
  EXPECT_FALSE(add_instance(instance));
  EXPECT_TRUE(sim_.requests().empty());

  sim_.inject(Backupd_Sim::INSTANCES_PATH, Sim_Fault::drop());
  EXPECT_FALSE(remove_instance(instance));
  EXPECT_TRUE(log_.has(LM_ERROR, "Failed to remove instance pool a(uuid u2).\n")) << log_.dump();
  EXPECT_EQ(instance, Instance_Manager::instance()->find("u2"));

  sim_.inject(Backupd_Sim::INSTANCES_PATH, Sim_Fault::reply(404, "{}"));
  EXPECT_FALSE(update_instance(instance, Object{}));
  EXPECT_TRUE(log_.has(LM_ERROR, "Failed to update instance pool a to backupd.\n"));

  sim_.inject(Backupd_Sim::RESOURCES_PATH, Sim_Fault::reply(409, "not json"));
  EXPECT_FALSE(remove_resource(instance));
  EXPECT_TRUE(log_.has(LM_ERROR, "Failed to remove resource of pool a.\n"));

  EXPECT_FALSE(add_instance(nullptr));
  EXPECT_TRUE(log_.has_check("instance is NULL"));
}

TEST_F(Instance_Helpers, instance_info_refuses_odd_rows) {
  std::vector<Value> info{Value("untouched")};
  EXPECT_FALSE(get_instance_info("nobody", info));  // {"rows": []}
  EXPECT_TRUE(log_.has(LM_ERROR, "Failed to get nobody instances info\n")) << log_.dump();

  for (const char* body : {R"({"rows":[{"uuid":"x"}]})", R"({"rows":[{"instances":{"a":1}}]})", R"({"rows":[[1]]})"}) {
    log_.clear();
    sim_.inject(Backupd_Sim::RESOURCES_PATH, Sim_Fault::reply(200, body));
    EXPECT_FALSE(get_instance_info("x", info)) << body;
    EXPECT_TRUE(log_.has_fragment(LM_ERROR, "Failed to get instances info: ")) << log_.dump();
  }
  EXPECT_EQ(std::vector<Value>{Value("untouched")}, info);

  // The rows come back as sent, only the first one's "instances".
  sim_.inject(Backupd_Sim::RESOURCES_PATH,
              Sim_Fault::reply(200, R"({"rows":[{"instances":[1,"two"]},{"instances":[3]}]})"));
  ASSERT_TRUE(get_instance_info("x", info));
  EXPECT_EQ((std::vector<Value>{Value(1), Value("two")}), info);
}
