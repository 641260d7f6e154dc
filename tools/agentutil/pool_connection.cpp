#include "tools/agentutil/pool_connection.h"

#include <cstdlib>
#include <memory>

#include "framework/json/reader.h"
#include "tools/agentutil/cli_common.h"
#include "tools/agentutil/secret_input.h"

namespace cli {

bool load_client_io_options(const std::string& options_file, Client_IO_Base::Options& o) {
  if (!options_file.empty()) {
    // The file holds pool keys (S3, encryption): private, as any secret.
    std::string text;
    if (!read_private_file(options_file, "client I/O options", text)) return false;
    json_spirit::Value doc;
    if (!json_spirit::read(text, doc)) {
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

Piece_Chain::Connect pool_connector(const std::string& url, const std::string& options_file) {
  return [url, options_file]() -> std::unique_ptr<Client_IO_Base> {
    auto io = std::make_unique<Client_IO_Ex>();
    if (!connect_pool(url, options_file, *io)) return nullptr;
    return io;
  };
}

bool load_chain(const Piece_Chain::Connect& connect, const std::vector<std::string>& pieces,
                Piece_Chain& chain) {
  const bool ok = pieces.size() == 1 ? chain.load_from_newest(connect, pieces.front())
                                     : chain.load_list(connect, pieces);
  if (ok) return true;
  fail(pieces.size() == 1 ? "no valid chain ends at piece " + pieces.front()
                          : "the pieces given are not one valid chain, oldest first");
  return false;
}

}  // namespace cli
