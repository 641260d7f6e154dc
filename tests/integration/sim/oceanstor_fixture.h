// Test helpers for the OceanStor client: a client whose clock and polling sleeps the
// test controls, that fails at once where it would retry, and a simulated array.
#pragma once

#include <gtest/gtest.h>

#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "sim/oceanstor/oceanstor_sim.h"
#include "tests/support/log_capture.h"
#include "utils/agent/oceanstor/oceanstor_client.h"

namespace au_test {

constexpr const char* ARRAY_USER = "admin";
constexpr const char* ARRAY_PASSWORD = "Admin@storage1";

class Test_Client : public oceanstor::OceanStor_Client {
 public:
  explicit Test_Client(const oceanstor::Device_Manager_Info& info) : OceanStor_Client(info) {
    restful_client().retries(0);
    restful_client().max_reply_bytes(1 << 20);
    restful_client().set_header(CONNECTION_MARK, "client");  // tells its requests from any other's
  }

  static constexpr const char* CONNECTION_MARK = "X-Test-Connection";

  // The clock the client reads; every reading adds `step` seconds afterwards.
  time_t clock = 1700000000;
  time_t step = 0;
  // Polling sleeps asked for, in order (none really taken).
  std::vector<unsigned> sleeps;

 protected:
  time_t now() const override {
    const time_t t = clock;
    const_cast<Test_Client*>(this)->clock += step;
    return t;
  }
  void sleep_seconds(unsigned seconds) override { sleeps.push_back(seconds); }
};

inline oceanstor::Device_Manager_Info manager_info(unsigned short port, const std::string& device_id = "xxxxx",
                                                   bool ssl = false, const std::string& password = ARRAY_PASSWORD) {
  oceanstor::Device_Manager_Info info;
  info.port = port;
  info.ssl = ssl;
  info.host = "127.0.0.1";
  info.device_id = device_id;
  info.auth_info.username = ARRAY_USER;
  info.auth_info.password = password;
  return info;
}

// A started simulated array (declared before the client, so it outlives it: the
// client logs out when it goes) with a client logged in to nothing yet.
class OceanStor_Test : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(sim.start());
    client.reset(new Test_Client(manager_info(sim.port(), sim.device_id())));
  }
  void TearDown() override { client.reset(); }

  std::string rest(const std::string& resource) const { return sim.rest_base() + "/" + resource; }

  // No password, token or session cookie in any log line so far.
  void expect_no_secrets(const Log_Capture& log) const {
    const std::string text = log.dump();
    EXPECT_EQ(std::string::npos, text.find(ARRAY_PASSWORD)) << text;
    if (!client->auth().token.empty()) {
      EXPECT_EQ(std::string::npos, text.find(client->auth().token)) << text;
    }
    if (!client->auth().session.empty()) {
      const std::string cookie = client->auth().session.substr(client->auth().session.find("ismsession=") + 11);
      EXPECT_EQ(std::string::npos, text.find(cookie)) << text;
    }
  }

  au_sim::OceanStor_Sim sim;
  std::unique_ptr<Test_Client> client;
};

}  // namespace au_test
