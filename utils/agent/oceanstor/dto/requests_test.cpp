// The bodies the client writes: login credentials and lun-group association requests.
#include <gtest/gtest.h>

#include "framework/json/writer.h"
#include "utils/agent/oceanstor/dto/auth_info.h"
#include "utils/agent/oceanstor/dto/lun_attach_request.h"
#include "utils/agent/oceanstor/dto/lun_detach_request.h"
#include "utils/agent/oceanstor/dto/snapshot_attach_request.h"
#include "utils/agent/oceanstor/dto/snapshot_detach_request.h"

using json_spirit::write;

TEST(OceanStor_Requests, login_body_masks_the_password_in_redacted_text) {
  oceanstor::Auth_Info auth{"", "admin", "S3cret!"};
  json_spirit::Value body = json_spirit::Array{1, 2};
  ASSERT_TRUE(auth >> body);
  EXPECT_EQ(R"({"password":"S3cret!","username":"admin"})", write(body)) << "empty scope left out";
  EXPECT_EQ(R"({"password":"******","username":"admin"})", json_spirit::JSON_Redacted_Dump(body).str());
  auth.scope = "0";
  ASSERT_TRUE(auth >> body);
  EXPECT_EQ(R"({"password":"S3cret!","scope":"0","username":"admin"})", write(body));
}

TEST(OceanStor_Requests, association_bodies_name_group_object_and_type) {
  json_spirit::Value body;
  ASSERT_TRUE((oceanstor::LUN_Attach_Request{"3", "12"} >> body));
  EXPECT_EQ(R"({"ASSOCIATEOBJID":"12","ASSOCIATEOBJTYPE":11,"ID":"3"})", write(body));
  ASSERT_TRUE((oceanstor::LUN_Detach_Request{"4", "13"} >> body));
  EXPECT_EQ(R"({"ASSOCIATEOBJID":"13","ASSOCIATEOBJTYPE":11,"ID":"4"})", write(body));
  ASSERT_TRUE((oceanstor::Snapshot_Attach_Request{"5", "40"} >> body));
  EXPECT_EQ(R"({"ASSOCIATEOBJID":"40","ASSOCIATEOBJTYPE":27,"ID":"5"})", write(body));
  ASSERT_TRUE((oceanstor::Snapshot_Detach_Request{"6", "41"} >> body));
  EXPECT_EQ(R"({"ASSOCIATEOBJID":"41","ASSOCIATEOBJTYPE":27,"ID":"6"})", write(body));
}
