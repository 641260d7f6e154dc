#include "sim/common/sim_fault.h"

#include <httplib.h>

#include "sim/common/loopback_server.h"

namespace au_sim {

namespace {

// What a promised-but-never-sent body claims to be, for dropped connections.
constexpr std::size_t DROPPED_BODY_LENGTH = 4096;

void send_dropped(httplib::Response& res) {
  res.status = 200;
  // Returning false from the provider makes the server abandon the connection
  // after the head went out: the client sees a reply cut short.
  res.set_content_provider(DROPPED_BODY_LENGTH, "application/json",
                           [](std::size_t, std::size_t, httplib::DataSink&) { return false; });
}

}  // namespace

Sim_Fault Sim_Fault::reply(int status, std::string body, int times) {
  Sim_Fault f;
  f.status = status;
  f.body = std::move(body);
  f.times = times;
  return f;
}

Sim_Fault Sim_Fault::delay(int delay_ms, int times) {
  Sim_Fault f;
  f.delay_ms = delay_ms;
  f.times = times;
  return f;
}

Sim_Fault Sim_Fault::drop(int times) {
  Sim_Fault f;
  f.drop_connection = true;
  f.times = times;
  return f;
}

bool serve_fault(const Sim_Fault& fault, Loopback_Server& server, httplib::Response& res) {
  const bool stopped = fault.delay_ms > 0 && server.wait_for_stop(fault.delay_ms);
  if (stopped || fault.drop_connection) {
    send_dropped(res);
    return true;
  }
  if (fault.status == 0) return false;
  res.status = fault.status;
  res.set_content(fault.body, fault.content_type.c_str());
  return true;
}

}  // namespace au_sim
