#include "utils/agent/oceanstor/dto/lungroup_association.h"

namespace oceanstor {

void write_lungroup_association(json_spirit::Value& out, const std::string& lun_group_id,
                                int object_type, const std::string& object_id) {
  out = json_spirit::Object{{"ASSOCIATEOBJID", object_id},
                            {"ASSOCIATEOBJTYPE", object_type},
                            {"ID", lun_group_id}};
}

}  // namespace oceanstor
