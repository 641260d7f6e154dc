#include "utils/agent/oceanstor/dto/lun_attach_request.h"

#include "utils/agent/oceanstor/dto/lungroup_association.h"
#include "utils/agent/oceanstor/dto/object_type.h"

namespace oceanstor {

bool LUN_Attach_Request::operator>>(json_spirit::Value& json) const {
  write_lungroup_association(json, lun_group_id, LUN_OBJECT_TYPE, lun_id);
  return true;
}

}  // namespace oceanstor
