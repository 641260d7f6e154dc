#include "framework/json/extract.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>

#include "framework/json/insert.h"
#include "framework/json/reader.h"

using namespace json_spirit;

namespace {

Value doc(const char* text) {
  Value v;
  EXPECT_TRUE(read(text, v)) << text;
  return v;
}

// The what() of the runtime_error `f` throws.
template <class F>
std::string thrown(F f) {
  try {
    f();
  } catch (const std::runtime_error& e) {
    return e.what();
  }
  return "(nothing thrown)";
}

}  // namespace

TEST(Json_Extract, pointers_follow_rfc_6901) {
  const Value v = doc(R"({"data": {"ID": "7", "list": [10, {"x": true}]}, "a/b": 1, "m~n": 2,
                          "": 3, "01": 4})");
  const JSON_Pointer_Extractor ex(v);
  EXPECT_EQ(ex.find(""), &v);
  EXPECT_EQ(*ex.find("/data/list/1/x"), Value(true));
  EXPECT_EQ(*ex.find("/a~1b"), Value(1));
  EXPECT_EQ(*ex.find("/m~0n"), Value(2));
  EXPECT_EQ(*ex.find("/"), Value(3));
  EXPECT_EQ(*ex.find("/01"), Value(4)) << "object members are names, not indices";
  EXPECT_EQ(ex.find("/data/list/2"), nullptr);
  EXPECT_EQ(ex.find("/data/list/-"), nullptr);
  EXPECT_EQ(ex.find("/data/list/01"), nullptr);
  EXPECT_EQ(ex.find("/data/list/+1"), nullptr);
  EXPECT_EQ(ex.find("/data/ID/x"), nullptr);
  EXPECT_EQ(ex.find("/nothing/deeper"), nullptr);
  EXPECT_EQ(thrown([&] { ex.find("data"); }), "Invalid JSON Pointer 'data'");
  EXPECT_EQ(thrown([&] { ex.find("/m~2n"); }), "Invalid JSON Pointer '/m~2n'");
  EXPECT_EQ(thrown([&] { ex.find("/missing/a~"); }), "Invalid JSON Pointer '/missing/a~'");
}

TEST(Json_Extract, required_and_optional_fields) {
  const Value v = doc(R"({"data": {"deviceid": "dev-1", "n": 5, "r": 2.5, "b": false}})");
  const JSON_Pointer_Extractor ex(v);
  std::string id;
  EXPECT_TRUE(ex.extract("/data/deviceid", id, true));
  EXPECT_EQ(id, "dev-1");

  std::string kept = "kept";
  EXPECT_FALSE(ex.extract("/data/missing", kept, false));
  EXPECT_EQ(kept, "kept");
  EXPECT_EQ(thrown([&] { ex.extract("/data/missing", kept, true); }),
            "JSON Pointer path '/data/missing' not exist in JSON!");
  EXPECT_EQ(thrown([&] { ex.extract("/data/n", kept, false); }),
            "JSON Pointer path '/data/n' holds int_type, not a string");
  EXPECT_EQ(kept, "kept");

  double d = 0;
  EXPECT_TRUE(ex.extract("/data/r", d, true));
  EXPECT_EQ(d, 2.5);
  EXPECT_TRUE(ex.extract("/data/n", d, true));
  EXPECT_EQ(d, 5.0);
  bool b = true;
  EXPECT_TRUE(ex.extract("/data/b", b, true));
  EXPECT_FALSE(b);
  EXPECT_EQ(thrown([&] { ex.extract("/data/deviceid", b, true); }),
            "JSON Pointer path '/data/deviceid' holds str_type, not a bool");
  Value sub;
  EXPECT_TRUE(ex.extract("/data", sub, true));
  EXPECT_EQ(sub.get_obj().size(), 4u);
}

TEST(Json_Extract, integers_from_numbers_or_decimal_strings) {
  const Value v = doc(R"({"n": 11, "s": "27", "neg": "-3", "big": "18446744073709551615",
                          "max": 18446744073709551615, "min": -9223372036854775808,
                          "pad": " 1", "junk": "12a", "empty": "", "plus": "+1", "real": 1.5,
                          "hex": "0x10", "i32": 2147483648})");
  const JSON_Pointer_Extractor ex(v);
  int i = 0;
  unsigned u = 0;
  int64_t i64 = 0;
  uint64_t u64 = 0;
  EXPECT_TRUE(ex.extract("/n", i, true) && i == 11) << i;
  EXPECT_TRUE(ex.extract("/s", u, true) && u == 27u) << u;
  EXPECT_TRUE(ex.extract("/neg", i64, true) && i64 == -3) << i64;
  EXPECT_TRUE(ex.extract("/big", u64, true) && u64 == UINT64_MAX) << u64;
  u64 = 0;
  EXPECT_TRUE(ex.extract("/max", u64, true) && u64 == UINT64_MAX) << u64;
  EXPECT_TRUE(ex.extract("/min", i64, true) && i64 == INT64_MIN) << i64;

  EXPECT_EQ(thrown([&] { ex.extract("/neg", u, true); }),
            "JSON Pointer path '/neg' holds a string that is not an unsigned int");
  EXPECT_EQ(thrown([&] { ex.extract("/big", i, true); }),
            "JSON Pointer path '/big' holds a number out of range for an int");
  EXPECT_EQ(thrown([&] { ex.extract("/max", i64, true); }),
            "JSON Pointer path '/max' holds a number out of range for an int64");
  EXPECT_EQ(thrown([&] { ex.extract("/min", u64, true); }),
            "JSON Pointer path '/min' holds a number out of range for a uint64");
  EXPECT_EQ(thrown([&] { ex.extract("/i32", i, true); }),
            "JSON Pointer path '/i32' holds a number out of range for an int");
  EXPECT_EQ(thrown([&] { ex.extract("/real", i, true); }),
            "JSON Pointer path '/real' holds real_type, not an int");
  for (const char* bad : {"/pad", "/junk", "/empty", "/plus", "/hex"})
    EXPECT_EQ(thrown([&] { ex.extract(bad, i, false); }),
              std::string("JSON Pointer path '") + bad + "' holds a string that is not an int");
  EXPECT_EQ(i, 11) << "a failed conversion leaves the target as it was";
}

TEST(Json_Extract, object_members) {
  const Value host = doc(R"({"TYPE": "21", "ID": "0", "HEALTHSTATUS": 1})");
  int type = 0;
  std::string id;
  extract_member(host, "TYPE", type);
  extract_member(host, "ID", id);
  EXPECT_EQ(type, 21);
  EXPECT_EQ(id, "0");
  EXPECT_EQ(thrown([&] { extract_member(host, "NAME", id); }),
            "JSON member 'NAME' not exist in JSON object!");
  EXPECT_EQ(thrown([&] { extract_member(host, "HEALTHSTATUS", id); }),
            "JSON member 'HEALTHSTATUS' holds int_type, not a string");
  EXPECT_EQ(thrown([&] { extract_member(Value(Array()), "ID", id); }),
            "JSON value is array_type, not obj_type");
}

TEST(Json_Extract, skip_empty_insertion) {
  Object body;
  const std::string empty, scope = "0";
  const int* no_number = nullptr;
  const int number = 9;
  EXPECT_FALSE(insert_if_not_empty(body, "a", empty));
  EXPECT_FALSE(insert_if_not_empty(body, "b", static_cast<const char*>(nullptr)));
  EXPECT_FALSE(insert_if_not_empty(body, "c", ""));
  EXPECT_FALSE(insert_if_not_null(body, "d", no_number));
  EXPECT_TRUE(body.empty());
  EXPECT_TRUE(insert_if_not_empty(body, "scope", scope));
  EXPECT_TRUE(insert_if_not_null(body, "n", &number));
  EXPECT_TRUE(insert_if_not_null(body, "s", "text"));
  EXPECT_EQ(Value(body), Value(Object{{"scope", "0"}, {"n", 9}, {"s", "text"}}));
}
