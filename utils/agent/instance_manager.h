// The agent's local registry of the instances it manages, by uuid. The instance
// requests keep it in step with the backup server's view.
//
// One per process (instance()), never destroyed before exit. Every member may be called
// from any thread: one mutex guards the registry. The registry shares ownership of the
// instances it holds; find() hands out a shared pointer that stays valid after removal.
#pragma once

#include <map>
#include <mutex>
#include <string>

#include "framework/base/api.h"
#include "utils/agent/instance.h"

class AGENTUTIL_API Instance_Manager {
 public:
  static Instance_Manager* instance();

  // False (with one log line) for an instance without uuid or one already there.
  bool add_instance(const Instance_Ptr& instance);
  // False (with one log line) when no instance has that uuid.
  bool remove_instance(const Instance_Ptr& instance);
  Instance_Ptr find(const std::string& uuid) const;
  std::size_t size() const;
  void clear();

 private:
  mutable std::mutex mutex_;
  std::map<std::string, Instance_Ptr> instances_;
};
