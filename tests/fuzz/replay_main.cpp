// Replays kept fuzz inputs through a target without libFuzzer, so the gcc test build runs
// them in `make test` and `make asan`. Arguments are files or directories of files; a
// crash names the input that caused it.
#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) __attribute__((weak));
extern "C" void __sanitizer_set_death_callback(void (*)()) __attribute__((weak));

namespace {

const char* current = "";

void name_input() {
  const char* what = "replay: failed on ";
  (void)!::write(2, what, std::strlen(what));
  (void)!::write(2, current, std::strlen(current));
  (void)!::write(2, "\n", 1);
}

void on_signal(int sig) {
  name_input();
  std::signal(sig, SIG_DFL);
  std::raise(sig);
}

void add_inputs(const std::string& path, std::vector<std::string>& inputs) {
  DIR* dir = ::opendir(path.c_str());
  if (dir == nullptr) {
    inputs.push_back(path);
    return;
  }
  std::vector<std::string> names;
  while (const dirent* e = ::readdir(dir))
    if (e->d_name[0] != '.') names.push_back(path + "/" + e->d_name);
  ::closedir(dir);
  std::sort(names.begin(), names.end());
  inputs.insert(inputs.end(), names.begin(), names.end());
}

}  // namespace

int main(int argc, char** argv) {
  if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
  // __builtin_trap and abort are not the sanitizers' to report; their own deaths are.
  for (int sig : {SIGILL, SIGABRT, SIGSEGV, SIGBUS, SIGFPE})
    if (!__sanitizer_set_death_callback || sig == SIGILL || sig == SIGABRT) std::signal(sig, on_signal);
  if (__sanitizer_set_death_callback) __sanitizer_set_death_callback(name_input);

  std::vector<std::string> inputs;
  for (int i = 1; i < argc; ++i) add_inputs(argv[i], inputs);
  for (const std::string& input : inputs) {
    current = input.c_str();
    std::ifstream in(input, std::ios::binary);
    if (!in) {
      std::fprintf(stderr, "replay: cannot read %s\n", current);
      return 1;
    }
    const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  }
  std::printf("replayed %zu inputs\n", inputs.size());
  // A target with nothing to replay tests nothing.
  return inputs.empty() ? 1 : 0;
}
