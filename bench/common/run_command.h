// Runs a program without a shell and waits for it. The rbd comparison times the tool this
// way, so the peer pays for fork/exec and draining its output, nothing a shell would add.
#pragma once

#include <string>
#include <vector>

namespace cephbench {

// True when argv[0] (looked up in PATH) ran and exited 0. Its stdout lands in *out, or is
// read and dropped when out is null; stderr passes through; stdin is /dev/null.
bool run_command(const std::vector<std::string>& argv, std::string* out);

}  // namespace cephbench
