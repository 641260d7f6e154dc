// An agent's view of the installed package: headers by repository path, one library.
#include <cstdio>

#include "utils/agent/ceph/uri_components.h"
#include "utils/agent/sdk_loader.h"

int main() {
  const ceph::URI_Components uri("rbd/vm1@s1");
  SDK_Loader sdk("no-such-sdk", "/nonexistent-agentutil-check", false);
  std::printf("%s\n", uri.to_uri().c_str());
  return uri.type == ceph::URI_Components::SNAPSHOT && !sdk.latest() ? 0 : 1;
}
