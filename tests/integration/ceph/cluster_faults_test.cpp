// Faults of a live cluster, on a sandbox of the test's own: ctest runs the other ceph tests
// beside this one, and they must never meet a hung OSD. The client time-outs are set the
// way an agent sets them, as Ceph options given to the library.
//
// Each fault is injected from inside the call (a backup's progress, a restore's check after
// each block it hands over, a writer between open and piece), so that it lands while the
// call is under way. The call, client and image closing included (what an agent does
// before it exits), runs under a watchdog far above the time-outs: it must end in false
// with its failure line while the fault lasts, and the same call must succeed once the
// fault is gone.
//
// The OSD is paused (SIGSTOP), not killed: a hung OSD keeps its connections open and
// answers nothing, which is what time-outs are for, and memstore keeps objects only while
// the process lives, so a killed OSD would come back without the image to retry on. A full
// OSD is a filled memstore: its writes get no answer at all (clients hold them, the OSD
// past its fail-safe ratio drops them), only the time-outs end them.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "framework/client_io/client_io_ex.h"
#include "framework/client_io/s3_client.h"
#include "tests/support/ceph_env.h"
#include "tests/support/log_capture.h"
#include "tests/support/sandbox_bucket.h"
#include "tests/support/temp_dir.h"
#include "utils/agent/ceph/ceph_client.h"
#include "utils/agent/ceph/ceph_config.h"
#include "utils/agent/ceph/ceph_image.h"
#include "utils/agent/ceph/ceph_image_backup.h"
#include "utils/agent/ceph/ceph_image_writer.h"
#include "utils/agent/io_connection_factory.h"

namespace {

constexpr uint64_t MiB = 1 << 20;
// Four times the backup's window of reads: a fault after the first block meets reads
// not yet sent.
constexpr uint64_t IMAGE_SIZE = 128 * MiB;
const char* const CLIENT_TIMEOUT = "10";  // seconds, every client time-out
constexpr int HUNG_AFTER = 300;           // seconds: far above any chain of time-outs
const std::string SOURCE = "ceph://rbd/src@s1";

using Inject = std::function<void()>;

class Cluster_Faults : public ::testing::Test {
 protected:
  void SetUp() override {
    AU_REQUIRE_CEPH_OR_SKIP();
    char dir[] = "/tmp/au_faults.XXXXXX";
    ASSERT_NE(nullptr, ::mkdtemp(dir));
    dir_ = dir;
    std::string conf;
    ASSERT_TRUE(sandbox("start", &conf));
    conf_ = conf.substr(0, conf.find('\n'));
    options_ = {"admin", "", ceph::Ceph_Config(shell("cat " + conf_)).options()};
    for (const char* key : {"rados_osd_op_timeout", "rados_mon_op_timeout", "client_mount_timeout"})
      options_.ceph_configs[key] = CLIENT_TIMEOUT;

    ASSERT_TRUE(files_.connect("file://" + pieces_.path(), {}));
    au_test::Sandbox_S3 s3;
    ASSERT_TRUE(au_test::sandbox_s3(s3, conf_));
    Client_IO_Base::Options keys = au_test::Sandbox_Bucket::keys_of(s3);
    keys.resume_buffer_size = MIN_RESUME_BUFFER_SIZE;  // parts go up while the backup runs
    S3_Endpoint endpoint;
    std::string error;
    ASSERT_TRUE(make_s3_endpoint(s3.url + "/pieces", keys, endpoint, error) &&
                S3_Client(endpoint).create_bucket(error)) << error;
    ASSERT_TRUE(s3_.connect(s3.url + "/pieces", keys)) << s3_.last_error();

    // The source: every byte random, so that every block is read, stored and written back.
    ASSERT_TRUE(rbd("create --size " + std::to_string(IMAGE_SIZE >> 20) + "M rbd/src"));
    {
      ceph::Ceph_Client client("admin", options_.ceph_configs, true);
      ceph::Ceph_Image image;
      ASSERT_TRUE(client.open_image("rbd", "src", image, false));
      std::string block(4 * MiB, '\0');
      std::mt19937_64 random(7);
      for (uint64_t at = 0; at < IMAGE_SIZE; at += block.size()) {
        for (char& c : block) c = char(random());
        ASSERT_EQ(int(block.size()), image.write(at, block.size(), block.data(), 0));
      }
    }
    ASSERT_TRUE(rbd("snap create --no-progress rbd/src@s1"));
    source_sum_ = sum("src@s1");
  }

  void TearDown() override {
    if (!dir_.empty()) sandbox("stop");
  }

  static std::string shell(const std::string& command, bool* ok = nullptr) {
    std::string out;
    FILE* pipe = ::popen(command.c_str(), "r");
    char buffer[4096];
    for (size_t n; pipe && (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
    const int status = pipe ? ::pclose(pipe) : -1;
    if (ok) *ok = status == 0;
    return out;
  }

  // scripts/ceph-sandbox COMMAND on this test's directory (found beside this source file).
  bool sandbox(const std::string& command, std::string* out = nullptr) {
    const std::string file = __FILE__, root = file.substr(0, file.rfind("/tests/"));
    bool ok = false;
    const std::string text =
        shell("CEPH_SANDBOX_MEMSTORE_GIB=1 " + root + "/scripts/ceph-sandbox " + command + " " + dir_, &ok);
    if (out) *out = text;
    return ok;
  }

  bool rbd(const std::string& args) { return au_test::run_ceph_cli("rbd " + args, nullptr, conf_); }
  std::string sum(const std::string& image) {
    std::string out;
    au_test::run_ceph_cli("rbd export --no-progress rbd/" + image + " - | md5sum", &out, conf_);
    return out;
  }

  // Runs `call` on a thread of its own. One still running after HUNG_AFTER seconds has
  // hung; its thread cannot be taken back, so the test says so, stops the sandbox and ends.
  bool watched(const std::string& what, const std::function<bool()>& call) {
    std::packaged_task<bool()> task(call);
    std::future<bool> result = task.get_future();
    const auto start = std::chrono::steady_clock::now();
    std::thread thread(std::move(task));
    if (result.wait_for(std::chrono::seconds(HUNG_AFTER)) != std::future_status::ready) {
      std::fprintf(stderr, "cluster faults: %s hung (no result after %d s)\n", what.c_str(), HUNG_AFTER);
      sandbox("stop");
      std::_Exit(1);
    }
    thread.join();
    std::printf("%s: ended after %lld s\n", what.c_str(), static_cast<long long>(std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start).count()));
    return result.get();
  }

  // `call` with `begin` run from its first progress report: it must fail, and log an error
  // line holding `line`. The sandbox command `end` then undoes the fault.
  void fault(const std::string& what, const std::function<bool()>& begin, const std::string& end,
             const std::function<bool(const Inject&)>& call, const std::string& line) {
    logs_.clear();
    bool tried = false, injected = false;
    const bool ok = watched(what, [&] {
      return call([&] {
        if (!tried) injected = (tried = true) && begin();
      });
    });
    ASSERT_TRUE(end.empty() || sandbox(end)) << end;
    ASSERT_TRUE(injected) << what << ": the call ended before the fault";
    EXPECT_FALSE(ok) << what << ": succeeded";
    EXPECT_TRUE(logs_.has_fragment(LM_ERROR, line)) << what << ":\n" << logs_.dump();
    if (!ok && logs_.has_fragment(LM_ERROR, line)) survived_ += (survived_.empty() ? "" : ", ") + what;
    for (const auto& r : logs_.records())
      if (r.priority >= LM_ERROR) std::printf("%s: %s", what.c_str(), r.text.c_str());
  }

  std::function<bool()> command(const std::string& c) {
    return [this, c] { return sandbox(c); };
  }

  bool backup(Client_IO_Base& io, const Inject& inject) {
    ceph::Ceph_Image_Backup b(factory_);
    b.progress_callback() = [&](uint64_t, uint64_t) { inject(); };
    return b.open(options_, SOURCE) && b.backup_to(io, "full", "", 16, nullptr);
  }

  // The piece of `io` into `target` with one writer, `pieces` times (the later ones in an
  // incremental's place, after a flush); `inject` is asked after each block of the last
  // is handed to librbd, so that a fault there meets blocks not yet sent.
  bool restore(Client_IO_Base& io, const std::string& target, const Inject& inject,
               int pieces = 1) {
    ceph::Ceph_Image_Writer w(factory_);
    if (!w.open(options_, "ceph://rbd/" + target)) return false;
    for (int i = 1; i < pieces; ++i)
      if (!w.write_from(io, "full", 4 * MiB, nullptr)) return false;
    w.cancel_callback() = [&] {
      inject();
      return false;
    };
    return w.write_from(io, "full", 4 * MiB, nullptr);
  }

  // True once no client watches `image`: the OSD may keep the watch of a client that ended
  // while it was hung until its watch time-out, and librbd breaks a lock only then.
  bool unwatched(const std::string& image) {
    std::string out;
    for (int i = 0; i < 240; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(500)))
      if (au_test::run_ceph_cli("rbd status rbd/" + image, &out, conf_) &&
          out.find("Watchers: none") != std::string::npos)
        return true;
    return false;
  }

  std::string dir_, conf_, source_sum_, survived_;
  ceph::Options options_;
  au_test::Temp_Dir pieces_;
  Client_IO_Ex files_, s3_;
  IO_Connection_Factory factory_;  // unused: pools are reached by URL
  au_test::Log_Capture logs_;
};

TEST_F(Cluster_Faults, calls_fail_within_the_time_outs_and_succeed_once_the_fault_is_gone) {
  const Inject none = [] {};
  // Backups into a directory pool with the OSD hung, into S3 with the gateway gone: no
  // piece may be left, and the same backup must then succeed.
  const struct {
    std::string what;
    Client_IO_Ex& pool;
    const char *begin, *end, *line;
  } backups[] = {
      {"OSD paused during a backup", files_, "pause-osd", "resume-osd",
       "of Ceph snapshot 'ceph://rbd/src@s1': code 110, msg Connection timed out."},
      {"S3 gateway stopped during a backup", s3_, "stop-gateway", "start-gateway",
       "Failed to write piece 'full': "},
  };
  for (const auto& c : backups) {
    fault(c.what, command(c.begin), c.end, [&](const Inject& inject) { return backup(c.pool, inject); }, c.line);
    std::vector<std::string> names;
    EXPECT_TRUE(c.pool.list("", names) && names.empty()) << c.what << ": a piece is left";
    EXPECT_FALSE(c.pool.open("full", Client_IO_Base::OPEN_READ, 0, 0)) << c.what;
    EXPECT_TRUE(watched(c.what + ", again", [&] { return backup(c.pool, none); })) << logs_.dump();
  }

  // Both pieces restored give the source back.
  for (Client_IO_Ex* pool : {&files_, &s3_}) {
    const std::string target = pool == &s3_ ? "from-s3" : "from-dir";
    ASSERT_TRUE(rbd("create --size " + std::to_string(IMAGE_SIZE >> 20) + "M rbd/" + target));
    ASSERT_TRUE(watched("restore", [&] { return restore(*pool, target, none); })) << logs_.dump();
    EXPECT_EQ(source_sum_, sum(target)) << target;
  }

  // The OSD paused in a restore's second piece, where librbd's write-around cache would be
  // on after the first piece's flush: its blocks must fail, not be taken by the cache.
  fault("OSD paused during a restore", command("pause-osd"), "resume-osd",
        [&](const Inject& inject) { return restore(files_, "from-dir", inject, 2); },
        "to Ceph image 'ceph://rbd/from-dir', errno=110, Connection timed out\n");
  // A full OSD holds writes without an answer. The image is opened before it fills, as a
  // restore's is, so its first write must not wait on the exclusive lock either.
  ASSERT_TRUE(rbd("create --size " + std::to_string(IMAGE_SIZE >> 20) + "M rbd/into-full"));
  fault("OSD full during a restore", command("fill-osd"), "unfill-osd",
        [&](const Inject& inject) {
          ceph::Ceph_Image_Writer w(factory_);
          if (!w.open(options_, "ceph://rbd/into-full")) return false;
          inject();
          return w.write_from(files_, "full", 4 * MiB, nullptr);
        },
        "to Ceph image 'ceph://rbd/into-full', errno=110, Connection timed out\n");
  // Each again once the fault is gone, taking over the lock its dead writer left.
  for (const std::string target : {"from-dir", "into-full"}) {
    ASSERT_TRUE(unwatched(target)) << target;
    EXPECT_TRUE(watched(target + ", again", [&] { return restore(files_, target, none); })) << logs_.dump();
    EXPECT_EQ(source_sum_, sum(target)) << target;
  }

  std::printf("cluster faults: %d faults survived (%s)\n",
              int(std::count(survived_.begin(), survived_.end(), ',') + !survived_.empty()), survived_.c_str());
}

}  // namespace
