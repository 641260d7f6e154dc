#include "utils/agent/oceanstor/dto/auth_info.h"

#include <utility>

#include "framework/json/insert.h"

namespace oceanstor {

bool Auth_Info::operator>>(json_spirit::Value& json) const {
  json_spirit::Object body{{"username", username},
                           {"password", json_spirit::Value::secure(password)}};
  json_spirit::insert_if_not_empty(body, "scope", scope);
  json = std::move(body);
  return true;
}

}  // namespace oceanstor
