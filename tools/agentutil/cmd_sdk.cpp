// agentutil sdk: the installed versions of an SDK directory, newest first.
#include <sys/stat.h>

#include <iostream>

#include "tools/agentutil/cli_common.h"
#include "tools/agentutil/output.h"
#include "utils/agent/sdk_loader.h"

namespace {

struct Sdk_Args {
  std::string base;
  std::string name;
  std::string version;
};

void add_location(CLI::App* cmd, Sdk_Args& a) {
  cmd->add_option("--base", a.base, "Directory holding the SDK directory")->required();
  cmd->add_option("--name", a.name, "Name of the SDK directory")->required();
}

// The loader makes a missing base directory; a typo on the command line should not.
bool base_exists(const Sdk_Args& a) {
  struct stat st {};
  return ::stat(a.base.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

int list_versions(const Sdk_Args& a) {
  if (!base_exists(a)) return cli::fail("no such directory: " + a.base);
  SDK_Loader sdk(a.name.c_str(), a.base.c_str(), false);
  const Loose_Version latest = sdk.latest();
  if (cli::options().json) {
    json_spirit::Array versions;
    for (const auto& v : sdk.versions()) versions.emplace_back(v.str());
    json_spirit::Object out{{"versions", versions},
                            {"latest", latest ? json_spirit::Value(latest.str()) : json_spirit::Value()}};
    cli::print_json(out);
    return 0;
  }
  if (!latest) return cli::fail("no versions installed under " + a.base + "/" + a.name);
  const auto versions = sdk.versions();
  std::cout << cli::count_of(versions.size(), "version") << " of " << a.name << " under " << a.base
            << ", newest first:\n";
  for (const auto& v : versions) std::cout << "  " << v.str() << (v.str() == latest.str() ? "  (latest)" : "") << "\n";
  return 0;
}

int version_path(const Sdk_Args& a) {
  if (!base_exists(a)) return cli::fail("no such directory: " + a.base);
  SDK_Loader sdk(a.name.c_str(), a.base.c_str(), false);
  const std::string path = sdk.path(a.version.c_str());
  if (path.empty()) return cli::fail("version '" + a.version + "' is not installed");
  if (cli::options().json)
    cli::print_json(json_spirit::Object{{"path", path}});
  else
    std::cout << path << "\n";
  return 0;
}

}  // namespace

void add_sdk_commands(CLI::App& app) {
  static Sdk_Args args;
  CLI::App* sdk = app.add_subcommand("sdk", "SDK versions installed side by side");
  sdk->require_subcommand(1);

  CLI::App* list = sdk->add_subcommand("list", "List installed versions, newest first");
  add_location(list, args);
  cli::set_command(list, [] { return list_versions(args); });

  CLI::App* path = sdk->add_subcommand("path", "Print the directory of one installed version");
  add_location(path, args);
  path->add_option("version", args.version, "Version, e.g. 1.10.3")->required();
  cli::set_command(path, [] { return version_path(args); });
}
