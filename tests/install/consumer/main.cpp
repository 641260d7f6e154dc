// An agent's view of the installed package: headers by repository path, one library.
// It uses iostreams on purpose: an executable that holds copy-relocated std::cerr is the
// case where a deep-bound libceph-common used to crash on its first line to stderr.
#include <iostream>

#include "framework/json/reader.h"
#include "framework/json/writer.h"
#include "utils/agent/ceph/ceph_client.h"
#include "utils/agent/ceph/librados_wrapper.h"
#include "utils/agent/ceph/librbd_wrapper.h"
#include "utils/agent/ceph/uri_components.h"
#include "utils/agent/sdk_loader.h"

int main() {
  const ceph::URI_Components uri("rbd/vm1@s1");
  SDK_Loader sdk("no-such-sdk", "/nonexistent-agentutil-check", false);
  std::cout << uri.to_uri() << "\n";
  if (uri.type != ceph::URI_Components::SNAPSHOT || sdk.latest()) return 1;
  json_spirit::Value parsed;
  if (!json_spirit::read("{\"pool\":\"rbd\"}", parsed) ||
      json_spirit::write(parsed) != "{\"pool\":\"rbd\"}")
    return 1;

  // Ceph configuration mistakes make Ceph write to stderr; the agent must get false.
  ceph::Ceph_Client unconfigured("admin", true);
  const ceph::Ceph_Client::Options unreachable_monitor = {
      {"mon_host", json_spirit::Value("127.0.0.1:1")},
      {"client_mount_timeout", json_spirit::Value("2")}};
  ceph::Ceph_Client unreachable("admin", true);
  const bool connected = unconfigured.connect() || unreachable.connect(unreachable_monitor);
  std::cerr << "agent: connect " << (connected ? "succeeded" : "failed") << "\n";
  // The bound pointers are the agent's too: declared by the wrapper headers, exported.
  // librados is bound by the connect above; librbd only once an image is opened.
  decltype(&::rbd_open)* volatile rbd_open = &ceph::rbd_open;
  if (ceph::rados_create == nullptr || rbd_open == nullptr) return 1;
  return connected ? 1 : 0;
}
