#include "framework/client_io/pool_store.h"

#include <algorithm>

#include "framework/client_io/dir_pool_store.h"
#include "framework/client_io/s3_pool_store.h"

bool valid_piece_name(const std::string& name, std::string& why) {
  if (name.empty() || name.size() > 1024) {
    why = "a piece name must have 1 to 1024 characters";
    return false;
  }
  size_t start = 0;
  while (start <= name.size()) {
    size_t end = name.find('/', start);
    if (end == std::string::npos) end = name.size();
    const std::string part = name.substr(start, end - start);
    if (part.empty() || part[0] == '.') {
      why = "piece name '" + name + "' has an empty or dot-leading component";
      return false;
    }
    start = end + 1;
  }
  for (unsigned char c : name) {
    if (c < 0x20 || c == 0x7f) {
      why = "a piece name must not hold control characters";
      return false;
    }
  }
  return true;
}

std::unique_ptr<Pool_Store> make_pool_store(const std::string& url,
                                            const Client_IO_Base::Options& options,
                                            std::string& error) {
  if (url.rfind("file://", 0) == 0) return Dir_Pool_Store::connect(url.substr(7), options, error);
  if (url.rfind("s3://", 0) == 0 || url.rfind("s3s://", 0) == 0) {
    return S3_Pool_Store::connect(url, options, error);
  }
  // Only the scheme is echoed: a URL may carry credentials.
  const size_t colon = url.find(':');
  error = "unsupported pool URL scheme '" + url.substr(0, std::min<size_t>(colon, 16)) +
          "' (file://, s3:// or s3s://)";
  return nullptr;
}
