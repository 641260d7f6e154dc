#include "tools/agentutil/pool_connection.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "framework/json/reader.h"
#include "tools/agentutil/cli_common.h"

namespace cli {

bool load_client_io_options(const std::string& options_file, Client_IO_Base::Options& o) {
  if (!options_file.empty()) {
    std::ifstream in(options_file);
    std::stringstream text;
    text << in.rdbuf();
    json_spirit::Value doc;
    if (!in || !json_spirit::read(text.str(), doc)) {
      fail("cannot read client I/O options from " + options_file);
      return false;
    }
    if (!o.load(doc)) {
      fail("bad client I/O options in " + options_file);
      return false;
    }
  }
  const char* access = std::getenv("AGENTUTIL_S3_ACCESS_KEY");
  const char* secret = std::getenv("AGENTUTIL_S3_SECRET_KEY");
  if (o.access_key.empty() && access) o.access_key = access;
  if (o.secret_key.empty() && secret) o.secret_key = secret;
  return true;
}

bool connect_pool(const std::string& url, const std::string& options_file, Client_IO_Ex& io) {
  Client_IO_Base::Options o;
  if (!load_client_io_options(options_file, o)) return false;
  if (io.connect(url, o)) return true;
  fail("cannot reach pool " + url + ": " + io.last_error());
  return false;
}

}  // namespace cli
