#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "framework/http/http_session_factory.h"
#include "framework/json/reader.h"
#include "framework/json/writer.h"
#include "framework/jsonrpc/json_rpc_http_session.h"
#include "framework/jsonrpc/json_rpc_id_generator.h"
#include "tests/support/http_test_server.h"
#include "tests/support/json_text.h"
#include "tests/support/log_capture.h"

namespace {

using json_spirit::Object;
using json_spirit::Value;

Value parse(const std::string& text) { return au_test::parse_json(text); }

TEST(JSON_RPC_Object_Test, replies_from_outside_are_read_strictly) {
  const char* const one_of = "a reply needs exactly one of \"result\" and \"error\"";
  const std::vector<std::pair<const char*, const char*>> refused = {
      {R"([1])", "the message is not a JSON object"},
      {R"({"id":1,"result":1})", "\"jsonrpc\" is not \"2.0\""},
      {R"({"jsonrpc":"1.0","id":1,"result":1})", "\"jsonrpc\" is not \"2.0\""},
      {R"({"jsonrpc":"2.0","id":true,"result":1})", "\"id\" is neither a string, an integer nor null"},
      {R"({"jsonrpc":"2.0","id":1})", one_of},
      {R"({"jsonrpc":"2.0","id":1,"result":1,"error":{"code":1,"message":"x"}})", one_of},
      {R"({"jsonrpc":"2.0","result":1})", "\"id\" is missing"},
      {R"({"jsonrpc":"2.0","id":1,"error":"bad"})", "\"error\" is not an object"},
      {R"({"jsonrpc":"2.0","id":1,"error":{"code":4294967296,"message":"x"}})", "\"error.code\" is not an integer"},
      {R"({"jsonrpc":"2.0","id":1,"error":{"code":"1","message":"x"}})", "\"error.code\" is not an integer"},
      {R"({"jsonrpc":"2.0","id":1,"error":{"code":1}})", "\"error.message\" is not a string"},
      {R"({"jsonrpc":"2.0","id":1,"method":7})", "\"method\" is not a non-empty string"},
      {R"({"jsonrpc":"2.0","id":1,"method":"m","params":3})", "\"params\" is neither an object nor an array"},
  };
  for (const auto& c : refused) {
    JSON_RPC_Object o;
    o.kind = JSON_RPC_Object::KIND_RESULT;
    o.result = "kept";
    std::string why;
    EXPECT_FALSE(o.from_json(parse(c.first), why)) << c.first;
    EXPECT_EQ(c.second, why) << c.first;
    EXPECT_EQ(Value("kept"), o.result) << "a refused message must leave the object alone";
  }

  // What is read is what is written back; every kind is told apart.
  const std::string error_text = R"({"jsonrpc":"2.0","id":"a","error":{"code":-32601,"message":"no","data":[1]}})";
  JSON_RPC_Object error, result, note;
  std::string why;
  ASSERT_TRUE(error.from_json(parse(error_text), why));
  EXPECT_EQ(JSON_RPC_Object::KIND_ERROR, error.kind);
  EXPECT_EQ(JSON_RPC_Object::METHOD_NOT_FOUND, error.error_code);
  EXPECT_EQ(parse(error_text), error.to_json());
  ASSERT_TRUE(result.from_json(parse(R"({"jsonrpc":"2.0","id":9,"result":null})"), why));
  EXPECT_EQ(JSON_RPC_Object::KIND_RESULT, result.kind);
  ASSERT_TRUE(note.from_json(parse(R"({"jsonrpc":"2.0","method":"tick"})"), why));
  EXPECT_EQ(JSON_RPC_Object::KIND_NOTIFICATION, note.kind);
}

TEST(JSON_RPC_Object_Test, requests_are_made_with_fresh_ids_and_checked_arguments) {
  au_test::Log_Capture logs;
  JSON_RPC_Object_Ptr out;
  EXPECT_FALSE(JSON_RPC_Session::make_rpc_request("", Object(), out));
  EXPECT_TRUE(logs.has_check("method is NULL or \"\"")) << logs.dump();
  EXPECT_FALSE(JSON_RPC_Session::make_rpc_request("m", Value(3), out));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to make JSON-RPC request 'm': params must be an object or an array, "
                                 "not int_type.\n"))
      << logs.dump();
  EXPECT_EQ(nullptr, out.get());

  ASSERT_TRUE(JSON_RPC_Session::make_rpc_request("m", Value(), out));
  const int64_t first = JSON_RPC_Id_Generator::gen(*out);
  EXPECT_EQ(parse(R"({"jsonrpc":"2.0","method":"m","id":)" + std::to_string(first) + "}"), out->to_json())
      << "null params are left out";
  JSON_RPC_Object other;
  EXPECT_LT(first, JSON_RPC_Id_Generator::gen(other));
}

// Replies are judged in full by the channel-forwarding tests against the simulator;
// here only what those cannot reach.
TEST(JSON_RPC_HTTP_Session_Test, an_error_of_id_null_answers_any_request_and_bad_sends_are_refused) {
  au_test::HTTP_Test_Server server;
  std::string reply;
  server.on("POST", "/rpc",
            [&reply](const httplib::Request&, httplib::Response& res) { res.set_content(reply, "application/json"); });
  ASSERT_TRUE(server.start());
  JSON_RPC_HTTP_Session rpc(
      HTTP_Session_Factory::create("127.0.0.1", server.port(), false, nullptr, 1, nullptr, false, 5, 5, 5, 0), "/rpc",
      1, 10);
  JSON_RPC_Object_Ptr req;
  ASSERT_TRUE(JSON_RPC_Session::make_rpc_request("do.it", Object(), req));
  JSON_RPC_Id_Generator::gen(*req);

  reply = R"({"jsonrpc":"2.0","id":null,"error":{"code":-32700,"message":"Parse error"}})";
  JSON_RPC_Object_Ptr answer = rpc.request(req);
  ASSERT_NE(nullptr, answer.get());
  EXPECT_EQ(JSON_RPC_Object::PARSE_ERROR, answer->error_code);

  au_test::Log_Capture logs;
  reply = R"({"jsonrpc":"2.0","id":null,"result":1})";
  EXPECT_EQ(nullptr, rpc.request(req).get());
  EXPECT_TRUE(logs.has(LM_ERROR, "JSON-RPC reply to 'do.it' from 'POST http://127.0.0.1:" +
                                     std::to_string(server.port()) + "/rpc' is not valid: it answers id null, not " +
                                     json_spirit::write(req->id) + ".\n"))
      << logs.dump();

  // Nothing to send on, or not a request to send.
  JSON_RPC_HTTP_Session no_session(HTTP_Session_Ptr(), "/d2/jr", 1, 1);
  EXPECT_EQ(nullptr, no_session.request(req).get());
  EXPECT_TRUE(logs.has(LM_ERROR, "No HTTP session to send JSON-RPC request 'do.it' on.\n")) << logs.dump();
  req->kind = JSON_RPC_Object::KIND_RESULT;
  EXPECT_EQ(nullptr, rpc.request(req).get());
  EXPECT_TRUE(logs.has(LM_ERROR, "JSON-RPC over HTTP to '/rpc' sends requests only, got kind 3.\n")) << logs.dump();
}

}  // namespace
