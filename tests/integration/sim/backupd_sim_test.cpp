// The simulator itself: the parts the helper tests lean on without showing.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "framework/http/json_restful_client.h"
#include "tests/integration/sim/backupd_sim_fixture.h"

using au_sim::Backupd_Sim;
using au_sim::Sim_Fault;
using au_sim::Sim_Reply;
using au_sim::Sim_Request;
using json_spirit::Object;
using json_spirit::Value;

namespace {

// POSTs `body` to the simulator at `port`; the HTTP status (0 when none came).
int post_status(unsigned short port, const char* path, const std::string& body) {
  JSON_RESTful_Client client("127.0.0.1", port, false, false, 2, 3, 2);
  HTTP_Request req(HTTP_POST, path, true);
  HTTP_Response resp;
  const Value value = [&] {
    Value v;
    json_spirit::read(body, v);
    return v;
  }();
  Value reply;
  client.post(req, &value, resp, &reply);
  return resp.status();
}

}  // namespace

using Backupd_Simulator = Backupd_Sim_Test;

TEST_F(Backupd_Simulator, RoutesHooksAndFaults) {
  EXPECT_EQ(404, post_status(sim_.port(), Backupd_Sim::JSONRPC_PATH, "{}"));
  sim_.set_jsonrpc_handler([](const Sim_Request& r) {
    return Sim_Reply{200, r.body, "application/json"};
  });
  EXPECT_EQ(200, post_status(sim_.port(), Backupd_Sim::JSONRPC_PATH, "{\"id\":1}"));
  EXPECT_EQ("{\"id\":1}", sim_.requests_to(Backupd_Sim::JSONRPC_PATH).back().body);

  // Faults for "" hit any path, `times` of them, before routes and the hook.
  sim_.inject("", Sim_Fault::reply(502, "{}", 2));
  EXPECT_EQ(502, post_status(sim_.port(), Backupd_Sim::JSONRPC_PATH, "{}"));
  EXPECT_EQ(502, post_status(sim_.port(), Backupd_Sim::ALERTS_PATH, "{}"));
  EXPECT_EQ(400, post_status(sim_.port(), Backupd_Sim::ALERTS_PATH, "{}"));  // no error_id
  EXPECT_EQ(200, post_status(sim_.port(), Backupd_Sim::ALERTS_PATH, "{\"error_id\":3}"));

  sim_.set_route("POST", Backupd_Sim::ALERTS_PATH,
                 [](const Sim_Request&) { return Sim_Reply{299, "{}"}; });
  EXPECT_EQ(299, post_status(sim_.port(), Backupd_Sim::ALERTS_PATH, "{\"error_id\":3}"));

  sim_.require_access_key("k");
  EXPECT_EQ(401, post_status(sim_.port(), Backupd_Sim::INSTANCES_PATH, "{\"uuid\":\"u\"}"));
  EXPECT_TRUE(sim_.instances().empty());
  EXPECT_EQ(8u, sim_.requests().size());
}

TEST_F(Backupd_Simulator, ProgramServesUntilTerminated) {
  const char* build_dir = std::getenv("AGENTUTIL_BUILD_DIR");
  ASSERT_NE(nullptr, build_dir);
  const std::string program = std::string(build_dir) + "/sim/backupd-sim";
  int out[2];
  ASSERT_EQ(0, ::pipe(out));
  const pid_t pid = ::fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    ::dup2(out[1], STDOUT_FILENO);
    ::execl(program.c_str(), program.c_str(), "--port", "0", "--channel", "c1", nullptr);
    ::_exit(127);
  }
  ::close(out[1]);
  FILE* from_child = ::fdopen(out[0], "r");
  unsigned port = 0;
  const bool got_port = std::fscanf(from_child, "%u", &port) == 1;
  std::fclose(from_child);
  if (got_port) {
    EXPECT_EQ(200, post_status(static_cast<unsigned short>(port), Backupd_Sim::INSTANCES_PATH,
                               "{\"uuid\":\"u\"}"));
  }
  ::kill(pid, SIGTERM);
  int status = -1;
  ASSERT_EQ(pid, ::waitpid(pid, &status, 0));
  ASSERT_TRUE(got_port);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;

  // Bad arguments are refused with status 2.
  const std::string refused = program + " --port 70000 >/dev/null 2>&1";
  const int rc = std::system(refused.c_str());
  EXPECT_TRUE(WIFEXITED(rc) && WEXITSTATUS(rc) == 2) << rc;
}
