// Having a JSON-RPC call delivered to another agent: the call is wrapped in one
// "channel.forward" request to the backup server's JSON-RPC endpoint, which passes it
// down the agent's channel and hands its result back.
#pragma once

#include <cstdint>
#include <string>

#include "framework/base/api.h"
#include "framework/base/basic_string_arg.h"
#include "framework/json/value.h"

// Where the backup server is and through which channel the call goes.
struct AGENTUTIL_API Backupd_Info {
  static constexpr uint16_t DEFAULT_PORT = 50305;

  // Empty: the process's own backup server session (HTTP_Options, Host_Manager).
  std::string host;
  uint16_t port = DEFAULT_PORT;
  bool ssl = false;
  // Sent in the access-key header when not empty. A secret: never logged.
  std::string access_key;
  // The target agent's channel; required.
  std::string channel_id;

  // Fills host, port, ssl and access_key from the process-wide settings the agent
  // program made (HTTP_Options::backupd(), Host_Manager::access_key()); channel_id
  // is left alone.
  void load();
};

// Forwards `method` with `params` (any JSON value, sent as it is) through
// info.channel_id. True when the call came back with a result of `expected_type`,
// copied into *result. With `result` null any reply but an error counts. Every failure
// is false with at most one log line, and *result is then untouched.
AGENTUTIL_API bool json_rpc_forward(const Backupd_Info& info, Basic_String_Arg<char> method,
                                    const json_spirit::Value& params, json_spirit::Value* result,
                                    json_spirit::Value_type expected_type);

// The same through the process's own backup server session. Note the order: the
// channel comes after the params here.
AGENTUTIL_API bool json_rpc_forward(Basic_String_Arg<char> method, const json_spirit::Value& params,
                                    Basic_String_Arg<char> channel_id, json_spirit::Value* result,
                                    json_spirit::Value_type expected_type);
