// Ceph configuration text (INI, as in ceph.conf) turned into the option map that
// Ceph_Client applies with rados_conf_set.
#pragma once

#include <map>
#include <string>

#include "framework/base/api.h"
#include "framework/json/value.h"

namespace ceph {

class AGENTUTIL_API Ceph_Config {
 public:
  // `text` is the INI content itself, not a file name. Keys of [global] keep their
  // name, others become "<section>_<key>"; the first occurrence of a name wins. A parse
  // error is logged and keeps the options read before it.
  explicit Ceph_Config(const std::string& text);

  // True when at least one option was read.
  explicit operator bool() const { return !options_.empty(); }

  const std::map<std::string, json_spirit::Value>& options() const { return options_; }

 private:
  std::map<std::string, json_spirit::Value> options_;
};

}  // namespace ceph
