#include "utils/agent/sdk_loader.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <boost/range/adaptor/filtered.hpp>
#include <boost/range/adaptor/transformed.hpp>
#include <boost/range/algorithm_ext/push_back.hpp>
#include <cerrno>
#include <functional>

#include "framework/base/path.h"

Loose_Version dir_to_ver(const Directory_Entry_T<char>& entry) {
  return Loose_Version(entry.name());
}

bool is_ver_valid(const Loose_Version& v) { return static_cast<bool>(v); }

std::string ver_to_str(const Loose_Version& v) { return v.str(); }

SDK_Loader::SDK_Loader(const char* name, const char* base_dir, bool flag)
    : sdk_path_(base_dir, flag, name, 0750) {
  reload();
}

void SDK_Loader::reload() {
  vers_.clear();
  Directory_Reader reader(sdk_path_.c_str());
  boost::push_back(vers_, iterate_directory(reader) | boost::adaptors::transformed(dir_to_ver) |
                              boost::adaptors::filtered(is_ver_valid));
  // Not being installed at all is an answer, not a failure.
  if (reader.last_error() != 0 && reader.last_error() != ENOENT) {
    errno = reader.last_error();
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to read SDK directory %C, errno=%d, %m\n"),
               sdk_path_.c_str(), reader.last_error()));
  }
  std::sort(vers_.begin(), vers_.end(), std::greater<Loose_Version>());
}

Loose_Version SDK_Loader::latest() const { return vers_.empty() ? Loose_Version() : vers_.front(); }

const Loose_Version* SDK_Loader::find(const Loose_Version& v) const {
  if (!v) return nullptr;
  const auto it = std::find(vers_.begin(), vers_.end(), v);
  return it == vers_.end() ? nullptr : &*it;
}

bool SDK_Loader::has_version(const Loose_Version& v) const { return find(v) != nullptr; }

bool SDK_Loader::has_version(const char* v) const { return has_version(Loose_Version(v)); }

std::string SDK_Loader::path(const Loose_Version& v) const {
  const Loose_Version* installed = find(v);
  if (installed == nullptr) return std::string();
  return nvrt::Path_T<char>(sdk_path_.str(), installed->str(), '/', true).str();
}

std::string SDK_Loader::path(const char* v) const { return path(Loose_Version(v)); }
