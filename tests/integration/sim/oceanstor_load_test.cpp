// Sixteen threads, each with its own OceanStor client, against simulated arrays: a
// thousand requests each (reads, attach and detach of the thread's own LUN), the session
// renewed every fifty; every answer checked, then the arrays' own record of requests,
// logins and lun-group members.
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/integration/sim/oceanstor_fixture.h"
#include "tests/support/http_test_server.h"

namespace {

constexpr int THREADS = 16;
constexpr int REQUESTS = 1000;   // per thread, renewals not counted
constexpr int RENEW_EVERY = 50;  // requests
constexpr time_t IDLE_LIMIT = 180;

// A client whose requests the array's record tells apart by thread.
class Load_Client : public au_test::Test_Client {
 public:
  Load_Client(const oceanstor::Device_Manager_Info& info, const std::string& mark) : Test_Client(info) {
    restful_client().set_header(CONNECTION_MARK, mark.c_str());
  }
};

struct Thread_Run {
  int requests = 0, renewals = 0;
  bool attached = false;
  std::string failure;  // the first wrong answer
};

struct Names {
  std::string lun, group, snapshot;
  explicit Names(int k)
      : lun(std::to_string(100 + k)), group(std::to_string(200 + k)), snapshot(std::to_string(300 + k)) {}
};

// One step of a thread's cycle: the requests it makes and the check of its answer.
struct Step {
  const char* what;
  int requests;
  std::function<bool(oceanstor::OceanStor_Client&, const Names&, Thread_Run&)> run;
};

bool lun_as_expected(oceanstor::OceanStor_Client& c, const Names& n, Thread_Run& r) {
  oceanstor::LUN lun;
  return c.get_lun(n.lun, lun) && lun.id == n.lun && lun.name == "lun-" + n.lun &&
         lun.exposed_to_initiator == (r.attached ? "true" : "false");
}

const std::vector<Step> CYCLE = {
    {"get lun", 1, lun_as_expected},
    {"attach lun", 1,
     [](oceanstor::OceanStor_Client& c, const Names& n, Thread_Run& r) {
       return (r.attached = c.attach_lun(n.lun, n.group));
     }},
    {"get attached lun", 1, lun_as_expected},
    {"get snapshot", 1,
     [](oceanstor::OceanStor_Client& c, const Names& n, Thread_Run&) {
       oceanstor::Snapshot s;
       return c.get_snapshot(n.snapshot, s) && s.id == n.snapshot && s.name == "snap-" + n.snapshot;
     }},
    {"detach lun", 2,  // the detach, then one read that finds the LUN unexposed
     [](oceanstor::OceanStor_Client& c, const Names& n, Thread_Run& r) {
       r.attached = !c.detach_lun(n.lun, n.group);
       return !r.attached;
     }},
};

// Even threads reach an array over HTTP, odd ones another over HTTPS: the TLS layer's
// process-wide state is shared by every client.
TEST(OceanStor_Load, sixteen_clients_make_a_thousand_requests_each_with_renewals) {
  au_test::Self_Signed_Certificate cert;
  ASSERT_TRUE(cert.ok());
  au_sim::OceanStor_Sim plain, secure(cert.cert_file(), cert.key_file());
  au_sim::OceanStor_Sim* arrays[] = {&plain, &secure};
  for (int k = 0; k < THREADS; ++k) {
    const Names n(k);
    arrays[k % 2]->add_lun(n.lun, "lun-" + n.lun, 1 << 30);
    arrays[k % 2]->add_snapshot(n.snapshot, "snap-" + n.snapshot, n.lun);
    arrays[k % 2]->add_lun_group(n.group);
  }
  ASSERT_TRUE(plain.start() && secure.start());
  au_test::Log_Capture logs;
  std::vector<Thread_Run> runs(THREADS);
  std::vector<std::thread> threads;
  for (int k = 0; k < THREADS; ++k) {
    threads.emplace_back([&, k] {
      const Names n(k);
      Thread_Run& run = runs[k];
      au_sim::OceanStor_Sim& array = *arrays[k % 2];
      auto info = au_test::manager_info(array.port(), array.device_id(), k % 2 == 1);
      if (k % 2) info.ca_file = cert.cert_file();
      Load_Client client(info, "load-" + std::to_string(k));
      for (size_t i = 0; run.requests < REQUESTS && run.failure.empty(); ++i) {
        const Step* step = &CYCLE[i % CYCLE.size()];
        if (run.requests + step->requests > REQUESTS) step = &CYCLE[0];
        // Idle long enough that the next request logs out and in again first.
        if (run.requests > 0 && (run.requests / RENEW_EVERY) != (run.requests + step->requests) / RENEW_EVERY) {
          client.clock += IDLE_LIMIT;
          ++run.renewals;
        }
        if (!step->run(client, n, run)) run.failure = std::string(step->what) + " at request " + std::to_string(run.requests);
        run.requests += step->requests;
      }
    });
  }
  for (auto& t : threads) t.join();

  // What the arrays saw, by thread: every request, one login per session, each session
  // closed (renewals and the clients' ends).
  std::vector<int> seen(THREADS), logins(THREADS), logouts(THREADS);
  size_t renewals = 0, requests = 0;
  for (const au_sim::OceanStor_Sim* array : arrays) {
    const std::string base = array->rest_base(), login = base.substr(0, base.rfind('/')) + "/xxxxx/sessions";
    for (const au_sim::Sim_Request& rq : array->requests()) {
      const std::string mark = rq.header(au_test::Test_Client::CONNECTION_MARK);
      ASSERT_EQ(0u, mark.find("load-")) << rq.method << " " << rq.path;
      const int k = std::stoi(mark.substr(5));
      EXPECT_EQ(array, arrays[k % 2]) << "thread " << k;
      if (rq.method == "POST" && rq.path == login) ++logins[k];
      else if (rq.method == "DELETE" && rq.path == base + "/sessions") ++logouts[k];
      else ++seen[k];
      ++requests;
    }
    EXPECT_EQ(0u, array->live_sessions());
  }
  for (int k = 0; k < THREADS; ++k) {
    const Thread_Run& r = runs[k];
    EXPECT_EQ("", r.failure) << "thread " << k;
    EXPECT_EQ(REQUESTS, r.requests) << "thread " << k;
    EXPECT_EQ(REQUESTS, seen[k]) << "thread " << k;
    EXPECT_EQ(r.renewals + 1, logins[k]) << "thread " << k;
    EXPECT_EQ(r.renewals + 1, logouts[k]) << "thread " << k;
    EXPECT_EQ(r.attached, arrays[k % 2]->in_lun_group(Names(k).group, Names(k).lun)) << "thread " << k;
    renewals += r.renewals;
  }
  EXPECT_EQ(THREADS + renewals, plain.logins() + secure.logins());
  EXPECT_FALSE(logs.has_fragment(LM_ERROR, "")) << logs.dump();
  std::printf("oceanstor load: %d clients (half over HTTPS), %d requests each, %zu renewals, %zu requests seen by "
              "the arrays, none lost\n", THREADS, REQUESTS, renewals, requests);
}

}  // namespace
