#include "utils/agent/instance_manager.h"

#include <ace/Log_Msg.h>

#include "framework/log/check.h"

Instance_Manager* Instance_Manager::instance() {
  static Instance_Manager manager;
  return &manager;
}

bool Instance_Manager::add_instance(const Instance_Ptr& instance) {
  if (AU_IS_NULL(instance)) return false;
  if (AU_IS_EMPTY(instance->uuid)) return false;
  std::lock_guard<std::mutex> lock(mutex_);
  if (!instances_.emplace(instance->uuid, instance).second) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Instance %C(uuid %C) is already registered.\n"),
               instance->name.c_str(), instance->uuid.c_str()));
    return false;
  }
  return true;
}

bool Instance_Manager::remove_instance(const Instance_Ptr& instance) {
  if (AU_IS_NULL(instance)) return false;
  std::lock_guard<std::mutex> lock(mutex_);
  if (instances_.erase(instance->uuid) == 0) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Instance %C(uuid %C) is not registered.\n"),
               instance->name.c_str(), instance->uuid.c_str()));
    return false;
  }
  return true;
}

Instance_Ptr Instance_Manager::find(const std::string& uuid) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = instances_.find(uuid);
  return it == instances_.end() ? Instance_Ptr() : it->second;
}

std::size_t Instance_Manager::size() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return instances_.size();
}

void Instance_Manager::clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  instances_.clear();
}
