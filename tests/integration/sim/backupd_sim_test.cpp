// The standalone backup server simulator program, as the demo runs it.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "framework/http/json_restful_client.h"
#include "sim/backupd/backupd_sim.h"

namespace {

// POSTs an instance to the simulator at `port`; the HTTP status (0 when none came).
int post_instance(unsigned short port) {
  JSON_RESTful_Client client("127.0.0.1", port, false, false, 2, 3, 2);
  HTTP_Request req(HTTP_POST, au_sim::Backupd_Sim::INSTANCES_PATH, true);
  HTTP_Response resp;
  const json_spirit::Value instance = json_spirit::Object{{"uuid", "u"}};
  json_spirit::Value reply;
  client.post(req, &instance, resp, &reply);
  return resp.status();
}

TEST(Backupd_Sim_Program, serves_until_terminated_and_refuses_bad_arguments) {
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
    EXPECT_EQ(200, post_instance(static_cast<unsigned short>(port)));
  }
  ::kill(pid, SIGTERM);
  int status = -1;
  ASSERT_EQ(pid, ::waitpid(pid, &status, 0));
  ASSERT_TRUE(got_port);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;

  // Bad arguments are refused with status 2.
  const int rc = std::system((program + " --port 70000 >/dev/null 2>&1").c_str());
  EXPECT_TRUE(WIFEXITED(rc) && WEXITSTATUS(rc) == 2) << rc;
}

}  // namespace
