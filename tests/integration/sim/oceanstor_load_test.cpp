// Sixteen threads, each with its own OceanStor client, against one simulated array: a
// thousand requests each (reads, attach and detach of the thread's own LUN), the session
// renewed every fifty; every answer checked, then the array's own record of requests,
// logins and lun-group members.
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/integration/sim/oceanstor_fixture.h"

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

class OceanStor_Load : public ::testing::Test {
 protected:
  au_sim::OceanStor_Sim sim;
};

TEST_F(OceanStor_Load, sixteen_clients_make_a_thousand_requests_each_with_renewals) {
  ASSERT_TRUE(sim.start());
  for (int k = 0; k < THREADS; ++k) {
    const Names n(k);
    sim.add_lun(n.lun, "lun-" + n.lun, 1 << 30);
    sim.add_snapshot(n.snapshot, "snap-" + n.snapshot, n.lun);
    sim.add_lun_group(n.group);
  }
  au_test::Log_Capture logs;
  std::vector<Thread_Run> runs(THREADS);
  std::vector<std::thread> threads;
  for (int k = 0; k < THREADS; ++k) {
    threads.emplace_back([&, k] {
      const Names n(k);
      Thread_Run& run = runs[k];
      Load_Client client(au_test::manager_info(sim.port(), sim.device_id()), "load-" + std::to_string(k));
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

  // What the array saw, by thread: every request, one login per session, each session
  // closed (renewals and the clients' ends).
  const std::string login = sim.rest_base().substr(0, sim.rest_base().rfind('/')) + "/xxxxx/sessions";
  std::vector<int> seen(THREADS), logins(THREADS), logouts(THREADS);
  size_t renewals = 0;
  for (const au_sim::Sim_Request& rq : sim.requests()) {
    const std::string mark = rq.header(au_test::Test_Client::CONNECTION_MARK);
    ASSERT_EQ(0u, mark.find("load-")) << rq.method << " " << rq.path;
    const int k = std::stoi(mark.substr(5));
    if (rq.method == "POST" && rq.path == login) ++logins[k];
    else if (rq.method == "DELETE" && rq.path == sim.rest_base() + "/sessions") ++logouts[k];
    else ++seen[k];
  }
  for (int k = 0; k < THREADS; ++k) {
    const Thread_Run& r = runs[k];
    EXPECT_EQ("", r.failure) << "thread " << k;
    EXPECT_EQ(REQUESTS, r.requests) << "thread " << k;
    EXPECT_EQ(REQUESTS, seen[k]) << "thread " << k;
    EXPECT_EQ(r.renewals + 1, logins[k]) << "thread " << k;
    EXPECT_EQ(r.renewals + 1, logouts[k]) << "thread " << k;
    EXPECT_EQ(r.attached, sim.in_lun_group(Names(k).group, Names(k).lun)) << "thread " << k;
    renewals += r.renewals;
  }
  EXPECT_EQ(THREADS + renewals, sim.logins());
  EXPECT_EQ(0u, sim.live_sessions());
  EXPECT_FALSE(logs.has_fragment(LM_ERROR, "")) << logs.dump();
  std::printf("oceanstor load: %d clients, %d requests each, %zu renewals, %zu requests seen by the array, none lost\n",
              THREADS, REQUESTS, renewals, sim.requests().size());
}

}  // namespace
