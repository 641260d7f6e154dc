#include "framework/http/json_exchange.h"

#include <ace/Log_Msg.h>

#include <string>

#include "framework/http/http_header_ids.h"
#include "framework/json/reader.h"
#include "framework/json/writer.h"

namespace {

const char* const JSON_MEDIA_TYPE = "application/json";

// Feeds a generator to the transport, remembering whether it gave up.
class Generator_Body : public HTTP_Body_Source {
 public:
  explicit Generator_Body(json_spirit::JSON_Generator& gen) : gen_(gen) {}
  long read(char* buf, std::size_t size) override {
    const long n = gen_.generate(buf, size);
    failed_ = failed_ || n < 0;
    return n;
  }
  bool rewind() override { return gen_.rewind(); }
  bool failed() const { return failed_; }
  const std::string& error() const { return gen_.error(); }

 private:
  json_spirit::JSON_Generator& gen_;
  bool failed_ = false;
};

bool drain(json_spirit::JSON_Generator& gen, std::string& text) {
  char buf[16 * 1024];
  for (;;) {
    const long n = gen.generate(buf, sizeof(buf));
    if (n < 0) return false;
    if (n == 0) return true;
    text.append(buf, static_cast<std::size_t>(n));
  }
}

bool fail(HTTP_Session& session, const JSON_Exchange_Options& options, const HTTP_Request& request,
          const std::string& why) {
  if (options.failure != nullptr) {
    *options.failure = why;
    return false;
  }
  ACE_ERROR((LM_ERROR, ACE_TEXT("HTTP request '%C' failed: %C.\n"),
             session.describe(request).c_str(), why.c_str()));
  return false;
}

bool read_reply(HTTP_Session& session, const JSON_Exchange_Options& options, const HTTP_Request& request,
                const HTTP_Response& response, json_spirit::Value* reply) {
  if (reply == nullptr) return true;
  if (response.body().empty()) {
    *reply = json_spirit::Value();
    return true;
  }
  std::string error;
  if (json_spirit::read(response.body(), *reply, error)) return true;
  return fail(session, options, request, "the reply is not JSON: " + error);
}

// Sends, then judges what came back.
bool finish(HTTP_Session& session, const JSON_Exchange_Options& options, HTTP_Request& request,
            const HTTP_Request_Body& body, HTTP_Response& response, json_spirit::Value* reply,
            const Generator_Body* generator = nullptr) {
  HTTP_Headers headers = options.headers;
  if (headers.get(HTTP_HEADER_ACCEPT) == nullptr) headers.put(HTTP_HEADER_ACCEPT, JSON_MEDIA_TYPE);
  if (!body.empty() && headers.get(HTTP_HEADER_CONTENT_TYPE) == nullptr)
    headers.put(HTTP_HEADER_CONTENT_TYPE, JSON_MEDIA_TYPE);
  std::string error;
  if (!http_send_with_retries(session, request, headers, body, response, options.policy, error)) {
    if (generator != nullptr && generator->failed())
      error = "the JSON body could not be produced: " + generator->error();
    return fail(session, options, request, error);
  }
  if (!response.is_success()) {
    if (reply != nullptr) json_spirit::read(response.body(), *reply);
    return fail(session, options, request, "status " + std::to_string(response.status()));
  }
  return read_reply(session, options, request, response, reply);
}

}  // namespace

bool json_exchange(HTTP_Session& session, const JSON_Exchange_Options& options,
                   HTTP_Request& request, const json_spirit::Value* body,
                   HTTP_Response& response, json_spirit::Value* reply) {
  if (body == nullptr) return finish(session, options, request, HTTP_Request_Body(), response, reply);
  const std::string text = json_spirit::write(*body);
  if (text.empty()) return fail(session, options, request, "the JSON body cannot be written");
  return finish(session, options, request, HTTP_Request_Body::text(text), response, reply);
}

bool json_exchange(HTTP_Session& session, const JSON_Exchange_Options& options,
                   HTTP_Request& request, json_spirit::JSON_Generator& body,
                   HTTP_Response& response, json_spirit::Value* reply) {
  if (!options.streaming) {
    std::string text;
    if (!drain(body, text))
      return fail(session, options, request, "the JSON body could not be produced: " + body.error());
    return finish(session, options, request, HTTP_Request_Body::text(text), response, reply);
  }
  Generator_Body source(body);
  return finish(session, options, request, HTTP_Request_Body::stream(source), response, reply,
                &source);
}
