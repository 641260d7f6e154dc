// Several versions of an external SDK installed side by side, one subdirectory per
// version under one SDK directory:
//
//   SDK_Loader sdk("vendor-sdk", "/opt/norvane/sdk", true);
//   if (Loose_Version v = sdk.latest()) load_from(sdk.path(v));
//
// The list is a snapshot taken by the constructor and by reload(); entries whose
// names are not versions are ignored. A missing or unreadable directory gives an
// empty list. Version order is Loose_Version's.
//
// The caller owns the loader. Its const members may be called from several threads at
// once; reload() must not run while another thread reads.
#pragma once

#include <string>
#include <vector>

#include "framework/base/api.h"
#include "framework/base/directory_iterator.h"
#include "framework/base/loose_version.h"
#include "framework/base/path_conf.h"

class AGENTUTIL_API SDK_Loader {
 public:
  using Versions = std::vector<Loose_Version>;

  // The SDK directory is base_dir/name; `flag` goes to Path_Conf (true: that
  // directory is made when missing; false: only base_dir is).
  SDK_Loader(const char* name, const char* base_dir, bool flag);

  void reload();

  // The newest version; invalid when none is installed.
  Loose_Version latest() const;
  bool has_version(const Loose_Version& v) const;
  bool has_version(const char* v) const;
  // The directory of an installed version (named as it is on disk, even when `v`
  // is spelled differently), or "" when it is not installed.
  std::string path(const Loose_Version& v) const;
  std::string path(const char* v) const;
  // Newest first.
  const Versions& versions() const { return vers_; }

 private:
  const Loose_Version* find(const Loose_Version& v) const;

  Path_Conf sdk_path_;
  Versions vers_;
};

AGENTUTIL_API Loose_Version dir_to_ver(const Directory_Entry_T<char>& entry);
AGENTUTIL_API bool is_ver_valid(const Loose_Version& v);
AGENTUTIL_API std::string ver_to_str(const Loose_Version& v);
