// Misbehaviour on demand, shared by the simulators: a delay, a reply cut short, or any
// status and body in place of the normal answer.
#pragma once

#include <string>

namespace httplib {
struct Response;
}

namespace au_sim {

class Loopback_Server;

// One way to misbehave, applied to the next `times` requests whose path matches
// (times < 0: every one until cleared). Only the fields that are set take effect:
// a delay is served first, then either a dropped connection or the reply below.
struct Sim_Fault {
  int times = 1;
  int delay_ms = 0;
  // Send the head of a reply that promises a body, then close the connection.
  bool drop_connection = false;
  // A reply in place of the normal one when status != 0.
  int status = 0;
  std::string body;
  std::string content_type = "application/json";

  static Sim_Fault reply(int status, std::string body, int times = 1);
  static Sim_Fault delay(int delay_ms, int times = 1);
  static Sim_Fault drop(int times = 1);
};

// Plays `fault` on `res`: waits out its delay (a stop of `server` cuts the wait short
// and drops the reply), then drops or replies. False when only a delay was asked for
// and the normal answer is still to be given.
bool serve_fault(const Sim_Fault& fault, Loopback_Server& server, httplib::Response& res);

}  // namespace au_sim
