// oceanstor-sim: the OceanStor device-manager simulator as a program, for demos and
// manual checks. Prints its port and device id, serves until SIGINT or SIGTERM.
//
//   oceanstor-sim [--port N] [--https [--cert FILE --key FILE]] [--device-dir DIR]
//
// --https without a certificate makes a self-signed one for localhost and 127.0.0.1 and
// prints the path of its PEM file as a third line (a client's CA file).
// It starts with one LUN "1" (1 GiB, chunks 0 and 5 written), its snapshot "2" (and
// chunk 7 written after it), lun group "3", host "4" in that group with one healthy FC
// link, and LUN "5" (the size of LUN 1, unwritten) to restore into. Log in as admin /
// Admin@storage1. With --device-dir, mapped LUNs and snapshots appear in DIR as
// wwn-0x<WWN> files holding their bytes (the directory must exist).
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "sim/common/self_signed_certificate.h"
#include "sim/common/stop_signals.h"
#include "sim/oceanstor/oceanstor_sim.h"

namespace {

// Long enough for a demo session that runs for days.
constexpr int DEMO_CERT_DAYS = 30;

struct Options {
  unsigned short port = 0;
  bool https = false;
  std::string cert;
  std::string key;
  std::string device_dir;
};

bool parse(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const bool has_value = i + 1 < argc;
    if (std::strcmp(argv[i], "--port") == 0 && has_value) {
      char* end = nullptr;
      const long value = std::strtol(argv[++i], &end, 10);
      if (end == argv[i] || *end != '\0' || value < 0 || value > 65535) return false;
      options.port = static_cast<unsigned short>(value);
    } else if (std::strcmp(argv[i], "--https") == 0) {
      options.https = true;
    } else if (std::strcmp(argv[i], "--cert") == 0 && has_value) {
      options.cert = argv[++i];
    } else if (std::strcmp(argv[i], "--key") == 0 && has_value) {
      options.key = argv[++i];
    } else if (std::strcmp(argv[i], "--device-dir") == 0 && has_value && argv[i + 1][0] != '\0') {
      options.device_dir = argv[++i];
    } else {
      return false;
    }
  }
  return options.cert.empty() == options.key.empty();
}

void populate(au_sim::OceanStor_Sim& sim) {
  constexpr uint64_t LUN_BYTES = 1ULL << 30;
  sim.add_lun("1", "demo_lun", LUN_BYTES);
  sim.write_chunk("1", 0, "boot");
  sim.write_chunk("1", 5, "data");
  sim.add_snapshot("2", "demo_snap", "1");
  sim.write_chunk("1", 7, "new");
  sim.add_lun_group("3");
  sim.add_host("4", "demo_host", "3");
  sim.add_host_link("4", "10", "1", "27");
  sim.add_lun("5", "restore_lun", LUN_BYTES);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!parse(argc, argv, options)) {
    std::fprintf(stderr, "usage: %s [--port N] [--https [--cert FILE --key FILE]] [--device-dir DIR]\n", argv[0]);
    return 2;
  }
  struct stat dir_stat;
  if (!options.device_dir.empty() &&
      (::stat(options.device_dir.c_str(), &dir_stat) != 0 || !S_ISDIR(dir_stat.st_mode))) {
    std::fprintf(stderr, "oceanstor-sim: no directory %s\n", options.device_dir.c_str());
    return 2;
  }
  const au_sim::Stop_Signals stop_signals;  // before the server's threads start

  std::unique_ptr<au_sim::Self_Signed_Certificate> demo_cert;  // --https without files
  if (options.https && options.cert.empty()) {
    demo_cert.reset(new au_sim::Self_Signed_Certificate(DEMO_CERT_DAYS));
    if (!demo_cert->ok()) {
      std::fprintf(stderr, "oceanstor-sim: cannot make a certificate\n");
      return 1;
    }
    options.cert = demo_cert->cert_file();
    options.key = demo_cert->key_file();
  }
  std::unique_ptr<au_sim::OceanStor_Sim> sim(options.https ? new au_sim::OceanStor_Sim(options.cert, options.key)
                                                           : new au_sim::OceanStor_Sim());
  sim->set_device_dir(options.device_dir);
  populate(*sim);
  if (!sim->start(options.port)) {
    std::fprintf(stderr, "oceanstor-sim: cannot listen on 127.0.0.1:%u\n", options.port);
    return 1;
  }
  std::printf("%u\n%s\n", sim->port(), sim->device_id().c_str());
  if (options.https) std::printf("%s\n", options.cert.c_str());
  std::fflush(stdout);
  stop_signals.wait();
  sim->stop();
  return 0;
}
