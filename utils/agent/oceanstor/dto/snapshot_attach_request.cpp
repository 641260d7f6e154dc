#include "utils/agent/oceanstor/dto/snapshot_attach_request.h"

#include "utils/agent/oceanstor/dto/lungroup_association.h"
#include "utils/agent/oceanstor/dto/object_type.h"

namespace oceanstor {

bool Snapshot_Attach_Request::operator>>(json_spirit::Value& json) const {
  write_lungroup_association(json, lun_group_id, SNAPSHOT_OBJECT_TYPE, snap_id);
  return true;
}

}  // namespace oceanstor
