// IO_Connection_Factory against the simulated backup server: pool descriptions asked
// once and cached, unknown pools, retries, the options document, threads, and a piece
// written through one factory and read back by another process through the pool name.
#include "utils/agent/io_connection_factory.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <thread>

#include "framework/base/base64.h"
#include "framework/base/hex_string.h"
#include "tests/support/temp_dir.h"
#include "framework/client_io/image_block_writer.h"
#include "framework/client_io/piece_fixture_test.h"
#include "framework/json/writer.h"
#include "tests/integration/sim/backupd_sim_fixture.h"
#include "tests/support/agentutil_runner.h"

namespace {

using au_sim::Sim_Fault;
using au_sim::Sim_Reply;
using json_spirit::Object;
using json_spirit::Value;

const char* const ACCESS_KEY = "agent-access-key-never-logged";
const char* const TENANT_KEY = "tenant-key-never-logged";
const char* const OTHER_KEY = "00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff";

std::string base64_of_hex(const std::string& hex) {
  std::string bytes;
  EXPECT_TRUE(Hex_String(hex).get_bytes(bytes));
  return base64_encode(bytes);
}

// Every member a description can have, the pool sealing on the client side.
Object sealed_pool(const std::string& url, const std::string& key_hex = piece_test::KEY) {
  return Object{{"uuid", "u-1"}, {"name", "sealed"}, {"host_uuid", "h-1"}, {"url", url},
                {"device_exists", true}, {"multidevice", true}, {"server_side_encryption", false},
                {"cipher", "aes-256-gcm"}, {"key", base64_of_hex(key_hex)},
                {"iv", base64_of_hex(piece_test::IV)}, {"preferred_source_address", "10.1.1.1"},
                {"tenant_access_key", TENANT_KEY}, {"ext_attrs", Object{{"site", "b"}}},
                {"node_addrs", Object{{"1", "10.0.0.1"}, {"7", "10.0.0.7"}}},
                {"dedup_backend_type", "none"}, {"default_s3", Object{{"region", "eu"}}},
                {"s3_enabled", false}};
}

Value with(Object o, const std::string& key, Value v) {
  o[key] = std::move(v);
  return o;
}

class IO_Factory : public Backupd_Sim_Test {
 protected:
  void SetUp() override {
    Backupd_Sim_Test::SetUp();
    WebSocket_Options::instance()->backupd(HTTP_Server_Address{"127.0.0.1", sim_.port(), false});
    Host_Manager::instance()->access_key(ACCESS_KEY);
    sim_.require_access_key(ACCESS_KEY);
    url_ = "file://" + pool_dir_.path();
    sim_.add_pool("daily", url_);
  }
  void TearDown() override {
    WebSocket_Options::instance()->backupd(HTTP_Server_Address{});
    Host_Manager::instance()->access_key("");
    Backupd_Sim_Test::TearDown();
  }

  // Directory pools are allowed under the test's pool directory only.
  IO_Connection_Factory::Options options(int retry_seconds = 0) const {
    IO_Connection_Factory::Options o;
    o.retry_seconds = retry_seconds;
    o.bounds.local_roots = {pool_dir_.path()};
    return o;
  }

  // Nothing secret in any line logged so far.
  void expect_no_secret_logged() const {
    for (const std::string& secret : {std::string(ACCESS_KEY), std::string(TENANT_KEY),
                                      std::string(piece_test::KEY), base64_of_hex(piece_test::KEY)})
      EXPECT_EQ(std::string::npos, log_.dump().find(secret)) << secret;
  }

  au_test::Temp_Dir pool_dir_;
  std::string url_;
};

TEST_F(IO_Factory, a_pool_is_asked_for_once_with_the_agents_key_device_and_purpose) {
  IO_Connection_Factory::Options o = options();
  o.device_uuid = "dev 1/x";
  o.is_restore = true;
  IO_Connection_Factory factory(std::move(o));
  ASSERT_TRUE(factory);
  sim_.add_pool("odd name/x", url_);
  for (const std::string pool : {"daily", "odd name/x"}) {
    std::unique_ptr<Client_IO_Ex> first = factory(pool);
    std::unique_ptr<Client_IO_Ex> second = factory(pool);
    ASSERT_TRUE(first && second) << log_.dump();
    EXPECT_EQ(factory.get_pool_info(pool), factory.get_pool_info(pool));
    const auto asked = sim_.pool_requests(pool);
    ASSERT_EQ(1u, asked.size()) << pool;
    EXPECT_EQ(ACCESS_KEY, asked[0].header(au_sim::Backupd_Sim::ACCESS_KEY_HEADER));
    EXPECT_EQ("dev 1/x", asked[0].param("device_uuid"));
    EXPECT_EQ("true", asked[0].param("is_restore"));
  }
  EXPECT_EQ("daily", factory.get_pool_info("daily")->name);

  // Without a device none is named.
  IO_Connection_Factory plain(options());
  ASSERT_TRUE(plain("daily"));
  const auto asked = sim_.pool_requests("daily");
  EXPECT_EQ("is_restore=false", asked.back().query);
}

TEST_F(IO_Factory, a_pools_description_reaches_the_connection_options) {
  Client_IO_Base::Options sealed_template = piece_test::options_for(COMPR_NONE, true);
  sealed_template.key = OTHER_KEY;
  const struct {
    const char* name;
    Value description;
    Client_IO_Base::Options templ;
    std::function<void(Client_IO_Base::Options&)> expect;
  } cases[] = {
      {"sealed", sealed_pool(url_), {}, [](Client_IO_Base::Options& e) {
         e.cipher = ENCR_AES_256_GCM;
         e.key = piece_test::KEY;
         e.iv = piece_test::IV;
         e.node_addrs = {{1, "10.0.0.1"}, {7, "10.0.0.7"}};
         e.extra_options["preferred_source_address"] = "10.1.1.1";
         e.access_key = TENANT_KEY;
       }},
      // The pool's claim to seal data itself keeps the agent's own sealing on.
      {"server-side", with(sealed_pool(url_), "server_side_encryption", true), sealed_template,
       [](Client_IO_Base::Options& e) {
         e.node_addrs = {{1, "10.0.0.1"}, {7, "10.0.0.7"}};
         e.extra_options["preferred_source_address"] = "10.1.1.1";
         e.access_key = TENANT_KEY;
       }},
      {"s3", Object{{"uuid", "u-3"}, {"name", "s3"}, {"url", url_}, {"tenant_access_key", TENANT_KEY},
                    {"s3_enabled", true},
                    {"default_s3", Object{{"access_key", "s3-a"}, {"secret_key", "s3-s"}, {"region", "eu"}}}},
       {}, [](Client_IO_Base::Options& e) {
         e.access_key = "s3-a";
         e.secret_key = "s3-s";
         e.extra_options["s3_region"] = "eu";
       }},
  };
  for (const auto& c : cases) {
    sim_.set_pool(c.name, c.description);
    Client_IO_Base::Options templ = c.templ;
    templ.compression_method = COMPR_NONE;
    IO_Connection_Factory factory(std::move(templ), 0);
    factory.options().bounds.local_roots = {pool_dir_.path()};
    std::unique_ptr<Client_IO_Ex> io = factory(c.name);
    ASSERT_TRUE(io) << c.name << "\n" << log_.dump();
    Client_IO_Base::Options expected = c.templ;
    c.expect(expected);
    expected.compression_method = COMPR_AUTO;  // operator()(pool)'s own
    EXPECT_TRUE(expected == io->options()) << c.name << "\n"
                                           << json_spirit::write(io->options().dump(), true);
    EXPECT_EQ(COMPR_LZOP, factory(c.name, COMPR_LZOP)->options().compression_method);
  }
  IO_Connection_Factory factory(options());
  const Pool_Info* info = factory.get_pool_info("sealed");
  ASSERT_TRUE(info);
  EXPECT_TRUE(info->device_exists && info->multidevice && !info->s3_enabled);
  EXPECT_EQ("h-1", info->host_uuid);
  EXPECT_EQ(32u, info->key.size());
  EXPECT_EQ((std::map<std::string, std::string>{{"site", "b"}}), info->ext_attrs);
  EXPECT_EQ((std::map<std::string, std::string>{{"region", "eu"}}), info->default_s3);
  EXPECT_EQ("none", info->dedup_backend_type);
  expect_no_secret_logged();
}

TEST_F(IO_Factory, a_failed_lookup_caches_nothing_and_only_unreachable_or_failing_servers_are_retried) {
  const std::string pool = "p";
  const std::string path = std::string(au_sim::Backupd_Sim::POOLS_PATH) + pool;
  const struct {
    std::function<void(au_sim::Backupd_Sim&)> setup;
    const char* error;  // "" for success
    size_t requests;    // 0: more than one
  } cases[] = {
      {[](au_sim::Backupd_Sim&) {}, "no such pool", 1},
      {[&](au_sim::Backupd_Sim& s) { s.set_pool(pool, Object{{"error", "pool is offline"}}); }, "pool is offline", 1},
      {[&](au_sim::Backupd_Sim& s) { s.set_reply("GET", path, Sim_Reply{403, R"({"error":"forbidden"})"}); },
       "forbidden", 1},
      {[&](au_sim::Backupd_Sim& s) { s.set_pool(pool, Object{{"uuid", "u"}, {"name", pool}}); },
       "unusable reply: JSON member 'url' not exist in JSON object!", 1},
      {[&](au_sim::Backupd_Sim& s) { s.set_pool(pool, with(sealed_pool(url_), "key", base64_encode("short"))); },
       "unusable reply: JSON member 'key' must hold 32 bytes", 1},
      {[&](au_sim::Backupd_Sim& s) { s.inject(path, Sim_Fault::reply(503, "{}", -1)); }, "status 503", 0},
      {[&](au_sim::Backupd_Sim& s) {
         s.add_pool(pool, url_);
         s.inject(path, Sim_Fault::reply(502, "", 2));
       }, "", 3},
      {[&](au_sim::Backupd_Sim& s) {
         s.add_pool(pool, url_);
         s.inject(path, Sim_Fault::drop(1));
       }, "", 2},
  };
  for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
    au_sim::Backupd_Sim sim;
    ASSERT_TRUE(sim.start());
    WebSocket_Options::instance()->backupd(HTTP_Server_Address{"127.0.0.1", sim.port(), false});
    cases[i].setup(sim);
    log_.clear();
    IO_Connection_Factory factory(options(2));
    const bool found = factory(pool) != nullptr;
    const std::string error = cases[i].error;
    EXPECT_EQ(error.empty(), found) << i << "\n" << log_.dump();
    const size_t asked = sim.pool_requests(pool).size();
    if (cases[i].requests == 0) EXPECT_LT(1u, asked) << i;
    else EXPECT_EQ(cases[i].requests, asked) << i;
    if (found) continue;
    EXPECT_EQ(1u, log_.count(LM_ERROR, "Failed to get the description of pool 'p': " + error + "\n"))
        << i << "\n" << log_.dump();
    const auto records = log_.records();
    EXPECT_EQ(1, std::count_if(records.begin(), records.end(),
                               [](const au_test::Captured_Log& r) { return r.priority == LM_ERROR; }))
        << i << " one line, not one per attempt\n" << log_.dump();
    // Nothing cached: the next call asks again.
    sim.clear_faults();
    factory.get_pool_info(pool);
    EXPECT_EQ(asked + 1, sim.pool_requests(pool).size()) << i;
  }
  expect_no_secret_logged();
}

TEST_F(IO_Factory, an_unknown_pool_is_asked_again_once_the_server_knows_it) {
  IO_Connection_Factory factory(options());
  EXPECT_FALSE(factory("later"));
  EXPECT_EQ(nullptr, factory.get_pool_info("later"));
  sim_.add_pool("later", url_);
  EXPECT_TRUE(factory("later")) << log_.dump();
  EXPECT_TRUE(factory("later"));
  EXPECT_EQ(3u, sim_.pool_requests("later").size());
}

TEST_F(IO_Factory, eight_threads_asking_for_a_new_pool_make_one_remote_call) {
  IO_Connection_Factory factory(options());
  // The first answer is slow, so that every thread asks while it is outstanding.
  sim_.inject(std::string(au_sim::Backupd_Sim::POOLS_PATH) + "daily", Sim_Fault::delay(300));
  std::vector<const Pool_Info*> seen(8, nullptr);
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  for (size_t i = 0; i < seen.size(); ++i) {
    threads.emplace_back([&, i] {
      ++ready;
      while (ready < static_cast<int>(seen.size())) std::this_thread::yield();
      seen[i] = factory.get_pool_info("daily");
    });
  }
  for (auto& t : threads) t.join();
  ASSERT_NE(nullptr, seen[0]) << log_.dump();
  for (const Pool_Info* p : seen) EXPECT_EQ(seen[0], p);
  EXPECT_EQ(1u, sim_.pool_requests("daily").size());
}

TEST_F(IO_Factory, an_unaimed_factory_fails_its_lookups) {
  IO_Connection_Factory idle;
  EXPECT_FALSE(idle);
  EXPECT_FALSE(idle("daily"));

  WebSocket_Options::instance()->backupd(HTTP_Server_Address{});
  IO_Connection_Factory nowhere(options());
  EXPECT_FALSE(nowhere);
  EXPECT_TRUE(log_.has_check("host is empty")) << log_.dump();
  EXPECT_FALSE(nowhere("daily"));
  EXPECT_TRUE(sim_.pool_requests("daily").empty());
}

TEST_F(IO_Factory, a_piece_written_through_one_factory_is_read_back_by_another_process) {
  ASSERT_NE("", au_test::agentutil_path());
  sim_.set_pool("sealed", sealed_pool(url_));
  sim_.set_pool("other-key", sealed_pool(url_, OTHER_KEY));
  IO_Connection_Factory factory(options());
  std::unique_ptr<Client_IO_Ex> io = factory("sealed");
  ASSERT_TRUE(io && io->open("job/p1", Client_IO_Base::OPEN_WRITE, 0, 0)) << log_.dump();
  Image_Block_Writer writer(*io);
  uint64_t image_bytes = 0;
  ASSERT_TRUE(writer.begin(piece_test::IMAGE_SIZE, 64 << 10));
  for (const piece_test::Extent& e : piece_test::image_extents()) {
    ASSERT_TRUE(e.data.empty() ? writer.append_zeros(e.offset, e.zeros)
                               : writer.append(e.offset, e.data.data(), e.data.size()));
    image_bytes += e.data.empty() ? e.zeros : e.data.size();
  }
  ASSERT_TRUE(writer.finish() && io->close()) << io->last_error();

  au_test::Temp_Dir scratch;
  const std::string key_file = scratch.write_file("key", std::string(ACCESS_KEY) + "\n");
  const auto pool_verify = [&](const std::string& pool) {
    return au_test::run_agentutil({"pool", "verify", "--server", "127.0.0.1:" + std::to_string(sim_.port()),
                                   "--access-key-file", key_file, "--local-pool-root", pool_dir_.path(),
                                   pool, "job/p1", "--json"},
                                  scratch.path());
  };
  const au_test::Run_Result read_back = pool_verify("sealed");
  ASSERT_EQ(0, read_back.status) << read_back.err;
  const Value printed = parse(read_back.out);
  EXPECT_EQ(Value(image_bytes), printed.get_obj().at("image_bytes"));
  EXPECT_EQ(2u, sim_.pool_requests("sealed").size());  // one per process

  // The piece is sealed with the pool's key: without it, or with another, nothing reads.
  const au_test::Run_Result by_url =
      au_test::run_agentutil({"piece", "verify", url_, "job/p1"}, scratch.path());
  EXPECT_NE(0, by_url.status);
  const au_test::Run_Result other = pool_verify("other-key");
  EXPECT_NE(0, other.status);
  EXPECT_NE(std::string::npos, other.err.find("damaged")) << other.err;
}

// What a description may not make the agent do: write outside the local roots it allows
// (none by default; a link inside a root leads nowhere else), reach S3 without TLS when
// TLS is required. Each refusal is one line naming the pool and the rule.
TEST_F(IO_Factory, a_description_outside_the_agents_bounds_is_refused) {
  au_test::Temp_Dir other;
  ASSERT_EQ(0, ::symlink(other.path().c_str(), (pool_dir_ / "link").c_str()));
  ASSERT_EQ(0, ::mkdir((pool_dir_ / "job7").c_str(), 0700));
  const struct {
    const char* pool;
    std::string url;
    bool allow_root, require_tls, connects;
    std::string rule;
  } cases[] = {
      {"inside", url_ + "/job7", true, false, true, ""},
      {"no-roots", url_, false, false, false, "is outside the allowed local pool roots (none are allowed)"},
      {"etc", "file:///etc", true, false, false, "its url file:///etc is outside the allowed local pool roots"},
      {"dotdot", url_ + "/../x", true, false, false, "is outside the allowed local pool roots"},
      {"link", url_ + "/link", true, false, false, "is outside the allowed local pool roots"},
      {"plain", "s3://127.0.0.1:1/b", true, true, false, "is plain HTTP and the agent requires TLS (s3s://)"},
  };
  for (const auto& c : cases) {
    sim_.add_pool(c.pool, c.url);
    IO_Connection_Factory::Options o = options();
    if (!c.allow_root) o.bounds.local_roots.clear();
    o.bounds.require_tls = c.require_tls;
    IO_Connection_Factory factory(std::move(o));
    log_.clear();
    EXPECT_EQ(c.connects, factory(c.pool) != nullptr) << c.pool << "\n" << log_.dump();
    if (!c.connects) {
      EXPECT_EQ(1u, log_.records().size()) << log_.dump();
      EXPECT_TRUE(log_.has_fragment(LM_ERROR, std::string("Refused pool '") + c.pool + "': " )) << log_.dump();
      EXPECT_TRUE(log_.has_fragment(LM_ERROR, c.rule)) << c.pool << "\n" << log_.dump();
    }
  }
}

TEST_F(IO_Factory, the_rpc_listener_is_used_for_data_only_once_the_agent_has_one) {
  const struct {
    HTTP_Server_Address listener;
    bool used;
  } cases[] = {{{}, false}, {{"127.0.0.1", 0, false}, false}, {{"10.0.0.9", 8443, true}, true}};
  for (const auto& c : cases) {
    HTTP_Options::instance()->local_listen_address(c.listener);
    Client_IO_Base::Options o;
    set_d2t_access_rpc(o);
    EXPECT_EQ(c.used ? Client_IO_Base::D2T_Access_RPC : Client_IO_Base::D2T_Access_Auto, o.d2t_access_mode);
    EXPECT_EQ(c.used ? c.listener.host : "", o.d2t_rpc_host);
    EXPECT_EQ(c.used ? c.listener.port : 0, o.d2t_rpc_port);
  }
  HTTP_Options::instance()->local_listen_address(HTTP_Server_Address{});
}

// The agent's parameters document.
class IO_Factory_Options : public ::testing::Test {
 protected:
  static Object document() {
    return Object{{"is_restore", true}, {"device_uuid", "dev-1"}, {"backupd_ssl", true},
                  {"backupd_port", 50305}, {"backupd_host", "10.0.0.2"}, {"access_key", ACCESS_KEY},
                  {"client_io_opts", Object{{"compression_method", "lzop"}, {"retry_count", 5},
                                            {"node_addrs", Object{{"3", "n3"}}}}},
                  {"retry_seconds", 90}};
  }
  au_test::Log_Capture log_;
};

TEST_F(IO_Factory_Options, the_document_round_trips_through_load_and_dump) {
  IO_Connection_Factory::Options a, b;
  ASSERT_TRUE(a.load(document())) << log_.dump();
  ASSERT_TRUE(b.load(a.dump())) << log_.dump();
  EXPECT_EQ(json_spirit::write(a.dump()), json_spirit::write(b.dump()));
  EXPECT_TRUE(b.client_io_opts == a.client_io_opts);
  EXPECT_EQ(COMPR_LZOP, b.client_io_opts.compression_method);
  EXPECT_EQ(50305, b.port);
  EXPECT_EQ(90, b.retry_seconds);
  EXPECT_TRUE(b.ssl && b.is_restore);
  EXPECT_EQ("dev-1", b.device_uuid);
  EXPECT_EQ(ACCESS_KEY, b.access_key);
  EXPECT_EQ(std::string::npos, json_spirit::JSON_Redacted_Dump(a.dump()).str().find(ACCESS_KEY));
  EXPECT_TRUE(log_.records().empty()) << log_.dump();
}

TEST_F(IO_Factory_Options, a_missing_or_mistyped_key_fails_the_load) {
  const char* const keys[] = {"is_restore", "device_uuid", "backupd_ssl", "backupd_port",
                              "backupd_host", "access_key", "client_io_opts", "retry_seconds"};
  for (const char* key : keys) {
    Object doc = document();
    doc.erase(key);
    log_.clear();
    EXPECT_FALSE(IO_Connection_Factory::Options().load(doc)) << key;
    EXPECT_TRUE(log_.has(LM_ERROR, std::string("Failed to load IO connection params: JSON member '") + key +
                                       "' not exist in JSON object!\n")) << log_.dump();
  }
  const struct {
    const char* key;
    Value value;
    const char* error;
  } mistyped[] = {
      {"is_restore", "yes", "JSON member 'is_restore' holds str_type, not a bool"},
      {"backupd_port", 65536, "JSON member 'backupd_port' holds a number out of range for a port"},
      {"client_io_opts", json_spirit::Array{}, "JSON member 'client_io_opts' holds array_type, not an object"},
      {"retry_seconds", 1.5, "JSON member 'retry_seconds' holds real_type, not an int"},
  };
  for (const auto& m : mistyped) {
    log_.clear();
    EXPECT_FALSE(IO_Connection_Factory::Options().load(with(document(), m.key, m.value))) << m.key;
    EXPECT_TRUE(log_.has(LM_ERROR, std::string("Failed to load IO connection params: ") + m.error + "\n"))
        << log_.dump();
  }
  EXPECT_FALSE(IO_Connection_Factory::Options().load(Value(json_spirit::Array{})));
}

}  // namespace
